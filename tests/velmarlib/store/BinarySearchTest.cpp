// The sorted index.
#include "Velmar/Utils/BinarySearch.h"

#include "tests/velmarlib/store/SearchTest.h"

namespace {

using namespace SearchTest;
using NumberSearch = Utils::BinarySearch<u32>;
using Types::UInt128;

TEST(BinarySearch, EmptyIndexHasNothingAndInsertsAtTheFront) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(4, 4, nullptr));
  EXPECT_EQ(search.GetLocation(5, nullptr), kNone);
  EXPECT_EQ(SearchTestAccess::Position(search), 0U);
  EXPECT_TRUE(search.InsertNewElement(7));
  EXPECT_EQ(SearchTestAccess::Locations(search), Locations{7});
}

TEST(BinarySearch, MissLeavesThePlaceOfTheKey) {
  const auto entries = Entries<u32, u32>({20, 40, 60});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  const u32 keys[] = {10, 30, 50, 70};
  for (u32 i = 0; i < 4; ++i) {
    EXPECT_EQ(search.GetLocation(keys[i], entries.data()), kNone);
    EXPECT_EQ(SearchTestAccess::Position(search), i);
  }
}

TEST(BinarySearch, KeyBelowTheOnlyOneGoesToTheFront) {
  const auto entries = Entries<u32, u32>({20, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{1, 0}));
}

TEST(BinarySearch, LocationsAreSortedByKeyAndFound) {
  const auto entries = Entries<u32, u32>({50, 10, 40, 20, 0xFFFFFFFF, 0, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(7, 7, nullptr));
  InsertAll(search, entries);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{5, 1, 3, 6, 2, 0, 4}));
  for (u32 i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(search.GetLocation(entries[i].key, entries.data()), i);
  }
  EXPECT_EQ(search.GetLocationOfIndex(30, entries.data()), 3U);
}

TEST(BinarySearch, WideKeysSortByTheFirstWordThenTheSecond) {
  const auto entries = Entries<UInt128, UInt128>({{{1, 5}}, {{1, 3}}, {{0, 9}}, {{2, 0}}, {{1, 4}}});
  Utils::BinarySearch<UInt128> search;
  ASSERT_TRUE(search.Init(5, 5, nullptr));
  InsertAll(search, entries);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{2, 1, 4, 0, 3}));
  EXPECT_EQ(search.GetLocation(UInt128{{1, 4}}, entries.data()), 4U);
}

TEST(BinarySearch, TextsCompareAsTheContextSays) {
  const auto entries = Entries<const char*, const char*>({"b", "A"});
  for (const u8 ignoreCase : {u8{0}, u8{1}}) {
    Utils::BinarySearch<const char*> search;
    ASSERT_TRUE(search.Init(2, 2, &ignoreCase));
    InsertAll(search, entries);
    EXPECT_EQ(search.GetLocation("a", entries.data()), ignoreCase != 0 ? 1U : kNone);
  }
}

TEST(BinarySearch, AbsentKeyHasNoIndexAndThatIsAnError) {
  const auto entries = Entries<u32, u32>({20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 1, nullptr));
  InsertAll(search, entries);
  LogCapture log;
  EXPECT_EQ(search.GetLocationOfIndex(10, entries.data()), kNone);
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexKeyAbsent"});
}

TEST(BinarySearch, DeleteClosesTheGap) {
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  u32 location = kNone;
  bool notFound = true;
  EXPECT_TRUE(search.Delete(20, entries.data(), location, notFound));
  EXPECT_EQ(location, 1U);
  EXPECT_FALSE(notFound);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 2}));
}

TEST(BinarySearch, DeleteOfAnAbsentKeySaysSoWithoutARecord) {
  const auto entries = Entries<u32, u32>({10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 1, nullptr));
  InsertAll(search, entries);
  LogCapture log;
  u32 location = 77;
  bool notFound = false;
  EXPECT_FALSE(search.Delete(20, entries.data(), location, notFound));
  EXPECT_TRUE(notFound);
  EXPECT_EQ(location, 77U);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(BinarySearch, MarkedPositionsAreSqueezedOutAtOnce) {
  const auto entries = Entries<u32, u32>({10, 20, 30, 40});
  NumberSearch search;
  ASSERT_TRUE(search.Init(4, 4, nullptr));
  InsertAll(search, entries);
  EXPECT_TRUE(search.MarkKeyAsDeleted(0));
  EXPECT_TRUE(search.MarkKeyAsDeleted(2));
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{kNone, 1, kNone, 3}));
  EXPECT_TRUE(search.CompactDeleted());
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{1, 3}));
  EXPECT_EQ(SearchTestAccess::Position(search), 2U);
  EXPECT_TRUE(search.MarkKeyAsDeleted(0));
  EXPECT_TRUE(search.MarkKeyAsDeleted(1));
  EXPECT_TRUE(search.CompactDeleted());
  EXPECT_EQ(SearchTestAccess::Size(search), 0U);
  EXPECT_EQ(SearchTestAccess::Position(search), 0U);
}

TEST(BinarySearch, MarkPastTheEndIsAnErrorWithThePosition) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(4, 4, nullptr));
  LogCapture log;
  EXPECT_FALSE(search.MarkKeyAsDeleted(0));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexPositionOutOfRange"});
  EXPECT_EQ(log.Arguments("velmar.IndexPositionOutOfRange"), std::vector<std::string>{"0"});
}

// The old key of entry `recycled` leaves, `newKey` comes, and the array is sorted once the node has the new key.
void Recycle(u32 recycled, u32 newKey, const Locations& expected) {
  auto entries = Entries<u32, u32>({10, 20, 30, 40});
  NumberSearch search;
  ASSERT_TRUE(search.Init(4, 4, nullptr));
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(newKey, entries.data()), kNone);
  ASSERT_TRUE(search.OverwriteOldElement(recycled, entries.data()));
  EXPECT_EQ(SearchTestAccess::Locations(search), expected) << recycled << " for " << newKey;
  entries[recycled].key = newKey;
  EXPECT_EQ(search.GetLocation(newKey, entries.data()), recycled);
}

TEST(BinarySearch, RecycledLocationMovesToThePlaceOfTheNewKey) {
  Recycle(0, 5, {0, 1, 2, 3});
  Recycle(0, 15, {0, 1, 2, 3});
  Recycle(0, 25, {1, 0, 2, 3});
  Recycle(0, 45, {1, 2, 3, 0});
  Recycle(3, 5, {3, 0, 1, 2});
  Recycle(3, 25, {0, 1, 3, 2});
  Recycle(3, 45, {0, 1, 2, 3});
  Recycle(2, 15, {0, 2, 1, 3});
  Recycle(1, 35, {0, 2, 1, 3});
}

TEST(BinarySearch, RecycledLocationThatHasThePlaceAlreadyStays) {
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(15, entries.data()), kNone);
  EXPECT_TRUE(search.OverwriteOldElement(1, entries.data()));
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 1, 2}));
  EXPECT_EQ(SearchTestAccess::Position(search), 1U) << "not even searched";
}

TEST(BinarySearch, RecyclingAnEntryThatIsNotInTheIndexFailsWithNothingChanged) {
  const auto entries = Entries<u32, u32>({10, 20, 30, 99});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  for (u32 i = 0; i < 3; ++i) {
    ASSERT_EQ(search.GetLocation(entries[i].key, entries.data()), kNone);
    ASSERT_TRUE(search.InsertNewElement(i));
  }
  ASSERT_EQ(search.GetLocation(15, entries.data()), kNone);
  LogCapture log;
  EXPECT_FALSE(search.OverwriteOldElement(3, entries.data()));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexKeyAbsent"});
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 1, 2}));
  EXPECT_EQ(SearchTestAccess::Position(search), 1U);
}

TEST(BinarySearch, GrowKeepsTheLocationsAndNeverShrinks) {
  TestAllocator memory;
  const auto entries = Entries<u32, u32>({20, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 9, nullptr));
  InsertAll(search, entries);
  const u64 requests = memory.requests;
  EXPECT_TRUE(search.Grow(2, 9));
  EXPECT_TRUE(search.Grow(1, 9));
  EXPECT_EQ(memory.requests, requests);
  EXPECT_TRUE(search.Grow(9, 9));
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{1, 0}));
  EXPECT_EQ(search.GetMemoryUsage(), 9U * 4 + 40);
  search.Destroy();
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(search.GetMemoryUsage(), 40U);
  EXPECT_EQ(SearchTestAccess::Size(search), 0U);
}

TEST(BinarySearch, FailedAllocationsAreErrorsAndChangeNothing) {
  TestAllocator memory;
  LogCapture log;
  NumberSearch failing;
  memory.FailRequest(0);
  EXPECT_FALSE(failing.Init(3, 3, nullptr));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexAllocationFailed"});
  EXPECT_EQ(log.Arguments("velmar.IndexAllocationFailed"), std::vector<std::string>{"3"});
  const auto entries = Entries<u32, u32>({20, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 9, nullptr));
  InsertAll(search, entries);
  log.Clear();
  memory.FailRequest(0);
  EXPECT_FALSE(search.Grow(9, 9));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexAllocationFailed"});
  EXPECT_EQ(log.Arguments("velmar.IndexAllocationFailed"), std::vector<std::string>{"9"});
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{1, 0}));
  search.Destroy();
}

TEST(BinarySearch, InitWithoutCapacityAllocatesNothing) {
  TestAllocator memory;
  NumberSearch search;
  EXPECT_TRUE(search.Init(0, 3, nullptr));
  EXPECT_EQ(memory.requests, 0U);
  EXPECT_EQ(search.GetMemoryUsage(), 40U);
}

TEST(BinarySearch, ClearForgetsTheKeysAndKeepsTheMemory) {
  const auto entries = Entries<u32, u32>({20, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  search.Clear();
  EXPECT_EQ(search.GetLocation(10, entries.data()), kNone);
  EXPECT_EQ(search.GetMemoryUsage(), 48U);
}

}  // namespace
