// Each allocation of a growing store and of its index, of whatever kind, fails once: the store stays as it was.
#include <string>

#include "Velmar/Utils/SignedFnv1a.h"
#include "tests/velmarlib/store/IndexCheck.h"
#include "tests/velmarlib/store/StoreModel.h"

namespace {

using namespace StoreTest;

constexpr u32 kKinds[] = {StoreFlags::kBinarySearch, StoreFlags::kIndexSearch, StoreFlags::kLinearSearch,
                          StoreFlags::kRBTSearch, StoreFlags::kHashMapSearch};

template <class Maker>
class MapDBGrowthMemory : public testing::Test {
 protected:
  using Store = typename Maker::Store;
  static constexpr bool kHasTexts = std::is_same_v<decltype(Maker::Make(0)), const char*>;
  static constexpr u32 kMaximum = 24;

  template <class Body>
  static void ForEachKind(Body body) {
    for (const u32 kind : kKinds) {
      if (!kHasTexts || (kind != StoreFlags::kIndexSearch && kind != StoreFlags::kHashMapSearch)) {
        SCOPED_TRACE("kind " + std::to_string(kind));
        body(kind);
      }
    }
  }

  static Options OptionsOf(u32 kind, u32 initial) {
    Options options;
    options.flags = kind | StoreFlags::kNoSaveOnClose;
    options.initial = initial;
    options.maximum = kMaximum;
    options.growth = 5;
    return options;
  }

  // Numbers whose keys meet in one slot of the smallest table where the kind hashes; else the first ones.
  static std::vector<u32> Numbers(u32 kind, u32 number) {
    std::vector<u32> numbers;
    for (u32 i = 0; numbers.size() < number; ++i) {
      if constexpr (!kHasTexts) {
        const auto key = Maker::Make(i);
        if (kind == StoreFlags::kHashMapSearch && Utils::SignedFnv1a(&key, sizeof(key)) % 53 != 0) {
          continue;
        }
      }
      numbers.push_back(i);
    }
    return numbers;
  }

  // 0 in other kinds.
  static u32 HashTableSize(Store& store) {
    if constexpr (!kHasTexts) {
      using Search = Utils::HashMapSearch<std::decay_t<decltype(Maker::Make(0))>>;
      if (const auto* hashed = dynamic_cast<Search*>(&MapDBTestAccess::Index(store))) {
        return HashMapTestAccess::Of(Utils::SearchTestAccess::Map(*hashed)).tableSize;
      }
    }
    return 0;
  }

  // Keys from the oldest on, each with its value, after a look at the whole structure.
  static Lines Content(Store& store) {
    IndexCheck::Check(store, kMaximum);
    const auto* entries = MapDBTestAccess::Entries(store);
    Lines content;
    for (const u32 location : IndexCheck::CheckChains(store)) {
      const auto& key = entries[location].key;
      std::string text;
      if constexpr (kHasTexts) {
        text = key;
      } else {
        text.assign(reinterpret_cast<const char*>(&key), sizeof(key));
      }
      content.push_back(text + "=" + Get(store, entries[location].key).value_or("absent"));
    }
    return content;
  }
};

using Makers = testing::Types<DenseNumbers, DenseWideNumbers, Texts, TextsOfTexts>;
TYPED_TEST_SUITE(MapDBGrowthMemory, Makers);

// With entries in use and a freed one that has its value slot, and with a store that has no room at all yet.
TYPED_TEST(MapDBGrowthMemory, EachAllocationOfAReserve) {
  this->ForEachKind([](u32 kind) {
    for (const u32 initial : {0U, 4U}) {
      const bool isTable = kind == StoreFlags::kIndexSearch;
      const bool indexGrows =
          isTable ? initial == 0 : (kind & (StoreFlags::kBinarySearch | StoreFlags::kLinearSearch)) != 0;
      const u64 requests = indexGrows ? 3 : 2;
      for (u64 n = 0; n <= requests; ++n) {
        SCOPED_TRACE(n);
        HashMapCheck::Memory memory;
        typename TypeParam::Store store;
        ASSERT_TRUE(Open(store, TestFixture::OptionsOf(kind, initial)));
        for (u32 number = 0; number < initial; ++number) {
          ASSERT_TRUE(Put(store, TypeParam::Make(number), "7"));
        }
        ASSERT_EQ(store.Delete(TypeParam::Make(1), true), initial != 0);
        const Lines before = TestFixture::Content(store);
        const std::size_t out = memory.Out();
        LogCapture log;
        memory.FailFrom(n);
        const bool done = store.Reserve(20, false);
        memory.FailFrom(HashMapCheck::Memory::kNever);
        EXPECT_EQ(done, n == requests);
        EXPECT_EQ(memory.Failures(), done ? 0U : 1U);
        if (!done) {
          EXPECT_EQ(log.Lines(), indexGrows && n == 0
                                     ? (Lines{"5 velmar.IndexAllocationFailed", "5 velmar.StoreIndexNotGrown"})
                                     : Lines{"5 velmar.StoreAllocationFailed"});
          EXPECT_EQ(MapDBTestAccess::Capacity(store), initial);
          EXPECT_EQ(TestFixture::Content(store), before);
          // Room that the index has got already is kept for the next attempt.
          EXPECT_EQ(memory.Out(), out + (indexGrows && n > 0 && initial == 0 ? 1 : 0));
          EXPECT_TRUE(store.Reserve(20, false));
        }
        EXPECT_EQ(MapDBTestAccess::Capacity(store), 20U);
        EXPECT_EQ(TestFixture::Content(store), before);
        EXPECT_TRUE(Put(store, TypeParam::Make(1), "8"));
        EXPECT_EQ(Get(store, TypeParam::Make(1)), "8");
      }
    }
  });
}

// From the first entry to recycling. In the hash index a bucket is widened and the table replaced on the way, in the
// tree its array grows.
TYPED_TEST(MapDBGrowthMemory, EachAllocationOnTheWayToAFullStoreAndBeyond) {
  this->ForEachKind([](u32 kind) {
    const u32 beyond = kind == StoreFlags::kIndexSearch ? 0 : 6;
    const std::vector<u32> numbers = TestFixture::Numbers(kind, TestFixture::kMaximum + beyond);
    u64 failures = 0;
    for (u64 n = 0; n == failures; ++n) {
      SCOPED_TRACE(n);
      HashMapCheck::Memory memory;
      typename TypeParam::Store store;
      ASSERT_TRUE(Open(store, TestFixture::OptionsOf(kind, 0)));
      memory.FailFrom(n);
      LogCapture log;
      u64 refused = 0;
      for (const u32 number : numbers) {
        const Lines before = store.GetCount() == 0 ? Lines{} : TestFixture::Content(store);
        const u32 tableSize = TestFixture::HashTableSize(store);
        const u32 usage = MapDBTestAccess::Index(store).GetMemoryUsage();
        if (!Put(store, TypeParam::Make(number), std::to_string(number))) {
          ++refused;
          EXPECT_EQ(log.Entries().back().level, 3);
          EXPECT_EQ(TestFixture::Content(store), before);
          // A hash table that was replaced stays so when it is the new node that finds no memory.
          if (TestFixture::HashTableSize(store) == tableSize && kind >= StoreFlags::kRBTSearch) {
            EXPECT_EQ(MapDBTestAccess::Index(store).GetMemoryUsage(), usage);
          }
          ASSERT_TRUE(Put(store, TypeParam::Make(number), std::to_string(number)));
        }
      }
      failures += memory.Failures();
      EXPECT_EQ(refused, memory.Failures());
      EXPECT_EQ(log.Entries().empty(), refused == 0);
      EXPECT_EQ(store.GetCount(), TestFixture::kMaximum);
      TestFixture::Content(store);
      if (kind == StoreFlags::kHashMapSearch) {
        EXPECT_GT(TestFixture::HashTableSize(store), 53U);
      }
      store.Uninit();
      EXPECT_EQ(memory.Out(), 0U);
    }
    EXPECT_GE(failures, kind == StoreFlags::kHashMapSearch ? 60U : 11U);
  });
}

}  // namespace
