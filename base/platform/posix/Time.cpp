#include "Velmar/OS/Time.h"

#include <time.h>

#include <cerrno>

namespace Velmar::OS {

namespace {

// Microseconds, so that a caller's ticks * 1000000 stays within 64 bits for 213 days of uptime.
constexpr u64 kTicksPerSecond = 1000000;

}  // namespace

u64 Time::GetEpochTime(u32* remainder) {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  if (remainder != nullptr) {
    *remainder = static_cast<u32>(now.tv_nsec / 1000 % 1000);
  }
  return static_cast<u64>(now.tv_sec) * 1000 + static_cast<u64>(now.tv_nsec) / 1000000;
}

u64 Time::GetSystemTime() {
  return GetEpochTime(nullptr) / 1000;
}

void Time::Sleep(u32 milliseconds) {
  timespec left = {static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

bool Time::GetPerformanceCounter(u64& ticks) {
  timespec now = {};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    return false;
  }
  ticks = static_cast<u64>(now.tv_sec) * kTicksPerSecond + static_cast<u64>(now.tv_nsec) / 1000;
  return true;
}

bool Time::GetPerformanceFrequency(u64& ticksPerSecond) {
  ticksPerSecond = kTicksPerSecond;
  return true;
}

}  // namespace Velmar::OS
