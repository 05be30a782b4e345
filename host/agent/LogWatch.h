// LogWatch: what this program has to know out of the log of the libraries that it runs.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "Velmar/Log.h"
#include "host/Types.h"

namespace Host {

// Listens to the log from construction to destruction. Lifetime: one at a time in a process; made before anything that
// logs starts and destroyed after it ended. Threads: thread-safe.
class LogWatch {
 public:
  static constexpr std::size_t kKeptErrors = 20;

  LogWatch();
  ~LogWatch();
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;

  // What a call of HandleEvent on this thread said since ForgetThread.
  static void ForgetThread();
  static bool QueueWasFull();
  static bool QueuedWithoutWakeUp();

  // Observations that were taken and then given up.
  [[nodiscard]] u64 LostMessages() const { return lostMessages_; }
  // Dumps that failed, also those that were made good later.
  [[nodiscard]] u64 FailedDumps() const { return failedDumps_; }
  // Dumps that failed for good: rows are lost.
  [[nodiscard]] u64 LostDumps() const { return lostDumps_; }
  // The module's worker ended by itself: what is queued stays unstored.
  [[nodiscard]] bool WorkerEnded() const { return workerEnded_; }
  // Day files that queries came to.
  [[nodiscard]] u64 QueriedFiles() const { return queriedFiles_; }
  // Paths of those among them that were passed over.
  [[nodiscard]] std::vector<std::string> SkippedFiles() const;
  // Name of the last day file of which a deletion failed, also one that was made good later.
  [[nodiscard]] std::string UndeletedFile() const;
  // Texts of the first records of level 5, but for those of a full queue.
  [[nodiscard]] std::vector<std::string> Errors() const;

 private:
  static void Receive(const Velmar::Log::Record& record, std::va_list arguments);
  void Keep(const Velmar::Log::Record& record, std::va_list arguments);

  std::atomic<u64> lostMessages_{0};
  std::atomic<u64> failedDumps_{0};
  std::atomic<u64> lostDumps_{0};
  std::atomic<u64> queriedFiles_{0};
  std::atomic<bool> workerEnded_{false};
  mutable std::mutex mutex_;
  std::vector<std::string> skippedFiles_;
  std::string undeletedFile_;
  std::vector<std::string> errors_;
};

}  // namespace Host
