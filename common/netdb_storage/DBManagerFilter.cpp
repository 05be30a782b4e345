// DBManager: what a filter job does with one day.
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Time.h"
#include "common/netdb_storage/DBManager.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::OS::FileSystem;
using Velmar::Utils::String;

constexpr u32 kRenames = 5;
constexpr u32 kRenamePauseMs = 100;
constexpr u64 kMillisecondsPerSecond = 1000;

}  // namespace

bool DBManager::FilterIPs(CloudStatus<IPv4>* cloud) {
  if (store == nullptr || store->GetPath()[0] == '\0') {
    RYL_LOG(netdb_storage, FilterWithoutFile);
    return false;
  }
  const char* const file = Velmar::OS::Path::GetFileName(store->GetPath());
  dirty = true;
  if (!ips.FilterWhitelisted(cloud, this)) {
    RYL_LOG(netdb_storage, DayNotFiltered, file);
    return false;
  }
  cryptor.SetFilterStamp(Velmar::OS::Time::GetEpochTime(nullptr) / kMillisecondsPerSecond);
  RYL_LOG(netdb_storage, DayFiltered, file);
  return true;
}

bool DBManager::MarkFiltered(const char* path) {
  if (path == nullptr || !FileSystem::FileExists(path, false)) {
    RYL_LOG(netdb_storage, MarkWithoutFile, path);
    return false;
  }
  const bool matchesAnyCase = !FileSystem::IsFileSystemCaseSensitive();
  String target;
  if (!String::EndsWith(path, ".db", matchesAnyCase, -1, -1) || !target.Set(path) || !target.Add(".f")) {
    RYL_LOG(netdb_storage, MarkOtherName, path);
    return false;
  }
  if (FileSystem::FileExists(target.text, false)) {
    RYL_LOG(netdb_storage, MarkedFileExists, target.text);
    return false;
  }
  for (u32 attempt = 1; !FileSystem::MoveFile(path, target.text); ++attempt) {
    if (attempt == kRenames) {
      return false;
    }
    RYL_LOG(netdb_storage, MarkRetry, path, attempt);
    Velmar::OS::Time::Sleep(kRenamePauseMs);
  }
  return true;
}

}  // namespace RYL::NetDB
