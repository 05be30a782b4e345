// Stores whose index is the hash map.
#include <cstring>

#include "tests/velmarlib/store/HashMapCheck.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;

struct NumberKeys {
  using Store = NumberStore;
  // Bytes of the same signs, so that no two keys have one hash.
  static u32 Make(u32 number) { return 0x81000000U | number / 128 << 8 | number % 128; }
};

struct WideKeys {
  using Store = WideStore;
  static Types::UInt128 Make(u32 number) { return {{number % 3, number / 3}}; }
};

template <class Keys>
class MapDBHashMap : public testing::Test {};
using KeyTypes = testing::Types<NumberKeys, WideKeys>;
TYPED_TEST_SUITE(MapDBHashMap, KeyTypes);

Options HashMapOptions(const char* path = nullptr) {
  Options options;
  options.path = path;
  options.flags = StoreFlags::kHashMapSearch | StoreFlags::kNoSaveOnClose;
  options.initial = 0;
  options.maximum = 300;
  options.growth = 7;
  return options;
}

TYPED_TEST(MapDBHashMap, EntriesAreAppliedDeletedAndCleared) {
  typename TypeParam::Store store;
  ASSERT_TRUE(Open(store, HashMapOptions()));
  for (u32 i = 0; i < 300; ++i) {
    ASSERT_TRUE(Put(store, TypeParam::Make(i), std::to_string(i)));
  }
  for (u32 i = 0; i < 300; i += 2) {
    ASSERT_TRUE(store.Delete(TypeParam::Make(i), true));
  }
  EXPECT_TRUE(store.Delete(TypeParam::Make(0), false));
  EXPECT_FALSE(store.Delete(TypeParam::Make(0), true));
  for (u32 i = 0; i < 300; ++i) {
    const auto expected = i % 2 == 0 ? std::nullopt : std::optional<std::string>(std::to_string(i));
    ASSERT_EQ(Get(store, TypeParam::Make(i)), expected);
  }
  EXPECT_EQ(KeysOf(store).size(), 150U);
  EXPECT_TRUE(store.Clear());
  EXPECT_EQ(Get(store, TypeParam::Make(1)), std::nullopt);
  EXPECT_TRUE(Put(store, TypeParam::Make(1), "9"));
  EXPECT_EQ(Get(store, TypeParam::Make(1)), "9");
}

TYPED_TEST(MapDBHashMap, FullStoreRecyclesItsOldestEntry) {
  for (const u32 more : {0U, StoreFlags::kMoveToTailOnAccess}) {
    typename TypeParam::Store store;
    Options options = HashMapOptions();
    options.maximum = 3;
    options.flags |= more;
    ASSERT_TRUE(Open(store, options));
    for (u32 i = 0; i < 3; ++i) {
      ASSERT_TRUE(Put(store, TypeParam::Make(i), "1"));
    }
    EXPECT_EQ(Get(store, TypeParam::Make(0)), "1");
    EXPECT_TRUE(Put(store, TypeParam::Make(3), "4"));
    const u32 gone = more == 0 ? 0 : 1;
    EXPECT_EQ(Get(store, TypeParam::Make(gone)), std::nullopt);
    EXPECT_EQ(Get(store, TypeParam::Make(1 - gone)), "1");
    EXPECT_EQ(Get(store, TypeParam::Make(3)), "4");
    EXPECT_EQ(KeysOf(store).size(), 3U);
  }
}

TYPED_TEST(MapDBHashMap, SavedStoreIsLoadedByThisAndAnyOtherKind) {
  MakeFolder();
  typename TypeParam::Store store;
  ASSERT_TRUE(Open(store, HashMapOptions(kPath)));
  for (u32 i = 0; i < 100; ++i) {
    ASSERT_TRUE(Put(store, TypeParam::Make(i), std::to_string(i)));
  }
  ASSERT_TRUE(store.Save());
  for (const u32 kind : {StoreFlags::kHashMapSearch, StoreFlags::kBinarySearch}) {
    typename TypeParam::Store loaded;
    Options options = HashMapOptions(kPath);
    options.flags = kind | StoreFlags::kNoSaveOnClose;
    ASSERT_TRUE(Open(loaded, options));
    EXPECT_EQ(KeysOf(loaded), KeysOf(store));
    EXPECT_EQ(Get(loaded, TypeParam::Make(99)), "99");
  }
}

TYPED_TEST(MapDBHashMap, EachAllocationOfAnInsertionMayFail) {
  for (u64 n = 0;; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    HashMapCheck::Memory memory;
    typename TypeParam::Store store;
    Options options = HashMapOptions();
    options.maximum = 40;
    ASSERT_TRUE(Open(store, options));
    memory.FailFrom(n);
    u32 refused = 0;
    for (u32 i = 0; i < 60; ++i) {
      refused += Put(store, TypeParam::Make(i), "1") ? 0 : 1;
      ASSERT_EQ(KeysOf(store).size(), store.GetCount());
    }
    EXPECT_EQ(store.GetCount(), 40U);
    EXPECT_EQ(refused, memory.Failures());
    if (memory.Failures() == 0) {
      EXPECT_GT(n, 100U);
      break;
    }
  }
}

TYPED_TEST(MapDBHashMap, CapacityAboveTheLargestTableIsRefused) {
  typename TypeParam::Store store;
  Options options = HashMapOptions();
  options.initial = 18049698;
  options.maximum = options.initial;
  LogCapture log;
  EXPECT_FALSE(Open(store, options));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.IndexCapacityTooLarge", "5 velmar.StoreIndexInitFailed"}));
  EXPECT_FALSE(store.IsInitialised());
}

// Two wide keys with one hash.
class MapDBHashMapTwins : public testing::Test {
 protected:
  MapDBHashMapTwins() {
    std::memcpy(&twin, "\x20\x03\x3f\x6e\x39\x3d\x60\x09\x0c\x3e\x03\x7e\x31\x1b\x5c\x00", 16);
    std::memcpy(&otherTwin, "\x26\x01\x6c\x7e\x60\x42\x23\x0f\x0c\x08\x08\x17\x75\x33\x7b\x05", 16);
  }

  Types::UInt128 twin;
  Types::UInt128 otherTwin;
};

TEST_F(MapDBHashMapTwins, KeyWithTheHashOfAnotherReachesItsEntry) {
  WideStore store;
  ASSERT_TRUE(Open(store, HashMapOptions()));
  EXPECT_TRUE(Put(store, twin, "1"));
  EXPECT_EQ(Get(store, otherTwin), "1");
  EXPECT_EQ(store.GetCount(), 1U);
}

// A kind that compares keys has stored them both.
TEST_F(MapDBHashMapTwins, FileThatHasBothIsNotLoaded) {
  MakeFolder();
  Options options = HashMapOptions(kPath);
  options.flags = StoreFlags::kBinarySearch | StoreFlags::kNoSaveOnClose;
  WideStore store;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, twin, "1"));
  ASSERT_TRUE(Put(store, otherTwin, "2"));
  ASSERT_TRUE(store.Save());
  WideStore refused;
  LogCapture log;
  EXPECT_FALSE(Open(refused, HashMapOptions(kPath)));
  EXPECT_EQ(log.Lines(3),
            (Lines{"3 velmar.StoreKeyStandsTwice", "5 velmar.StoreNotLoaded", "3 velmar.StoreInitLoadFailed"}));
  WideStore cleared;
  options.flags = StoreFlags::kHashMapSearch | StoreFlags::kNoSaveOnClose | StoreFlags::kClearOnLoadFailure;
  EXPECT_TRUE(Open(cleared, options));
  EXPECT_EQ(cleared.GetCount(), 0U);
}

}  // namespace
