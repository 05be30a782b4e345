// Bodies of MapDB: which file a store is saved to and loaded from, and how the old file gives way to the new one.
#pragma once

#include <exception>

#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/Utils/String.h"
#include "VelmarLog.h"

namespace Velmar::Collections::DB {

// Counts a user of a manager for a scope.
class ManagerUse {
 public:
  explicit ManagerUse(Utils::DatabaseManager& usedManager) : manager(usedManager) { ++manager.useCount; }
  ~ManagerUse() { --manager.useCount; }
  ManagerUse(const ManagerUse&) = delete;
  ManagerUse& operator=(const ManagerUse&) = delete;

 private:
  Utils::DatabaseManager& manager;
};

template <class K, class V>
bool MapDB<K, V>::Save() {
  Operation operation(*this);
  return IsInitialised() && operation.Begin() && SaveUnderLock();
}

template <class K, class V>
bool MapDB<K, V>::SaveUnderLock() {
  if (path[0] == '\0') {
    return true;
  }
  return manager != nullptr ? SaveByManager() : ReplaceFile();
}

template <class K, class V>
bool MapDB<K, V>::SaveByManager() {
  ManagerUse use(*manager);
  try {
    return WriteByManager();
  } catch (const std::exception& failure) {
    RYL_LOG(velmar, StoreManagerThrew, failure.what());
    return false;
  }
}

template <class K, class V>
bool MapDB<K, V>::WriteByManager() {
  if (!manager->IsSingleThreaded()) {
    RYL_LOG(velmar, StoreManagerNotSingleThreaded, path);
    return false;
  }
  Utils::String managedPath;
  if (!managedPath.Set(path) || !manager->SetWritterFile(managedPath)) {
    RYL_LOG(velmar, StoreManagerFileRefused, path);
    return false;
  }
  if (!WriteStoreFile(*manager)) {
    RYL_LOG(velmar, StoreNotWritten, path);
    return false;
  }
  if (!manager->Commit()) {
    RYL_LOG(velmar, StoreManagerNotCommitted, path);
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::ReplaceFile() {
  constexpr u32 kSuffixSize = 6;
  char area[sizeof(path) + kSuffixSize];
  Utils::String temporaryPath;
  if (!temporaryPath.Create(area, sizeof(area), true, true) || !temporaryPath.Add(path) ||
      !temporaryPath.Add(".temp")) {
    RYL_LOG(velmar, StoreTemporaryPathNotMade, path);
    return false;
  }
  OS::File file;
  if (!file.Create(temporaryPath.text, false, true)) {
    RYL_LOG(velmar, StoreTemporaryNotCreated, temporaryPath.text);
    return false;
  }
  const bool written = WriteStoreFile(file);
  // A file that could not be closed may not be on disk.
  if (!file.Close() || !written) {
    return AbandonTemporary(temporaryPath.text);
  }
  if (!OS::FileSystem::DeleteFile(path, false, nullptr)) {
    RYL_LOG(velmar, StoreOldFileNotDeleted, path);
    return false;
  }
  if (!OS::FileSystem::MoveFile(temporaryPath.text, path)) {
    RYL_LOG(velmar, StoreNotRenamed, temporaryPath.text);
    return false;
  }
  return true;
}

// Always false.
template <class K, class V>
bool MapDB<K, V>::AbandonTemporary(const char* temporaryPath) {
  RYL_LOG(velmar, StoreNotWritten, temporaryPath);
  if (!OS::FileSystem::DeleteFile(temporaryPath, false, nullptr)) {
    RYL_LOG(velmar, StoreTemporaryNotDeleted, temporaryPath);
  }
  return false;
}

template <class K, class V>
bool MapDB<K, V>::Load() {
  return LoadUnderLock((flags & StoreFlags::kClearOnLoadFailure) != 0);
}

template <class K, class V>
bool MapDB<K, V>::LoadFile() {
  return LoadUnderLock(false);
}

template <class K, class V>
bool MapDB<K, V>::LoadUnderLock(bool clearOnFailure) {
  Operation operation(*this);
  if (!operation.Begin()) {
    return false;
  }
  if (ReadFromDisk()) {
    return true;
  }
  RYL_LOG(velmar, StoreNotLoaded, path);
  if (!clearOnFailure) {
    return false;
  }
  operation.End();
  if (!Clear()) {
    RYL_LOG(velmar, StoreNotCleared, path);
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::ReadFromDisk() {
  if (manager != nullptr) {
    ManagerUse use(*manager);
    return ReadByManager();
  }
  if (path[0] == '\0' || !OS::FileSystem::FileExists(path, false)) {
    return true;
  }
  OS::File file;
  if (!file.OpenRead(path)) {
    RYL_LOG(velmar, StoreNotOpened, path);
    return false;
  }
  return ReadStoreFile(file);
}

template <class K, class V>
bool MapDB<K, V>::ReadByManager() {
  if (!manager->IsSingleThreaded()) {
    RYL_LOG(velmar, StoreManagerNotSingleThreaded, path);
    return false;
  }
  Utils::String managedPath;
  if (!managedPath.Set(path) || !manager->SetReaderFile(managedPath)) {
    RYL_LOG(velmar, StoreManagerFileRefused, path);
    return false;
  }
  return !manager->HasReaderFile() || ReadStoreFile(*manager);
}

}  // namespace Velmar::Collections::DB
