#include "Velmar/OS/Time.h"

#include "platform/sim/State.h"

namespace Velmar::OS {

namespace {

using Lock = std::unique_lock<std::mutex>;

}  // namespace

u64 Time::GetEpochTime(u32* remainder) {
  if (remainder != nullptr) {
    *remainder = 0;
  }
  Lock lock(Sim::GetState().mutex);
  return Sim::GetState().scheduler.EpochMs();
}

u64 Time::GetSystemTime() {
  return GetEpochTime(nullptr) / 1000;
}

void Time::Sleep(u32 milliseconds) {
  Lock lock(Sim::GetState().mutex);
  Sim::GetState().sleeps.push_back(milliseconds);
  Sim::GetState().scheduler.Advance(milliseconds);
}

bool Time::GetPerformanceCounter(u64& ticks) {
  Lock lock(Sim::GetState().mutex);
  ticks = Sim::GetState().scheduler.MonotonicMs() * 1000;
  return true;
}

bool Time::GetPerformanceFrequency(u64& ticksPerSecond) {
  Lock lock(Sim::GetState().mutex);
  if (Sim::GetState().noFrequency) {
    return false;
  }
  ticksPerSecond = 1000000;
  return true;
}

}  // namespace Velmar::OS
