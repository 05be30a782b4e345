// TimeRange: what --since and --until say.
#pragma once

#include <optional>
#include <string>

#include "host/Types.h"

namespace Host::Commands {

// Epoch seconds, both ends included.
struct TimeRange {
  u64 since = 0;
  u64 until = ~u64{0};
};

// Each end is a date, an RFC 3339 time, epoch seconds or an age such as "7d" or "12h" before `nowSeconds`; empty is no
// bound. A date means all of its day: its first second in `since`, its last in `until`.
// Nothing, with a sentence in `error`, for anything else and where the range ends before it begins.
std::optional<TimeRange> ReadTimeRange(const std::string& since, const std::string& until, u64 nowSeconds,
                                       std::string& error);

}  // namespace Host::Commands
