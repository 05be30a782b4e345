// The direct table.
#include "Velmar/Utils/IndexSearch.h"

#include "tests/velmarlib/store/SearchTest.h"

namespace {

using namespace SearchTest;
using NumberSearch = Utils::IndexSearch<u32>;
using Types::UInt128;

TEST(IndexSearch, KeyIsThePlaceInTheTable) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  EXPECT_EQ(SearchTestAccess::Locations(search), Locations(4, kNone));
  EXPECT_EQ(search.GetLocation(3, nullptr), kNone);
  EXPECT_EQ(SearchTestAccess::Position(search), 3U);
  EXPECT_TRUE(search.InsertNewElement(0));
  EXPECT_EQ(search.GetLocation(3, nullptr), 0U);
  EXPECT_EQ(search.GetLocationOfIndex(3, nullptr), 3U);
  EXPECT_EQ(search.GetMemoryUsage(), 4U * 4 + 32);
}

TEST(IndexSearch, KeyOfTheMaximumIsOutOfRangeAndCannotBeInserted) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  EXPECT_EQ(search.GetLocation(4, nullptr), kNone);
  EXPECT_EQ(SearchTestAccess::Position(search), kNone);
  LogCapture log;
  EXPECT_FALSE(search.InsertNewElement(0));
  EXPECT_FALSE(search.OverwriteOldElement(0, nullptr));
  EXPECT_EQ(log.Lines(), Lines(2, "5 velmar.IndexPositionOutOfRange"));
  EXPECT_EQ(SearchTestAccess::Locations(search), Locations(4, kNone));
}

TEST(IndexSearch, WideKeyIsANumberWhenItsFirstWordIsZero) {
  Utils::IndexSearch<UInt128> search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  EXPECT_EQ(search.GetLocation(UInt128{{0, 3}}, nullptr), kNone);
  EXPECT_TRUE(search.InsertNewElement(2));
  EXPECT_EQ(search.GetLocation(UInt128{{0, 3}}, nullptr), 2U);
  for (const UInt128& key : {UInt128{{1, 3}}, UInt128{{0, 4}}, UInt128{{0, u64{1} << 32}}}) {
    EXPECT_EQ(search.GetLocation(key, nullptr), kNone);
    EXPECT_EQ(SearchTestAccess::Position(search), kNone);
  }
}

TEST(IndexSearch, DeleteEmptiesTheSlotAndLeavesNotFoundTrue) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  search.GetLocation(2, nullptr);
  ASSERT_TRUE(search.InsertNewElement(9));
  u32 location = kNone;
  bool notFound = false;
  LogCapture log;
  EXPECT_TRUE(search.Delete(2, nullptr, location, notFound));
  EXPECT_EQ(location, 9U);
  EXPECT_TRUE(notFound);
  EXPECT_EQ(search.GetLocation(2, nullptr), kNone);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(IndexSearch, DeleteOfAnAbsentKeyIsAnErrorInAndOutOfRange) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  LogCapture log;
  for (const u32 key : {2U, 4U, kNone}) {
    u32 location = 77;
    bool notFound = false;
    EXPECT_FALSE(search.Delete(key, nullptr, location, notFound));
    EXPECT_TRUE(notFound);
    EXPECT_EQ(location, 77U);
  }
  EXPECT_EQ(search.GetLocationOfIndex(2, nullptr), kNone);
  EXPECT_EQ(log.Lines(), Lines(4, "5 velmar.IndexKeyAbsent"));
}

TEST(IndexSearch, RecyclingLeavesTheSlotOfTheOldKey) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  search.GetLocation(1, nullptr);
  ASSERT_TRUE(search.InsertNewElement(0));
  search.GetLocation(2, nullptr);
  EXPECT_TRUE(search.OverwriteOldElement(0, nullptr));
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{kNone, 0, 0, kNone}));
}

TEST(IndexSearch, TableIsMadeByInitOrByTheFirstGrowAndNeverChangesSize) {
  TestAllocator memory;
  NumberSearch search;
  ASSERT_TRUE(search.Init(0, 4, nullptr));
  EXPECT_EQ(memory.requests, 0U);
  EXPECT_EQ(search.GetLocation(2, nullptr), kNone);
  EXPECT_EQ(SearchTestAccess::Position(search), 2U);
  EXPECT_TRUE(search.Grow(1, 4));
  EXPECT_EQ(memory.lastSize, 16U);
  EXPECT_TRUE(search.InsertNewElement(5)) << "at the place found before the table was there";
  EXPECT_EQ(search.GetLocation(2, nullptr), 5U);
  EXPECT_TRUE(search.Grow(4, 4));
  EXPECT_EQ(memory.requests, 1U);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{kNone, kNone, 5, kNone}));
  search.Destroy();
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(SearchTestAccess::Size(search), 0U);
  EXPECT_EQ(SearchTestAccess::Position(search), kNone);
}

TEST(IndexSearch, WithoutATableNothingCanBeInsertedOrMarked) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(0, 4, nullptr));
  search.GetLocation(2, nullptr);
  LogCapture log;
  EXPECT_FALSE(search.InsertNewElement(5));
  EXPECT_FALSE(search.MarkKeyAsDeleted(2));
  EXPECT_EQ(log.Lines(), Lines(2, "5 velmar.IndexPositionOutOfRange"));
  search.Clear();
}

TEST(IndexSearch, FailedAllocationsAreErrors) {
  TestAllocator memory;
  LogCapture log;
  NumberSearch failing;
  memory.FailRequest(0);
  EXPECT_FALSE(failing.Init(1, 4, nullptr));
  NumberSearch search;
  ASSERT_TRUE(search.Init(0, 4, nullptr));
  memory.FailRequest(0);
  EXPECT_FALSE(search.Grow(1, 4));
  EXPECT_EQ(log.Lines(), Lines(2, "5 velmar.IndexAllocationFailed"));
  EXPECT_TRUE(search.Grow(1, 4));
  search.Destroy();
}

TEST(IndexSearch, MarkEmptiesASlotAndCompactingHasNothingToDo) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  search.GetLocation(1, nullptr);
  ASSERT_TRUE(search.InsertNewElement(0));
  EXPECT_TRUE(search.MarkKeyAsDeleted(1));
  EXPECT_TRUE(search.CompactDeleted());
  EXPECT_EQ(SearchTestAccess::Locations(search), Locations(4, kNone));
  LogCapture log;
  EXPECT_FALSE(search.MarkKeyAsDeleted(4));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexPositionOutOfRange"});
}

TEST(IndexSearch, ClearEmptiesEverySlot) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 2, nullptr));
  search.GetLocation(1, nullptr);
  ASSERT_TRUE(search.InsertNewElement(0));
  search.Clear();
  EXPECT_EQ(SearchTestAccess::Locations(search), Locations(2, kNone));
}

}  // namespace
