// Bodies of TimeCacheBasicTypeWrapper.
#pragma once

#include <algorithm>

#include "Velmar/Collections/Caches/TimeCacheBasicTypeWrapper.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "VelmarLog.h"

namespace Velmar::Collections::Caches::Base {

inline constexpr u64 kLeastTimeToLiveMs = 1000;

template <class K, class V>
TimeCacheBasicTypeWrapper<K, V>::~TimeCacheBasicTypeWrapper() {
  OS::Threading::MutexDestroy(mutex);
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Init(u32 initialCapacity, u32 maxCapacity, u32 growth, u64 shortestMs,
                                           u64 longestMs, const char* path, u16 version, u32 flags) {
  return Init(initialCapacity, maxCapacity, growth, shortestMs, longestMs, path, version, flags, nullptr);
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Init(u32 initialCapacity, u32 maxCapacity, u32 growth, u64 shortestMs,
                                           u64 longestMs, const char* path, u16 version, u32 flags,
                                           DB::ISerializedDataBinder* binder) {
  if (shortestMs >= longestMs) {
    RYL_LOG(velmar, CacheTimesNotInOrder, shortestMs, longestMs);
    return false;
  }
  if (shortestMs < kLeastTimeToLiveMs) {
    RYL_LOG(velmar, CacheTimeTooShort, shortestMs);
    return false;
  }
  minTimeToLive = shortestMs;
  maxTimeToLive = longestMs;
  // The cache locks for its store, and says by itself which hit moves an entry.
  const u32 storeFlags = flags & ~(DB::StoreFlags::kThreadSafe | DB::StoreFlags::kMoveToTailOnAccess);
  if (!store.Init(path, initialCapacity, maxCapacity, growth, storeFlags, version, nullptr, binder, 0, -1, nullptr)) {
    RYL_LOG(velmar, CacheStoreNotOpened, path);
    return false;
  }
  if ((flags & DB::StoreFlags::kThreadSafe) == 0) {
    return true;
  }
  mutex = OS::Threading::MutexCreate();
  if (mutex == nullptr) {
    RYL_LOG(velmar, CacheMutexFailed);
    store.Uninit();
    return false;
  }
  return true;
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Set(Key key, V value, u64 timeToLive, bool keepIfPresent) {
  OS::ScopedLock lock(mutex);
  SetArguments arguments{std::min(std::max(timeToLive, minTimeToLive), maxTimeToLive), value, keepIfPresent};
  store.SetMoveToTailOnAccess(true);
  const bool done = store.Apply(key, true, &Write, &arguments);
  store.SetMoveToTailOnAccess(false);
  if (!done) {
    RYL_LOG(velmar, CacheEntryNotSet);
  }
  return done;
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Write(Value& entry, bool isNew, void* context) {
  const auto& arguments = *static_cast<const SetArguments*>(context);
  if (!isNew && arguments.keepIfPresent) {
    return true;
  }
  const u64 now = OS::Time::GetEpochTime(nullptr);
  // An end past the last millisecond is that one.
  entry.expiry = now + std::min(arguments.timeToLive, ~now);
  entry.timeToLive = arguments.timeToLive;
  entry.object.value = arguments.value;
  return true;
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Get(Key key, V& value, u64* remaining) {
  OS::ScopedLock lock(mutex);
  GetResult result{&value, remaining, false};
  if (!store.Apply(key, false, &Read, &result)) {
    return false;
  }
  if (!result.expired) {
    return true;
  }
  if (!store.Delete(key, true)) {
    RYL_LOG(velmar, CacheEntryNotRemoved);
  }
  return false;
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Read(Value& entry, bool /*isNew*/, void* context) {
  auto& result = *static_cast<GetResult*>(context);
  const u64 now = OS::Time::GetEpochTime(nullptr);
  result.expired = now > entry.expiry;
  if (result.remaining != nullptr) {
    *result.remaining = result.expired ? 0 : entry.expiry - now;
  }
  if (!result.expired) {
    *result.value = entry.object.value;
  }
  return true;
}

template <class K, class V>
bool TimeCacheBasicTypeWrapper<K, V>::Delete(Key key, bool mustExist) {
  OS::ScopedLock lock(mutex);
  return store.Delete(key, mustExist);
}

template <class K, class V>
u32 TimeCacheBasicTypeWrapper<K, V>::GetCount() {
  OS::ScopedLock lock(mutex);
  return store.GetCount();
}

}  // namespace Velmar::Collections::Caches::Base
