#include "common/cloud/filter_job/FilterJob.h"

#include <exception>

#include "Velmar/OS/File.h"
#include "Velmar/OS/Path.h"
#include "common/cloud/CloudLog.h"
#include "common/netdb_storage/DBManager.h"

namespace RYL::NetDB {
namespace {

using Velmar::OS::File;

// The day as it is to be on disk; its manager is gone at the end.
bool FilterDay(const char* path, const char* file, CloudStatus<IPv4>* cloud) {
  DBManager db;
  if (!db.SyncWith(path, false)) {
    RYL_LOG(cloud, JobFileNotOpened, file);
    return false;
  }
  if (!db.FilterIPs(cloud)) {
    RYL_LOG(cloud, JobNotFiltered, file);
    return false;
  }
  if (!db.Flush()) {
    RYL_LOG(cloud, JobNotDumped, file);
    return false;
  }
  return true;
}

bool RunJob(const FilterJobContext& job, const char* file) {
  const char* const path = job.file->text;
  const u64 before = File::GetFileSize(path);
  if (!FilterDay(path, file, job.cloud)) {
    return false;
  }
  const u64 after = File::GetFileSize(path);
  if (!DBManager::MarkFiltered(path)) {
    RYL_LOG(cloud, JobNotMarked, file);
    return false;
  }
  RYL_LOG(cloud, JobDone, file, before, after, static_cast<i64>(before) - static_cast<i64>(after));
  return true;
}

}  // namespace

void FilterJobThread(void* context) {
  const auto& job = *static_cast<FilterJobContext*>(context);
  job.status->exchange(FilterState::kRunning);
  const char* const file = Velmar::OS::Path::GetFileName(job.file->text);
  u8 result = FilterState::kFailed;
  try {
    if (RunJob(job, file)) {
      result = FilterState::kDone;
    }
  } catch (const std::exception& exception) {
    RYL_LOG(cloud, JobException, file, exception.what());
  }
  job.status->exchange(result);
}

}  // namespace RYL::NetDB
