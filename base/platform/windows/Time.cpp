#include "Velmar/OS/Time.h"

#include "platform/windows/WindowsPath.h"

namespace Velmar::OS {

u64 Time::GetEpochTime(u32* remainder) {
  FILETIME now = {};
  GetSystemTimePreciseAsFileTime(&now);
  if (remainder != nullptr) {
    *remainder = static_cast<u32>(Platform::JoinHalves(now.dwHighDateTime, now.dwLowDateTime) / 10 % 1000);
  }
  return Platform::ToEpochMilliseconds(now);
}

u64 Time::GetSystemTime() {
  return GetEpochTime(nullptr) / 1000;
}

void Time::Sleep(u32 milliseconds) {
  ::Sleep(milliseconds);
}

bool Time::GetPerformanceCounter(u64& ticks) {
  LARGE_INTEGER value = {};
  if (QueryPerformanceCounter(&value) == 0) {
    return false;
  }
  ticks = static_cast<u64>(value.QuadPart);
  return true;
}

bool Time::GetPerformanceFrequency(u64& ticksPerSecond) {
  LARGE_INTEGER value = {};
  if (QueryPerformanceFrequency(&value) == 0 || value.QuadPart <= 0) {
    return false;
  }
  ticksPerSecond = static_cast<u64>(value.QuadPart);
  return true;
}

}  // namespace Velmar::OS
