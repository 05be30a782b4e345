// FilterWatch: what a filter job says of itself in the log.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "Velmar/Log.h"
#include "host/Types.h"

namespace Host {

// Listens to the log from construction to destruction. Lifetime: one at a time in a process, and none beside a
// LogWatch; made before anything that logs starts and destroyed after it ended. Threads: thread-safe.
class FilterWatch {
 public:
  static constexpr std::size_t kKeptReasons = 20;

  // Since Begin.
  struct Findings {
    bool walked = false;                    // the rows were judged
    bool cloudMissing = false;              // a request got no whole reply
    u64 rowsRemoved = 0;                    // in memory; on disk once the file was written
    std::vector<std::string> reasons = {};  // texts of the first warnings and errors
  };

  FilterWatch();
  ~FilterWatch();
  FilterWatch(const FilterWatch&) = delete;
  FilterWatch& operator=(const FilterWatch&) = delete;

  // Forgets what the last job said.
  void Begin();
  [[nodiscard]] Findings Get() const;

 private:
  static void Receive(const Velmar::Log::Record& record, std::va_list arguments);
  void Take(const Velmar::Log::Record& record, std::va_list arguments);

  mutable std::mutex mutex_;
  Findings findings_;
};

}  // namespace Host
