// DBManager: the walk over the day files of a folder.
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Time.h"
#include "common/netdb_storage/DBManager.h"
#include "common/netdb_storage/DayFileName.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::OS::FileSystem;
using Velmar::OS::FileTimes;
using Velmar::Utils::String;

constexpr u64 kMillisecondsPerDay = DBManager::kSecondsPerDay * 1000;
constexpr int kFolderArea = 256;

struct Walk {
  const DBManager::FileCallback& callback;
  u64 first;
  u64 last;
  bool skipToday;
  u64 today;
};

u64 StartOfDay(u64 second) {
  return second / DBManager::kSecondsPerDay * DBManager::kSecondsPerDay;
}

}  // namespace

bool DBManager::ForEachDBFile(const char* databaseFolder, bool skipToday, const FileCallback& callback, u64 from,
                              u64 to) {
  if (databaseFolder == nullptr) {
    RYL_LOG(netdb_storage, WalkWithoutFolder);
    return false;
  }
  if (!FileSystem::DirectoryExists(databaseFolder, false)) {
    RYL_LOG(netdb_storage, WalkFolderMissing, databaseFolder);
    return false;
  }
  if (!callback) {
    RYL_LOG(netdb_storage, WalkWithoutCallback);
    return false;
  }
  const u64 today =
      skipToday ? Velmar::OS::Time::GetEpochTime(nullptr) / kMillisecondsPerDay * DBManager::kSecondsPerDay : 0;
  Walk walk{callback, StartOfDay(from), StartOfDay(to), skipToday, today};
  char area[kFolderArea];
  String path;
  if (!path.Create(area, sizeof(area), true, true) || !path.Set(databaseFolder)) {
    RYL_LOG(netdb_storage, WalkPathNotKept);
    return false;
  }
  return FileSystem::EnumerateFiles(path, false, &VisitEntry, &walk, true, true, false);
}

bool DBManager::VisitEntry(const char* path, const char* name, u64 size, bool isDirectory, FileTimes& /*times*/,
                           void* context) {
  if (path == nullptr || name == nullptr || context == nullptr) {
    RYL_LOG(netdb_storage, WalkEntryIncomplete);
    return false;
  }
  if (isDirectory) {
    return true;
  }
  const Walk& walk = *static_cast<const Walk*>(context);
  u64 day = 0;
  if (!IsDayFileName(name, day)) {
    RYL_LOG(netdb_storage, NotADatabaseFile, name);
    return true;
  }
  if (day < walk.first || day > walk.last) {
    RYL_LOG(netdb_storage, DayOutOfRange, day, walk.first, walk.last);
    return true;
  }
  if (walk.skipToday && day == walk.today) {
    RYL_LOG(netdb_storage, TodaySkipped, day);
    return true;
  }
  return walk.callback(path, day, size);
}

}  // namespace RYL::NetDB
