// A store whose index is a tree.
#include <string>

#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Types::UInt128;

template <class Store>
struct Keys;
template <>
struct Keys<TextStore> {
  static constexpr const char* kKeys[] = {"b", "a key of more than sixteen bytes", "", "a", "c"};
};
template <>
struct Keys<StringStore> : Keys<TextStore> {};
template <>
struct Keys<NumberStore> {
  static constexpr u32 kKeys[] = {7, 0xFFFFFFFF, 0, 3, 9};
};
template <>
struct Keys<WideStore> {
  static constexpr UInt128 kKeys[] = {{{1, 7}}, {{1, 3}}, {{0, 9}}, {{2, 0}}, {{1, 4}}};
};

Options TreeOptions(u32 moreFlags = 0) {
  Options options;
  options.flags = StoreFlags::kRBTSearch | StoreFlags::kNoSaveOnClose | moreFlags;
  return options;
}

// Puts the keys of those numbers, with their numbers as values.
template <class Store>
void PutAll(Store& store, const std::vector<u32>& numbers) {
  for (const u32 number : numbers) {
    ASSERT_TRUE(Put(store, Keys<Store>::kKeys[number], std::to_string(number)));
  }
}

// Fails the test unless the store has just the keys of those numbers, oldest first, each with its value.
template <class Store>
void ExpectOnly(Store& store, const std::vector<u32>& numbers) {
  const auto keys = KeysOf(store);
  ASSERT_EQ(keys.size(), numbers.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_TRUE(keys[i] == Keys<Store>::kKeys[numbers[i]]) << "place " << i;
    EXPECT_EQ(Get(store, Keys<Store>::kKeys[numbers[i]]), std::to_string(numbers[i]));
  }
}

template <class Store>
class MapDBTree : public testing::Test {
 protected:
  static constexpr auto& kKeys = Keys<Store>::kKeys;
};

using Stores = testing::Types<TextStore, StringStore, NumberStore, WideStore>;
TYPED_TEST_SUITE(MapDBTree, Stores);

TYPED_TEST(MapDBTree, KeysArePutFoundDeletedAndCleared) {
  TypeParam store;
  Options options = TreeOptions();
  options.initial = 0;
  options.maximum = 5;
  ASSERT_TRUE(Open(store, options));
  PutAll(store, {0, 1, 2, 3, 4});
  ExpectOnly(store, {0, 1, 2, 3, 4});
  EXPECT_TRUE(store.Delete(TestFixture::kKeys[2], true));
  EXPECT_EQ(Get(store, TestFixture::kKeys[2]), std::nullopt);
  ExpectOnly(store, {0, 1, 3, 4});
  EXPECT_TRUE(store.Clear());
  ExpectOnly(store, {});
  PutAll(store, {4, 2});
  ExpectOnly(store, {4, 2});
}

TYPED_TEST(MapDBTree, DeleteOfAMissingKeyIsAsMustExistSaysAndLogged) {
  TypeParam store;
  ASSERT_TRUE(Open(store, TreeOptions()));
  PutAll(store, {0, 1});
  LogCapture log;
  EXPECT_TRUE(store.Delete(TestFixture::kKeys[2], false));
  EXPECT_FALSE(store.Delete(TestFixture::kKeys[2], true));
  EXPECT_EQ(log.Lines(), Lines(2, "5 velmar.IndexKeyAbsent"));
  ExpectOnly(store, {0, 1});
}

TYPED_TEST(MapDBTree, FullStoreGivesTheOldestPlaceToEachNewKey) {
  TypeParam store;
  ASSERT_TRUE(Open(store, TreeOptions()));
  PutAll(store, {0, 1, 2, 3});
  ExpectOnly(store, {1, 2, 3});
  EXPECT_EQ(Get(store, TestFixture::kKeys[0]), std::nullopt);
  PutAll(store, {4, 0, 1});
  ExpectOnly(store, {4, 0, 1});
}

TYPED_TEST(MapDBTree, HitProtectsTheOldestWhereTheStoreIsToldSo) {
  for (const u32 flag : {0U, StoreFlags::kMoveToTailOnAccess}) {
    TypeParam store;
    ASSERT_TRUE(Open(store, TreeOptions(flag)));
    PutAll(store, {0, 1, 2});
    EXPECT_EQ(Get(store, TestFixture::kKeys[0]), "0");
    PutAll(store, {3});
    ExpectOnly(store, flag == 0 ? std::vector<u32>{1, 2, 3} : std::vector<u32>{2, 0, 3});
  }
}

TYPED_TEST(MapDBTree, FileOfATreeStoreServesAnyKindAndItself) {
  MakeFolder();
  Options options = TreeOptions();
  options.path = kPath;
  options.maximum = 5;
  TypeParam store;
  ASSERT_TRUE(Open(store, options));
  PutAll(store, {3, 0, 4, 1, 2});
  ASSERT_TRUE(store.Save());
  for (const u32 kind : {StoreFlags::kRBTSearch, StoreFlags::kBinarySearch}) {
    TypeParam copy;
    options.flags = kind | StoreFlags::kNoSaveOnClose;
    ASSERT_TRUE(Open(copy, options));
    ExpectOnly(copy, {3, 0, 4, 1, 2});
  }
}

TYPED_TEST(MapDBTree, MarkedKeyIsGoneFromTheIndexAndCompactingLeavesTheRest) {
  TypeParam store;
  ASSERT_TRUE(Open(store, TreeOptions()));
  PutAll(store, {0, 1, 2});
  auto& index = MapDBTestAccess::Index(store);
  const auto* entries = MapDBTestAccess::Entries(store);
  EXPECT_TRUE(index.MarkKeyAsDeleted(index.GetLocationOfIndex(TestFixture::kKeys[0], entries)));
  for (int turn = 0; turn < 2; ++turn) {
    EXPECT_EQ(Get(store, TestFixture::kKeys[0]), std::nullopt);
    EXPECT_EQ(Get(store, TestFixture::kKeys[1]), "1");
    EXPECT_EQ(Get(store, TestFixture::kKeys[2]), "2");
    EXPECT_TRUE(index.CompactDeleted());
  }
  EXPECT_EQ(store.GetCount(), 3U) << "the store's own entry stays";
  LogCapture log;
  EXPECT_FALSE(Put(store, TestFixture::kKeys[3], "3")) << "the oldest is not in the index any more";
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.TreeKeyAbsent", "3 velmar.StoreOldestNotRecycled"}));
  EXPECT_TRUE(store.Delete(TestFixture::kKeys[0], false));
  EXPECT_EQ(store.GetCount(), 3U);
  EXPECT_TRUE(store.Clear());
  PutAll(store, {3, 0});
  ExpectOnly(store, {3, 0});
}

TYPED_TEST(MapDBTree, EachModuleRequestFailsOnceAndLeavesTheStoreAsItWas) {
  TestAllocator memory;
  u32 failures = 0;
  for (u64 n = 0; n == failures; ++n) {
    SCOPED_TRACE("request " + std::to_string(n));
    const u64 first = memory.requests;
    memory.FailRequest(n);
    TypeParam store;
    Options options = TreeOptions();
    options.initial = 1;
    options.maximum = 4;
    LogCapture log;
    if (!Open(store, options)) {
      ASSERT_TRUE(Open(store, options)) << "memory is there again";
    }
    std::vector<u32> present;
    for (u32 number = 0; number < 5; ++number) {
      if (!Put(store, TestFixture::kKeys[number], std::to_string(number))) {
        ExpectOnly(store, present);
        ASSERT_TRUE(Put(store, TestFixture::kKeys[number], std::to_string(number)));
      }
      present.push_back(number);
      if (present.size() > 4) {
        present.erase(present.begin());
      }
      ExpectOnly(store, present);
    }
    const bool reached = memory.requests - first > n;
    failures += reached ? 1 : 0;
    EXPECT_EQ(log.CountLevel(5) > 0, reached);
    store.Uninit();
    EXPECT_EQ(memory.live, 0);
  }
  EXPECT_GT(failures, 10U);
}

}  // namespace
