// DBManager: the walk over the day files of a folder, and what is measured and found by it.
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

// The walk takes a suffix in any case; what a file counts as goes by the case.
bool IsFiltered(const char* path) {
  return String::EndsWith(path, ".f", false, -1, -1);
}

bool AddFile(DBStats& stats, const char* path, u64 day, u64 size) {
  if (IsFiltered(path)) {
    ++stats.filtered_count;
  } else if (String::EndsWith(path, ".db", false, -1, -1)) {
    ++stats.unfiltered_count;
  }
  const u64 files = stats.filtered_count + stats.unfiltered_count;
  if (files == 0) {
    RYL_LOG(netdb_storage, NeitherFilteredNorNot, path);
    return false;
  }
  stats.max_size = size > stats.max_size ? size : stats.max_size;
  stats.min_size = size < stats.min_size ? size : stats.min_size;
  stats.total_size += size;
  const auto count = static_cast<double>(files);
  stats.average_size = stats.average_size * static_cast<double>(files - 1) / count + static_cast<double>(size) / count;
  stats.oldest = day < stats.oldest ? day : stats.oldest;
  if (day > stats.newest) {
    stats.newest = day;
    stats.newest_size = size;
  }
  return true;
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

bool DBManager::GetSizeOnDisk(const char* databaseFolder, u64& size) {
  size = 0;
  const auto add = [&size](const char* /*path*/, u64 /*day*/, u64 fileSize) {
    size += fileSize;
    return true;
  };
  return ForEachDBFile(databaseFolder, false, add, 0, ~u64{0});
}

bool DBManager::ComputeStatistics(const char* databaseFolder, DBStats& stats) {
  stats = DBStats();
  const auto add = [&stats](const char* path, u64 day, u64 size) { return AddFile(stats, path, day, size); };
  return ForEachDBFile(databaseFolder, false, add, 0, ~u64{0});
}

bool DBManager::GetOldestUnfilteredFile(const char* databaseFolder, String& path, bool& found) {
  path.Clear();
  found = false;
  const auto choose = [&path](const char* candidate, u64 /*day*/, u64 /*size*/) {
    // All names have ten digits, so paths sort by day.
    if (IsFiltered(candidate) || (path.length != 0 && path.Compare(candidate, false) <= 0)) {
      return true;
    }
    if (!path.Set(candidate)) {
      RYL_LOG(netdb_storage, OldestNotKept, candidate);
      return false;
    }
    return true;
  };
  if (!ForEachDBFile(databaseFolder, true, choose, 0, ~u64{0})) {
    return false;
  }
  found = path.length != 0;
  return true;
}

}  // namespace RYL::NetDB
