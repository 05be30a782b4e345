#include "platform/WordWait.h"

#include <algorithm>

#include "platform/windows/WindowsApi.h"

namespace Velmar::Platform {

namespace {

constexpr u64 kNanosecondsPerSecond = 1000000000;
constexpr u64 kNanosecondsPerMillisecond = 1000000;

// Rounded up, so that a waiter does not spin through the last millisecond.
DWORD MillisecondsUntil(u64 deadlineNs) {
  u64 now = MonotonicNanoseconds();
  u64 left = deadlineNs <= now ? 0 : (deadlineNs - now + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond;
  return static_cast<DWORD>(std::min<u64>(left, INFINITE - 1));
}

}  // namespace

void WaitOnWord(std::atomic<u32>& word, u32 expected, u64 deadlineNs) {
  WaitOnAddress(&word, &expected, sizeof(expected), MillisecondsUntil(deadlineNs));
}

void WakeOneWaiter(std::atomic<u32>& word) {
  WakeByAddressSingle(&word);
}

void WakeAllWaiters(std::atomic<u32>& word) {
  WakeByAddressAll(&word);
}

u64 MonotonicNanoseconds() {
  LARGE_INTEGER counter = {};
  LARGE_INTEGER frequency = {};
  QueryPerformanceCounter(&counter);
  QueryPerformanceFrequency(&frequency);
  u64 ticks = static_cast<u64>(counter.QuadPart);
  u64 perSecond = static_cast<u64>(frequency.QuadPart);
  return ticks / perSecond * kNanosecondsPerSecond + ticks % perSecond * kNanosecondsPerSecond / perSecond;
}

}  // namespace Velmar::Platform
