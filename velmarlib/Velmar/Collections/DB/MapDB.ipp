// Bodies of MapDB: set-up, the operations on entries and the end of a store.
#pragma once

#include <cstring>

#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/Utils/BinarySearch.h"
#include "Velmar/Utils/HashMapSearch.h"
#include "Velmar/Utils/IndexSearch.h"
#include "Velmar/Utils/LinearSearch.h"
#include "Velmar/Utils/RBTSearch.h"
#include "VelmarLog.h"

namespace Velmar::Collections::DB {

// One public operation: holds the store's mutex, and with Begin its busy flag, for a scope.
template <class K, class V>
class MapDB<K, V>::Operation {
 public:
  explicit Operation(MapDB& operatedStore) : store(operatedStore) { OS::Threading::MutexLock(store.mutex); }
  // The mutex is read anew: an Uninit inside the operation takes it away.
  ~Operation() {
    End();
    OS::Threading::MutexUnlock(store.mutex);
  }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // False, logged at level 3, on a store that is not initialised or stands in another operation.
  bool Begin() {
    if (!store.IsInitialised()) {
      RYL_LOG(velmar, StoreNotInitialised);
      return false;
    }
    if (store.busy) {
      RYL_LOG(velmar, StoreBusy, store.path);
      return false;
    }
    store.busy = true;
    raised = true;
    return true;
  }

  void End() {
    if (raised) {
      store.busy = false;
      raised = false;
    }
  }

 private:
  MapDB& store;
  bool raised = false;
};

template <class K, class V>
MapDB<K, V>::~MapDB() {
  if ((flags & StoreFlags::kNoSaveOnClose) == 0) {
    try {
      Operation operation(*this);
      if (IsInitialised() && !busy && operation.Begin()) {
        SaveUnderLock();
      }
    } catch (...) {  // NOLINT(bugprone-empty-catch): a user's binder or manager may not end the process from here
    }
  }
  Uninit();
}

template <class K, class V>
bool MapDB<K, V>::Init(const char* storePath, u32 initialCapacity, u32 maximum, u32 growthStep, u32 storeFlags,
                       u16 dataVersion, const void* searchContext, ISerializedDataBinder* dataBinder,
                       u32 growthInPercent, i32 reservedNonZero, Utils::DatabaseManager* databaseManager) {
  if (IsInitialised() || !CheckInit(initialCapacity, maximum, growthStep, storeFlags, dataBinder, reservedNonZero) ||
      !SetPath(storePath)) {
    return false;
  }
  binder = dataBinder;
  growthIsPercent = growthInPercent;
  manager = databaseManager;
  if (!CreateIndex(initialCapacity, maximum, storeFlags, searchContext) || !CreatePools(initialCapacity)) {
    Uninit();
    return false;
  }
  moveToTailOnAccess = (storeFlags & StoreFlags::kMoveToTailOnAccess) != 0;
  maxCapacity = maximum;
  capacity = initialCapacity;
  growth = growthStep;
  flags = storeFlags;
  version = dataVersion;
  count = 0;
  if (!CreateMutex(storeFlags)) {
    Uninit();
    return false;
  }
  valueStride = sizeof(V);
  if ((flags & StoreFlags::kNoLoadOnInit) != 0 || path[0] == '\0') {
    return true;
  }
  if (!Load()) {
    RYL_LOG(velmar, StoreInitLoadFailed, path);
    Uninit();
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::CheckInit(u32 initialCapacity, u32 maximum, u32 growthStep, u32 storeFlags,
                            ISerializedDataBinder* dataBinder, i32 reservedNonZero) const {
  if (growthStep == 0) {
    RYL_LOG(velmar, StoreGrowthIsZero);
    return false;
  }
  if (initialCapacity > maximum) {
    RYL_LOG(velmar, StoreInitialAboveMaximum, initialCapacity, maximum);
    return false;
  }
  if (maximum == 0) {
    RYL_LOG(velmar, StoreMaximumIsZero);
    return false;
  }
  if (reservedNonZero == 0) {
    RYL_LOG(velmar, StoreReservedIsZero);
    return false;
  }
  if ((storeFlags & StoreFlags::kCipherRequired) != 0 && dataBinder == nullptr) {
    RYL_LOG(velmar, StoreBinderMissing);
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::SetPath(const char* storePath) {
  const std::size_t length = storePath == nullptr ? 0 : std::strlen(storePath);
  if (length > kMaxStorePath) {
    RYL_LOG(velmar, StorePathTooLong, storePath, length);
    return false;
  }
  if (length != 0) {
    std::memcpy(path, storePath, length);
  }
  path[length] = '\0';
  return true;
}

template <class K, class V>
bool MapDB<K, V>::CreateIndex(u32 initialCapacity, u32 maximum, u32 storeFlags, const void* searchContext) {
  const u32 kind = storeFlags & StoreFlags::kIndexKindMask;
  bool isKnown = true;
  search = NewIndex(kind, isKnown);
  if (!isKnown) {
    RYL_LOG(velmar, StoreIndexKindRefused, kind);
    return false;
  }
  if (search == nullptr || !search->Init(initialCapacity, maximum, searchContext)) {
    RYL_LOG(velmar, StoreIndexInitFailed, kind);
    return false;
  }
  return true;
}

template <class K, class V>
auto MapDB<K, V>::NewIndex(u32 kind, bool& isKnown) -> Base::ISearchInterface<K, Node>* {
  if (kind == StoreFlags::kBinarySearch) {
    return New<Utils::BinarySearch<K>>();
  }
  if (kind == StoreFlags::kLinearSearch) {
    return New<Utils::LinearSearch<K>>();
  }
  if (kind == StoreFlags::kRBTSearch) {
    return New<Utils::RBTSearch<K>>();
  }
  if constexpr (!Keys::kIsText) {
    if (kind == StoreFlags::kIndexSearch) {
      return New<Utils::IndexSearch<K>>();
    }
    if (kind == StoreFlags::kHashMapSearch) {
      return New<Utils::HashMapSearch<K>>();
    }
  }
  isKnown = false;
  return nullptr;
}

template <class K, class V>
bool MapDB<K, V>::CreateMutex(u32 storeFlags) {
  if ((storeFlags & StoreFlags::kThreadSafe) == 0) {
    OS::Threading::MutexDestroy(mutex);
    return true;
  }
  if (mutex == nullptr) {
    mutex = OS::Threading::MutexCreate();
  }
  if (mutex == nullptr) {
    RYL_LOG(velmar, StoreMutexFailed);
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::Apply(Key key, bool createIfMissing, Callback callback, void* context) {
  const bool done = ApplyUnderLock(key, createIfMissing, callback, context);
  // What the callable captured goes outside the lock, and before the caller goes on.
  callback.Reset();
  return done;
}

template <class K, class V>
bool MapDB<K, V>::ApplyUnderLock(Key key, bool createIfMissing, const Callback& callback, void* context) {
  if (!Keys::IsValid(key)) {
    RYL_LOG(velmar, StoreKeyIsNull);
    return false;
  }
  Operation operation(*this);
  if (!operation.Begin()) {
    return false;
  }
  if (!callback) {
    RYL_LOG(velmar, StoreCallbackMissing);
    return false;
  }
  u32 location = search->GetLocation(key, entries);
  const bool isNew = location == kNone;
  if (isNew) {
    location = createIfMissing ? InsertKey(key) : kNone;
    if (location == kNone) {
      return false;
    }
  } else if (moveToTailOnAccess) {
    MoveToTail(location);
  }
  if (!PrepareValue(location, isNew)) {
    RYL_LOG(velmar, StoreValueNotInitialised, location);
    return false;
  }
  if (!callback(ValueAt(location), isNew, context)) {
    RYL_LOG(velmar, StoreCallbackRefused, isNew);
    return false;
  }
  return true;
}

// Follows a GetLocation that missed. The memory of the key is had first, so that a failure leaves the store as it was.
// The new entry's location, kNone on failure.
template <class K, class V>
u32 MapDB<K, V>::InsertKey(Key key) {
  const bool isFull = count == maxCapacity;
  if (!isFull && !EnsureFreeEntry()) {
    RYL_LOG(velmar, StoreNoNewEntry, count);
    return kNone;
  }
  typename Keys::Reservation reservation;
  if (!reservation.ReserveFor(entries[isFull ? head : freeHead], key)) {
    RYL_LOG(velmar, StoreKeyNotSet, count);
    return kNone;
  }
  if (isFull) {
    if (!search->OverwriteOldElement(head, entries)) {
      RYL_LOG(velmar, StoreOldestNotRecycled, head);
      return kNone;
    }
    MoveToTail(head);
  } else {
    if (!search->InsertNewElement(freeHead)) {
      RYL_LOG(velmar, StoreIndexRefusedEntry, freeHead);
      RYL_LOG(velmar, StoreNoNewEntry, count);
      return kNone;
    }
    AppendFreeEntry();
  }
  reservation.Install(entries[tail], key);
  return tail;
}

// An entry that was left without a value by an earlier failure gets one also when it is not new.
template <class K, class V>
bool MapDB<K, V>::PrepareValue(u32 location, bool isNew) {
  Node& node = entries[location];
  if (node.valueOffset != kNone) {
    return !isNew || Values::Reinitialise(ValueAt(location));
  }
  const u32 offset = location * valueStride;
  if (!Values::Initialise(reinterpret_cast<V*>(values + offset))) {
    return false;
  }
  node.valueOffset = offset;
  return true;
}

template <class K, class V>
bool MapDB<K, V>::Delete(Key key, bool mustExist) {
  if (!Keys::IsValid(key)) {
    RYL_LOG(velmar, StoreKeyIsNull);
    return false;
  }
  Operation operation(*this);
  if (!operation.Begin() || count == 0) {
    return false;
  }
  u32 location = kNone;
  bool notFound = false;
  if (!search->Delete(key, entries, location, notFound)) {
    return notFound && !mustExist;
  }
  if (count > 1) {
    Unlink(location);
  }
  PushFree(location);
  --count;
  return true;
}

template <class K, class V>
bool MapDB<K, V>::Clear() {
  Operation operation(*this);
  if (!operation.Begin()) {
    return false;
  }
  if (count == 0) {
    return true;
  }
  for (u32 i = 0; i < capacity; ++i) {
    entries[i].next = i + 1 < capacity ? i + 1 : kNone;
    entries[i].prev = kNone;
  }
  freeHead = 0;
  count = 0;
  head = kNone;
  tail = kNone;
  search->Clear();
  return true;
}

template <class K, class V>
u32 MapDB<K, V>::GetCount() {
  Operation operation(*this);
  return count;
}

template <class K, class V>
void MapDB<K, V>::Uninit() {
  OS::Threading::MutexLock(mutex);
  if (busy) {
    // With a mutex the other holder can only be this thread, from inside an operation.
    RYL_LOG(velmar, StoreBusy, path);
    ReleaseMutex(2);
    return;
  }
  FreePools();
  if (search != nullptr) {
    search->Destroy();
    Collections::Delete(search);
    search = nullptr;
  }
  head = kNone;
  tail = kNone;
  freeHead = kNone;
  maxCapacity = 0;
  capacity = 0;
  count = 0;
  growth = 0;
  valueStride = 0;
  flags = 0;
  path[0] = '\0';
  version = 0;
  moveToTailOnAccess = false;
  growthIsPercent = 0;
  binder = nullptr;
  manager = nullptr;
  ReleaseMutex(1);
}

// Gives up the mutex, which this thread holds `timesHeld` times.
template <class K, class V>
void MapDB<K, V>::ReleaseMutex(u32 timesHeld) {
  for (u32 i = 0; i < timesHeld; ++i) {
    OS::Threading::MutexUnlock(mutex);
  }
  OS::Threading::MutexDestroy(mutex);
}

}  // namespace Velmar::Collections::DB
