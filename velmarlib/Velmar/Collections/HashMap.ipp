// Bodies of HashMap: its table, and the operations on one hash.
#pragma once

#include <cstring>
#include <iterator>
#include <utility>

#include "Velmar/Collections/ByteBits.h"
#include "Velmar/Collections/HashMap.h"
#include "Velmar/Collections/HashMapReHash.ipp"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/Threading.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

template <class K, class V>
HashMap<K, V>::~HashMap() {
  Destroy();
}

template <class K, class V>
bool HashMap<K, V>::InitializeLazy(u32 capacity, bool locked) {
  if (capacity > kMaxTableSize) {
    return false;
  }
  void* newMutex = locked ? OS::Threading::MutexCreate() : nullptr;
  if (locked && newMutex == nullptr) {
    return false;
  }
  Destroy();
  mutex = newMutex;
  u32 low = 0;
  u32 high = u32{std::size(HashMapSizes::kPrimes)} - 1;
  while (low < high) {
    const u32 middle = (low + high) / 2;
    if (HashMapSizes::kPrimes[middle] < capacity) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  primeIndex = low;
  initialPrimeIndex = low;
  tableSize = HashMapSizes::kPrimes[low];
  return true;
}

// An empty table, logged where memory is missing.
template <class K, class V>
bool HashMap<K, V>::MakeStorage(u32 prime, Storage& storage) {
  static_assert(sizeof(Slot) == HashMapSizes::kSlotBytes);
  static_assert(HashMapSizes::kNarrowNodes * sizeof(DataNode) == HashMapSizes::kBucketBytes);
  const u32 size = HashMapSizes::kPrimes[prime];
  const u32 bitBytes = (size + 7) / 8;
  const std::size_t slotBytes = std::size_t{size} * sizeof(Slot);
  auto* slots = static_cast<Slot*>(ModuleAllocate(slotBytes));
  if (slots == nullptr) {
    RYL_LOG(velmar, HashMapNoMemoryForTable, size);
    return false;
  }
  auto* bits = static_cast<u8*>(ModuleAllocate(bitBytes));
  if (bits == nullptr) {
    ModuleFree(slots);
    RYL_LOG(velmar, HashMapNoMemoryForBits, bitBytes);
    return false;
  }
  std::memset(static_cast<void*>(slots), 0, slotBytes);
  std::memset(bits, 0, bitBytes);
  storage = {slots, bits, 0, size * HashMapSizes::kSlotBytes + bitBytes, prime, bitBytes, 0, size, 0, 0};
  return true;
}

template <class K, class V>
bool HashMap<K, V>::Create() {
  if (created) {
    return true;
  }
  Storage storage;
  if (!MakeStorage(primeIndex, storage)) {
    return false;
  }
  SetStorage(storage);
  created = true;
  return true;
}

template <class K, class V>
void HashMap<K, V>::Destroy() {
  if (created) {
    FreeStorage(GetStorage());
  }
  SetStorage({});
  initialPrimeIndex = 0;
  created = false;
  OS::Threading::MutexDestroy(mutex);
}

template <class K, class V>
auto HashMap<K, V>::GetStorage() const -> Storage {
  return {table,       wideBuckets, count,    memoryUsage, primeIndex, wideBucketsBytes,
          bucketCount, tableSize,   lastSlot, lastPosition};
}

template <class K, class V>
void HashMap<K, V>::SetStorage(const Storage& storage) {
  table = storage.table;
  wideBuckets = storage.wideBuckets;
  count = storage.count;
  memoryUsage = storage.memoryUsage;
  primeIndex = storage.primeIndex;
  wideBucketsBytes = storage.wideBucketsBytes;
  bucketCount = storage.bucketCount;
  tableSize = storage.tableSize;
  lastSlot = storage.lastSlot;
  lastPosition = storage.lastPosition;
}

// The bucket and the values in it.
template <class K, class V>
void HashMap<K, V>::FreeBucket(const Slot& slot) {
  if (slot.bucket == nullptr) {
    return;
  }
  for (u8 bits = slot.occupied; bits != 0; bits = kWithoutLowestBit[bits]) {
    ModuleFree(slot.bucket[kLowestSetBit[bits]].value);
  }
  ModuleFree(slot.bucket);
}

template <class K, class V>
void HashMap<K, V>::FreeStorage(const Storage& storage) {
  for (u32 i = 0; i < storage.tableSize; ++i) {
    FreeBucket(storage.table[i]);
  }
  ModuleFree(storage.table);
  ModuleFree(storage.wideBuckets);
}

template <class K, class V>
void HashMap<K, V>::FreeAllBuckets() {
  for (u32 i = 0; i < tableSize; ++i) {
    FreeBucket(table[i]);
    table[i] = {};
  }
  std::memset(wideBuckets, 0, wideBucketsBytes);
  count = 0;
  bucketCount = 0;
  memoryUsage = tableSize * HashMapSizes::kSlotBytes + wideBucketsBytes;
  lastSlot = 0;
  lastPosition = 0;
}

template <class K, class V>
bool HashMap<K, V>::ResizeHashTableToInitialSize() {
  FreeAllBuckets();
  Storage initial;
  if (!MakeStorage(initialPrimeIndex, initial)) {
    RYL_LOG(velmar, HashMapNotShrunk, tableSize);
    return false;
  }
  FreeStorage(GetStorage());
  SetStorage(initial);
  return true;
}

template <class K, class V>
void HashMap<K, V>::Clear(bool resizeToInitial) {
  const OS::ScopedLock lock(mutex);
  if (!created) {
    return;
  }
  if (resizeToInitial && primeIndex != initialPrimeIndex) {
    ResizeHashTableToInitialSize();
  } else {
    FreeAllBuckets();
  }
}

template <class K, class V>
bool HashMap<K, V>::Get(K hash, V& value) {
  const OS::ScopedLock lock(mutex);
  if (!Find(hash)) {
    return false;
  }
  value = FoundValue();
  return true;
}

template <class K, class V>
bool HashMap<K, V>::Find(K hash) {
  lastSlot = created ? static_cast<u32>(hash % tableSize) : 0;
  lastPosition = 0;
  if (!created || table[lastSlot].bucket == nullptr) {
    return false;
  }
  const Slot& slot = table[lastSlot];
  for (u8 bits = slot.occupied; bits != 0; bits = kWithoutLowestBit[bits]) {
    if (slot.bucket[kLowestSetBit[bits]].key == hash) {
      lastPosition = kLowestSetBit[bits];
      return true;
    }
  }
  lastPosition = kLowestSetBit[static_cast<u8>(~slot.occupied)];
  return false;
}

// The value is had first, so that a failure leaves no bucket behind that was not there.
template <class K, class V>
bool HashMap<K, V>::_Insert(K hash, V value) {
  if (!created) {
    RYL_LOG(velmar, HashMapNotCreated);
    return false;
  }
  V* copy = New<V>(value);
  if (copy == nullptr) {
    RYL_LOG(velmar, HashMapNoMemoryForValue, lastSlot);
    return false;
  }
  if (!MakePlace(hash)) {
    ModuleFree(copy);
    return false;
  }
  Slot& slot = table[lastSlot];
  slot.bucket[lastPosition] = {hash, copy};
  slot.occupied = static_cast<u8>(slot.occupied | 1U << lastPosition);
  ++count;
  return true;
}

// A free node at lastSlot and lastPosition.
template <class K, class V>
bool HashMap<K, V>::MakePlace(K hash) {
  for (;;) {
    Slot& slot = table[lastSlot];
    if (slot.bucket == nullptr && !GiveBucket(slot)) {
      RYL_LOG(velmar, HashMapNoMemoryForBucket, lastSlot);
      return false;
    }
    if (lastPosition < HashMapSizes::kNarrowNodes) {
      return true;
    }
    if (!IsWide(wideBuckets, lastSlot) && !ResizeBucket(lastSlot)) {
      RYL_LOG(velmar, HashMapBucketNotResized, lastSlot);
      return false;
    }
    if (lastPosition < HashMapSizes::kWideNodes) {
      return true;
    }
    if (!ReHash()) {
      RYL_LOG(velmar, HashMapNotGrown, tableSize);
      return false;
    }
    Find(hash);
  }
}

template <class K, class V>
auto HashMap<K, V>::AllocateBucket(u32 nodes) -> DataNode* {
  return static_cast<DataNode*>(ModuleAllocate(nodes * sizeof(DataNode)));
}

template <class K, class V>
bool HashMap<K, V>::GiveBucket(Slot& slot) {
  slot.bucket = TakeNarrowBucket();
  if (slot.bucket == nullptr) {
    return false;
  }
  ++bucketCount;
  memoryUsage += HashMapSizes::kBucketBytes;
  return true;
}

template <class K, class V>
bool HashMap<K, V>::ResizeBucket(u32 slot) {
  Slot wide = {AllocateBucket(HashMapSizes::kWideNodes), 0};
  if (wide.bucket == nullptr) {
    return false;
  }
  const Slot& narrow = table[slot];
  for (u8 bits = narrow.occupied; bits != 0; bits = kWithoutLowestBit[bits]) {
    const u8 position = kLowestSetBit[bits];
    V* copy = New<V>(*narrow.bucket[position].value);
    if (copy == nullptr) {
      FreeBucket(wide);
      return false;
    }
    wide.bucket[position] = {narrow.bucket[position].key, copy};
    wide.occupied = static_cast<u8>(wide.occupied | 1U << position);
  }
  FreeBucket(narrow);
  table[slot] = wide;
  wideBuckets[slot / 8] = static_cast<u8>(wideBuckets[slot / 8] | 1U << slot % 8);
  memoryUsage += HashMapSizes::kBucketBytes;
  return true;
}

template <class K, class V>
bool HashMap<K, V>::_Delete() {
  const bool hasNode = created && table[lastSlot].bucket != nullptr && lastPosition < HashMapSizes::kWideNodes &&
                       (lastPosition < HashMapSizes::kNarrowNodes || IsWide(wideBuckets, lastSlot)) &&
                       (table[lastSlot].occupied >> lastPosition & 1) != 0;
  if (!hasNode) {
    RYL_LOG(velmar, HashMapNothingToDelete, lastSlot, lastPosition);
    return false;
  }
  Slot& slot = table[lastSlot];
  ModuleFree(slot.bucket[lastPosition].value);
  slot.occupied = static_cast<u8>(slot.occupied & ~(1U << lastPosition));
  --count;
  return true;
}

}  // namespace Velmar::Collections
