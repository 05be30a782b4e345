#include "tests/osquery/ConstraintModel.h"

#include <algorithm>
#include <cstring>

namespace ConstraintTest {

namespace {

enum Op : u64 { kEquals = 2, kGreater = 4, kLessOrEqual = 8, kLess = 16, kGreaterOrEqual = 32, kLike = 65 };

const std::set<u64> kOperators = {1, 2, 4, 8, 16, 32, 64, 65, 66, 67};
const std::set<std::string> kAffinities = {"text", "integer", "bigint", "unsigned bigint", "double", "blob"};
const std::set<std::string> kUnused = {"port",      "protos",   "conns_total", "conns_in",
                                       "conns_out", "bytes_in", "bytes_out",   "proc_pid"};
constexpr std::size_t kMostConditions = 128;

std::string Lower(std::string text) {
  for (char& character : text) {
    character = character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
  }
  return text;
}

std::optional<u64> NumberOfDigits(const std::string& digits, u32 base) {
  u64 number = 0;
  for (const char digit : digits) {
    const char* const at = std::strchr("0123456789abcdef", digit);
    const u64 worth = at == nullptr || digit == '\0' ? base : static_cast<u64>(at - "0123456789abcdef");
    if (worth >= base || number > (~u64{0} - worth) / base) {
      return std::nullopt;
    }
    number = number * base + worth;
  }
  return digits.empty() ? std::nullopt : std::optional(number);
}

// Of a value that is a number or the text of one, and not negative.
std::optional<u64> NumberOf(const Value& value) {
  if (value.kind == Value::Kind::kNumber) {
    return value.number;
  }
  if (value.kind != Value::Kind::kText) {
    return std::nullopt;
  }
  return value.text.rfind("0x", 0) == 0 ? NumberOfDigits(value.text.substr(2), 16) : NumberOfDigits(value.text, 10);
}

bool IsAddress(const std::string& text) {
  std::size_t start = 0;
  for (int part = 0; part < 4; ++part) {
    const std::size_t end = part == 3 ? text.size() : text.find('.', start);
    if (end == std::string::npos) {
      return false;
    }
    const std::string digits = text.substr(start, end - start);
    const std::optional<u64> number = NumberOfDigits(digits, 10);
    if (!number || *number > 255 || digits != std::to_string(*number)) {
      return false;
    }
    start = end + 1;
  }
  return true;
}

// One unit for each character: of a text that is valid UTF-8 without characters of four bytes.
std::u32string Characters(const std::string& text) {
  std::u32string characters;
  for (const char byte : text) {
    const auto unit = static_cast<u8>(byte);
    if ((unit & 0xC0) == 0x80) {
      characters.back() = characters.back() << 6 | (unit & 0x3F);
    } else {
      characters.push_back(unit >= 0xE0 ? unit & 0x0F : (unit >= 0xC0 ? unit & 0x1F : unit));
    }
  }
  return characters;
}

std::u32string Units(const std::string& text) {
  std::u32string units;
  for (const char byte : text) {
    units.push_back(static_cast<u8>(byte));
  }
  return units;
}

// Row by row of the table "the first i of the text match the first j of the pattern".
bool Like(const std::u32string& text, const std::u32string& pattern) {
  std::vector<bool> reached(text.size() + 1, false);
  reached[0] = true;
  for (const char32_t wanted : pattern) {
    std::vector<bool> next(text.size() + 1, false);
    for (std::size_t i = 0; i <= text.size(); ++i) {
      if (wanted == U'%') {
        next[i] = reached[i] || (i > 0 && next[i - 1]);
      } else if (i > 0) {
        next[i] = reached[i - 1] && (wanted == U'_' || wanted == text[i - 1]);
      }
    }
    reached = next;
  }
  return reached[text.size()];
}

bool Compares(u64 op, int order) {
  switch (op) {
    case kEquals:
      return order == 0;
    case kGreater:
      return order > 0;
    case kGreaterOrEqual:
      return order >= 0;
    case kLess:
      return order < 0;
    case kLessOrEqual:
      return order <= 0;
    default:
      return true;
  }
}

const std::string* TextColumn(const edr_netdb& row, const std::string& column) {
  return column == "ip"           ? &row.ip()
         : column == "protos"     ? &row.protos()
         : column == "proc_fpath" ? &row.proc_fpath()
         : column == "proc_md5"   ? &row.proc_md5()
         : column == "proc_qid"   ? &row.proc_qid()
                                  : nullptr;
}

std::optional<u64> NumberColumn(const edr_netdb& row, const std::string& column) {
  return column == "first_seen"    ? std::optional(row.first_seen())
         : column == "last_seen"   ? std::optional(row.last_seen())
         : column == "port"        ? std::optional<u64>(row.port())
         : column == "conns_total" ? std::optional<u64>(row.conns_total())
         : column == "conns_in"    ? std::optional<u64>(row.conns_in())
         : column == "conns_out"   ? std::optional<u64>(row.conns_out())
         : column == "bytes_in"    ? std::optional(row.bytes_in())
         : column == "bytes_out"   ? std::optional(row.bytes_out())
         : column == "proc_puid"   ? std::optional(row.proc_puid())
                                   : std::nullopt;
}

bool AskerKeeps(const std::string& column, const Condition& condition, const TableRow& row) {
  if (const std::string* text = TextColumn(row.shown, column); text != nullptr) {
    if (condition.value.kind != Value::Kind::kText) {
      return true;
    }
    return condition.op == kLike ? LikeByCharacters(*text, condition.value.text)
                                 : Compares(condition.op, text->compare(condition.value.text));
  }
  const std::optional<u64> mine = NumberColumn(row.shown, column);
  const std::optional<u64> asked = NumberOf(condition.value);
  return !mine || !asked || Compares(condition.op, *mine < *asked ? -1 : (*mine > *asked ? 1 : 0));
}

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<u8>(byte) < 0x80; });
}

template <class T>
bool AllEqual(const std::vector<T>& wanted, const T& value) {
  return std::all_of(wanted.begin(), wanted.end(), [&value](const T& one) { return one == value; });
}

}  // namespace

bool LikeByBytes(const std::string& text, const std::string& pattern) {
  return Like(Units(Lower(text)), Units(Lower(pattern)));
}

bool LikeByCharacters(const std::string& text, const std::string& pattern) {
  return Like(Characters(Lower(text)), Characters(Lower(pattern)));
}

Narrowing::Narrowing(const ConstraintSet& set) {
  CheckShape(set);
  for (const ColumnConditions& column : set) {
    for (const Condition& condition : column.list) {
      if (error != 0 || (kOperators.count(condition.op) != 0 && !Use(Lower(column.column), condition))) {
        return;
      }
    }
  }
}

// Everything is read before the first condition counts.
void Narrowing::CheckShape(const ConstraintSet& set) {
  std::size_t conditions = 0;
  for (const ColumnConditions& column : set) {
    if (!column.hasList || kAffinities.count(Lower(column.affinity)) == 0) {
      Refuse();
    }
    for (const Condition& condition : column.list) {
      conditions += kOperators.count(condition.op);
    }
  }
  if (conditions > kMostConditions) {
    Refuse();
  }
}

bool Narrowing::Refuse() {
  error = kRefused;
  return false;
}

bool Narrowing::Use(const std::string& column, const Condition& condition) {
  if (column == "ip") {
    return condition.op != kEquals || UseAddress(condition);
  }
  if (column == "first_seen" || column == "last_seen") {
    return UseTime(column, condition);
  }
  if (column == "proc_fpath") {
    return (condition.op != kEquals && condition.op != kLike) || UsePath(condition);
  }
  if (column == "proc_md5") {
    return condition.op != kEquals || UseDigest(condition, 32, md5s_);
  }
  if (column == "proc_qid") {
    return condition.op != kEquals || UseDigest(condition, 64, qids_);
  }
  if (column == "proc_puid") {
    return condition.op != kEquals || UseUniqueId(condition);
  }
  return kUnused.count(column) != 0 || Refuse();
}

bool Narrowing::UseAddress(const Condition& condition) {
  if (condition.value.kind != Value::Kind::kText) {
    return Refuse();
  }
  impossible = condition.value.text.find(':') != std::string::npos;
  if (impossible) {
    return false;
  }
  addresses_.insert(condition.value.text);
  return IsAddress(condition.value.text) || Refuse();
}

bool Narrowing::UseTime(const std::string& column, const Condition& condition) {
  if (std::set<u64>{kEquals, kGreater, kLessOrEqual, kLess, kGreaterOrEqual}.count(condition.op) == 0) {
    return true;
  }
  const std::optional<u64> number = NumberOf(condition.value);
  if (!number) {
    return Refuse();
  }
  const u64 second = *number / 1000;
  if (condition.op == kEquals) {
    from_ = second;
    to_ = second;
  } else if (condition.op == kGreater || condition.op == kGreaterOrEqual) {
    from_ = std::max(from_, second);
  } else {
    to_ = std::min(to_, second);
  }
  timeColumns_.insert(column);
  return true;
}

bool Narrowing::UsePath(const Condition& condition) {
  if (condition.value.kind != Value::Kind::kText) {
    return Refuse();
  }
  if (condition.op == kEquals) {
    paths_.insert(condition.value.text);
  } else {
    patterns_.push_back(condition.value.text);
  }
  return true;
}

bool Narrowing::UseDigest(const Condition& condition, std::size_t digits, std::vector<std::string>& wanted) {
  const std::string text = Lower(condition.value.text);
  if (condition.value.kind != Value::Kind::kText || text.size() != digits ||
      text.find_first_not_of("0123456789abcdef") != std::string::npos) {
    return Refuse();
  }
  wanted.push_back(text);
  return true;
}

bool Narrowing::UseUniqueId(const Condition& condition) {
  const std::optional<u64> number = NumberOf(condition.value);
  if (!number) {
    return Refuse();
  }
  uniqueIds_.push_back(*number);
  return true;
}

// A row that began before the range and ended behind it is not in it: only its two ends count.
bool Narrowing::IsInRange(const TableRow& row) const {
  const auto inside = [this](u64 second) { return second >= from_ && second <= to_; };
  return inside(row.firstSecond) || inside(row.lastSecond);
}

bool Narrowing::AsksForProcess() const {
  return !paths_.empty() || !patterns_.empty() || !md5s_.empty() || !qids_.empty() || !uniqueIds_.empty();
}

bool Narrowing::MatchesPath(const TableRow& row) const {
  return (paths_.empty() || paths_.count(row.path) != 0) &&
         std::all_of(patterns_.begin(), patterns_.end(),
                     [&row](const std::string& pattern) { return LikeByBytes(row.path, pattern); });
}

bool Narrowing::Admits(const TableRow& row) const {
  if (error != 0 || impossible) {
    return false;
  }
  return IsInRange(row) && (row.hasProcess || !AsksForProcess()) &&
         (addresses_.empty() || addresses_.count(row.shown.ip()) != 0) && MatchesPath(row) &&
         AllEqual(md5s_, row.shown.proc_md5()) && AllEqual(qids_, row.shown.proc_qid()) &&
         AllEqual(uniqueIds_, u64{row.shown.proc_puid()});
}

const char* Narrowing::ReasonToLose(const TableRow& row) const {
  // A condition on the process looks for processes; an empty path or a digest of zeroes finds no row without one.
  if (!row.hasProcess && AsksForProcess()) {
    return "no process";
  }
  // Both times narrow one range, and a row over all of it has neither end in it.
  if (timeColumns_.size() == 2 && !IsInRange(row)) {
    return "one range for both times";
  }
  // A path is matched as its bytes are stored: "_" is one byte, and U+FFFD is only shown for a byte.
  if (!IsAscii(row.path) && !MatchesPath(row)) {
    return "path matched by bytes";
  }
  return nullptr;
}

bool AskerKeeps(const ConstraintSet& set, const TableRow& row) {
  for (const ColumnConditions& column : set) {
    for (const Condition& condition : column.list) {
      if (!AskerKeeps(Lower(column.column), condition, row)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace ConstraintTest
