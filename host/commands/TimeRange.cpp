#include "host/commands/TimeRange.h"

#include <algorithm>

#include "host/text/Numbers.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

// Seconds; for a date those of its first second plus `intoDay`.
std::optional<u64> ReadPoint(const std::string& text, u64 intoDay, u64 nowSeconds) {
  if (const auto seconds = Text::ReadCount(text, ~u64{0})) {
    return seconds;
  }
  if (const auto date = Text::ParseDate(text)) {
    return *date + intoDay;
  }
  if (const auto age = Text::ParseAge(text)) {
    return nowSeconds - std::min(*age, nowSeconds);
  }
  const auto nanos = Text::ParseUtc(text);
  return nanos ? std::optional<u64>(*nanos / Text::kNanosPerSecond) : std::nullopt;
}

std::string NotATime(const std::string& text) {
  return "\"" + text +
         "\" is no time; give a date (2024-05-01), a time (2024-05-01T12:30:00Z), epoch seconds or an age "
         "(7d, 12h)";
}

}  // namespace

std::optional<TimeRange> ReadTimeRange(const std::string& since, const std::string& until, u64 nowSeconds,
                                       std::string& error) {
  TimeRange range;
  const auto first = since.empty() ? range.since : ReadPoint(since, 0, nowSeconds);
  const auto last = until.empty() ? range.until : ReadPoint(until, Text::kSecondsPerDay - 1, nowSeconds);
  if (!first || !last) {
    error = NotATime(first ? until : since);
    return std::nullopt;
  }
  if (*first > *last) {
    error = "--since is later than --until";
    return std::nullopt;
  }
  return TimeRange{*first, *last};
}

}  // namespace Host::Commands
