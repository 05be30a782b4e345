#include "common/cloud/CloudStatus.h"

#include <type_traits>
#include <utility>

#include "Velmar/Collections/Caches/TimeCacheBasicTypeWrapper.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Threading.h"
#include "common/PrivateAddress.h"
#include "common/cloud/CloudLog.h"

namespace RYL::NetDB {
namespace {

using Velmar::OS::FileSystem;
using Velmar::OS::ScopedLock;
using Velmar::OS::Threading;
namespace StoreFlags = Velmar::Collections::DB::StoreFlags;

constexpr u32 kInitialCapacity = 1024;
constexpr u32 kMaxCapacity = 131072;
constexpr u32 kGrowth = 128;
constexpr u16 kVersion = 1;
constexpr u32 kOpenAttempts = 3;

template <class T>
constexpr const char* kFileName = std::is_same_v<T, IPv4> ? "cache.4.db" : "cache.6.db";

}  // namespace

template <class T>
CloudStatus<T>::CloudStatus() : mutex(Threading::MutexCreate()) {}

template <class T>
CloudStatus<T>::~CloudStatus() {
  Velmar::Collections::Delete(cache);
  Threading::MutexDestroy(mutex);
}

template <class T>
bool CloudStatus<T>::Open(const char* folder, bool startPersistent) {
  total_requests = 0;
  total_successful_requests = 0;
  return SetPath(folder, startPersistent) && CreateTrees() && SetPersistent(startPersistent);
}

template <class T>
bool CloudStatus<T>::CreateTrees() {
  constexpr u32 kNodes = 256;
  constexpr u32 kNodeGrowth = 32;
  constexpr u32 kChildren = 8;
  // Those of an earlier opening may be in use by a job.
  if (has_trees) {
    return true;
  }
  if (!request_tree.Create(kNodes, kNodeGrowth, false, kChildren) ||
      !response_tree.Create(kNodes, kNodeGrowth, false, kChildren)) {
    RYL_LOG(cloud, CloudTreesNotCreated);
    return false;
  }
  has_trees = true;
  return true;
}

template <class T>
bool CloudStatus<T>::SetPath(const char* folder, bool needed) {
  Velmar::Utils::String made;
  if (folder != nullptr && folder[0] != '\0') {
    if (!FileSystem::DirectoryExists(folder, false)) {
      RYL_LOG(cloud, CacheFolderMissing, folder);
      return false;
    }
    if (!Velmar::OS::Path::Join(made, folder, kFileName<T>, false)) {
      RYL_LOG(cloud, CachePathNotMade, folder);
      return false;
    }
  } else if (needed) {
    RYL_LOG(cloud, CacheWithoutFolder);
    return false;
  }
  ScopedLock lock(mutex);
  path = std::move(made);
  return true;
}

template <class T>
bool CloudStatus<T>::SetPersistent(bool wanted) {
  ScopedLock lock(mutex);
  if (path.length == 0 && wanted) {
    RYL_LOG(cloud, CacheWithoutPath);
    return false;
  }
  if (cache != nullptr && wanted == persistent) {
    return true;
  }
  // Here a cache that has a file writes it.
  Velmar::Collections::Delete(std::exchange(cache, nullptr));
  persistent = wanted;
  return (persistent || DeleteFile()) && CreateCache();
}

// The file of a cache that is in memory alone from now on.
template <class T>
bool CloudStatus<T>::DeleteFile() {
  if (path.length == 0) {
    return true;
  }
  if (!FileSystem::DeleteFile(path, false, nullptr)) {
    RYL_LOG(cloud, CacheFileNotDeleted, path.text);
    return false;
  }
  RYL_LOG(cloud, CacheFileDeleted, path.text);
  return true;
}

template <class T>
bool CloudStatus<T>::CreateCache() {
  cache = Velmar::Collections::New<Cache>();
  if (cache == nullptr) {
    RYL_LOG(cloud, NoCacheMemory);
    return false;
  }
  if (!OpenCache()) {
    Velmar::Collections::Delete(std::exchange(cache, nullptr));
    return false;
  }
  return true;
}

// A file that cannot be loaded costs its verdicts and nothing else.
template <class T>
bool CloudStatus<T>::OpenCache() {
  const char* file = persistent ? path.text : "";
  const u32 flags = StoreFlags::kBinarySearch | (persistent ? 0 : StoreFlags::kNoSaveOnClose);
  for (u32 attempt = 1; attempt <= kOpenAttempts; ++attempt) {
    if (cache->Init(kInitialCapacity, kMaxCapacity, kGrowth, kTimeToLiveMs, kTimeToLiveMs + 1, file, kVersion, flags)) {
      return true;
    }
    RYL_LOG(cloud, CacheNotOpened, file, attempt);
    if (file[0] == '\0' || !FileSystem::FileExists(file, false)) {
      return false;
    }
    RYL_LOG(cloud, CacheFileGivenUp, file);
    FileSystem::DeleteFile(file, false, nullptr);
  }
  return false;
}

template <class T>
bool CloudStatus<T>::Lookup(const T* address, u8* verdict) {
  bool isWhitelisted = false;
  {
    ScopedLock lock(mutex);
    if (cache == nullptr) {
      return false;
    }
    if (!cache->Get(address->ToRaw(), isWhitelisted, nullptr) && !IsPrivateAddress(*address)) {
      return false;
    }
  }
  if (verdict != nullptr) {
    *verdict = isWhitelisted ? 1 : 0;
  }
  return true;
}

template <class T>
bool CloudStatus<T>::IsWhitelisted(const T* address) {
  u8 verdict = 0;
  return Lookup(address, &verdict) && verdict != 0;
}

template <class T>
bool CloudStatus<T>::StoreVerdict(const T& address, bool isWhitelisted) {
  ScopedLock lock(mutex);
  return cache != nullptr && cache->Set(address.ToRaw(), isWhitelisted, kTimeToLiveMs, true);
}

template <class T>
u64 CloudStatus<T>::GetCacheSizeOnDisk() {
  ScopedLock lock(mutex);
  return path.length == 0 ? 0 : Velmar::OS::File::GetFileSize(path.text);
}

template <class T>
u32 CloudStatus<T>::GetItemCount() {
  ScopedLock lock(mutex);
  return cache == nullptr ? 0 : cache->GetCount();
}

template class CloudStatus<IPv4>;
template class CloudStatus<IPv6>;

}  // namespace RYL::NetDB
