// The hash map when each of its allocations fails.
#include <algorithm>
#include <functional>

#include "tests/velmarlib/store/HashMapCheck.h"

namespace {

using namespace HashMapCheck;

// Runs `act` on what `prepare` has made, once for each of its allocations with that one failing, until none is left;
// `check` sees the state before and the result. Returns the number of runs with a failure.
u64 FailEach(const std::function<void(Map&)>& prepare, const std::function<bool(Map&)>& act,
             const std::function<void(Map&, const Access::State&, bool, const Lines&)>& check, u64 inARow = 1) {
  for (u64 n = 0;; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    Memory memory;
    Map map;
    Open(map);
    prepare(map);
    const auto before = Access::Of(map);
    memory.FailFrom(n, inARow);
    LogCapture log;
    const bool done = act(map);
    const bool failed = memory.Failures() != 0;
    memory.FailFrom(CountingAllocator::kNever);
    Access::Check(map, &memory);
    if (!failed) {
      EXPECT_TRUE(done);
      return n;
    }
    check(map, before, done, log.Lines());
    if (testing::Test::HasFailure()) {
      return n;
    }
  }
}

void ExpectUnchanged(Map& map, const Access::State& before, bool done, const Lines& /*lines*/) {
  EXPECT_FALSE(done);
  EXPECT_EQ(Access::Of(map), before);
}

TEST(HashMapMemory, FirstKeyOfASlotNeedsAValueAndABucket) {
  Lines seen;
  const u64 runs = FailEach([](Map& map) { map.Find(10); }, [](Map& map) { return map._Insert(10, 1); },
                            [&seen](Map& map, const Access::State& before, bool done, const Lines& lines) {
                              ExpectUnchanged(map, before, done, lines);
                              seen.insert(seen.end(), lines.begin(), lines.end());
                            });
  EXPECT_EQ(runs, 2U);
  EXPECT_EQ(seen, (Lines{"3 velmar.HashMapNoMemoryForValue", "3 velmar.HashMapNoMemoryForBucket"}));
}

TEST(HashMapMemory, FifthKeyOfASlotNeedsAWideBucketAndFiveValues) {
  Lines seen;
  const u64 runs = FailEach(
      [](Map& map) {
        Fill(map, 4, 53, 10);
        map.Find(10 + 4 * 53);
      },
      [](Map& map) { return map._Insert(10 + 4 * 53, 1); },
      [&seen](Map& map, const Access::State& before, bool done, const Lines& lines) {
        ExpectUnchanged(map, before, done, lines);
        seen.insert(seen.end(), lines.begin(), lines.end());
      });
  EXPECT_EQ(runs, 6U);
  Lines expected(6, "3 velmar.HashMapBucketNotResized");
  expected[0] = "3 velmar.HashMapNoMemoryForValue";
  EXPECT_EQ(seen, expected);
}

TEST(HashMapMemory, ResizeBucketAloneLeavesTheNarrowOne) {
  const u64 runs = FailEach([](Map& map) { Fill(map, 3, 53, 10); }, [](Map& map) { return map.ResizeBucket(10); },
                            [](Map& map, const Access::State& before, bool done, const Lines& lines) {
                              ExpectUnchanged(map, before, done, lines);
                              EXPECT_EQ(lines, Lines{});
                              EXPECT_FALSE(Access::IsWide(map, 10));
                            });
  EXPECT_EQ(runs, 4U);
}

// Buckets of both widths, some of them empty or with holes.
void FillMixed(Map& map) {
  for (u64 slot = 0; slot < 30; ++slot) {
    Fill(map, static_cast<u32>(slot % 8 + 1), 53, slot);
  }
  for (u64 slot = 0; slot < 30; slot += 3) {
    for (u64 i = 0; i <= slot % 8; ++i) {
      if (slot % 2 == 0 || i != 1) {
        ASSERT_TRUE(map.Find(slot + i * 53));
        ASSERT_TRUE(map._Delete());
      }
    }
  }
}

TEST(HashMapMemory, ReHashThatFailsIsTakenBack) {
  int rolledBack = 0;
  const u64 runs = FailEach(
      FillMixed, [](Map& map) { return map.ReHash(); },
      [&rolledBack](Map& map, const Access::State& before, bool done, const Lines& lines) {
        ExpectUnchanged(map, before, done, lines);
        if (lines.size() > 1) {
          ++rolledBack;
          EXPECT_EQ(lines.back(), "5 velmar.HashMapRolledBack");
        }
      });
  EXPECT_EQ(rolledBack + 2, runs) << "two allocations come before the move";
  EXPECT_GT(runs, 100U);
}

TEST(HashMapMemory, ReHashWithinAReHashIsTakenBackWhole) {
  const u64 runs =
      FailEach([](Map& map) { Fill(map, 12, 107, 10); }, [](Map& map) { return map.ReHash(); }, ExpectUnchanged);
  EXPECT_GT(runs, 24U);
}

TEST(HashMapMemory, NinthKeyThatFailsLeavesAllOthers) {
  FailEach(
      [](Map& map) {
        FillMixed(map);
        Fill(map, 8, 53, 40);
        map.Find(40 + 8 * 53);
      },
      [](Map& map) { return map._Insert(40 + 8 * 53, 1); },
      [](Map& map, const Access::State& before, bool done, const Lines& lines) {
        EXPECT_FALSE(done);
        EXPECT_EQ(Access::ContentsOf(map), before.contents);
        if (Access::Of(map).tableSize == before.tableSize) {
          EXPECT_EQ(Access::Of(map), before);
        } else {
          EXPECT_EQ(lines.size(), 1U) << "grown, and then no place for the key";
        }
      });
}

// From one allocation on nothing is given any more, not even on the way back.
TEST(HashMapMemory, MemoryThatStaysAwayLosesOnlyWhatTheRecordTells) {
  u64 lossy = 0;
  const auto check = [&lossy](Map& map, const Access::State& before, bool done, const Lines& lines) {
    EXPECT_FALSE(done);
    const auto after = Access::Of(map);
    EXPECT_EQ(after.tableSize, before.tableSize);
    EXPECT_EQ(after.primeIndex, before.primeIndex);
    for (const auto& [key, value] : after.contents) {
      EXPECT_EQ(before.contents.at(key), value);
    }
    const bool toldLoss = std::find(lines.begin(), lines.end(), "5 velmar.HashMapEntriesLost") != lines.end();
    EXPECT_EQ(toldLoss, after.count != before.count);
    lossy += toldLoss ? 1 : 0;
    EXPECT_TRUE(Put(map, 50)) << "the map goes on";
  };
  const u64 runs = FailEach(
      FillMixed, [](Map& map) { return map.ReHash(); }, check, u64{1} << 40);
  EXPECT_GT(lossy, 0U);
  EXPECT_LT(lossy, runs);
}

TEST(HashMapMemory, LostEntriesAreCounted) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 5, 53, 10);
  Fill(map, 1, 53, 20);
  // Table, bits, five values and their buckets go well; then the value of the sixth key, and the wide bucket on the way
  // back, do not.
  memory.FailFrom(2 + 5 + 5, u64{1} << 40);
  LogCapture log;
  EXPECT_FALSE(map.ReHash());
  EXPECT_EQ(log.Lines(),
            (Lines{"3 velmar.HashMapNoMemoryForValue", "5 velmar.HashMapEntriesLost", "5 velmar.HashMapRolledBack"}));
  EXPECT_EQ(log.Arguments("velmar.HashMapEntriesLost"), std::vector<std::string>{"5"});
  EXPECT_EQ(map.GetCount(), 1U);
  EXPECT_TRUE(map.Find(20));
  Access::Check(map, &memory);
}

TEST(HashMapMemory, KeyThatStandsTwiceTakesTheMoveBack) {
  Memory memory;
  Map map;
  Open(map);
  Fill(map, 6, 53, 5);
  ASSERT_TRUE(Put(map, 10));
  ASSERT_FALSE(map.Find(10 + 53));
  ASSERT_TRUE(map._Insert(10, 2)) << "against the rule, in the place of another key";
  const auto before = Access::Of(map);
  LogCapture log;
  EXPECT_FALSE(map.ReHash());
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.HashMapRolledBack"});
  EXPECT_EQ(Access::Of(map).count, 8U);
  EXPECT_EQ(Access::Of(map).tableSize, 53U);
  EXPECT_EQ(Access::Of(map).memoryUsage, before.memoryUsage);
  Access::Check(map, &memory);
}

// Empty buckets are recycled and never taken.
void FillWithEmptyBuckets(Map& map) {
  ASSERT_TRUE(map.InitializeLazy(449, true));
  ASSERT_TRUE(map.Create());
  for (u64 slot = 0; slot < 400; ++slot) {
    ASSERT_TRUE(Put(map, slot));
    ASSERT_TRUE(map.Find(slot));
    ASSERT_TRUE(map._Delete());
  }
}

TEST(HashMapMemory, RecycledBucketsLeaveTheirAreaForTheHeapInSteps) {
  Memory memory;
  Map map;
  FillWithEmptyBuckets(map);
  const u64 before = memory.Allocations();
  EXPECT_TRUE(map.ReHash());
  EXPECT_EQ(memory.Allocations() - before, 2U + 2) << "table and bits; room for 384 and for 512 buckets";
  EXPECT_EQ(memory.Out(), 2U) << "no recycled bucket stays";
  Access::Check(map, &memory);
}

TEST(HashMapMemory, BucketsThatCannotBeKeptAreFreedAndTheMoveGoesOn) {
  Memory memory;
  Map map;
  FillWithEmptyBuckets(map);
  ASSERT_TRUE(Put(map, 448));
  memory.FailFrom(2);
  LogCapture log;
  EXPECT_TRUE(map.ReHash());
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 velmar.HashMapBucketNotKept"}));
  EXPECT_EQ(log.Arguments("velmar.HashMapBucketNotKept"), std::vector<std::string>{"256"});
  EXPECT_TRUE(map.Find(448));
  Access::Check(map, &memory);
}

TEST(HashMapMemory, RecycledBucketsAreTakenBeforeNewOnes) {
  Memory memory;
  Map map;
  Open(map);
  for (u64 slot = 0; slot < 53; ++slot) {
    Fill(map, 1, 53, slot);
  }
  const u64 before = memory.Allocations();
  EXPECT_TRUE(map.ReHash());
  EXPECT_EQ(memory.Allocations() - before, 2U + 53 + 1) << "table and bits, each value, and the first bucket";
  Access::Check(map, &memory);
}

}  // namespace
