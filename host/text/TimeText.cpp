#include "host/text/TimeText.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "Velmar/OS/DateTime.h"

namespace Host::Text {
namespace {

constexpr u64 kMaxU64 = std::numeric_limits<u64>::max();
constexpr i64 kLastYear = 2500;  // nanoseconds since 1970 fit 64 bits until 2554

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Takes exactly `digits` digits off the front of `text`.
std::optional<u32> TakeNumber(std::string_view& text, std::size_t digits) {
  if (text.size() < digits || !std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(digits), IsDigit)) {
    return std::nullopt;
  }
  u32 value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    value = value * 10 + static_cast<u32>(text[i] - '0');
  }
  text.remove_prefix(digits);
  return value;
}

bool TakeChar(std::string_view& text, std::string_view choices) {
  if (text.empty() || choices.find(text[0]) == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

bool IsLeapYear(i64 year) {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

u32 DaysOfMonth(i64 year, u32 month) {
  constexpr u32 kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days since 1970-01-01 of a date from 1970 on.
u64 DaysSinceEpoch(i64 year, u32 month, u32 day) {
  const i64 before = year - 1;
  const i64 leapDays = before / 4 - before / 100 + before / 400 - (1969 / 4 - 1969 / 100 + 1969 / 400);
  i64 days = (year - 1970) * 365 + leapDays;
  for (u32 m = 1; m < month; ++m) {
    days += DaysOfMonth(year, m);
  }
  return static_cast<u64>(days + static_cast<i64>(day) - 1);
}

std::optional<u64> TakeDate(std::string_view& text) {
  const auto year = TakeNumber(text, 4);
  const bool dashed = year && TakeChar(text, "-");
  const auto month = dashed ? TakeNumber(text, 2) : std::nullopt;
  const bool dashedAgain = month && TakeChar(text, "-");
  const auto day = dashedAgain ? TakeNumber(text, 2) : std::nullopt;
  if (!day || *year < 1970 || *year > kLastYear || *month < 1 || *month > 12 || *day < 1 ||
      *day > DaysOfMonth(*year, *month)) {
    return std::nullopt;
  }
  return DaysSinceEpoch(*year, *month, *day) * kSecondsPerDay;
}

// "12:30" with seconds on request; a leap second counts as the second before it.
std::optional<u64> TakeClock(std::string_view& text, bool withSeconds) {
  const auto hour = TakeNumber(text, 2);
  const auto minute = hour && TakeChar(text, ":") ? TakeNumber(text, 2) : std::nullopt;
  const auto second = !withSeconds                    ? std::optional<u32>(0)
                      : minute && TakeChar(text, ":") ? TakeNumber(text, 2)
                                                      : std::nullopt;
  if (!minute || !second || *hour > 23 || *minute > 59 || *second > 60) {
    return std::nullopt;
  }
  return *hour * 3600ULL + *minute * 60ULL + std::min(*second, 59U);
}

// ".25" as nanoseconds; 0 when there is none.
std::optional<u64> TakeFraction(std::string_view& text) {
  if (!TakeChar(text, ".,")) {
    return 0;
  }
  u64 nanos = 0;
  u64 scale = kNanosPerSecond;
  std::size_t digits = 0;
  for (; digits < text.size() && IsDigit(text[digits]); ++digits) {
    scale /= 10;
    nanos += static_cast<u64>(text[digits] - '0') * scale;
  }
  text.remove_prefix(digits);
  return digits == 0 ? std::nullopt : std::optional<u64>(nanos);
}

// Seconds east of UTC; nothing for a bad zone. No zone is UTC.
std::optional<i64> TakeZone(std::string_view& text) {
  if (text.empty() || TakeChar(text, "Zz")) {
    return 0;
  }
  const bool west = text[0] == '-';
  if (!TakeChar(text, "+-")) {
    return std::nullopt;
  }
  const auto offset = TakeClock(text, false);
  if (!offset) {
    return std::nullopt;
  }
  return west ? -static_cast<i64>(*offset) : static_cast<i64>(*offset);
}

// A decimal number as digits and the power of ten of the last one.
struct Decimal {
  std::string digits;
  i64 exponent = 0;
};

constexpr i64 kMaxExponent = 1000;

std::optional<Decimal> SplitDecimal(std::string_view text) {
  Decimal decimal;
  bool seenPoint = false;
  std::size_t at = 0;
  for (; at < text.size() && (IsDigit(text[at]) || (text[at] == '.' && !seenPoint)); ++at) {
    if (text[at] == '.') {
      seenPoint = true;
      continue;
    }
    decimal.digits += text[at];
    decimal.exponent -= seenPoint ? 1 : 0;
  }
  text.remove_prefix(at);
  if (decimal.digits.empty()) {
    return std::nullopt;
  }
  if (TakeChar(text, "eE")) {
    const bool negative = !text.empty() && text[0] == '-';
    TakeChar(text, "+-");
    if (text.empty()) {
      return std::nullopt;
    }
    i64 exponent = 0;
    for (; !text.empty() && IsDigit(text[0]); text.remove_prefix(1)) {
      exponent = std::min(exponent * 10 + (text[0] - '0'), kMaxExponent);
    }
    decimal.exponent += negative ? -exponent : exponent;
  }
  return text.empty() ? std::optional<Decimal>(std::move(decimal)) : std::nullopt;
}

}  // namespace

std::string FormatUtc(u64 epochSeconds) {
  Velmar::OS::DateTime time;
  time.utc = true;
  if (epochSeconds > static_cast<u64>(std::numeric_limits<i64>::max()) ||
      !time.SetDateTime(static_cast<i64>(epochSeconds))) {
    return std::to_string(epochSeconds);
  }
  char text[64];
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02dZ", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
  return text;
}

std::optional<u64> ParseUtc(std::string_view text) {
  const auto date = TakeDate(text);
  const auto clock = date && TakeChar(text, "Tt ") ? TakeClock(text, true) : std::nullopt;
  const auto nanos = clock ? TakeFraction(text) : std::nullopt;
  const auto zone = nanos ? TakeZone(text) : std::nullopt;
  if (!zone || !text.empty()) {
    return std::nullopt;
  }
  const i64 seconds = static_cast<i64>(*date + *clock) - *zone;
  if (seconds < 0) {
    return std::nullopt;
  }
  return static_cast<u64>(seconds) * kNanosPerSecond + *nanos;
}

std::optional<u64> ParseDate(std::string_view text) {
  const auto date = TakeDate(text);
  return text.empty() ? date : std::nullopt;
}

std::optional<u64> ParseAge(std::string_view text) {
  constexpr std::string_view kUnits = "smhdw";
  constexpr u64 kSeconds[] = {1, 60, 3600, kSecondsPerDay, 7 * kSecondsPerDay};
  constexpr std::size_t kMaxDigits = 9;
  const std::size_t unit = text.empty() ? std::string_view::npos : kUnits.find(text.back());
  if (unit == std::string_view::npos || text.size() < 2 || text.size() - 1 > kMaxDigits) {
    return std::nullopt;
  }
  text.remove_suffix(1);
  const auto number = TakeNumber(text, text.size());
  return number ? std::optional<u64>(*number * kSeconds[unit]) : std::nullopt;
}

std::optional<u64> ParseDecimalNanos(std::string_view text) {
  const auto decimal = SplitDecimal(text);
  if (!decimal) {
    return std::nullopt;
  }
  i64 shift = decimal->exponent + 9;
  // A negative shift cuts digits off the end.
  const i64 kept = static_cast<i64>(decimal->digits.size()) + std::min<i64>(shift, 0);
  u64 value = 0;
  for (i64 i = 0; i < kept; ++i) {
    const u64 next = static_cast<u64>(decimal->digits[static_cast<std::size_t>(i)] - '0');
    if (value > (kMaxU64 - next) / 10) {
      return std::nullopt;
    }
    value = value * 10 + next;
  }
  for (; shift > 0 && value != 0; --shift) {
    if (value > kMaxU64 / 10) {
      return std::nullopt;
    }
    value *= 10;
  }
  return value;
}

}  // namespace Host::Text
