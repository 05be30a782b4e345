// The index that is a tree.
#include "Velmar/Utils/RBTSearch.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "tests/velmarlib/store/RedBlackTreeCheck.h"
#include "tests/velmarlib/store/SearchTest.h"

namespace {

using namespace SearchTest;
using Collections::TreeSide::kLeft;
using Collections::TreeSide::kRight;
using TreeCheck::KeysInOrder;
using TreeCheck::NodesInOrder;
using TreeCheck::State;
using Types::UInt128;
using NumberSearch = Utils::RBTSearch<u32>;
using Place = std::pair<u32, u32>;
using Texts = std::vector<std::string>;

template <class Search>
const TreeCheck::Tree& TreeOf(const Search& search) {
  return SearchTestAccess::Tree(search);
}

TEST(RBTSearch, EmptyIndexHasNothingAndTakesARoot) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(4, 4, nullptr));
  EXPECT_EQ(search.GetLocation(5, nullptr), kNone);
  EXPECT_EQ(SearchTestAccess::Place(search).first, kNone);
  EXPECT_TRUE(search.InsertNewElement(7));
  EXPECT_EQ(KeysInOrder(TreeOf(search)), Locations{7});
  EXPECT_EQ(TreeOf(search).nodes.data[0].data, char{0});
}

TEST(RBTSearch, IndexWithoutInitServesByTheTreesOwnMeans) {
  NumberSearch search;
  EXPECT_EQ(search.GetLocation(5, nullptr), kNone);
  EXPECT_TRUE(search.InsertNewElement(7));
  EXPECT_EQ(TreeOf(search).nodes.maxCapacity, 100000U);
}

TEST(RBTSearch, MissLeavesTheNodeAndTheSideForTheNewKey) {
  auto entries = Entries<u32, u32>({20, 10, 30, 0});
  for (const auto& [key, place] :
       std::map<u32, Place>{{5, {1, kLeft}}, {15, {1, kRight}}, {25, {2, kLeft}}, {35, {2, kRight}}}) {
    NumberSearch search;
    ASSERT_TRUE(search.Init(4, 4, nullptr));
    for (u32 i = 0; i < 3; ++i) {
      ASSERT_EQ(search.GetLocation(entries[i].key, entries.data()), kNone);
      ASSERT_TRUE(search.InsertNewElement(i));
    }
    ASSERT_EQ(search.GetLocation(key, entries.data()), kNone);
    EXPECT_EQ(SearchTestAccess::Place(search), place) << key;
    EXPECT_TRUE(search.InsertNewElement(3)) << "which sees no key";
    EXPECT_EQ(TreeOf(search).nodes.data[3].parent, place.first);
    entries[3].key = key;
    EXPECT_EQ(search.GetLocation(key, entries.data()), 3U);
    NodesInOrder(TreeOf(search));
  }
}

TEST(RBTSearch, NothingCanBeInsertedAfterAHit) {
  const auto entries = Entries<u32, u32>({20, 10});
  NumberSearch search;
  ASSERT_TRUE(search.Init(4, 4, nullptr));
  InsertAll(search, entries);
  const std::string before = State(TreeOf(search));
  LogCapture log;
  EXPECT_EQ(search.GetLocation(10, entries.data()), 1U);
  EXPECT_FALSE(search.InsertNewElement(2));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.TreePlaceTaken"});
  EXPECT_EQ(search.GetLocation(20, entries.data()), 0U);
  EXPECT_FALSE(search.InsertNewElement(2)) << "nor at the root";
  EXPECT_EQ(log.Lines().size(), 1U);
  EXPECT_EQ(State(TreeOf(search)), before);
}

TEST(RBTSearch, IndexOfAKeyIsItsTreeNode) {
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  for (const u32 location : {2U, 0U, 1U}) {
    ASSERT_EQ(search.GetLocation(entries[location].key, entries.data()), kNone);
    ASSERT_TRUE(search.InsertNewElement(location));
  }
  EXPECT_EQ(search.GetLocationOfIndex(30, entries.data()), 0U);
  EXPECT_EQ(search.GetLocationOfIndex(10, entries.data()), 1U);
  EXPECT_EQ(search.GetLocationOfIndex(20, entries.data()), 2U);
}

TEST(RBTSearch, AbsentKeyHasNoIndexAndThatIsAnError) {
  const auto entries = Entries<u32, u32>({20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 1, nullptr));
  LogCapture log;
  EXPECT_EQ(search.GetLocationOfIndex(10, entries.data()), kNone) << "in an empty index";
  InsertAll(search, entries);
  EXPECT_EQ(search.GetLocationOfIndex(20, entries.data()), 0U);
  EXPECT_EQ(search.GetLocationOfIndex(10, entries.data()), kNone);
  search.Clear();
  EXPECT_EQ(search.GetLocationOfIndex(20, entries.data()), kNone) << "in a cleared index";
  EXPECT_EQ(log.Lines(), Lines(3, "5 velmar.IndexKeyAbsent"));
}

TEST(RBTSearch, DeleteReportsTheLocation) {
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  u32 location = kNone;
  bool notFound = true;
  LogCapture log;
  EXPECT_TRUE(search.Delete(20, entries.data(), location, notFound));
  EXPECT_EQ(location, 1U);
  EXPECT_FALSE(notFound);
  EXPECT_EQ(KeysInOrder(TreeOf(search)), (Locations{0, 2}));
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(RBTSearch, DeleteOfAnAbsentKeyIsAnErrorThatChangesNothing) {
  const auto entries = Entries<u32, u32>({10, 20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  const std::string before = State(TreeOf(search));
  LogCapture log;
  u32 location = 77;
  bool notFound = false;
  EXPECT_FALSE(search.Delete(15, entries.data(), location, notFound));
  EXPECT_TRUE(notFound);
  EXPECT_EQ(location, 77U);
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexKeyAbsent"});
  EXPECT_EQ(log.Arguments("velmar.IndexKeyAbsent"), Texts{"2"});
  EXPECT_EQ(State(TreeOf(search)), before);
}

TEST(RBTSearch, WideKeysSortByTheFirstWordThenTheSecond) {
  const auto entries = Entries<UInt128, UInt128>({{{1, 5}}, {{1, 3}}, {{0, 9}}, {{2, 0}}, {{1, 4}}});
  Utils::RBTSearch<UInt128> search;
  ASSERT_TRUE(search.Init(5, 5, nullptr));
  InsertAll(search, entries);
  EXPECT_EQ(KeysInOrder(TreeOf(search)), (Locations{2, 1, 4, 0, 3}));
  EXPECT_EQ(search.GetLocation(UInt128{{1, 4}}, entries.data()), 4U);
}

TEST(RBTSearch, TextsCompareAsTheContextSays) {
  auto entries = Entries<const char*, const char*>({"b", "A"});
  for (const u8 ignoreCase : {u8{0}, u8{1}}) {
    Utils::RBTSearch<const char*> search;
    ASSERT_TRUE(search.Init(2, 2, &ignoreCase));
    InsertAll(search, entries);
    EXPECT_EQ(search.GetLocation("a", entries.data()), ignoreCase != 0 ? 1U : kNone);
    u32 location = kNone;
    bool notFound = false;
    EXPECT_EQ(search.Delete("B", entries.data(), location, notFound), ignoreCase != 0);
  }
}

TEST(RBTSearch, CompactingAndGrowingHaveNothingToDo) {
  TestAllocator memory;
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 9, nullptr));
  InsertAll(search, entries);
  ASSERT_TRUE(search.MarkKeyAsDeleted(1));
  const std::string before = State(TreeOf(search));
  const auto requests = memory.requests.load();
  EXPECT_TRUE(search.CompactDeleted());
  EXPECT_TRUE(search.Grow(9, 9));
  EXPECT_EQ(State(TreeOf(search)), before);
  EXPECT_EQ(memory.requests, requests);
  search.Destroy();
}

TEST(RBTSearch, MarkingErasesAndLeavesTheOtherPositions) {
  const auto entries = Entries<u32, u32>({10, 20, 30, 40, 50, 60, 70});
  for (u32 marked = 0; marked < 7; ++marked) {
    NumberSearch search;
    ASSERT_TRUE(search.Init(7, 7, nullptr));
    InsertAll(search, entries);
    LogCapture log;
    EXPECT_TRUE(search.MarkKeyAsDeleted(search.GetLocationOfIndex(entries[marked].key, entries.data())));
    EXPECT_EQ(log.Lines(), Lines{});
    for (u32 i = 0; i < 7; ++i) {
      EXPECT_EQ(search.GetLocation(entries[i].key, entries.data()), i == marked ? kNone : i);
      if (i != marked) {
        EXPECT_EQ(search.GetLocationOfIndex(entries[i].key, entries.data()), i);
      }
    }
    EXPECT_EQ(NodesInOrder(TreeOf(search)).size(), 6U);
  }
}

TEST(RBTSearch, MarkOfAPositionThatIsNoNodeIsAnErrorWithThePosition) {
  const auto entries = Entries<u32, u32>({10, 20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  ASSERT_TRUE(search.MarkKeyAsDeleted(1));
  const std::string before = State(TreeOf(search));
  for (const u32 position : {1U, 2U, kNone}) {
    LogCapture log;
    EXPECT_FALSE(search.MarkKeyAsDeleted(position));
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.TreeNodeAbsent", "5 velmar.IndexPositionOutOfRange"}));
    EXPECT_EQ(log.Arguments("velmar.IndexPositionOutOfRange"), Texts{std::to_string(position)});
  }
  EXPECT_EQ(State(TreeOf(search)), before);
}

// Each entry recycled for each new key of an index of `size` keys 10, 20, …. Whether the place found at first was no
// longer that of the new key when the old one was gone.
void RecycleEach(u32 size, u32& movedPlaces) {
  for (u32 recycled = 0; recycled < size; ++recycled) {
    for (u32 newKey = 5; newKey <= size * 10 + 5; newKey += 10) {
      TestAllocator memory;
      std::vector<u32> keys;
      for (u32 i = 1; i <= size; ++i) {
        keys.push_back(i * 10);
      }
      auto entries = Entries<u32, u32>(keys);
      NumberSearch search;
      ASSERT_TRUE(search.Init(size, size, nullptr));
      InsertAll(search, entries);
      const auto requests = memory.requests.load();
      ASSERT_EQ(search.GetLocation(newKey, entries.data()), kNone);
      const Place before = SearchTestAccess::Place(search);
      ASSERT_TRUE(search.OverwriteOldElement(recycled, entries.data()));
      movedPlaces += SearchTestAccess::Place(search) != before ? 1 : 0;
      entries[recycled].key = newKey;
      for (u32 i = 0; i < size; ++i) {
        ASSERT_EQ(search.GetLocation(entries[i].key, entries.data()), i);
      }
      ASSERT_EQ(search.GetLocation(keys[recycled], entries.data()), kNone);
      ASSERT_EQ(NodesInOrder(TreeOf(search)).size(), size);
      ASSERT_EQ(TreeOf(search).nodes.count, size) << "the erased node serves again";
      ASSERT_EQ(memory.requests, requests);
      search.Destroy();
    }
  }
}

TEST(RBTSearch, RecyclingLooksUpThePlaceOfTheNewKeyAgain) {
  u32 movedPlaces = 0;
  for (u32 size = 1; size <= 16; ++size) {
    RecycleEach(size, movedPlaces);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(movedPlaces, 100U);
}

TEST(RBTSearch, RecyclingForTheSameKeyKeepsIt) {
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(20, entries.data()), 1U);
  EXPECT_TRUE(search.OverwriteOldElement(1, entries.data()));
  EXPECT_EQ(KeysInOrder(TreeOf(search)), (Locations{0, 1, 2}));
}

TEST(RBTSearch, RecyclingWithoutALocationIsAnError) {
  const auto entries = Entries<u32, u32>({10, 20});
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 2, nullptr));
  InsertAll(search, entries);
  const std::string before = State(TreeOf(search));
  ASSERT_EQ(search.GetLocation(15, entries.data()), kNone);
  LogCapture log;
  EXPECT_FALSE(search.OverwriteOldElement(kNone, entries.data()));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexPositionOutOfRange"});
  EXPECT_EQ(State(TreeOf(search)), before);
}

TEST(RBTSearch, RecyclingAnEntryThatIsNotInTheIndexFailsWithNothingChanged) {
  const auto entries = Entries<u32, u32>({10, 20, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  ASSERT_TRUE(search.MarkKeyAsDeleted(2));
  const std::string before = State(TreeOf(search));
  ASSERT_EQ(search.GetLocation(15, entries.data()), kNone);
  LogCapture log;
  EXPECT_FALSE(search.OverwriteOldElement(2, entries.data()));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.TreeKeyAbsent"});
  EXPECT_EQ(State(TreeOf(search)), before);
  EXPECT_TRUE(search.InsertNewElement(2)) << "the place is still known";
}

TEST(RBTSearch, ArrayStartsAndGrowsByWhatTheStoreMayHold) {
  for (const auto& [initial, maximum, step] :
       {std::tuple{10U, 60U, 11U}, {0U, 1U, 1U}, {0U, 4U, 1U}, {0U, 5U, 2U}, {7U, 7U, 1U}}) {
    NumberSearch search;
    ASSERT_TRUE(search.Init(initial, maximum, nullptr));
    const TreeCheck::Tree& tree = TreeOf(search);
    EXPECT_EQ(search.GetMemoryUsage(), initial * 28 + 120);
    EXPECT_EQ(tree.nodes.maxCapacity, maximum);
    EXPECT_EQ(tree.nodes.flagWord, Collections::ArrayFlags::kHeap | step) << "a fixed step";
    EXPECT_TRUE(tree.initialised);
    EXPECT_EQ(tree.mutex, nullptr);
    EXPECT_EQ(tree.nodes.mutex, nullptr);
  }
}

TEST(RBTSearch, MemoryUsageFollowsTheArray) {
  std::vector<u32> keys(30);
  for (u32 i = 0; i < 30; ++i) {
    keys[i] = i * 7 % 30;
  }
  const auto entries = Entries<u32, u32>(keys);
  NumberSearch search;
  ASSERT_TRUE(search.Init(2, 30, nullptr));
  for (u32 i = 0; i < 30; ++i) {
    ASSERT_EQ(search.GetLocation(keys[i], entries.data()), kNone);
    ASSERT_TRUE(search.InsertNewElement(i));
    const u32 steps = i < 2 ? 0 : (i - 2) / 6 + 1;
    EXPECT_EQ(search.GetMemoryUsage(), std::min(2 + steps * 6, 30U) * 28 + 120);
  }
}

TEST(RBTSearch, StepIsCutToWhatAGrowthWordHolds) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(0, 5 * (Collections::ArrayFlags::kGrowthMask + 1), nullptr));
  EXPECT_EQ(TreeOf(search).nodes.flagWord, Collections::ArrayFlags::kHeap | Collections::ArrayFlags::kGrowthMask);
}

TEST(RBTSearch, FailedSetUpIsAnError) {
  TestAllocator memory;
  NumberSearch search;
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(search.Init(4, 9, nullptr));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 velmar.IndexTreeNotSetUp"}));
  EXPECT_EQ(log.Arguments("velmar.IndexTreeNotSetUp"), (Texts{"4", "9"}));
  log.Clear();
  EXPECT_FALSE(search.Init(5, 4, nullptr));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCapacityAboveCeiling", "5 velmar.IndexTreeNotSetUp"}));
  EXPECT_EQ(memory.live, 0);
}

TEST(RBTSearch, EachAllocationOfGrowthFailsOnceAndTheSameInsertionThenSucceeds) {
  TestAllocator memory;
  std::vector<u32> keys(40);
  for (u32 i = 0; i < 40; ++i) {
    keys[i] = i * 11 % 40;
  }
  const auto entries = Entries<u32, u32>(keys);
  u32 failures = 0;
  for (u64 n = 0; n == failures; ++n) {
    NumberSearch search;
    ASSERT_TRUE(search.Init(0, 40, nullptr));
    memory.FailRequest(n);
    for (u32 i = 0; i < 40; ++i) {
      ASSERT_EQ(search.GetLocation(keys[i], entries.data()), kNone);
      const std::string before = State(TreeOf(search));
      LogCapture log;
      if (!search.InsertNewElement(i)) {
        ++failures;
        EXPECT_EQ(log.Lines(), Lines{"5 velmar.ArrayNoMemory"});
        EXPECT_EQ(State(TreeOf(search)), before);
        ASSERT_TRUE(search.InsertNewElement(i)) << "the place is still known";
      }
    }
    EXPECT_EQ(NodesInOrder(TreeOf(search)).size(), 40U);
    search.Destroy();
    EXPECT_EQ(memory.live, 0);
  }
  EXPECT_EQ(failures, 5U) << "one for each step of nine";
}

TEST(RBTSearch, ClearKeepsTheAllocationAndDestroyFreesIt) {
  TestAllocator memory;
  const auto entries = Entries<u32, u32>({20, 10, 30});
  NumberSearch search;
  ASSERT_TRUE(search.Init(3, 3, nullptr));
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(15, entries.data()), kNone);
  search.Clear();
  EXPECT_EQ(SearchTestAccess::Place(search).first, kNone);
  EXPECT_EQ(TreeOf(search).count, 0U);
  EXPECT_EQ(search.GetLocation(20, entries.data()), kNone);
  EXPECT_EQ(search.GetMemoryUsage(), 3U * 28 + 120);
  InsertAll(search, entries);
  EXPECT_EQ(KeysInOrder(TreeOf(search)), (Locations{1, 0, 2}));
  search.Destroy();
  EXPECT_EQ(search.GetMemoryUsage(), 120U);
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(search.GetLocation(20, entries.data()), kNone);
}

// Key number n of each type.
template <class K>
K MakeKey(u32 number);
template <>
u32 MakeKey(u32 number) {
  return number * 2654435761U;
}
template <>
UInt128 MakeKey(u32 number) {
  return {{number % 3, number / 3 * 0x9E3779B97F4A7C15U}};
}
template <>
const char* MakeKey(u32 number) {
  static std::map<u32, std::string> texts;
  return (texts[number] = std::to_string(number) + std::string(number % 5, 'x')).c_str();
}

// A store's part and a plain map against the index, with all that must hold of the tree looked at after each step.
template <class K>
class RandomRun {
 public:
  explicit RandomRun(u64 seed) : random_(seed), entries_(kLocations) {
    for (u32 i = 0; i < kLocations; ++i) {
      unused_.push_back(i);
    }
  }

  void Run() {
    ASSERT_TRUE(search_.Init(2, kLocations, &exactly_));
    for (int step = 0; step < 4000 && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      Step();
      Compare();
    }
  }

 private:
  static constexpr u32 kLocations = 48;

  void Step() {
    const auto number = static_cast<u32>(random_() % 80);
    const K key = MakeKey<K>(number);
    const auto found = model_.find(number);
    const u32 expected = found == model_.end() ? kNone : found->second;
    const u32 action = static_cast<u32>(random_() % 100);
    if (action < 60) {
      ASSERT_EQ(search_.GetLocation(key, entries_.data()), expected);
      if (expected == kNone) {
        Take(number, key);
      }
    } else if (action < 85) {
      u32 location = kNone;
      bool notFound = false;
      EXPECT_EQ(search_.Delete(key, entries_.data(), location, notFound), expected != kNone);
      EXPECT_EQ(notFound, expected == kNone);
      EXPECT_EQ(location, expected);
      Release(number);
    } else if (action < 99) {
      const u32 node = search_.GetLocationOfIndex(key, entries_.data());
      EXPECT_EQ(search_.MarkKeyAsDeleted(node), expected != kNone);
      Release(number);
    } else {
      search_.Clear();
      while (!model_.empty()) {
        Release(model_.begin()->first);
      }
    }
  }

  // The key of the last lookup gets an unused location or, when there is none, that of some other key.
  void Take(u32 number, const K& key) {
    u32 location = kNone;
    if (unused_.empty()) {
      const auto recycled = std::next(model_.begin(), static_cast<i64>(random_() % model_.size()));
      location = recycled->second;
      EXPECT_TRUE(search_.OverwriteOldElement(location, entries_.data()));
      model_.erase(recycled);
    } else {
      location = unused_.back();
      unused_.pop_back();
      EXPECT_TRUE(search_.InsertNewElement(location));
    }
    if constexpr (std::is_same_v<K, const char*>) {
      entries_[location].key = const_cast<char*>(key);
    } else {
      entries_[location].key = key;
    }
    model_[number] = location;
  }

  void Release(u32 number) {
    const auto released = model_.find(number);
    if (released != model_.end()) {
      unused_.push_back(released->second);
      model_.erase(released);
    }
  }

  void Compare() {
    const Locations order = KeysInOrder(TreeOf(search_));
    EXPECT_EQ(order.size(), model_.size());
    for (std::size_t i = 1; i < order.size(); ++i) {
      EXPECT_LT(Collections::DB::KeyTraits<K>::Compare(entries_[order[i - 1]].key, entries_[order[i]].key, &exactly_),
                0);
    }
    for (const auto& [number, location] : model_) {
      EXPECT_NE(std::find(order.begin(), order.end(), location), order.end());
    }
  }

  std::mt19937_64 random_;
  std::vector<typename Collections::DB::KeyTraits<K>::Node> entries_;
  std::vector<u32> unused_;
  std::map<u32, u32> model_;  // key number to location
  const u8 exactly_ = 0;
  Utils::RBTSearch<K> search_;
};

template <class K>
void RunSeeds() {
  for (u64 seed = 1; seed <= 3; ++seed) {
    std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
    RandomRun<K>(seed).Run();
  }
}

TEST(RBTSearch, RandomRunOnNumbers) {
  RunSeeds<u32>();
}

TEST(RBTSearch, RandomRunOnWideKeys) {
  RunSeeds<UInt128>();
}

TEST(RBTSearch, RandomRunOnTexts) {
  RunSeeds<const char*>();
}

}  // namespace
