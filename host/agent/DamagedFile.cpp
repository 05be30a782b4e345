#include "host/agent/DamagedFile.h"

#include <memory>

#include "Velmar/OS/FileSystem.h"
#include "common/netdb_storage/DBManager.h"

namespace Host {
namespace {

using RYL::NetDB::DBManager;
using Velmar::OS::FileSystem;

bool IsReadable(const std::string& path) {
  const auto manager = std::make_unique<DBManager>();
  return manager->SyncWith(path.c_str(), true);
}

bool SetAside(const std::string& path, std::string& report) {
  std::string aside = path + ".damaged";
  for (int number = 1; FileSystem::FileExists(aside.c_str(), false); ++number) {
    aside = path + ".damaged." + std::to_string(number);
  }
  const bool moved = FileSystem::MoveFile(path.c_str(), aside.c_str());
  report += path + (moved ? " cannot be read and was renamed to " + aside : " cannot be read nor renamed") + "\n";
  return moved;
}

}  // namespace

bool SetAsideDamagedFiles(const std::string& databaseFolder, Velmar::u64 now, std::string& report) {
  bool done = true;
  const std::string day = std::to_string(now / DBManager::kSecondsPerDay * DBManager::kSecondsPerDay);
  for (const char* suffix : {".db.f", ".db"}) {
    const std::string path = databaseFolder + "/" + day + suffix;
    if (FileSystem::FileExists(path.c_str(), false) && !IsReadable(path)) {
      done = SetAside(path, report) && done;
    }
  }
  return done;
}

}  // namespace Host
