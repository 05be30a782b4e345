// Reading, writing and recycling entries.
#include <cstring>
#include <memory>
#include <string>

#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Texts = std::vector<std::string>;

TEST(MapDBApply, NewKeyGetsAnEmptyValueAndIsNew) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  int context = 0;
  bool wasNew = false;
  const auto check = [&](Buffer& value, bool isNew, void* given) {
    EXPECT_EQ(value.size, 0U);
    EXPECT_EQ(given, &context);
    wasNew = isNew;
    return SetValue(value, "1");
  };
  EXPECT_TRUE(store.Apply("a", true, check, &context));
  EXPECT_TRUE(wasNew);
  EXPECT_EQ(store.GetCount(), 1U);
}

TEST(MapDBApply, PresentKeyGetsItsValueAndIsNotNew) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  bool wasNew = true;
  EXPECT_TRUE(store.Apply(
      "a", true,
      [&wasNew](Buffer& value, bool isNew, void* /*context*/) {
        wasNew = isNew;
        return GetValue(value) == "1";
      },
      nullptr));
  EXPECT_FALSE(wasNew);
  EXPECT_EQ(store.GetCount(), 1U);
}

TEST(MapDBApply, NumberValueOfANewKeyIsZero) {
  NumberStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, 5, "77"));
  ASSERT_TRUE(store.Delete(5, true));
  EXPECT_TRUE(store.Apply(
      6, true,
      [](TimeCacheValue& value, bool isNew, void* /*context*/) {
        EXPECT_TRUE(isNew);
        EXPECT_EQ(value.expiry, 0U);
        EXPECT_EQ(value.timeToLive, 0U);
        EXPECT_FALSE(value.object.value);
        return true;
      },
      nullptr))
      << "in the slot of the deleted entry";
}

TEST(MapDBApply, MissingKeyThatIsNotToBeMadeIsFalseWithoutARecord) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  LogCapture log;
  bool called = false;
  EXPECT_FALSE(store.Apply(
      "a", false,
      [&called](Buffer& /*value*/, bool /*isNew*/, void* /*context*/) {
        called = true;
        return true;
      },
      nullptr));
  EXPECT_FALSE(called);
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(MapDBApply, NullKeyIsRefusedEvenBeforeTheStoreIsLookedAt) {
  TextStore store;
  LogCapture log;
  EXPECT_FALSE(Put(store, nullptr, "1"));
  EXPECT_FALSE(store.Delete(nullptr, false));
  EXPECT_EQ(log.Lines(), Lines(2, "3 velmar.StoreKeyIsNull"));
}

TEST(MapDBApply, EmptyCallbackIsRefused) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  LogCapture log;
  EXPECT_FALSE(store.Apply("a", true, TextStore::Callback(), nullptr));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreCallbackMissing"});
  EXPECT_EQ(store.GetCount(), 0U);
}

TEST(MapDBApply, RefusingCallbackLeavesTheNewEntry) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  const auto refuse = [](Buffer& value, bool /*isNew*/, void* /*context*/) {
    SetValue(value, "left");
    return false;
  };
  LogCapture log;
  EXPECT_FALSE(store.Apply("a", true, refuse, nullptr));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreCallbackRefused"});
  EXPECT_EQ(log.Arguments("velmar.StoreCallbackRefused"), Texts{"1"});
  EXPECT_EQ(KeysOf(store), Texts{"a"});
  EXPECT_EQ(Get(store, "a"), "left");
  log.Clear();
  EXPECT_FALSE(store.Apply("a", true, refuse, nullptr));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreCallbackRefused"});
  EXPECT_EQ(log.Arguments("velmar.StoreCallbackRefused"), Texts{"0"});
  EXPECT_TRUE(Put(store, "a", "2")) << "the store is not left busy";
}

TEST(MapDBApply, CallableIsGoneBeforeApplyReturns) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  auto token = std::make_shared<int>(0);
  long usesAfterwards = 0;
  // The argument itself lives to the end of the full expression; what it captured must not.
  const auto uses = [&](bool /*result*/) { return token.use_count(); };
  TextStore::Callback callback([token](Buffer& /*value*/, bool /*isNew*/, void* /*context*/) { return true; });
  usesAfterwards = uses(store.Apply("a", true, std::move(callback), nullptr));
  EXPECT_EQ(usesAfterwards, 1);
  TextStore closed;
  TextStore::Callback refused([token](Buffer& /*value*/, bool /*isNew*/, void* /*context*/) { return true; });
  EXPECT_EQ(uses(closed.Apply("a", true, std::move(refused), nullptr)), 1) << "also when it is refused";
}

TEST(MapDBApply, FullStoreGivesANewKeyThePlaceOfTheOldest) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  for (const char* key : {"b", "a", "c"}) {
    ASSERT_TRUE(Put(store, key, key));
  }
  LogCapture log;
  ASSERT_TRUE(Put(store, "d", "d"));
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(store.GetCount(), 3U);
  EXPECT_EQ(Get(store, "b"), std::nullopt);
  EXPECT_EQ(KeysOf(store), (Texts{"a", "c", "d"}));
  EXPECT_EQ(Get(store, "d"), "d");
}

TEST(MapDBApply, RecycledValueIsEmptyAndNew) {
  TextStore store;
  Options options;
  options.initial = 1;
  options.maximum = 1;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "a", "old"));
  EXPECT_TRUE(store.Apply(
      "b", true,
      [](Buffer& value, bool isNew, void* /*context*/) {
        EXPECT_TRUE(isNew);
        return value.size == 0;
      },
      nullptr));
  EXPECT_EQ(KeysOf(store), Texts{"b"});
}

TEST(MapDBApply, WithoutMoveToTailAHitChangesNothing) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  for (const char* key : {"a", "b", "c"}) {
    ASSERT_TRUE(Put(store, key, key));
  }
  ASSERT_TRUE(Put(store, "a", "again"));
  EXPECT_EQ(KeysOf(store), (Texts{"a", "b", "c"}));
  ASSERT_TRUE(Put(store, "d", "d"));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "c", "d"}));
}

TEST(MapDBApply, WithMoveToTailAHitOnTheOldestProtectsIt) {
  TextStore store;
  Options options;
  options.flags |= StoreFlags::kMoveToTailOnAccess;
  ASSERT_TRUE(Open(store, options));
  for (const char* key : {"a", "b", "c"}) {
    ASSERT_TRUE(Put(store, key, key));
  }
  ASSERT_TRUE(Get(store, "a"));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "c", "a"}));
  ASSERT_TRUE(Get(store, "c"));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "a", "c"}));
  ASSERT_TRUE(Get(store, "c"));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "a", "c"})) << "the newest stays the newest";
  ASSERT_TRUE(Put(store, "d", "d"));
  EXPECT_EQ(KeysOf(store), (Texts{"a", "c", "d"}));
}

TEST(MapDBApply, MoveToTailCanBeSwitched) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(Put(store, "b", "2"));
  store.SetMoveToTailOnAccess(true);
  ASSERT_TRUE(Get(store, "a"));
  store.SetMoveToTailOnAccess(false);
  ASSERT_TRUE(Get(store, "b"));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "a"}));
}

TEST(MapDBApply, CompareFlagSaysWhetherCaseCounts) {
  TextStore exact;
  ASSERT_TRUE(Open(exact));
  ASSERT_TRUE(Put(exact, "Key", "1"));
  EXPECT_EQ(Get(exact, "kEY"), std::nullopt);
  TextStore folding;
  ASSERT_TRUE(
      folding.Init(nullptr, 2, 3, 1, StoreFlags::kBinarySearch, 1, &folding.keyCompareFlag, nullptr, 0, -1, nullptr));
  ASSERT_TRUE(Put(folding, "Key", "1"));
  EXPECT_EQ(Get(folding, "kEY"), "1");
}

TEST(MapDBApply, WithoutAContextKeysCompareExactly) {
  TextStore store;
  ASSERT_TRUE(store.Init(nullptr, 2, 3, 1, StoreFlags::kLinearSearch, 1, nullptr, nullptr, 0, -1, nullptr));
  ASSERT_TRUE(Put(store, "Key", "1"));
  EXPECT_EQ(Get(store, "kEY"), std::nullopt);
}

TEST(MapDBApply, KeyMemoryIsTheNextMultipleOf16AndReusedWhereItFits) {
  TextStore store;
  Options options;
  options.initial = 1;
  options.maximum = 1;
  ASSERT_TRUE(Open(store, options));
  const auto capacityFor = [&store](std::size_t length) {
    EXPECT_TRUE(Put(store, std::string(length, 'k').c_str(), "v"));
    return MapDBTestAccess::KeyCapacity(store, 0);
  };
  EXPECT_EQ(capacityFor(0), 16U);
  const char* memory = MapDBTestAccess::KeyMemory(store, 0);
  EXPECT_EQ(capacityFor(14), 16U);
  EXPECT_EQ(capacityFor(15), 16U) << "16 bytes with the terminator fit what is there";
  EXPECT_EQ(MapDBTestAccess::KeyMemory(store, 0), memory);
  EXPECT_EQ(capacityFor(16), 32U);
  EXPECT_EQ(capacityFor(40), 48U);
  EXPECT_EQ(capacityFor(3), 48U) << "the larger memory stays";
  EXPECT_EQ(capacityFor(48), 64U);
  TextStore fresh;
  ASSERT_TRUE(Open(fresh, options));
  ASSERT_TRUE(Put(fresh, std::string(15, 'k').c_str(), "v"));
  EXPECT_EQ(MapDBTestAccess::KeyCapacity(fresh, 0), 32U) << "16 rounded down, and 16 more";
}

TEST(MapDBApply, KeyThatFindsNoMemoryLeavesTheStoreAsItWas) {
  TestAllocator memory;
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "b", "1"));
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(Put(store, "a", "2"));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.StoreKeyAllocationFailed", "3 velmar.StoreKeyNotSet"}));
  EXPECT_EQ(log.Arguments("velmar.StoreKeyAllocationFailed"), Texts{"16"});
  EXPECT_EQ(KeysOf(store), Texts{"b"});
  EXPECT_EQ(Get(store, "a"), std::nullopt);
  EXPECT_TRUE(Put(store, "a", "2"));
  store.Uninit();
  EXPECT_EQ(memory.live, 0);
}

TEST(MapDBApply, KeyThatFindsNoMemoryDoesNotPushOutTheOldest) {
  TestAllocator memory;
  TextStore store;
  ASSERT_TRUE(Open(store));
  for (const char* key : {"a", "b", "c"}) {
    ASSERT_TRUE(Put(store, key, key));
  }
  const std::string longKey(100, 'x');
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(Put(store, longKey.c_str(), "d"));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.StoreKeyAllocationFailed", "3 velmar.StoreKeyNotSet"}));
  EXPECT_EQ(KeysOf(store), (Texts{"a", "b", "c"}));
  EXPECT_EQ(Get(store, "a"), "a");
  store.Uninit();
}

TEST(MapDBApply, GrowthThatFindsNoMemoryFailsTheInsertion) {
  TestAllocator memory;
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(Put(store, "b", "2"));
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(Put(store, "c", "3"));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.IndexAllocationFailed", "5 velmar.StoreIndexNotGrown",
                                "3 velmar.StoreNotGrown", "3 velmar.StoreNoNewEntry"}));
  log.Clear();
  memory.FailRequest(1);
  EXPECT_FALSE(Put(store, "c", "3"));
  EXPECT_EQ(log.Lines(),
            (Lines{"5 velmar.StoreAllocationFailed", "3 velmar.StoreNotGrown", "3 velmar.StoreNoNewEntry"}));
  EXPECT_EQ(log.Arguments("velmar.StoreAllocationFailed"), Texts{"3"});
  EXPECT_EQ(KeysOf(store), (Texts{"a", "b"}));
  EXPECT_TRUE(Put(store, "c", "3"));
  store.Uninit();
}

TEST(MapDBApply, KeyThatTheIndexRefusesIsNotTaken) {
  NumberStore store;
  Options options;
  options.flags = StoreFlags::kIndexSearch;
  ASSERT_TRUE(Open(store, options));
  LogCapture log;
  EXPECT_FALSE(Put(store, 3, "1")) << "the table has the slots 0 to 2";
  EXPECT_EQ(log.Lines(),
            (Lines{"5 velmar.IndexPositionOutOfRange", "3 velmar.StoreIndexRefusedEntry", "3 velmar.StoreNoNewEntry"}));
  EXPECT_EQ(store.GetCount(), 0U);
  for (const u32 key : {0U, 1U, 2U}) {
    ASSERT_TRUE(Put(store, key, "1"));
  }
  log.Clear();
  EXPECT_FALSE(Put(store, 3, "1"));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.IndexPositionOutOfRange", "3 velmar.StoreOldestNotRecycled"}));
  EXPECT_EQ(KeysOf(store), (std::vector<u32>{0, 1, 2}));
}

TEST(MapDBApply, WideKeysOfTheIndexKindAreNumbersBelowTheMaximum) {
  WideStore store;
  Options options;
  options.flags = StoreFlags::kIndexSearch;
  ASSERT_TRUE(Open(store, options));
  EXPECT_TRUE(Put(store, Types::UInt128{{0, 2}}, "1"));
  EXPECT_FALSE(Put(store, Types::UInt128{{0, 3}}, "1"));
  EXPECT_FALSE(Put(store, Types::UInt128{{1, 2}}, "1"));
  EXPECT_EQ(store.GetCount(), 1U);
}

TEST(MapDBApply, EveryOperationFromInsideACallbackIsRefused) {
  for (const u32 lock : {0U, StoreFlags::kThreadSafe}) {
    TextStore store;
    Options options;
    options.flags |= lock;
    ASSERT_TRUE(Open(store, options));
    LogCapture log;
    const auto intrude = [&store](Buffer& value, bool /*isNew*/, void* /*context*/) {
      EXPECT_FALSE(Put(store, "b", "2"));
      EXPECT_FALSE(Get(store, "a"));
      EXPECT_FALSE(store.Delete("a", false));
      EXPECT_FALSE(store.Clear());
      EXPECT_FALSE(store.Save());
      EXPECT_FALSE(store.Load());
      EXPECT_FALSE(store.Reserve(3, true));
      EXPECT_TRUE(MapDBTestAccess::IsBusy(store)) << "a refusal leaves the outer operation's flag";
      EXPECT_EQ(store.GetCount(), 1U);
      return SetValue(value, "1");
    };
    EXPECT_TRUE(store.Apply("a", true, intrude, nullptr));
    EXPECT_EQ(log.Lines(), Lines(7, "3 velmar.StoreBusy"));
    EXPECT_FALSE(MapDBTestAccess::IsBusy(store));
    EXPECT_EQ(Get(store, "a"), "1");
  }
}

TEST(MapDBApply, UninitFromInsideACallbackOnlyTakesTheMutex) {
  TextStore store;
  Options options;
  options.flags |= StoreFlags::kThreadSafe;
  ASSERT_TRUE(Open(store, options));
  LogCapture log;
  EXPECT_TRUE(store.Apply(
      "a", true,
      [&store](Buffer& value, bool /*isNew*/, void* /*context*/) {
        store.Uninit();
        return SetValue(value, "1");
      },
      nullptr));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreBusy"});
  EXPECT_FALSE(MapDBTestAccess::HasMutex(store));
  EXPECT_EQ(Get(store, "a"), "1");
  store.Uninit();
  EXPECT_FALSE(store.IsInitialised());
}

TEST(MapDBDelete, RemovesTheKeyWhereverItStands) {
  for (const char* gone : {"a", "b", "c"}) {
    TextStore store;
    ASSERT_TRUE(Open(store));
    Texts left;
    for (const char* key : {"a", "b", "c"}) {
      ASSERT_TRUE(Put(store, key, key));
      if (std::strcmp(key, gone) != 0) {
        left.emplace_back(key);
      }
    }
    EXPECT_TRUE(store.Delete(gone, true));
    EXPECT_EQ(KeysOf(store), left);
    EXPECT_EQ(Get(store, gone), std::nullopt);
    EXPECT_TRUE(Put(store, "d", "d"));
    left.emplace_back("d");
    EXPECT_EQ(KeysOf(store), left);
  }
}

TEST(MapDBDelete, MissingKeyIsTrueUnlessItMustExist) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  LogCapture log;
  EXPECT_TRUE(store.Delete("b", false));
  EXPECT_FALSE(store.Delete("b", true));
  EXPECT_EQ(log.Lines(1), Lines{});
  EXPECT_EQ(store.GetCount(), 1U);
}

TEST(MapDBDelete, EmptyStoreIsFalseEitherWay) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  EXPECT_FALSE(store.Delete("b", false));
  EXPECT_FALSE(store.Delete("b", true));
  ASSERT_TRUE(Put(store, "b", "1"));
  ASSERT_TRUE(store.Delete("b", true));
  EXPECT_FALSE(store.Delete("b", false)) << "also when it was filled once";
}

TEST(MapDBDelete, LastEntryGoesAndTheNextOneStandsAlone) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(store.Delete("a", true));
  EXPECT_EQ(KeysOf(store), Texts{});
  EXPECT_EQ(MapDBTestAccess::Head(store), 0U) << "only the count says that the store is empty";
  ASSERT_TRUE(Put(store, "b", "2"));
  EXPECT_EQ(KeysOf(store), Texts{"b"});
  ASSERT_TRUE(Put(store, "c", "3"));
  EXPECT_EQ(KeysOf(store), (Texts{"b", "c"}));
}

TEST(MapDBDelete, NodeKeepsItsValueSlot) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  const u32 location = MapDBTestAccess::Tail(store);
  const u32 offset = MapDBTestAccess::ValueOffset(store, location);
  ASSERT_TRUE(store.Delete("a", true));
  EXPECT_EQ(MapDBTestAccess::ValueOffset(store, location), offset);
  ASSERT_TRUE(Put(store, "b", "2"));
  EXPECT_EQ(MapDBTestAccess::Tail(store), location) << "the last one freed is the first one taken";
  EXPECT_EQ(MapDBTestAccess::ValueOffset(store, location), offset);
}

TEST(MapDBDelete, MissOfAnIndexKindThatLogsKeepsItsResult) {
  NumberStore store;
  Options options;
  options.flags = StoreFlags::kIndexSearch;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, 1, "1"));
  LogCapture log;
  EXPECT_TRUE(store.Delete(2, false));
  EXPECT_FALSE(store.Delete(2, true));
  EXPECT_TRUE(store.Delete(99, false)) << "out of range counts as missing";
  EXPECT_EQ(log.Lines(), Lines(3, "5 velmar.IndexKeyAbsent"));
  EXPECT_TRUE(store.Delete(1, true));
}

TEST(MapDBClear, EmptiesTheStoreAndKeepsItUsable) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  for (const char* key : {"a", "b", "c"}) {
    ASSERT_TRUE(Put(store, key, key));
  }
  LogCapture log;
  EXPECT_TRUE(store.Clear());
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_EQ(MapDBTestAccess::Head(store), kNone);
  EXPECT_EQ(MapDBTestAccess::Tail(store), kNone);
  EXPECT_EQ(KeysOf(store), Texts{});
  EXPECT_EQ(Get(store, "a"), std::nullopt);
  EXPECT_TRUE(store.Clear()) << "an empty store is cleared";
}

TEST(MapDBClear, ReusedKeyIsNewInANodeThatKeepsItsValueSlot) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  ASSERT_TRUE(Put(store, "b", "2"));
  const u32 offset = MapDBTestAccess::ValueOffset(store, 0);
  ASSERT_TRUE(store.Clear());
  EXPECT_TRUE(store.Apply(
      "b", true, [](Buffer& value, bool isNew, void* /*context*/) { return isNew && value.size == 0; }, nullptr));
  EXPECT_EQ(MapDBTestAccess::Tail(store), 0U) << "the chain of free entries is in index order again";
  EXPECT_EQ(MapDBTestAccess::ValueOffset(store, 0), offset);
  EXPECT_EQ(KeysOf(store), Texts{"b"});
}

}  // namespace
