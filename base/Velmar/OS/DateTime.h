// DateTime: a point in time as calendar fields.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::OS {

// A plain value. UTC, proleptic Gregorian calendar.
struct RYL_API DateTime {
  i32 year = 0;
  i32 month = 0;  // 1 to 12
  i32 day = 0;    // 1 to 31
  i32 hour = 0;
  i32 minute = 0;
  i32 second = 0;
  bool utc = false;  // set to true by the caller before SetDateTime

  // Fills the fields from epoch seconds (days-from-civil algorithm, H. Hinnant, "chrono-Compatible Low-Level Date
  // Algorithms"). False when the year does not fit 32 bits.
  bool SetDateTime(i64 epochSeconds);
};

}  // namespace Velmar::OS
