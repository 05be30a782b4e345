// The hash map: sizes, buckets, growth, lock and counts.
#include "Velmar/Collections/HashMap.h"

#include <atomic>
#include <cstdio>
#include <random>
#include <thread>

#include "Velmar/Collections/ByteBits.h"
#include "Velmar/OS/Threading.h"
#include "platform/sim/Sim.h"
#include "tests/velmarlib/store/HashMapCheck.h"

namespace {

using namespace HashMapCheck;

constexpr u32 kSizes[] = {53,      107,     223,     449,     907,      1543,     2203,     3307,
                          4969,    7457,    11197,   16811,   25219,    37831,    56747,    85121,
                          127691,  199559,  299357,  449051,  673579,   1010381,  1515583,  2273399,
                          3801827, 5141093, 6653833, 8336873, 10037129, 12547813, 15048079, 18049697};

TEST(ByteBits, TablesFollowFromTheirRule) {
  EXPECT_EQ(kLowestSetBit[0], 8);
  EXPECT_EQ(kWithoutLowestBit[0], 0);
  for (u32 byte = 1; byte < 256; ++byte) {
    const u32 lowest = byte & (~byte + 1);
    EXPECT_EQ(1U << kLowestSetBit[static_cast<u8>(byte)], lowest) << byte;
    EXPECT_EQ(kWithoutLowestBit[static_cast<u8>(byte)], byte - lowest) << byte;
  }
}

TEST(HashMap, TableIsTheFirstPrimeNotBelowTheCapacity) {
  Memory memory;
  Map map;
  ASSERT_TRUE(map.InitializeLazy(0, true));
  EXPECT_EQ(Access::Of(map).tableSize, 53U);
  for (u32 i = 0; i < 32; ++i) {
    ASSERT_TRUE(map.InitializeLazy(kSizes[i], true));
    EXPECT_EQ(Access::Of(map).primeIndex, i);
    EXPECT_EQ(Access::Of(map).initialPrimeIndex, i);
    EXPECT_EQ(Access::Of(map).tableSize, kSizes[i]);
    if (i < 31) {
      ASSERT_TRUE(map.InitializeLazy(kSizes[i] + 1, true));
      EXPECT_EQ(Access::Of(map).primeIndex, i + 1);
    }
  }
  EXPECT_EQ(memory.Allocations(), 0U) << "the table is not built yet";
}

TEST(HashMap, CapacityAboveTheLastPrimeIsRefused) {
  Map map;
  ASSERT_TRUE(map.InitializeLazy(54, true));
  const auto before = Access::Of(map);
  EXPECT_FALSE(map.InitializeLazy(Map::kMaxTableSize + 1, true));
  EXPECT_FALSE(map.InitializeLazy(kNone, true));
  EXPECT_EQ(Access::Of(map), before);
}

TEST(HashMap, LockIsMadeWhenAskedForAndItsFailureIsOneOfTheMap) {
  Map map;
  ASSERT_TRUE(map.InitializeLazy(53, false));
  EXPECT_EQ(Access::Mutex(map), nullptr);
  ASSERT_TRUE(map.InitializeLazy(53, true));
  EXPECT_NE(Access::Mutex(map), nullptr);
  Sim::FailMutexCreate(1);
  EXPECT_FALSE(map.InitializeLazy(107, true));
  EXPECT_NE(Access::Mutex(map), nullptr);
  EXPECT_EQ(Access::Of(map).tableSize, 53U);
  ASSERT_TRUE(map.InitializeLazy(107, false));
  EXPECT_EQ(Access::Mutex(map), nullptr);
}

TEST(HashMap, NewSizeOfAMapInUseEndsWhatItHeld) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 6, 53, 1);
  ASSERT_TRUE(map.InitializeLazy(107, true));
  EXPECT_FALSE(map.IsCreated());
  EXPECT_EQ(memory.Out(), 0U);
  EXPECT_TRUE(map.Create());
  Access::Check(map, &memory);
}

TEST(HashMap, CreateMakesTheTableOnce) {
  Memory memory;
  Map map;
  Open(map);
  EXPECT_EQ(map.GetMemoryUsage(), 53U * 16 + 7);
  EXPECT_TRUE(map.Create());
  EXPECT_EQ(memory.Allocations(), 2U);
  Access::Check(map, &memory);
}

TEST(HashMap, TableWithoutMemoryIsAWarningAndBitsWithoutMemoryAreAnError) {
  const char* const records[] = {"3 velmar.HashMapNoMemoryForTable", "5 velmar.HashMapNoMemoryForBits"};
  for (u32 n = 0; n < 2; ++n) {
    Memory memory;
    Map map;
    ASSERT_TRUE(map.InitializeLazy(53, true));
    memory.FailFrom(n);
    LogCapture log;
    EXPECT_FALSE(map.Create());
    EXPECT_EQ(log.Lines(), Lines{records[n]});
    EXPECT_EQ(memory.Out(), 0U);
    Access::Check(map, &memory);
    EXPECT_TRUE(map.Create());
    EXPECT_TRUE(Put(map, 5));
  }
}

TEST(HashMap, WithoutATableNothingIsFoundOrTaken) {
  Memory memory;
  Map map;
  ASSERT_TRUE(map.InitializeLazy(53, true));
  LogCapture log;
  u32 value = 77;
  EXPECT_FALSE(map.Find(1));
  EXPECT_FALSE(map.Get(1, value));
  EXPECT_EQ(value, 77U);
  map.Clear(true);
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_FALSE(map._Insert(1, 2));
  EXPECT_FALSE(map._Delete());
  EXPECT_FALSE(map.ReHash());
  EXPECT_EQ(log.Lines(),
            (Lines{"3 velmar.HashMapNotCreated", "3 velmar.HashMapNothingToDelete", "3 velmar.HashMapNotCreated"}));
  EXPECT_EQ(memory.Allocations(), 0U);
}

TEST(HashMap, FindLeavesThePlaceOfTheKeyOrOfItsInsertion) {
  Map map;
  Open(map);
  EXPECT_FALSE(map.Find(10 + 53));
  EXPECT_EQ(Access::Of(map).lastSlot, 10U);
  EXPECT_EQ(Access::Of(map).lastPosition, 0U);
  Fill(map, 3, 53, 10);
  EXPECT_FALSE(map.Find(10 + 9 * 53));
  EXPECT_EQ(Access::Of(map).lastPosition, 3U);
  EXPECT_TRUE(map.Find(10 + 53));
  EXPECT_EQ(Access::Of(map).lastPosition, 1U);
  EXPECT_EQ(map.FoundValue(), (10U + 53) ^ 0x5A);
  EXPECT_TRUE(map._Delete());
  EXPECT_FALSE(map.Find(10 + 9 * 53));
  EXPECT_EQ(Access::Of(map).lastPosition, 1U) << "the lowest free node";
}

TEST(HashMap, FindInAFullBucketLeavesThePlaceBehindIt) {
  Map map;
  Open(map);
  Fill(map, 4, 53, 10);
  EXPECT_FALSE(map.Find(10 + 9 * 53));
  EXPECT_EQ(Access::Of(map).lastPosition, 4U);
  ASSERT_TRUE(Put(map, 10 + 4 * 53));
  for (u64 i = 5; i < 8; ++i) {
    ASSERT_TRUE(Put(map, 10 + i * 53));
  }
  EXPECT_FALSE(map.Find(10 + 9 * 53));
  EXPECT_EQ(Access::Of(map).lastPosition, 8U);
}

TEST(HashMap, EachValueIsAnAllocationOfItsOwn) {
  Memory memory;
  Map map;
  Open(map);
  ASSERT_TRUE(Put(map, 1));
  EXPECT_EQ(memory.Out(), 4U) << "table, bits, bucket, value";
  ASSERT_TRUE(Put(map, 54));
  EXPECT_EQ(memory.Out(), 5U);
  EXPECT_EQ(map.GetMemoryUsage(), 53U * 16 + 7 + 64) << "a bucket is counted, a value is not";
  ASSERT_TRUE(map.Find(1));
  EXPECT_TRUE(map._Delete());
  EXPECT_EQ(memory.Out(), 4U);
  Access::Check(map, &memory);
}

TEST(HashMap, FifthKeyInASlotWidensItsBucketForGood) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 4, 53, 10);
  EXPECT_FALSE(Access::IsWide(map, 10));
  ASSERT_TRUE(Put(map, 10 + 4 * 53));
  EXPECT_TRUE(Access::IsWide(map, 10));
  EXPECT_EQ(map.GetMemoryUsage(), 53U * 16 + 7 + 128);
  EXPECT_EQ(Access::Of(map).bucketCount, 1U);
  for (u64 i = 0; i < 5; ++i) {
    u32 value = 0;
    EXPECT_TRUE(map.Get(10 + i * 53, value));
    EXPECT_EQ(value, (10 + i * 53) ^ 0x5A);
    EXPECT_TRUE(map._Delete());
    Access::Check(map, &memory);
  }
  EXPECT_TRUE(Access::IsWide(map, 10));
  EXPECT_EQ(map.GetMemoryUsage(), 53U * 16 + 7 + 128) << "an empty bucket stays, and stays wide";
}

TEST(HashMap, NinthKeyInASlotGrowsTheTable) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 8, 53, 10);
  EXPECT_EQ(Access::Of(map).tableSize, 53U);
  ASSERT_TRUE(Put(map, 10 + 8 * 53));
  EXPECT_EQ(Access::Of(map).tableSize, 107U);
  EXPECT_EQ(Access::Of(map).primeIndex, 1U);
  EXPECT_EQ(Access::Of(map).initialPrimeIndex, 0U);
  EXPECT_EQ(map.GetCount(), 9U);
  for (u64 i = 0; i < 9; ++i) {
    u32 value = 0;
    EXPECT_TRUE(map.Get(10 + i * 53, value));
    EXPECT_EQ(value, (10 + i * 53) ^ 0x5A);
  }
  Access::Check(map, &memory);
}

TEST(HashMap, NinthKeyThatMeetsTheOthersInTheNextTableTooGrowsItTwice) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 9, u64{53} * 107, 10);
  EXPECT_EQ(Access::Of(map).tableSize, 223U);
  EXPECT_EQ(Access::Of(map).primeIndex, 2U);
  EXPECT_EQ(map.GetCount(), 9U);
  Access::Check(map, &memory);
}

// Keys of many slots meet in one of the next table, while they are moved.
TEST(HashMap, MoveThatOverflowsASlotGoesOnToALargerTable) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 12, 107, 10);
  EXPECT_EQ(Access::Of(map).tableSize, 53U);
  const auto contents = Access::ContentsOf(map);
  LogCapture log;
  EXPECT_TRUE(map.ReHash());
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(Access::Of(map).tableSize, 223U);
  EXPECT_EQ(Access::Of(map).primeIndex, 2U);
  EXPECT_EQ(Access::ContentsOf(map), contents);
  Access::Check(map, &memory);
}

TEST(HashMap, LastTableCannotGrow) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 8, 53, 10);
  ASSERT_FALSE(map.Find(10 + 8 * 53));
  Access::ForgetLargerPrimes(map);
  const auto before = Access::Of(map);
  LogCapture log;
  EXPECT_FALSE(map.ReHash());
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.HashMapAtLargestTable"});
  log.Clear();
  EXPECT_FALSE(map._Insert(10 + 8 * 53, 1));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.HashMapAtLargestTable", "3 velmar.HashMapNotGrown"}));
  EXPECT_EQ(Access::Of(map), before);
  Access::Check(map, &memory);
}

TEST(HashMap, DeleteWithoutANodeIsAWarning) {
  Memory memory;
  Map map;
  Open(map);
  LogCapture log;
  map.Find(1);
  EXPECT_FALSE(map._Delete()) << "no bucket";
  Fill(map, 2, 53, 1);
  map.Find(1 + 9 * 53);
  EXPECT_FALSE(map._Delete()) << "a node that is not in use";
  Fill(map, 4, 53, 2);
  map.Find(2 + 9 * 53);
  EXPECT_FALSE(map._Delete()) << "a fifth node of a narrow bucket";
  Fill(map, 8, 53, 3);
  map.Find(3 + 9 * 53);
  EXPECT_FALSE(map._Delete()) << "a ninth node";
  EXPECT_EQ(log.Lines(), Lines(4, "3 velmar.HashMapNothingToDelete"));
  EXPECT_EQ(map.GetCount(), 14U);
  Access::Check(map, &memory);
}

TEST(HashMap, ClearKeepsTheTableAndNothingElse) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 9, 53, 10);
  Fill(map, 5, 107, 3);
  map.Clear(false);
  EXPECT_EQ(Access::Of(map).tableSize, 107U);
  EXPECT_EQ(map.GetCount(), 0U);
  EXPECT_EQ(map.GetMemoryUsage(), 107U * 16 + 14);
  EXPECT_EQ(memory.Out(), 2U);
  Access::Check(map, &memory);
  EXPECT_TRUE(Put(map, 10));
}

TEST(HashMap, ClearToTheInitialSizeOfAGrownMapGivesTheFirstTable) {
  Memory memory;
  Map map;
  Open(map, 107);
  Fill(map, 9, 107, 10);
  EXPECT_EQ(Access::Of(map).tableSize, 223U);
  map.Clear(true);
  EXPECT_EQ(Access::Of(map).tableSize, 107U);
  EXPECT_EQ(Access::Of(map).primeIndex, 1U);
  EXPECT_EQ(map.GetCount(), 0U);
  Access::Check(map, &memory);
  EXPECT_TRUE(Put(map, 10));
  const u64 allocations = memory.Allocations();
  map.Clear(true);
  EXPECT_EQ(memory.Allocations(), allocations) << "the table has its initial size";
  Access::Check(map, &memory);
}

TEST(HashMap, ClearWithoutMemoryForTheFirstTableLeavesTheLargerOneEmpty) {
  const Lines records[] = {{"3 velmar.HashMapNoMemoryForTable", "3 velmar.HashMapNotShrunk"},
                           {"5 velmar.HashMapNoMemoryForBits", "3 velmar.HashMapNotShrunk"}};
  for (u32 n = 0; n < 2; ++n) {
    Memory memory;
    Map map;
    Open(map);
    Fill(map, 9, 53, 10);
    memory.FailFrom(n);
    LogCapture log;
    map.Clear(true);
    EXPECT_EQ(log.Lines(), records[n]);
    EXPECT_EQ(Access::Of(map).tableSize, 107U);
    EXPECT_EQ(Access::Of(map).primeIndex, 1U);
    EXPECT_EQ(map.GetCount(), 0U);
    Access::Check(map, &memory);
    EXPECT_TRUE(Put(map, 10));
  }
}

// The lock is held by this thread: what takes it cannot end before it is given up, what does not take it can.
TEST(HashMap, GetAndClearTakeTheLockAndFindAndInsertDoNot) {
  Map map;
  Open(map);
  ASSERT_TRUE(Put(map, 1));
  OS::Threading::MutexLock(Access::Mutex(map));
  std::thread([&map] {
    EXPECT_FALSE(map.Find(2));
    EXPECT_TRUE(map._Insert(2, 3));
  }).join();
  for (const bool isClear : {false, true}) {
    if (isClear) {
      OS::Threading::MutexLock(Access::Mutex(map));
    }
    std::atomic<bool> begun{false};
    std::atomic<bool> givenUp{false};
    std::thread other([&, isClear] {
      u32 value = 0;
      begun = true;
      if (isClear) {
        map.Clear(false);
      } else {
        EXPECT_TRUE(map.Get(2, value));
      }
      EXPECT_TRUE(givenUp);
    });
    while (!begun) {
      std::this_thread::yield();
    }
    givenUp = true;
    OS::Threading::MutexUnlock(Access::Mutex(map));
    other.join();
  }
  EXPECT_EQ(map.GetCount(), 0U);
}

// Few slots and few hashes, so that buckets widen and overflow often.
void RunAtRandom(u64 seed, bool failing) {
  std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
  Memory memory;
  Map map;
  Open(map);
  std::mt19937_64 random(seed);
  Access::Contents model;
  for (int step = 0; step < 1500 && !testing::Test::HasFailure(); ++step) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
    if (random() % 600 == 0) {
      map.Clear(random() % 2 == 0);
      model.clear();
    }
    memory.FailFrom(failing ? random() % 300 : CountingAllocator::kNever);
    const u64 key = random() % 40 * 53 + random() % 6;
    const u64 failures = memory.Failures();
    if (random() % 100 == 0) {
      EXPECT_TRUE(map.ReHash() || memory.Failures() != failures);
    } else if (map.Find(key)) {
      ASSERT_EQ(model.count(key), 1U);
      EXPECT_EQ(map.FoundValue(), model[key]);
      if (random() % 3 == 0) {
        EXPECT_TRUE(map._Delete());
        model.erase(key);
      }
    } else {
      ASSERT_EQ(model.count(key), 0U);
      const auto value = static_cast<u32>(random());
      if (map._Insert(key, value)) {
        model[key] = value;
      } else {
        EXPECT_NE(memory.Failures(), failures);
      }
    }
    EXPECT_EQ(Access::ContentsOf(map), model);
    Access::Check(map, &memory);
  }
}

TEST(HashMap, RandomRunsCountWhatTheTableHolds) {
  for (u64 seed = 1; seed <= 4; ++seed) {
    RunAtRandom(seed, false);
  }
}

TEST(HashMap, RandomRunsWithFailingMemoryLoseNothing) {
  for (u64 seed = 11; seed <= 14; ++seed) {
    RunAtRandom(seed, true);
  }
}

}  // namespace
