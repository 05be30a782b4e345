// HashMapCheck: what a hash map holds and counts, counted anew from its table.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <ostream>

#include "Velmar/Collections/HashMap.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace Velmar::Collections {

// Reads the private state of a map.
struct HashMapTestAccess {
  using Map = HashMap<u64, u32>;
  using Contents = std::map<u64, u32>;

  // What must be the same before and after an operation that failed.
  struct State {
    Contents contents;
    u32 tableSize;
    u32 primeIndex;
    u32 initialPrimeIndex;
    u32 count;
    u32 bucketCount;
    u32 memoryUsage;
    u32 lastSlot;
    u32 lastPosition;

    bool operator==(const State&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const State& state) {
      return out << state.count << " entries in " << state.tableSize << " slots, prime " << state.primeIndex << " from "
                 << state.initialPrimeIndex << ", " << state.bucketCount << " buckets, " << state.memoryUsage
                 << " bytes, place " << state.lastSlot << "/" << state.lastPosition;
    }
  };

  static State Of(const Map& map) {
    return {ContentsOf(map), map.tableSize,   map.primeIndex, map.initialPrimeIndex, map.count,
            map.bucketCount, map.memoryUsage, map.lastSlot,   map.lastPosition};
  }
  static Contents ContentsOf(const Map& map) {
    Contents contents;
    for (u32 i = 0; map.created && i < map.tableSize; ++i) {
      for (u32 bit = 0; bit < 8; ++bit) {
        if ((map.table[i].occupied >> bit & 1) != 0) {
          contents[map.table[i].bucket[bit].key] = *map.table[i].bucket[bit].value;
        }
      }
    }
    return contents;
  }

  // Counts the table and compares. With `memory`, nothing but the map may have allocations out of it.
  static void Check(const Map& map, const CountingAllocator* memory = nullptr) {
    u32 buckets = 0;
    u32 wide = 0;
    u32 nodes = 0;
    for (u32 i = 0; map.created && i < map.tableSize; ++i) {
      const auto& slot = map.table[i];
      const bool isWide = (map.wideBuckets[i / 8] >> i % 8 & 1) != 0;
      buckets += slot.bucket != nullptr ? 1 : 0;
      wide += isWide ? 1 : 0;
      ASSERT_TRUE(slot.bucket != nullptr || (slot.occupied == 0 && !isWide)) << "slot " << i;
      ASSERT_TRUE(isWide || slot.occupied < 16) << "slot " << i;
      for (u32 bit = 0; bit < 8; ++bit) {
        if ((slot.occupied >> bit & 1) != 0) {
          ++nodes;
          ASSERT_EQ(slot.bucket[bit].key % map.tableSize, i);
        }
      }
    }
    const u32 bitBytes = map.created ? (map.tableSize + 7) / 8 : 0;
    EXPECT_EQ(map.wideBucketsBytes, bitBytes);
    EXPECT_EQ(map.count, nodes);
    EXPECT_EQ(map.bucketCount, buckets);
    EXPECT_EQ(map.memoryUsage, map.created ? map.tableSize * 16 + bitBytes + (buckets + wide) * 64 : 0);
    if (memory != nullptr) {
      EXPECT_EQ(memory->Out(), (map.created ? 2U : 0U) + buckets + nodes);
    }
  }

  static bool IsWide(const Map& map, u32 slot) { return Map::IsWide(map.wideBuckets, slot); }
  static u8 Occupied(const Map& map, u32 slot) { return map.table[slot].occupied; }
  static void* Mutex(const Map& map) { return map.mutex; }
  // As if the table were the largest.
  static void ForgetLargerPrimes(Map& map) { map.primeIndex = 31; }
};

}  // namespace Velmar::Collections

namespace HashMapCheck {

using namespace Velmar;
using namespace Velmar::Collections;
using Access = HashMapTestAccess;
using Map = HashMap<u64, u32>;
using Lines = std::vector<std::string>;

// The module's memory for a test, counted.
class Memory : public CountingAllocator {
 public:
  Memory() { SetModuleAllocator(this); }
  ~Memory() {
    SetModuleAllocator(nullptr);
    EXPECT_EQ(Out(), 0U) << "leaked";
  }
};

inline void Open(Map& map, u32 capacity = 53) {
  ASSERT_TRUE(map.InitializeLazy(capacity, true));
  ASSERT_TRUE(map.Create());
}

// A new key; its value is derived from it.
inline bool Put(Map& map, u64 key) {
  return !map.Find(key) && map._Insert(key, static_cast<u32>(key ^ 0x5A));
}

// `number` keys that meet in slot `slot` of a table of `size`.
inline void Fill(Map& map, u32 number, u64 size, u64 slot) {
  for (u32 i = 0; i < number; ++i) {
    ASSERT_TRUE(Put(map, slot + i * size));
  }
}

}  // namespace HashMapCheck
