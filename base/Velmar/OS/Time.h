// Clocks and the sleep. All static, thread-safe.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::OS {

class RYL_API Time {
 public:
  // Milliseconds since the Unix epoch. `remainder`, always null here, would get the microseconds below that.
  static u64 GetEpochTime(u32* remainder);
  // Seconds since the Unix epoch.
  static u64 GetSystemTime();
  static void Sleep(u32 milliseconds);
  // Monotonic performance counter and its ticks a second. False when the machine has none.
  static bool GetPerformanceCounter(u64& ticks);
  static bool GetPerformanceFrequency(u64& ticksPerSecond);
};

}  // namespace Velmar::OS
