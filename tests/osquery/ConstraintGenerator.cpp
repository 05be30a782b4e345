#include "tests/osquery/ConstraintGenerator.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace ConstraintTest {

namespace {

// What narrows a search stands here more often than what does not.
const char* const kColumns[] = {"ip",        "first_seen", "last_seen",  "proc_fpath", "proc_md5",    "proc_qid",
                                "proc_puid", "ip",         "first_seen", "last_seen",  "proc_fpath",  "proc_fpath",
                                "proc_puid", "port",       "protos",     "proc_pid",   "conns_total", "conns_in",
                                "conns_out", "bytes_in",   "bytes_out"};
const char* const kAffinities[] = {"TEXT", "INTEGER", "BIGINT", "UNSIGNED BIGINT", "DOUBLE", "BLOB"};
constexpr u64 kOperators[] = {1, 2, 4, 8, 16, 32, 64, 65, 66, 67};
constexpr u64 kNoOperators[] = {0, 3, 5, 63, 68, 255, 258, 4294967298};
constexpr u64 kComparisons[] = {2, 4, 8, 16, 32};
constexpr std::size_t kTooMany = 129;

}  // namespace

const TableRow& ConstraintGenerator::Row() {
  return Chance(75) ? *about_ : Pick(rows_);
}

std::string ConstraintGenerator::Recased(std::string text) {
  for (char& character : text) {
    const auto letter = static_cast<unsigned char>(character);
    if (letter < 0x80 && Chance(50)) {
      character = static_cast<char>(std::isupper(letter) != 0 ? std::tolower(letter) : std::toupper(letter));
    }
  }
  return text;
}

ConstraintSet ConstraintGenerator::Next() {
  about_ = &Pick(rows_);
  ConstraintSet set;
  if (Chance(10)) {
    set = Lasting();
  }
  const u64 columns = set.size() + 1 + Below(4);
  while (set.size() < columns) {
    std::string name = Chance(2) ? "proc_name" : Pick(kColumns);
    name = Chance(10) ? Recased(name) : name;
    const auto same = [&name](const ColumnConditions& column) { return column.column == name; };
    if (std::none_of(set.begin(), set.end(), same)) {
      set.push_back(NextColumn(name));
    }
  }
  return set;
}

ConstraintSet ConstraintGenerator::Lasting() {
  const edr_netdb& row = Row().shown;
  const u64 middle = (row.first_seen() + row.last_seen()) / 2;
  return {{"first_seen", "BIGINT", true, {{8, NumberValue(middle + 1000)}}},
          {"last_seen", "BIGINT", true, {{32, NumberValue(middle - 1000)}}}};
}

std::string ConstraintGenerator::NextColumns(std::vector<std::string>& chosen) {
  chosen.clear();
  if (Chance(60)) {
    return Chance(80) ? "*" : "";
  }
  std::string columns;
  for (u64 i = 1 + Below(5); i > 0; --i) {
    chosen.emplace_back(Pick(kColumns));
    columns += (Chance(30) ? " " : "") + Recased(chosen.back()) + (Chance(20) ? " \t," : ",");
  }
  return columns;
}

ColumnConditions ConstraintGenerator::NextColumn(const std::string& name) {
  ColumnConditions column{name, Pick(kAffinities), !Chance(1), {}};
  if (Chance(10)) {
    column.affinity = Recased(column.affinity);
  }
  if (Chance(1)) {
    column.affinity = Chance(50) ? "" : "NUMBER";
  }
  if (column.hasList) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    column.list.resize(Below(200) == 0 ? kTooMany : (Chance(5) ? 0 : 1 + Below(3)));
    for (Condition& condition : column.list) {
      condition.op = NextOperator(lower);
      condition.value = NextValue(lower, condition.op);
    }
  }
  return column;
}

u64 ConstraintGenerator::NextOperator(const std::string& column) {
  if (Chance(4)) {
    return Pick(kNoOperators);
  }
  if (Chance(10)) {
    return Pick(kOperators);
  }
  if (column == "proc_fpath") {
    return Chance(50) ? 2 : 65;
  }
  const bool isTime = column == "first_seen" || column == "last_seen";
  return isTime && !Chance(15) ? Pick(kComparisons) : 2;
}

Value ConstraintGenerator::OddValue() {
  switch (Below(8)) {
    case 0:
      return {};
    case 1:
      return {Value::Kind::kNull, 0, ""};
    case 2:
      return {Value::Kind::kBool, 0, ""};
    case 3:
      return {Value::Kind::kNegative, 1 + Below(100), ""};
    case 4:
      return {Value::Kind::kReal, 0, Chance(50) ? "1700000000000.5" : "18446744073709551616"};
    case 5:
      return {Value::Kind::kList, 0, ""};
    case 6:
      return {Value::Kind::kDictionary, 0, ""};
    default:
      return Value::Text("12a");
  }
}

Value ConstraintGenerator::NextValue(const std::string& column, u64 op) {
  const edr_netdb& row = Row().shown;
  if (Chance(2)) {
    return OddValue();
  }
  if (column == "ip") {
    return AddressValue();
  }
  if (column == "first_seen" || column == "last_seen") {
    return TimeValue();
  }
  if (column == "proc_fpath") {
    return PathValue(op == 65);
  }
  if (column == "proc_md5") {
    return DigestValue(row.proc_md5());
  }
  if (column == "proc_qid") {
    return DigestValue(row.proc_qid());
  }
  if (column == "protos") {
    return Value::Text(row.protos());
  }
  return NumberValue(column == "proc_puid" ? row.proc_puid() : (Chance(50) ? row.port() : row.bytes_in()));
}

Value ConstraintGenerator::AddressValue() {
  static const char* const kOthers[] = {"256.1.1.1", "1.2.3", "1.2.3.04", "", "1.2.3.4 ", "203.0.113.77", "localhost"};
  if (Chance(4)) {
    return Value::Text(Chance(80) ? "2001:db8::1" : "1:2");
  }
  return Value::Text(Chance(4) ? Pick(kOthers) : Row().shown.ip());
}

Value ConstraintGenerator::TimeValue() {
  static constexpr u64 kAway[] = {0, 1, 500, 999, 1000, 60000, 3600000, 86400000};
  const edr_netdb& row = Row().shown;
  const u64 time = Chance(50) ? row.first_seen() : row.last_seen();
  const u64 away = Chance(40) ? 0 : Pick(kAway);
  return NumberValue(Chance(50) ? time + away : time - away);
}

Value ConstraintGenerator::NumberValue(u64 number) {
  if (Chance(1)) {
    static const char* const kNone[] = {"", "12a", "-5", "1e3", "99999999999999999999"};
    return Value::Text(Pick(kNone));
  }
  if (Chance(2)) {
    return Value::Number(Chance(50) ? 0 : ~u64{0});
  }
  if (Chance(5)) {
    char hex[20];
    std::snprintf(hex, sizeof(hex), "0x%llx", static_cast<unsigned long long>(number));
    return Value::Text(hex);
  }
  return Chance(30) ? Value::Text(std::to_string(number)) : Value::Number(number);
}

Value ConstraintGenerator::PathValue(bool pattern) {
  std::string path = Row().shown.proc_fpath();
  path = Chance(pattern ? 40 : 10) ? Recased(path) : path;
  if (!pattern || path.empty()) {
    return Value::Text(pattern && Chance(50) ? "%" : path);
  }
  // From a character's first byte on, so that the text stays one.
  const auto boundary = [&path](u64 at) {
    while (at < path.size() && (static_cast<u8>(path[at]) & 0xC0) == 0x80) {
      ++at;
    }
    return at;
  };
  for (u64 i = Below(3); i > 0; --i) {
    const u64 start = boundary(Below(path.size() + 1));
    const u64 end = boundary(std::min<u64>(path.size(), start + Below(6)));
    const std::string wild = Chance(50) ? "%" : (Chance(50) ? std::string(end - start, '_') : "%%");
    path = path.substr(0, start) + wild + path.substr(end);
  }
  return Value::Text(Chance(30) ? "%" + path : path);
}

Value ConstraintGenerator::DigestValue(const std::string& digest) {
  if (Chance(2)) {
    static const char* const kBad[] = {"", "g0", "00112233445566778899aabbccddeef"};
    return Value::Text(Chance(50) ? Pick(kBad) : digest + "0");
  }
  return Value::Text(Chance(20) ? Recased(digest) : digest);
}

}  // namespace ConstraintTest
