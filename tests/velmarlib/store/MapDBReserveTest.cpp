// Room for more entries.
#include <string>

#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Texts = std::vector<std::string>;

Options Sized(u32 initial, u32 maximum, u32 growth, u32 percent = 0) {
  Options options;
  options.initial = initial;
  options.maximum = maximum;
  options.growth = growth;
  options.growthInPercent = percent;
  return options;
}

// The capacity after one growth step.
u32 CapacityAfterStep(const Options& options) {
  NumberStore store;
  EXPECT_TRUE(Open(store, options));
  EXPECT_TRUE(store.Reserve(kNone, true));
  return MapDBTestAccess::Capacity(store);
}

TEST(MapDBReserve, WantedWithinTheCapacityIsThereAlready) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  LogCapture log;
  EXPECT_TRUE(store.Reserve(0, false));
  EXPECT_TRUE(store.Reserve(2, false));
  EXPECT_EQ(MapDBTestAccess::Capacity(store), 2U);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(MapDBReserve, WantedNumberBecomesTheCapacity) {
  TextStore store;
  ASSERT_TRUE(Open(store, Sized(2, 100, 7)));
  EXPECT_TRUE(store.Reserve(50, false));
  EXPECT_EQ(MapDBTestAccess::Capacity(store), 50U);
}

TEST(MapDBReserve, StepIsFixedOrAPercentage) {
  EXPECT_EQ(CapacityAfterStep(Sized(2, 100, 7)), 9U);
  EXPECT_EQ(CapacityAfterStep(Sized(0, 100, 7)), 7U);
  EXPECT_EQ(CapacityAfterStep(Sized(10, 100, 50, 1)), 15U);
  EXPECT_EQ(CapacityAfterStep(Sized(10, 100, 25, 1)), 12U) << "rounded down";
  EXPECT_EQ(CapacityAfterStep(Sized(2, 100, 10, 1)), 3U) << "at least one";
  EXPECT_EQ(CapacityAfterStep(Sized(0, 100, 300, 1)), 3U) << "of one, when there is none";
  EXPECT_EQ(CapacityAfterStep(Sized(100, 1000, 29, 1)), 128U) << "the product is a binary fraction below 29";
}

TEST(MapDBReserve, ForcedTargetIsCutToTheMaximum) {
  EXPECT_EQ(CapacityAfterStep(Sized(2, 5, 7)), 5U);
  EXPECT_EQ(CapacityAfterStep(Sized(2, 5, 0xFFFFFFFF)), 5U);
  EXPECT_EQ(CapacityAfterStep(Sized(2, 5, 0xFFFFFFFF, 1)), 5U);
}

TEST(MapDBReserve, TargetAboveTheMaximumIsRefusedWithoutForce) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  LogCapture log;
  EXPECT_FALSE(store.Reserve(4, false));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreAboveMaximum"});
  EXPECT_EQ(log.Arguments("velmar.StoreAboveMaximum"), (Texts{"4", "3"}));
  log.Clear();
  ASSERT_TRUE(store.Reserve(3, false));
  EXPECT_FALSE(store.Reserve(kNone, false));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreAboveMaximum"});
}

TEST(MapDBReserve, StoreAtItsMaximumIsRefusedEvenWithForce) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(store.Reserve(3, false));
  LogCapture log;
  EXPECT_FALSE(store.Reserve(kNone, true));
  EXPECT_FALSE(store.Reserve(9, true));
  EXPECT_EQ(log.Lines(), Lines(2, "3 velmar.StoreAtMaximum"));
  EXPECT_EQ(log.Arguments("velmar.StoreAtMaximum"), Texts{"3"});
}

TEST(MapDBReserve, NewRoomJoinsTheEndOfTheFreeChain) {
  TextStore store;
  ASSERT_TRUE(Open(store, Sized(3, 10, 1)));
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(store.Reserve(6, false));
  for (const char* key : {"b", "c", "d", "e", "f"}) {
    ASSERT_TRUE(Put(store, key, key));
  }
  EXPECT_EQ(MapDBTestAccess::Tail(store), 5U) << "the entries are taken in order";
  EXPECT_EQ(KeysOf(store), (Texts{"a", "b", "c", "d", "e", "f"}));
}

TEST(MapDBReserve, ValuesKeysAndAgesMoveAlong) {
  TestAllocator memory;
  TextStore store;
  ASSERT_TRUE(Open(store, Sized(4, 100, 1)));
  for (const char* key : {"d", "b", "c", "a"}) {
    ASSERT_TRUE(Put(store, key, std::string(100, key[0])));
  }
  ASSERT_TRUE(store.Delete("b", true));
  ASSERT_TRUE(store.Reserve(40, false));
  EXPECT_EQ(KeysOf(store), (Texts{"d", "c", "a"}));
  EXPECT_EQ(Get(store, "c"), std::string(100, 'c'));
  store.Uninit();
  EXPECT_EQ(memory.live, 0) << "nothing of the old pools is left";
}

TEST(MapDBReserve, ValuesOfFreeEntriesMoveAlongAlsoFromAnEmptyStore) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", std::string(5000, 'a')));
  ASSERT_TRUE(Put(store, "b", std::string(5000, 'b')));
  ASSERT_TRUE(store.Clear());
  ASSERT_TRUE(store.Reserve(3, false));
  const u64 allocations = Sim::CountAllocations();
  ASSERT_TRUE(Put(store, "c", std::string(5000, 'c')));
  EXPECT_EQ(Sim::CountAllocations(), allocations) << "the value's old storage is used again";
  EXPECT_EQ(Get(store, "c"), std::string(5000, 'c'));
}

TEST(MapDBReserve, StringValuesMoveAlong) {
  StringStore store;
  ASSERT_TRUE(Open(store, Sized(2, 10, 1)));
  ASSERT_TRUE(Put(store, "short", "s"));
  ASSERT_TRUE(Put(store, "long", std::string(500, 'l')));
  ASSERT_TRUE(store.Reserve(10, false));
  EXPECT_EQ(Get(store, "short"), "s");
  EXPECT_EQ(Get(store, "long"), std::string(500, 'l'));
}

TEST(MapDBReserve, FailedAllocationsLeaveTheStoreAsItWas) {
  TestAllocator memory;
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(Put(store, "b", "2"));
  const std::int64_t live = memory.live;
  const Lines indexFailure = {"5 velmar.IndexAllocationFailed", "5 velmar.StoreIndexNotGrown"};
  const Lines poolFailure = {"5 velmar.StoreAllocationFailed"};
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(store.Reserve(3, false));
  EXPECT_EQ(log.Lines(), indexFailure);
  // The index grew in the first of these; its larger memory stays.
  for (const u64 request : {1U, 1U}) {
    log.Clear();
    memory.FailRequest(request);
    EXPECT_FALSE(store.Reserve(3, false));
    EXPECT_EQ(log.Lines(), poolFailure);
    EXPECT_EQ(log.Arguments("velmar.StoreAllocationFailed"), Texts{"3"});
    EXPECT_EQ(memory.live, live);
    EXPECT_EQ(KeysOf(store), (Texts{"a", "b"}));
  }
  EXPECT_TRUE(store.Reserve(3, false));
  store.Uninit();
  EXPECT_EQ(memory.live, 0);
}

TEST(MapDBReserve, LinearIndexGrowsWithTheStore) {
  TestAllocator memory;
  NumberStore store;
  Options options = Sized(0, 4, 2);
  options.flags = StoreFlags::kLinearSearch;
  ASSERT_TRUE(Open(store, options));
  for (u32 key = 0; key < 4; ++key) {
    ASSERT_TRUE(Put(store, key, "1"));
  }
  EXPECT_EQ(KeysOf(store), (std::vector<u32>{0, 1, 2, 3}));
  store.Uninit();
  EXPECT_EQ(memory.live, 0);
}

TEST(MapDBReserve, IndexTableIsMadeWithTheFirstEntry) {
  NumberStore store;
  Options options = Sized(0, 4, 2);
  options.flags = StoreFlags::kIndexSearch;
  ASSERT_TRUE(Open(store, options));
  EXPECT_EQ(Get(store, 3), std::nullopt);
  for (const u32 key : {3U, 0U, 2U, 1U}) {
    ASSERT_TRUE(Put(store, key, std::to_string(key)));
  }
  EXPECT_EQ(KeysOf(store), (std::vector<u32>{3, 0, 2, 1}));
  EXPECT_EQ(Get(store, 2), "2");
}

}  // namespace
