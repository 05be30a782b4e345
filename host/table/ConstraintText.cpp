#include "host/table/ConstraintText.h"

#include <algorithm>
#include <string_view>

#include "Velmar/OS/Network.h"
#include "host/text/Numbers.h"
#include "host/text/TimeText.h"
#include "host/text/Utf8.h"
#include "osquery/osquery/Constraints.h"

namespace Host::Table {
namespace {

namespace Codes = RYL::NetDB::OSQuery;

// What a table query takes, less the two of the day.
constexpr std::size_t kMaxEntries = Codes::kMaxConstraints - 2;
// A record shows the first 511 bytes of a path, less what is left of a character that they cut. A shorter text is the
// whole path.
constexpr std::size_t kSurelyWhole = 507;
constexpr std::size_t kLongestPattern = 1000;
constexpr u64 kMsPerSecond = 1000;

std::string Entry(u32 operation, const std::string& expression) {
  return R"({"op":)" + std::to_string(operation) + R"(,"expr":)" + expression + "}";
}

const std::string* TextOf(const SqlValue& value) {
  return std::get_if<std::string>(&value);
}

bool IsNull(const SqlValue& value) {
  return std::holds_alternative<std::monostate>(value);
}

// NULL equals nothing and is above and below nothing.
std::vector<SqlValue> WithoutNulls(const std::vector<SqlValue>& values) {
  std::vector<SqlValue> result;
  std::copy_if(values.begin(), values.end(), std::back_inserter(result),
               [](const SqlValue& value) { return !IsNull(value); });
  return result;
}

bool IsAddress(const std::string& text) {
  Velmar::u32 address = 0;
  return text.find('\0') == std::string::npos && Velmar::OS::Network::ConvertIPv4StringToBinary(text.c_str(), address);
}

// Whether each of its characters stands in a shown path for the same bytes of the stored one. U+FFFD also stands for
// bytes that are no text, and SQLite's LIKE takes its two successors for it.
bool ShowsBytes(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = Text::Utf8Length(text);
    if (length == 0 || text[0] == '\0') {
      return false;
    }
    const std::string_view character = text.substr(0, length);
    if (character == "\xEF\xBF\xBD" || character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF") {
      return false;
    }
    text.remove_prefix(length);
  }
  return true;
}

// The empty path is also that of a row without a process, which no condition on processes finds.
bool IsWholePath(const std::string& text) {
  return !text.empty() && text.size() <= kSurelyWhole && ShowsBytes(text);
}

// "_" is one character for SQL and one byte below. What matches the empty text matches rows without a process.
bool IsPlainPattern(const std::string& text) {
  return text.size() <= kLongestPattern && text.find_first_not_of('%') != std::string::npos &&
         text.find('_') == std::string::npos && ShowsBytes(text);
}

// Zeroes are also shown for a row without a process.
bool IsKnownDigest(const std::string& text, std::size_t bytes) {
  u8 digest[32] = {};
  return bytes <= sizeof(digest) && Text::ReadHex(text, digest, bytes) &&
         std::any_of(digest, digest + bytes, [](u8 byte) { return byte != 0; });
}

// The id as it is shown; 0, which a row without a process has too, is left out.
std::string KnownPuid(const SqlValue& value) {
  std::string text;
  if (const i64* number = std::get_if<i64>(&value)) {
    text = std::to_string(*number);
  } else if (const std::string* digits = TextOf(value)) {
    text = *digits;
  }
  const bool plain = !text.empty() && text[0] != '0' && Text::ReadCount(text, ~u64{0}).has_value();
  return plain ? text : "";
}

// Whether a time from `first` to `last` can stand in "time operation value". Both are below 2^53, so that real numbers
// hold them as they are.
template <class Number>
bool MayMeet(Number first, Number last, Operation operation, Number value) {
  switch (operation) {
    case Operation::kEquals:
      return first <= value && value <= last;
    case Operation::kGreater:
      return last > value;
    case Operation::kGreaterOrEquals:
      return last >= value;
    case Operation::kLess:
      return first < value;
    case Operation::kLessOrEquals:
      return first <= value;
    default:
      return true;
  }
}

u64 FirstMs(u64 day) {
  return day * kMsPerSecond;
}

u64 LastMs(u64 day) {
  return (day + Text::kSecondsPerDay - 1) * kMsPerSecond;
}

bool DayMayMeet(u64 day, Operation operation, const SqlValue& value) {
  if (const i64* whole = std::get_if<i64>(&value)) {
    return MayMeet(static_cast<i64>(FirstMs(day)), static_cast<i64>(LastMs(day)), operation, *whole);
  }
  if (const double* real = std::get_if<double>(&value)) {
    return MayMeet(static_cast<double>(FirstMs(day)), static_cast<double>(LastMs(day)), operation, *real);
  }
  return true;
}

}  // namespace

bool Narrowing::MayHold(u64 day) const {
  return !nothing_ && std::all_of(days_.begin(), days_.end(), [day](const DayRule& rule) {
    return std::any_of(rule.values.begin(), rule.values.end(),
                       [day, &rule](const SqlValue& value) { return DayMayMeet(day, rule.operation, value); });
  });
}

std::string Narrowing::ConstraintsFor(u64 day) const {
  const std::string from = Entry(Codes::kGreaterThanOrEquals, std::to_string(FirstMs(day)));
  const std::string to = Entry(Codes::kLessThanOrEquals, std::to_string(LastMs(day)));
  std::string text = R"({"first_seen":{"affinity":"BIGINT","list":[)" + from + "," + to + "]}";
  for (std::size_t column = 0; column < kColumnCount; ++column) {
    if (!lists_[column].empty()) {
      text += std::string(",\"") + kColumns[column].name + R"(":{"affinity":"TEXT","list":[)" + lists_[column] + "]}";
    }
  }
  return text + "}";
}

bool Narrowing::HasRoomFor(std::size_t entries) const {
  return entries_ + entries <= kMaxEntries;
}

void Narrowing::Add(int column, const std::vector<std::string>& entries) {
  std::string& list = lists_[static_cast<std::size_t>(column)];
  for (const std::string& entry : entries) {
    list += (list.empty() ? "" : ",") + entry;
  }
  entries_ += entries.size();
}

void Narrowing::ApplyTime(const Condition& condition) {
  const std::vector<SqlValue> values = WithoutNulls(condition.values);
  const auto isNumber = [](const SqlValue& value) {
    return std::holds_alternative<i64>(value) || std::holds_alternative<double>(value);
  };
  if (condition.cut || !std::all_of(values.begin(), values.end(), isNumber)) {
    return;
  }
  nothing_ = nothing_ || values.empty();
  days_.push_back({condition.term.operation, values});
}

// The table query looks for all addresses of its list, so that a second condition must not add to the first one's. A
// value that is no address is that of no row.
void Narrowing::ApplyIp(const Condition& condition) {
  if (condition.cut || !lists_[kIp].empty()) {
    return;
  }
  std::vector<std::string> entries;
  for (const SqlValue& value : condition.values) {
    const std::string* text = TextOf(value);
    if (text != nullptr && IsAddress(*text)) {
      entries.push_back(Entry(Codes::kEquals, Text::ToJsonString(*text)));
    }
  }
  if (entries.empty()) {
    nothing_ = true;
  } else if (HasRoomFor(entries.size())) {
    Add(kIp, entries);
  }
}

// As with addresses, the table query looks for all paths of its list. One that cannot go down keeps them all up.
void Narrowing::ApplyPath(const Condition& condition) {
  const std::vector<SqlValue> values = WithoutNulls(condition.values);
  if (condition.cut || hasPaths_ || !HasRoomFor(values.size())) {
    return;
  }
  std::vector<std::string> entries;
  for (const SqlValue& value : values) {
    const std::string* text = TextOf(value);
    if (text == nullptr || !IsWholePath(*text)) {
      return;
    }
    entries.push_back(Entry(Codes::kEquals, Text::ToJsonString(*text)));
  }
  nothing_ = nothing_ || entries.empty();
  hasPaths_ = true;
  Add(kProcFpath, entries);
}

// A shown path may be the start of a longer one.
void Narrowing::ApplyPattern(const Condition& condition) {
  const std::string* text = condition.values.size() == 1 ? TextOf(condition.values[0]) : nullptr;
  if (text == nullptr || !IsPlainPattern(*text) || !HasRoomFor(1)) {
    return;
  }
  const std::string pattern = text->back() == '%' ? *text : *text + '%';
  Add(kProcFpath, {Entry(Codes::kLike, Text::ToJsonString(pattern))});
}

// Digests and ids of a table query must all be met, so that only a single one goes down.
void Narrowing::ApplyDigest(const Condition& condition, std::size_t bytes) {
  const std::string* text = condition.values.size() == 1 ? TextOf(condition.values[0]) : nullptr;
  if (text != nullptr && IsKnownDigest(*text, bytes) && HasRoomFor(1)) {
    Add(condition.term.column, {Entry(Codes::kEquals, Text::ToJsonString(*text))});
  }
}

void Narrowing::ApplyPuid(const Condition& condition) {
  const std::string text = condition.values.size() == 1 ? KnownPuid(condition.values[0]) : "";
  if (!text.empty() && HasRoomFor(1)) {
    Add(kProcPuid, {Entry(Codes::kEquals, Text::ToJsonString(text))});
  }
}

void Narrowing::Apply(const Condition& condition) {
  constexpr std::size_t kMd5Bytes = 16;
  constexpr std::size_t kQidBytes = 32;
  switch (condition.term.column) {
    case kFirstSeen:
    case kLastSeen:
      return ApplyTime(condition);
    case kIp:
      return ApplyIp(condition);
    case kProcFpath:
      return condition.term.operation == Operation::kLike ? ApplyPattern(condition) : ApplyPath(condition);
    case kProcMd5:
      return ApplyDigest(condition, kMd5Bytes);
    case kProcQid:
      return ApplyDigest(condition, kQidBytes);
    case kProcPuid:
      return ApplyPuid(condition);
    default:
      return;
  }
}

Narrowing Narrow(const std::vector<Condition>& conditions) {
  Narrowing narrowing;
  for (const Condition& condition : conditions) {
    narrowing.Apply(condition);
  }
  return narrowing;
}

}  // namespace Host::Table
