// Bodies of HashMap: the move to the next larger table, and the way back when it fails.
#pragma once

#include <iterator>
#include <utility>

#include "Velmar/Collections/Array.h"
#include "Velmar/Collections/ByteBits.h"
#include "Velmar/Collections/HashMap.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

namespace HashMapSizes {

inline constexpr u32 kPrimes[] = {53,      107,     223,     449,     907,      1543,     2203,     3307,
                                  4969,    7457,    11197,   16811,   25219,    37831,    56747,    85121,
                                  127691,  199559,  299357,  449051,  673579,   1010381,  1515583,  2273399,
                                  3801827, 5141093, 6653833, 8336873, 10037129, 12547813, 15048079, 18049697};
inline constexpr u32 kNarrowNodes = 4;
inline constexpr u32 kWideNodes = 8;
inline constexpr u32 kSlotBytes = 16;
inline constexpr u32 kBucketBytes = 64;  // of the first four nodes, and again of the second four

// In the old table of a move, the `occupied` of a slot whose bucket was taken away.
inline constexpr u8 kHadBucket = 1;

}  // namespace HashMapSizes

// Buckets of four nodes that wait for their next use. Lifetime: frees what is left.
template <class K, class V>
class HashMap<K, V>::Recycler {
 public:
  static constexpr u32 kAreaSize = 256;
  static constexpr u32 kStep = 128;

  explicit Recycler(u32 newTableSize) {
    const u32 ceiling = newTableSize > kAreaSize ? newTableSize : kAreaSize;
    buckets_.Create(area_, kAreaSize, true, true, ceiling, kStep, false, GrowType::kFixedStep, kNone);
  }
  ~Recycler() {
    while (DataNode* bucket = Take()) {
      ModuleFree(bucket);
    }
  }
  Recycler(const Recycler&) = delete;
  Recycler& operator=(const Recycler&) = delete;

  // A bucket that cannot be kept is freed.
  void Keep(DataNode* bucket) {
    if (!buckets_.Add(bucket)) {
      RYL_LOG(velmar, HashMapBucketNotKept, buckets_.count);
      ModuleFree(bucket);
    }
  }
  // Null when there is none.
  DataNode* Take() {
    if (buckets_.count == 0) {
      return nullptr;
    }
    DataNode* bucket = buckets_.data[buckets_.count - 1];
    buckets_.PopBack();
    return bucket;
  }

 private:
  DataNode* area_[kAreaSize] = {};
  Array<DataNode*> buckets_;
};

template <class K, class V>
auto HashMap<K, V>::TakeNarrowBucket() -> DataNode* {
  DataNode* bucket = recycler != nullptr ? recycler->Take() : nullptr;
  return bucket != nullptr ? bucket : AllocateBucket(HashMapSizes::kNarrowNodes);
}

// A move can need a move of its own, when nine keys meet in one slot of the new table; it then ends in a table larger
// by more than one prime.
template <class K, class V>
bool HashMap<K, V>::ReHash() {
  if (!created) {
    RYL_LOG(velmar, HashMapNotCreated);
    return false;
  }
  if (primeIndex + 1 >= std::size(HashMapSizes::kPrimes)) {
    RYL_LOG(velmar, HashMapAtLargestTable, tableSize);
    return false;
  }
  const Storage old = GetStorage();
  Storage larger;
  if (!MakeStorage(primeIndex + 1, larger)) {
    return false;
  }
  SetStorage(larger);
  Recycler ownRecycler(tableSize);
  Recycler* const outerRecycler = std::exchange(recycler, &ownRecycler);
  const bool moved = MoveFrom(old);
  if (moved) {
    FreeStorage(old);
  } else {
    RollBack(old);
    RYL_LOG(velmar, HashMapRolledBack, tableSize);
  }
  recycler = outerRecycler;
  return moved;
}

template <class K, class V>
bool HashMap<K, V>::MoveFrom(const Storage& old) {
  for (u32 i = 0; i < old.tableSize; ++i) {
    if (old.table[i].bucket != nullptr && !MoveSlot(old, i)) {
      return false;
    }
  }
  return true;
}

template <class K, class V>
bool HashMap<K, V>::MoveSlot(const Storage& old, u32 index) {
  Slot& slot = old.table[index];
  while (slot.occupied != 0) {
    const DataNode& node = slot.bucket[kLowestSetBit[slot.occupied]];
    if (Find(node.key) || !_Insert(node.key, *node.value)) {
      return false;
    }
    ModuleFree(node.value);
    slot.occupied = kWithoutLowestBit[slot.occupied];
  }
  if (IsWide(old.wideBuckets, index)) {
    ModuleFree(slot.bucket);
  } else {
    recycler->Keep(slot.bucket);
  }
  slot = {nullptr, HashMapSizes::kHadBucket};
  return true;
}

// Values go back as they are. Each round frees buckets of the larger table, so a bucket that could not be had in one
// round may be there in the next.
template <class K, class V>
void HashMap<K, V>::RollBack(const Storage& old) {
  const Storage grown = GetStorage();
  SetStorage(old);
  u32 left = 0;
  while (MoveBack(grown, left) != 0 && left != 0) {
  }
  ReturnEmptyBuckets();
  if (left != 0) {
    count -= left;
    RYL_LOG(velmar, HashMapEntriesLost, left);
  }
  FreeStorage(grown);
}

// The number of entries put back; those that were not are `left`.
template <class K, class V>
u32 HashMap<K, V>::MoveBack(const Storage& grown, u32& left) {
  u32 moved = 0;
  left = 0;
  for (u32 i = 0; i < grown.tableSize; ++i) {
    Slot& slot = grown.table[i];
    if (slot.bucket == nullptr) {
      continue;
    }
    for (u8 bits = slot.occupied; bits != 0; bits = kWithoutLowestBit[bits]) {
      const u8 position = kLowestSetBit[bits];
      if (PutBack(slot.bucket[position])) {
        slot.occupied = static_cast<u8>(slot.occupied & ~(1U << position));
        ++moved;
      } else {
        ++left;
      }
    }
    if (slot.occupied != 0) {
      continue;
    }
    if (IsWide(grown.wideBuckets, i)) {
      ModuleFree(slot.bucket);
    } else {
      recycler->Keep(slot.bucket);
    }
    slot.bucket = nullptr;
  }
  return moved;
}

// The entry came from this slot of the old table, so its bucket has a free node.
template <class K, class V>
bool HashMap<K, V>::PutBack(const DataNode& node) {
  const auto index = static_cast<u32>(node.key % tableSize);
  Slot& slot = table[index];
  if (slot.bucket == nullptr && !ReturnBucket(index)) {
    return false;
  }
  const u8 position = kLowestSetBit[static_cast<u8>(~slot.occupied)];
  slot.bucket[position] = node;
  slot.occupied = static_cast<u8>(slot.occupied | 1U << position);
  return true;
}

// A bucket of the width that the slot had.
template <class K, class V>
bool HashMap<K, V>::ReturnBucket(u32 index) {
  DataNode* bucket = IsWide(wideBuckets, index) ? AllocateBucket(HashMapSizes::kWideNodes) : TakeNarrowBucket();
  if (bucket == nullptr) {
    return false;
  }
  table[index] = {bucket, 0};
  return true;
}

// Slots that had a bucket and still have none: it was empty, or there is no memory, and then the slot goes without.
template <class K, class V>
void HashMap<K, V>::ReturnEmptyBuckets() {
  for (u32 i = 0; i < tableSize; ++i) {
    if (table[i].bucket != nullptr || table[i].occupied == 0 || ReturnBucket(i)) {
      continue;
    }
    const u32 widths = IsWide(wideBuckets, i) ? 2 : 1;
    table[i].occupied = 0;
    wideBuckets[i / 8] = static_cast<u8>(wideBuckets[i / 8] & ~(1U << i % 8));
    --bucketCount;
    memoryUsage -= widths * HashMapSizes::kBucketBytes;
  }
}

}  // namespace Velmar::Collections
