#include "Velmar/Utils/ScopedDuration.h"

#include <atomic>

#include "Velmar/OS/Time.h"
#include "VelmarLog.h"

namespace Velmar::Utils {

namespace {

constexpr u64 kMicrosecondsPerSecond = 1000000;
constexpr u64 kNotAsked = 0;
constexpr u64 kUnavailable = ~u64{0};

// Ticks a second of the performance counter, or one of the two values above.
std::atomic<u64> counterFrequency{kNotAsked};

// Threads that find out at the same time leave one record.
void RememberUnavailable() {
  if (counterFrequency.exchange(kUnavailable) != kUnavailable) {
    RYL_LOG(velmar, NoPerformanceCounter);
  }
}

u64 Frequency() {
  u64 frequency = counterFrequency.load(std::memory_order_relaxed);
  if (frequency != kNotAsked) {
    return frequency;
  }
  if (!OS::Time::GetPerformanceFrequency(frequency) || frequency == 0) {
    RememberUnavailable();
    return kUnavailable;
  }
  u64 expected = kNotAsked;
  // A failure that another thread met in the meantime stands.
  return counterFrequency.compare_exchange_strong(expected, frequency) ? frequency : expected;
}

}  // namespace

u64 MonotonicMicroseconds() {
  const u64 frequency = Frequency();
  u64 ticks = 0;
  if (frequency != kUnavailable && OS::Time::GetPerformanceCounter(ticks)) {
    // By parts: ticks x 1000000 passes 64 bits within hours on a counter of nanoseconds.
    return ticks / frequency * kMicrosecondsPerSecond + ticks % frequency * kMicrosecondsPerSecond / frequency;
  }
  if (frequency != kUnavailable) {
    RememberUnavailable();
  }
  return OS::Time::GetSystemTime() * 1000;
}

const char* ScaleDuration(double& value) {
  struct Step {
    double divisor;
    const char* unit;
  };
  constexpr Step kSteps[] = {{1000, "ms"}, {1000, "s"}, {60, "m"}, {60, "h"}};
  const char* unit = "us";
  for (const Step& step : kSteps) {
    if (value < step.divisor) {
      break;
    }
    value /= step.divisor;
    unit = step.unit;
  }
  return unit;
}

}  // namespace Velmar::Utils
