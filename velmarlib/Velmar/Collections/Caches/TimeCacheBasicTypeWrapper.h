// TimeCacheBasicTypeWrapper: a store of plain values that expire.
//
//   TimeCacheBasicTypeWrapper<u32, bool> cache;
//   cache.Init(1024, 131072, 128, 172800000, 172800001, path, 0, StoreFlags::kBinarySearch);
//   cache.Set(key, true, 172800000, true);
//   bool value = false;
//   if (cache.Get(key, value, nullptr)) ...
#pragma once

#include "Velmar/Collections/Caches/TimeCacheObjectWrapper.h"
#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/Types.h"

namespace Velmar::Collections::Caches::Base {

// Purpose: a MapDB whose entries have an end in wall clock time, which they keep across a restart. Nothing scans the
// cache: an expired entry stays, and counts, until a Get meets it or a full store recycles it as its oldest.
// Lifetime and effects on disk: those of MapDB.
// Threads: thread-safe with StoreFlags::kThreadSafe, otherwise thread-compatible.
// Errors: false after a log record.
//
// Instances: <u32, bool>, <UInt128, bool>.
template <class K, class V>
class TimeCacheBasicTypeWrapper {
 public:
  using Value = TimeCacheObjectWrapper<internalTimeCacheObjectWrapper<V>>;
  using Store = DB::MapDB<K, Value>;
  using Key = typename Store::Key;

  TimeCacheBasicTypeWrapper() = default;
  ~TimeCacheBasicTypeWrapper();
  TimeCacheBasicTypeWrapper(const TimeCacheBasicTypeWrapper&) = delete;
  TimeCacheBasicTypeWrapper& operator=(const TimeCacheBasicTypeWrapper&) = delete;

  // Times to live in milliseconds, the shortest at least 1000 and below the longest. `growth` is a number of entries.
  // `flags` are DB::StoreFlags; kThreadSafe locks the cache in place of the store, kMoveToTailOnAccess is ignored.
  // After a failure the cache can be initialised again.
  bool Init(u32 initialCapacity, u32 maxCapacity, u32 growth, u64 shortestMs, u64 longestMs, const char* path,
            u16 version, u32 flags);
  bool Init(u32 initialCapacity, u32 maxCapacity, u32 growth, u64 shortestMs, u64 longestMs, const char* path,
            u16 version, u32 flags, DB::ISerializedDataBinder* binder);

  // Makes the key's entry the newest. `timeToLive`, in milliseconds, is brought within the bounds given to Init.
  // `keepIfPresent`: an entry that is there, expired or not, keeps its value and its end.
  bool Set(Key key, V value, u64 timeToLive, bool keepIfPresent);
  // False, without a record, for a key that is missing or expired; the expired one is removed. An entry lives up to
  // and with the millisecond of its end. `remaining`, which may be null, gets the milliseconds left, 0 for an expired
  // entry. `value` is set on success alone.
  bool Get(Key key, V& value, u64* remaining);
  // As MapDB::Delete.
  bool Delete(Key key, bool mustExist);
  u32 GetCount();

 private:
  friend struct TimeCacheTestAccess;

  struct SetArguments {
    u64 timeToLive;
    V value;
    bool keepIfPresent;
  };
  struct GetResult {
    V* value;
    u64* remaining;
    bool expired;
  };
  static bool Write(Value& entry, bool isNew, void* context);
  static bool Read(Value& entry, bool isNew, void* context);

  void* mutex = nullptr;
  u64 minTimeToLive = 0;
  u64 maxTimeToLive = 0;
  Store store;
};

}  // namespace Velmar::Collections::Caches::Base
