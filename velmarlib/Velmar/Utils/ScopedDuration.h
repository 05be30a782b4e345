// ScopedDuration: times a scope and reports it in a fitting unit.
//
//   ScopedDuration timer([&](double value, const char* unit) {
//     RYL_LOG(netdb_storage, FileSynced, name, value, unit);
//   });
#pragma once

#include <utility>

#include "Velmar/Types.h"

namespace Velmar::Utils {

// Monotonic microseconds: performance counter x 1000000 / frequency. When the frequency cannot be had once, that is
// logged at level 3, remembered for good, and the system time x 1000 is given instead. Thread-safe.
u64 MonotonicMicroseconds();
// While `value` is at least the next of 1000, 1000, 60, 60 it is divided by it: "us", "ms", "s", "m", "h".
const char* ScaleDuration(double& value);

// Calls report(double value, const char* unit) when it leaves its scope. Not active, it does nothing: one that only
// logs is made active by `Log::fnLogCallback != nullptr`, so that no clock is read when nobody listens.
template <class Report>
class ScopedDuration {
 public:
  explicit ScopedDuration(Report report, bool active = true)
      : report_(std::move(report)), start_(active ? MonotonicMicroseconds() : 0), active_(active) {}
  ~ScopedDuration() {
    if (!active_) {
      return;
    }
    const u64 now = MonotonicMicroseconds();
    // The system time, where it stands in for the counter, may have been set back.
    double value = now > start_ ? static_cast<double>(now - start_) : 0;
    const char* unit = ScaleDuration(value);
    report_(value, unit);
  }
  ScopedDuration(const ScopedDuration&) = delete;
  ScopedDuration& operator=(const ScopedDuration&) = delete;

 private:
  Report report_;
  u64 start_;
  bool active_;
};

}  // namespace Velmar::Utils
