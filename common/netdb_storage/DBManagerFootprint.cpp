// DBManager: the limits to age and size of a database folder.
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Time.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/netdb_storage/DBManager.h"
#include "common/netdb_storage/Footprint.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::OS::FileSystem;
using Velmar::OS::Path;
using Velmar::OS::Time;
using Velmar::Utils::ScopedDuration;
using Velmar::Utils::String;

constexpr u32 kDeleteAttempts = 6;
constexpr u32 kDeletePauseMs = 100;
constexpr int kPathArea = 256;
constexpr int kNameArea = 32;

enum class PassResult { kWithinLimits, kListDeleted, kFailed };

bool ListOldest(const char* folder, OldestFiles& list) {
  const auto take = [&list](const char* path, u64 day, u64 size) {
    list.Take({day, size, String::EndsWith(path, ".f", false, -1, -1)});
    return true;
  };
  if (!DBManager::ForEachDBFile(folder, false, take, 0, ~u64{0})) {
    RYL_LOG(netdb_storage, FootprintWalkFailed, OldestFiles::kCapacity);
    return false;
  }
  return true;
}

bool AppendFileName(String& path, const DayFile& file) {
  char area[kNameArea];
  String name;
  return name.Create(area, sizeof(area), true, true) && file.FormatName(name) && Path::Join(path, name, false);
}

bool DeletePatiently(String& path, const char* name) {
  for (u32 attempt = 1; !FileSystem::DeleteFile(path, false, nullptr); ++attempt) {
    if (attempt == kDeleteAttempts) {
      return false;
    }
    RYL_LOG(netdb_storage, DayFileNotDeleted, name, attempt, kDeletePauseMs);
    Time::Sleep(kDeletePauseMs);
  }
  return true;
}

// `path` holds the folder, and does again after a true. `existed` tells whether there was such a file.
bool DeleteDayFile(String& path, const DayFile& file, const FootprintLimits& limits, bool& existed) {
  if (!AppendFileName(path, file)) {
    RYL_LOG(netdb_storage, DayFilePathNotMade, file.day);
    return false;
  }
  const char* const name = Path::GetFileName(path.text);
  RYL_LOG(netdb_storage, DayFileToDelete, name, file.size, limits.maxDays, limits.maxBytes / 1024);
  existed = FileSystem::FileExists(path.text, false);
  if (!DeletePatiently(path, name)) {
    return false;
  }
  RYL_LOG(netdb_storage, DayFileDeleted, name);
  Path::RemoveLast(path, false);
  return true;
}

PassResult DeleteOldest(const char* folder, OldestFiles& list, const FootprintLimits& limits) {
  char area[kPathArea];
  String path;
  if (!path.Create(area, sizeof(area), true, true) || !path.Set(folder)) {
    RYL_LOG(netdb_storage, FootprintPathNotKept);
    return PassResult::kFailed;
  }
  u32 tried = 0;
  u32 removed = 0;
  for (; tried < list.count; ++tried) {
    const DayFile& file = list.files[tried];
    if (limits.AreMet(file.day, list.total)) {
      break;
    }
    bool existed = false;
    if (!DeleteDayFile(path, file, limits, existed)) {
      return PassResult::kFailed;
    }
    removed += existed ? 1 : 0;
    list.total -= file.size;
  }
  // A name such as "1699920000.temp.f" leads to a path that is not there; the next pass would find it again.
  if (tried > 0 && removed == 0) {
    RYL_LOG(netdb_storage, NothingWasDeleted, tried);
    return PassResult::kFailed;
  }
  return tried < list.count ? PassResult::kWithinLimits : PassResult::kListDeleted;
}

}  // namespace

bool DBManager::EnsureDiskFootprintConstraints(const char* databaseFolder, u64 maxBytes, u64 maxDays) {
  const ScopedDuration timed(
      [](double value, const char* unit) { RYL_LOG(netdb_storage, FootprintTimed, value, unit); }, IsLogged());
  const FootprintLimits limits(maxBytes, maxDays, Time::GetEpochTime(nullptr));
  for (;;) {
    OldestFiles list;
    if (!ListOldest(databaseFolder, list)) {
      return false;
    }
    if (list.count == 0) {
      return true;
    }
    const PassResult result = DeleteOldest(databaseFolder, list, limits);
    if (result != PassResult::kListDeleted) {
      return result == PassResult::kWithinLimits;
    }
  }
}

}  // namespace RYL::NetDB
