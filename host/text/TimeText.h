// Points in time as text and back: UTC, RFC 3339.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/Types.h"

namespace Host::Text {

inline constexpr u64 kNanosPerSecond = 1'000'000'000;
inline constexpr u64 kSecondsPerDay = 86'400;

// "2024-05-01T12:30:00Z". Thread-safe, as all here.
std::string FormatUtc(u64 epochSeconds);

// Epoch nanoseconds of a date and time such as "2024-05-01T12:30:00.25Z", "2024-05-01 12:30:00" (UTC) or
// "2024-05-01T14:30:00+02:00". Nothing for anything else, for a day that no month has, and before 1970 or past 2500.
std::optional<u64> ParseUtc(std::string_view text);

// Epoch seconds of the first second of a date such as "2024-05-01".
std::optional<u64> ParseDate(std::string_view text);

// An age such as "90s", "15m", "12h", "7d" or "2w", in seconds.
std::optional<u64> ParseAge(std::string_view text);

// Nanoseconds of a decimal number of seconds such as "1588205199.82437" or "9.5e-07", digits below a nanosecond cut.
// Nothing for a negative one, for anything that is no number, and where 64 bits do not hold it.
std::optional<u64> ParseDecimalNanos(std::string_view text);

}  // namespace Host::Text
