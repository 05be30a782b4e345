// HashMap: values by 64-bit hashes, in a table of slots with buckets of 4 or 8 nodes.
//
//   HashMap<u64, u32> map;
//   if (!map.InitializeLazy(1000, true) || !map.Create()) return false;
//   if (!map.Find(hash)) map._Insert(hash, 7);
#pragma once

#include "Velmar/Types.h"

namespace Velmar::Collections {

// Purpose: the map keeps the hash and nothing else of a key, so equal hashes are one key. A slot's bucket starts with 4
// nodes, widens to 8 when they are in use, and stays so; a ninth key in one slot moves everything to the table of the
// next prime. How full the table gets is a consequence of the hashes.
// Lifetime: InitializeLazy chooses the size, Create makes the table, Destroy ends both.
// Threads: Get and Clear hold the map's own lock. The others are thread-compatible; Find leaves the place that the
// _Insert or _Delete after it uses, so the two belong under one lock of the caller's.
// Errors: false after a log record, with the map as it was, unless an operation says otherwise.
template <class K, class V>
class HashMap {
 public:
  struct DataNode {
    K key;
    V* value;  // an allocation of its own
  };

  HashMap() = default;
  ~HashMap();
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;

  // The largest table.
  static constexpr u32 kMaxTableSize = 18049697;

  // Chooses the table of the first prime not below `capacity`, and a lock or none; a map that was in use loses its
  // keys. False, without a record, for a capacity above kMaxTableSize and when there is no lock.
  bool InitializeLazy(u32 capacity, bool locked);
  // Makes the table if it is not there. Without memory: level 3 for the slots, level 5 for the bits.
  bool Create();
  void Destroy();

  // Copies the value of `hash` out.
  bool Get(K hash, V& value);
  // Whether `hash` is there. Leaves its place, or where it would go.
  bool Find(K hash);
  // The value that the last Find has hit.
  [[nodiscard]] const V& FoundValue() const { return *table[lastSlot].bucket[lastPosition].value; }
  // Follows a Find for `hash` that missed. False at level 3. The table may have grown all the same.
  bool _Insert(K hash, V value);
  // Follows a Find that has hit. The bucket stays, and stays wide. False at level 3.
  bool _Delete();
  // Moves everything to the table of the next prime. False at level 3 at the last one, without memory for the table as
  // Create, and at level 5 when the move failed and was taken back. An entry is only lost, with a record, when memory
  // fails again while it is taken back.
  bool ReHash();
  // Gives a slot of 4 nodes, which has a bucket, one of 8. False, without a record, without memory.
  bool ResizeBucket(u32 slot);
  // An empty table of the size that InitializeLazy has chosen. Without memory the old one stays, empty.
  bool ResizeHashTableToInitialSize();
  void Clear(bool resizeToInitial);

  [[nodiscard]] bool IsCreated() const { return created; }
  [[nodiscard]] u32 GetCount() const { return count; }
  // Bytes of the table, its bits and the buckets; the values are not among them.
  [[nodiscard]] u32 GetMemoryUsage() const { return memoryUsage; }

 private:
  friend struct HashMapTestAccess;

  struct Slot {
    DataNode* bucket;
    u8 occupied;  // a bit for each node in use
  };

  // One table with all that is counted over it.
  struct Storage {
    Slot* table;
    u8* wideBuckets;
    u32 count;
    u32 memoryUsage;
    u32 primeIndex;
    u32 wideBucketsBytes;
    u32 bucketCount;
    u32 tableSize;
    u32 lastSlot;
    u32 lastPosition;
  };

  class Recycler;

  static bool IsWide(const u8* bits, u32 slot) { return (bits[slot / 8] >> slot % 8 & 1) != 0; }
  static bool MakeStorage(u32 prime, Storage& storage);
  static void FreeStorage(const Storage& storage);
  static void FreeBucket(const Slot& slot);
  static DataNode* AllocateBucket(u32 nodes);
  [[nodiscard]] Storage GetStorage() const;
  void SetStorage(const Storage& storage);
  void FreeAllBuckets();

  bool MakePlace(K hash);
  bool GiveBucket(Slot& slot);
  DataNode* TakeNarrowBucket();

  bool MoveFrom(const Storage& old);
  bool MoveSlot(const Storage& old, u32 index);
  void RollBack(const Storage& old);
  u32 MoveBack(const Storage& grown, u32& left);
  bool PutBack(const DataNode& node);
  bool ReturnBucket(u32 index);
  void ReturnEmptyBuckets();

  Slot* table = nullptr;
  u8* wideBuckets = nullptr;  // a bit for each slot, set when its bucket has 8 nodes
  u32 initialPrimeIndex = 0;
  u32 count = 0;
  u32 memoryUsage = 0;
  u32 primeIndex = 0;
  u32 wideBucketsBytes = 0;
  u32 bucketCount = 0;
  u32 tableSize = 0;
  u32 lastSlot = 0;
  u32 lastPosition = 0;
  bool created = false;
  void* mutex = nullptr;
  Recycler* recycler = nullptr;  // during ReHash
};

extern template class HashMap<u64, u32>;

}  // namespace Velmar::Collections
