// The index in insertion order.
#include "Velmar/Utils/LinearSearch.h"

#include "tests/velmarlib/store/SearchTest.h"

namespace {

using namespace SearchTest;
using NumberSearch = Utils::LinearSearch<u32>;

TEST(LinearSearch, KeepsTheInsertionOrder) {
  const auto entries = Entries<u32, u32>({30, 10, 20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 1, 2}));
  EXPECT_EQ(search.GetLocation(20, entries.data()), 2U);
  EXPECT_EQ(SearchTestAccess::Position(search), 2U);
  EXPECT_EQ(search.GetLocationOfIndex(10, entries.data()), 1U);
}

TEST(LinearSearch, MissLeavesPositionZero) {
  const auto entries = Entries<u32, u32>({30, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(10, entries.data()), 1U);
  EXPECT_EQ(search.GetLocation(99, entries.data()), kNone);
  EXPECT_EQ(SearchTestAccess::Position(search), 0U);
}

TEST(LinearSearch, WideKeysAndTextsAreFound) {
  using Types::UInt128;
  const auto wide = Entries<UInt128, UInt128>({{{1, 5}}, {{1, 3}}});
  Utils::LinearSearch<UInt128> wideSearch;
  ASSERT_TRUE(wideSearch.Init(2, 2, nullptr));
  InsertAll(wideSearch, wide);
  EXPECT_EQ(wideSearch.GetLocation(UInt128{{1, 3}}, wide.data()), 1U);
  EXPECT_EQ(wideSearch.GetLocation(UInt128{{3, 1}}, wide.data()), kNone);
  const u8 ignoreCase = 1;
  const auto texts = Entries<const char*, const char*>({"p", "4"});
  Utils::LinearSearch<const char*> textSearch;
  ASSERT_TRUE(textSearch.Init(2, 2, &ignoreCase));
  InsertAll(textSearch, texts);
  EXPECT_EQ(textSearch.GetLocation("P", texts.data()), 0U);
}

TEST(LinearSearch, DeleteClosesTheGap) {
  const auto entries = Entries<u32, u32>({30, 10, 20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  u32 location = kNone;
  bool notFound = true;
  LogCapture log;
  EXPECT_TRUE(search.Delete(30, entries.data(), location, notFound));
  EXPECT_EQ(location, 0U);
  EXPECT_FALSE(notFound);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{1, 2}));
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(LinearSearch, AbsentKeyIsAnErrorForDeleteAndForItsIndex) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  u32 location = kNone;
  bool notFound = false;
  LogCapture log;
  EXPECT_FALSE(search.Delete(30, nullptr, location, notFound));
  EXPECT_TRUE(notFound);
  EXPECT_EQ(search.GetLocationOfIndex(30, nullptr), kNone);
  EXPECT_EQ(log.Lines(), Lines(2, "5 velmar.IndexKeyAbsent"));
}

TEST(LinearSearch, RecyclingChangesNothing) {
  auto entries = Entries<u32, u32>({30, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(99, entries.data()), kNone);
  EXPECT_TRUE(search.OverwriteOldElement(0, entries.data()));
  entries[0].key = 99;
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 1}));
  EXPECT_EQ(search.GetLocation(99, entries.data()), 0U);
}

TEST(LinearSearch, MarksAreSqueezedOutInOrder) {
  const auto entries = Entries<u32, u32>({30, 10, 20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  EXPECT_TRUE(search.MarkKeyAsDeleted(1));
  EXPECT_TRUE(search.CompactDeleted());
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 2}));
  LogCapture log;
  EXPECT_FALSE(search.MarkKeyAsDeleted(2));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexPositionOutOfRange"});
}

TEST(LinearSearch, GrowReallocatesEvenToTheSameCapacity) {
  TestAllocator memory;
  const auto entries = Entries<u32, u32>({30, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 9, nullptr));
  InsertAll(search, entries);
  EXPECT_TRUE(search.Grow(2, 9));
  EXPECT_EQ(memory.requests, 2U);
  EXPECT_EQ(memory.live, 1);
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 1}));
  EXPECT_EQ(search.GetMemoryUsage(), 48U);
  LogCapture log;
  EXPECT_FALSE(search.Grow(1, 9)) << "what is in use must fit";
  memory.FailRequest(0);
  EXPECT_FALSE(search.Grow(9, 9));
  EXPECT_EQ(log.Lines(), Lines(2, "5 velmar.IndexAllocationFailed"));
  EXPECT_EQ(SearchTestAccess::Locations(search), (Locations{0, 1}));
  search.Destroy();
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(SearchTestAccess::Size(search), 0U);
  EXPECT_EQ(search.GetMemoryUsage(), 48U) << "the capacity stays";
}

TEST(LinearSearch, FailedInitIsAnErrorWithTheCount) {
  TestAllocator memory;
  LogCapture log;
  NumberSearch search;
  memory.FailRequest(0);
  EXPECT_FALSE(search.Init(3, 3, nullptr));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexAllocationFailed"});
  EXPECT_EQ(log.Arguments("velmar.IndexAllocationFailed"), std::vector<std::string>{"3"});
}

TEST(LinearSearch, FailedInitDoesNotTakeTheContext) {
  TestAllocator memory;
  const u8 ignoreCase = 1;
  const auto texts = Entries<const char*, const char*>({"p"});
  Utils::LinearSearch<const char*> search;
  memory.FailRequest(0);
  ASSERT_FALSE(search.Init(1, 1, &ignoreCase));
  ASSERT_TRUE(search.Grow(1, 1));
  InsertAll(search, texts);
  EXPECT_EQ(search.GetLocation("P", texts.data()), kNone);
  EXPECT_EQ(search.GetLocation("p", texts.data()), 0U);
  search.Destroy();
}

TEST(LinearSearch, ClearForgetsTheKeys) {
  const auto entries = Entries<u32, u32>({30, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  search.Clear();
  EXPECT_EQ(search.GetLocation(30, entries.data()), kNone);
}

}  // namespace
