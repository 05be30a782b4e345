// FilterSchedule: decides when the next filter job starts.
#pragma once

#include <atomic>
#include <random>

#include "RYL/Module/ModuleHost.h"
#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "common/Address.h"
#include "common/cloud/CloudStatus.h"
#include "common/cloud/filter_job/FilterJob.h"
#include "common/netdb_storage/DBManager.h"

namespace RYL::Module {

namespace FilterState = NetDB::FilterState;
using NetDB::FilterJobContext;

// The two steps that the schedule runs; tests have others.
struct FilterJobSteps {
  // Puts the next file to filter into `path`. False on a failure.
  bool (*findFile)(const char* folder, Velmar::Utils::String& path,
                   bool& found) = &NetDB::DBManager::GetOldestUnfilteredFile;
  // Entry of the job's thread; its context is a FilterJobContext. It sets the status to kRunning, and at its end to
  // kDone or kFailed.
  void (*job)(void* context) = &NetDB::FilterJobThread;
};

// What a schedule works with; all of it outlives the schedule.
struct FilterScheduleParts {
  ModuleHost* host;
  const char* folder;
  NetDB::CloudStatus<NetDB::IPv4>* cloud;
  NetDB::DBManager* db;  // the worker's, which may have the found file open
  FilterJobSteps steps;
};

// A good job is followed by a pause of 6 to 8 hours; a failed one by a back-off that doubles from 30 minutes to a day,
// plus up to 30 minutes. At most one job runs at a time. Lifetime: the destructor waits for a job that runs. Threads:
// owner thread only; the status byte is shared with the job.
class FilterSchedule {
 public:
  static constexpr u64 kSuccessPauseMs = 21600000;
  static constexpr u64 kSuccessJitterMs = 7200000;
  static constexpr u64 kFirstBackoffMs = 1800000;
  static constexpr u64 kMaxBackoffMs = 86400000;
  static constexpr u64 kFailureJitterMs = 1800000;

  FilterSchedule(const FilterScheduleParts& workerParts, u32 seed);
  ~FilterSchedule();
  FilterSchedule(const FilterSchedule&) = delete;
  FilterSchedule& operator=(const FilterSchedule&) = delete;

  // The first job is due now, or up to two hours later with `jitter`.
  void Begin(bool jitter);
  // One step of the state machine; `now` in epoch milliseconds.
  void Advance(u64 now, bool cloudQueryEnabled);
  // No job is under way, and the result of the last one is taken in.
  [[nodiscard]] bool IsIdle() const { return filter_state.load() == FilterState::kIdle; }
  // Joins a job that was started; level 3 when there is one.
  void WaitForJob();

 private:
  friend struct FilterScheduleTestAccess;

  void TakeSuccess();
  void TakeFailure();
  void StartWhenDue(u64 now, bool cloudQueryEnabled);
  // Brings what memory holds of the found day to its file, which the job is about to replace.
  bool FlushFile();
  void StartJob();

  FilterScheduleParts parts;
  std::atomic<u8> filter_state{FilterState::kIdle};
  void* filter_thread = nullptr;
  u64 next_filter_time = 0;
  u64 filter_backoff = kFirstBackoffMs;
  char fileArea[256];
  Velmar::Utils::String filter_file;
  FilterJobContext context;
  std::mt19937 engine;
  std::uniform_int_distribution<u64> success_jitter{0, kSuccessJitterMs};
  std::uniform_int_distribution<u64> failure_jitter{0, kFailureJitterMs};
};

}  // namespace RYL::Module
