#include "Velmar/OS/DateTime.h"

namespace Velmar::OS {

namespace {

constexpr i64 kSecondsPerDay = 86400;
constexpr i64 kDaysPerEra = 146097;   // 400 years
constexpr i64 kDaysToEpoch = 719468;  // from 0000-03-01 to 1970-01-01
constexpr i64 kLargestYear = 0x7FFFFFFF;

// Both round towards minus infinity; `divisor` is positive. Neither overflows, whatever `value` is.
constexpr i64 FloorDivide(i64 value, i64 divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

constexpr i64 FloorRemainder(i64 value, i64 divisor) {
  const i64 remainder = value % divisor;
  return remainder < 0 ? remainder + divisor : remainder;
}

}  // namespace

bool DateTime::SetDateTime(i64 epochSeconds) {
  const i64 days = FloorDivide(epochSeconds, kSecondsPerDay);
  const i64 secondOfDay = FloorRemainder(epochSeconds, kSecondsPerDay);

  // Years are counted from March here, so that the leap day is a year's last.
  const i64 shifted = days + kDaysToEpoch;
  const i64 era = FloorDivide(shifted, kDaysPerEra);
  const i64 dayOfEra = shifted - era * kDaysPerEra;
  const i64 yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const i64 dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const i64 monthFromMarch = (5 * dayOfYear + 2) / 153;
  const i64 civilMonth = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
  const i64 civilYear = era * 400 + yearOfEra + (civilMonth <= 2 ? 1 : 0);
  if (civilYear > kLargestYear || civilYear < -kLargestYear - 1) {
    return false;
  }
  year = static_cast<i32>(civilYear);
  month = static_cast<i32>(civilMonth);
  day = static_cast<i32>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
  hour = static_cast<i32>(secondOfDay / 3600);
  minute = static_cast<i32>(secondOfDay / 60 % 60);
  second = static_cast<i32>(secondOfDay % 60);
  return true;
}

}  // namespace Velmar::OS
