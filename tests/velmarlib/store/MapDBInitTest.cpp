// Setting a store up and giving it up.
#include <string>

#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;

// What Init logs when it refuses `options`.
template <class Store = TextStore>
Lines RefusalOf(const Options& options) {
  LogCapture log;
  Store store;
  EXPECT_FALSE(Open(store, options));
  EXPECT_FALSE(store.IsInitialised());
  EXPECT_STREQ(store.GetPath(), "");
  return log.Lines();
}

TEST(MapDBInit, NewStoreIsNotInitialised) {
  TextStore store;
  EXPECT_FALSE(store.IsInitialised());
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_EQ(store.keyCompareFlag, 1);
}

TEST(MapDBInit, SucceedsWithoutARecord) {
  LogCapture log;
  TextStore store;
  EXPECT_TRUE(Open(store));
  EXPECT_TRUE(store.IsInitialised());
  EXPECT_EQ(MapDBTestAccess::Capacity(store), 2U);
  EXPECT_FALSE(MapDBTestAccess::HasMutex(store));
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST(MapDBInit, SecondInitIsRefusedWithoutARecordAndChangesNothing) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  LogCapture log;
  Options other = AtPath();
  other.growth = 0;
  EXPECT_FALSE(Open(store, other));
  EXPECT_EQ(log.Lines(1), Lines{});
  EXPECT_EQ(Get(store, "a"), "1");
  EXPECT_STREQ(store.GetPath(), "");
}

TEST(MapDBInit, GrowthOfZeroIsRefused) {
  Options options;
  options.growth = 0;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreGrowthIsZero"});
}

TEST(MapDBInit, InitialCapacityAboveTheMaximumIsRefusedWithBoth) {
  LogCapture log;
  TextStore store;
  Options options;
  options.initial = 4;
  EXPECT_FALSE(Open(store, options));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreInitialAboveMaximum"});
  EXPECT_EQ(log.Arguments("velmar.StoreInitialAboveMaximum"), (std::vector<std::string>{"4", "3"}));
}

TEST(MapDBInit, MaximumOfZeroIsRefused) {
  Options options;
  options.initial = 0;
  options.maximum = 0;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreMaximumIsZero"});
}

TEST(MapDBInit, ReservedOfZeroIsRefused) {
  Options options;
  options.reserved = 0;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreReservedIsZero"});
}

TEST(MapDBInit, CipherWithoutABinderIsRefused) {
  Options options;
  options.flags |= StoreFlags::kCipherRequired;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreBinderMissing"});
}

TEST(MapDBInit, ChecksStandInTheirOrder) {
  const std::string longPath(kMaxStorePath + 1, 'x');
  Options options;
  options.path = longPath.c_str();
  options.initial = 1;
  options.maximum = 0;
  options.growth = 0;
  options.reserved = 0;
  options.flags = StoreFlags::kCipherRequired;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreGrowthIsZero"});
  options.growth = 1;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreInitialAboveMaximum"});
  options.initial = 0;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreMaximumIsZero"});
  options.maximum = 1;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreReservedIsZero"});
  options.reserved = -1;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreBinderMissing"});
  options.flags = 0;
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StorePathTooLong"});
  options.path = nullptr;
  EXPECT_EQ(RefusalOf(options), Lines{"5 velmar.StoreIndexKindRefused"});
}

TEST(MapDBInit, PathOf190CharactersIsAccepted) {
  MakeFolder();
  const std::string path = "/data/" + std::string(kMaxStorePath - 6, 'x');
  LogCapture log;
  TextStore store;
  Options options;
  options.path = path.c_str();
  EXPECT_TRUE(Open(store, options));
  EXPECT_EQ(store.GetPath(), path);
  EXPECT_TRUE(store.Save());
  EXPECT_TRUE(FileIsThere(path.c_str()));
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST(MapDBInit, PathOf191CharactersIsRefusedWithItsLength) {
  const std::string path = "/data/" + std::string(kMaxStorePath - 5, 'x');
  LogCapture log;
  TextStore store;
  Options options;
  options.path = path.c_str();
  EXPECT_FALSE(Open(store, options));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StorePathTooLong"});
  EXPECT_EQ(log.Arguments("velmar.StorePathTooLong"), (std::vector<std::string>{path, "191"}));
}

TEST(MapDBInit, TextStoreRefusesKindsThatItDoesNotHave) {
  for (const u32 kind : {0U, 2U, 3U, 5U, 7U, 9U, 16U, 17U, 31U}) {
    LogCapture log;
    TextStore store;
    Options options;
    options.flags = kind;
    EXPECT_FALSE(Open(store, options)) << kind;
    EXPECT_EQ(log.Lines(), Lines{"5 velmar.StoreIndexKindRefused"}) << kind;
    EXPECT_EQ(log.Arguments("velmar.StoreIndexKindRefused"), std::vector<std::string>{std::to_string(kind)});
    EXPECT_FALSE(store.IsInitialised());
    options.flags = StoreFlags::kBinarySearch;
    EXPECT_TRUE(Open(store, options)) << "a refused store can be set up again";
  }
}

TEST(MapDBInit, NumberStoreRefusesKindsThatItDoesNotHave) {
  for (const u32 kind : {0U, 3U, 5U, 6U, 9U, 17U, 31U}) {
    Options options;
    options.flags = kind;
    EXPECT_EQ(RefusalOf<NumberStore>(options), Lines{"5 velmar.StoreIndexKindRefused"}) << kind;
    EXPECT_EQ(RefusalOf<WideStore>(options), Lines{"5 velmar.StoreIndexKindRefused"}) << kind;
  }
}

TEST(MapDBInit, EachKindServes) {
  for (const u32 kind : {StoreFlags::kBinarySearch, StoreFlags::kLinearSearch, StoreFlags::kRBTSearch}) {
    TextStore text;
    StringStore strings;
    Options options;
    options.flags = kind;
    ASSERT_TRUE(Open(text, options));
    EXPECT_TRUE(Put(text, "k", "v"));
    EXPECT_EQ(Get(text, "k"), "v");
    ASSERT_TRUE(Open(strings, options));
    EXPECT_TRUE(Put(strings, "k", "v"));
    EXPECT_EQ(Get(strings, "k"), "v");
  }
  for (const u32 kind : {StoreFlags::kBinarySearch, StoreFlags::kIndexSearch, StoreFlags::kLinearSearch,
                         StoreFlags::kRBTSearch, StoreFlags::kHashMapSearch}) {
    NumberStore numbers;
    WideStore wide;
    Options options;
    options.flags = kind;
    ASSERT_TRUE(Open(numbers, options));
    EXPECT_TRUE(Put(numbers, 2, "5"));
    EXPECT_EQ(Get(numbers, 2), "5");
    ASSERT_TRUE(Open(wide, options));
    EXPECT_TRUE(Put(wide, Types::UInt128{{0, 2}}, "5"));
    EXPECT_EQ(Get(wide, Types::UInt128{{0, 2}}), "5");
  }
}

TEST(MapDBInit, ThreadSafeStoreHasAMutexAndLosesItAtTheEnd) {
  TextStore store;
  Options options;
  options.flags |= StoreFlags::kThreadSafe;
  ASSERT_TRUE(Open(store, options));
  EXPECT_TRUE(MapDBTestAccess::HasMutex(store));
  store.Uninit();
  EXPECT_FALSE(MapDBTestAccess::HasMutex(store));
}

TEST(MapDBInit, MutexThatCannotBeMadeIsAWarningAndAFailure) {
  Options options;
  options.flags |= StoreFlags::kThreadSafe;
  Sim::FailMutexCreate(1);
  EXPECT_EQ(RefusalOf(options), Lines{"3 velmar.StoreMutexFailed"});
}

TEST(MapDBInit, FailedAllocationsOfIndexAndPoolsAreErrors) {
  TestAllocator memory;
  const auto refusal = [&memory](u64 request) {
    memory.FailRequest(request);
    return RefusalOf(Options());
  };
  EXPECT_EQ(refusal(0), Lines{"5 velmar.StoreIndexInitFailed"});
  EXPECT_EQ(refusal(1), (Lines{"5 velmar.IndexAllocationFailed", "5 velmar.StoreIndexInitFailed"}));
  EXPECT_EQ(refusal(2), Lines{"5 velmar.StoreAllocationFailed"});
  EXPECT_EQ(refusal(3), Lines{"5 velmar.StoreAllocationFailed"});
  EXPECT_EQ(memory.live, 0);
  LogCapture log;
  TextStore store;
  memory.FailRequest(4);
  EXPECT_TRUE(Open(store)) << "four allocations are all";
}

TEST(MapDBInit, PoolsPast32BitsAreRefusedAsMemory) {
  LogCapture log;
  NumberStore store;
  Options options;
  options.flags = StoreFlags::kLinearSearch;
  options.initial = 0;
  options.maximum = 0xFFFFFFF0U;
  ASSERT_TRUE(Open(store, options));
  TestAllocator memory;
  EXPECT_FALSE(store.Reserve(0x0AAAAAABU, false)) << "24 bytes each pass 32 bits";
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.StoreAllocationFailed"});
  store.Uninit();
}

TEST(MapDBInit, NoLoadOnInitLeavesTheFileAlone) {
  MakeFolder();
  {
    TextStore store;
    ASSERT_TRUE(Open(store, AtPath()));
    ASSERT_TRUE(Put(store, "a", "1"));
  }
  TextStore store;
  ASSERT_TRUE(Open(store, AtPath(StoreFlags::kNoLoadOnInit | StoreFlags::kNoSaveOnClose)));
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_TRUE(store.Load());
  EXPECT_EQ(store.GetCount(), 1U);
}

TEST(MapDBInit, UninitMakesRoomForAnotherInit) {
  MakeFolder();
  TextStore store;
  ASSERT_TRUE(Open(store, AtPath(StoreFlags::kMoveToTailOnAccess)));
  ASSERT_TRUE(Put(store, "a", "1"));
  store.Uninit();
  EXPECT_FALSE(store.IsInitialised());
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_STREQ(store.GetPath(), "");
  EXPECT_FALSE(FileIsThere(kPath)) << "Uninit does not save";
  ASSERT_TRUE(Open(store));
  EXPECT_EQ(Get(store, "a"), std::nullopt);
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(Put(store, "b", "2"));
  ASSERT_TRUE(Get(store, "a"));
  EXPECT_EQ(KeysOf(store), (std::vector<std::string>{"a", "b"}));
}

TEST(MapDBInit, UninitFreesEverything) {
  TestAllocator memory;
  TextStore store;
  ASSERT_TRUE(Open(store));
  for (const char* key : {"a", "b", "c", "d"}) {
    ASSERT_TRUE(Put(store, key, std::string(1000, 'v')));
  }
  ASSERT_TRUE(store.Delete("d", true));
  store.Uninit();
  EXPECT_EQ(memory.live, 0);
  store.Uninit();
}

TEST(MapDBInit, OperationsOnAStoreThatIsNotInitialisedAreRefused) {
  TextStore store;
  const auto refused = [](bool result) {
    EXPECT_FALSE(result);
    return result;
  };
  LogCapture log;
  refused(Put(store, "a", "1"));
  refused(store.Delete("a", false));
  refused(store.Clear());
  refused(store.Load());
  refused(store.LoadFile());
  refused(store.Reserve(1, true));
  EXPECT_EQ(log.Lines(), Lines(6, "3 velmar.StoreNotInitialised"));
  log.Clear();
  refused(store.Save());
  EXPECT_EQ(log.Lines(1), Lines{}) << "a save says nothing";
}

}  // namespace
