#include "common/libryl_netdb/FilterSchedule.h"

#include <algorithm>

#include "Velmar/OS/Path.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/netdb_storage/DayFileName.h"

namespace RYL::Module {
namespace {

// The label stands as it is spelled: hosts know it so.
constexpr const char* kThreadLabel = "fiterWorker";

}  // namespace

FilterSchedule::FilterSchedule(const FilterScheduleParts& workerParts, u32 seed)
    : parts(workerParts),
      context{.file = &filter_file, .cloud = workerParts.cloud, .status = &filter_state},
      engine(seed) {
  filter_file.Create(fileArea, sizeof(fileArea), true, true);
}

FilterSchedule::~FilterSchedule() {
  Velmar::OS::Threading::WaitForThreadToEnd(filter_thread);
}

void FilterSchedule::Begin(bool jitter) {
  next_filter_time = Velmar::OS::Time::GetEpochTime(nullptr);
  if (jitter) {
    next_filter_time += success_jitter(engine);
  }
  RYL_LOG(ryl_netdb, FirstFilterTime, next_filter_time);
}

void FilterSchedule::Advance(u64 now, bool cloudQueryEnabled) {
  const u8 state = filter_state.load();
  switch (state) {
    case FilterState::kLaunched:
    case FilterState::kRunning:
      RYL_LOG(ryl_netdb, FilterJobRuns, state);
      break;
    case FilterState::kDone:
      TakeSuccess();
      break;
    case FilterState::kFailed:
      TakeFailure();
      break;
    case FilterState::kIdle:
      StartWhenDue(now, cloudQueryEnabled);
      break;
    default:
      break;
  }
}

void FilterSchedule::WaitForJob() {
  if (filter_thread != nullptr) {
    RYL_LOG(ryl_netdb, WaitingForFilterJob);
    Velmar::OS::Threading::WaitForThreadToEnd(filter_thread);
  }
}

void FilterSchedule::TakeSuccess() {
  next_filter_time = Velmar::OS::Time::GetEpochTime(nullptr) + success_jitter(engine) + kSuccessPauseMs;
  filter_backoff = kFirstBackoffMs;
  RYL_LOG(ryl_netdb, FilterJobDone, next_filter_time);
  filter_state.exchange(FilterState::kIdle);
}

void FilterSchedule::TakeFailure() {
  next_filter_time = Velmar::OS::Time::GetEpochTime(nullptr) + failure_jitter(engine) + filter_backoff;
  filter_backoff = std::min(2 * filter_backoff, kMaxBackoffMs);
  RYL_LOG(ryl_netdb, FilterJobFailed, next_filter_time);
  filter_state.exchange(FilterState::kIdle);
}

void FilterSchedule::StartWhenDue(u64 now, bool cloudQueryEnabled) {
  if (filter_thread != nullptr) {
    Velmar::OS::Threading::WaitForThreadToEnd(filter_thread);
  }
  // While the cloud may not be asked the schedule stays, so that an overdue job starts as soon as it may.
  if (next_filter_time > now || !cloudQueryEnabled) {
    return;
  }
  bool found = false;
  if (!parts.steps.findFile(parts.folder, filter_file, found)) {
    RYL_LOG(ryl_netdb, FilterFileNotFound);
  } else if (!found) {
    RYL_LOG(ryl_netdb, NoFileToFilter);
  } else if (!FlushFile()) {
    RYL_LOG(ryl_netdb, FilterFileNotFlushed, filter_file.text);
  } else {
    StartJob();
  }
}

bool FilterSchedule::FlushFile() {
  u64 day = 0;
  const bool isOpen =
      NetDB::IsDayFileName(Velmar::OS::Path::GetFileName(filter_file.text), day) && day == parts.db->GetDayStamp();
  return !isOpen || parts.db->Flush();
}

void FilterSchedule::StartJob() {
  RYL_LOG(ryl_netdb, FilterJobStarts, Velmar::OS::Path::GetFileName(filter_file.text));
  filter_state.exchange(FilterState::kLaunched);
  filter_thread = parts.host->CreateThread(Velmar::kModuleNumber, parts.steps.job, &context, kThreadLabel);
  if (filter_thread == nullptr) {
    filter_state.exchange(FilterState::kFailed);
  }
}

}  // namespace RYL::Module
