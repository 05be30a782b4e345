// Marking and compacting in the index of a store, which no operation of the store itself asks for, in each kind.
#include <string>

#include "tests/velmarlib/store/IndexCheck.h"
#include "tests/velmarlib/store/StoreModel.h"

namespace {

using namespace StoreTest;

// What a kind makes of the mark of the oldest of the keys 2, 0, 1 in a full store, and of the next new key.
struct Kind {
  u32 kind;
  u32 position;  // of the number 2
  bool marks;
  Lines markLog;
  bool atOnce;  // the key is gone before the compaction
  Lines deleteLog;
  bool recycles;
  Lines recycleLog;
  bool newIsFound;
};

const Lines kAbsent = {"5 velmar.IndexKeyAbsent"};
const Lines kOutOfRange = {"5 velmar.IndexPositionOutOfRange"};
const Lines kTableTakesNoMore = {"5 velmar.IndexPositionOutOfRange", "3 velmar.StoreOldestNotRecycled"};
const Lines kOldestIsAbsent = {"5 velmar.IndexKeyAbsent", "3 velmar.StoreOldestNotRecycled"};
const Lines kTreeHasNoOldest = {"3 velmar.TreeKeyAbsent", "3 velmar.StoreOldestNotRecycled"};

// Of a position that is none. The tree tells of it too.
Lines NoPositionLog(const Kind& kind) {
  return kind.kind == StoreFlags::kRBTSearch ? Lines{"3 velmar.TreeNodeAbsent", "5 velmar.IndexPositionOutOfRange"}
                                             : kOutOfRange;
}

// The sorted and the listed index leave a gap, which only a compaction closes. The table and the tree forget the key at
// once. The hash index takes the position for a whole hash, which that of a key is not. A list never looks for the
// oldest key when it is recycled, so its new key stays outside the index.
const Kind kKinds[] = {
    {StoreFlags::kBinarySearch, 2, true, {}, false, {}, false, kOldestIsAbsent, false},
    {StoreFlags::kIndexSearch, 2, true, {}, true, kAbsent, false, kTableTakesNoMore, false},
    {StoreFlags::kLinearSearch, 0, true, {}, false, kAbsent, true, {}, false},
    {StoreFlags::kRBTSearch, 0, true, {}, true, kAbsent, false, kTreeHasNoOldest, false},
    {StoreFlags::kHashMapSearch, 0, false, kOutOfRange, false, {}, true, {}, true},
};

template <class Maker>
constexpr bool kHasTexts = std::is_same_v<decltype(Maker::Make(0)), const char*>;

// Runs `body` on a full store of each kind, with the keys 2, 0 and 1 from the oldest on.
template <class Maker, class Body>
void ForEachKind(Body body) {
  for (const Kind& kind : kKinds) {
    if (kHasTexts<Maker> && (kind.kind == StoreFlags::kIndexSearch || kind.kind == StoreFlags::kHashMapSearch)) {
      continue;
    }
    SCOPED_TRACE("kind " + std::to_string(kind.kind));
    HashMapCheck::Memory memory;
    typename Maker::Store store;
    Options options;
    options.flags = kind.kind | StoreFlags::kNoSaveOnClose;
    ASSERT_TRUE(Open(store, options));
    for (const u32 number : {2U, 0U, 1U}) {
      ASSERT_TRUE(Put(store, Maker::Make(number), std::to_string(number)));
    }
    LogCapture log;
    body(kind, store, log);
  }
}

template <class Maker>
u32 PositionOf(typename Maker::Store& store, u32 number) {
  return MapDBTestAccess::Index(store).GetLocationOfIndex(Maker::Make(number), MapDBTestAccess::Entries(store));
}

template <class Maker>
class MapDBMark : public testing::Test {};
using Makers = testing::Types<DenseNumbers, DenseWideNumbers, Texts>;
TYPED_TEST_SUITE(MapDBMark, Makers);

TYPED_TEST(MapDBMark, MarkedKeyIsOutOfTheIndexAfterACompaction) {
  ForEachKind<TypeParam>([](const Kind& kind, auto& store, LogCapture& log) {
    auto& index = MapDBTestAccess::Index(store);
    const u32 memory = index.GetMemoryUsage();
    const u32 position = PositionOf<TypeParam>(store, 2);
    if (kind.marks && !kHasTexts<TypeParam>) {
      EXPECT_EQ(position, kind.position);
    }
    EXPECT_EQ(index.MarkKeyAsDeleted(position), kind.marks);
    EXPECT_EQ(log.Lines(1), kind.markLog);
    if (kind.atOnce) {
      EXPECT_EQ(Get(store, TypeParam::Make(2)), std::nullopt);
    }
    log.Clear();
    EXPECT_TRUE(index.CompactDeleted());
    EXPECT_EQ(log.Lines(1), Lines{});
    EXPECT_EQ(index.GetMemoryUsage(), memory);
    EXPECT_EQ(Get(store, TypeParam::Make(2)), kind.marks ? std::nullopt : std::optional<std::string>("2"));
    EXPECT_EQ(Get(store, TypeParam::Make(0)), "0");
    EXPECT_EQ(Get(store, TypeParam::Make(1)), "1");
    EXPECT_EQ(store.GetCount(), 3U) << "the store's own entry stays";
  });
}

TYPED_TEST(MapDBMark, MarkedKeyIsAbsentToADelete) {
  ForEachKind<TypeParam>([](const Kind& kind, auto& store, LogCapture& log) {
    auto& index = MapDBTestAccess::Index(store);
    index.MarkKeyAsDeleted(PositionOf<TypeParam>(store, 2));
    EXPECT_TRUE(index.CompactDeleted());
    log.Clear();
    EXPECT_EQ(store.Delete(TypeParam::Make(2), true), !kind.marks);
    EXPECT_EQ(log.Lines(1), kind.deleteLog);
    EXPECT_EQ(store.GetCount(), kind.marks ? 3U : 2U);
    EXPECT_TRUE(store.Delete(TypeParam::Make(0), true));
    EXPECT_EQ(Get(store, TypeParam::Make(1)), "1");
  });
}

TYPED_TEST(MapDBMark, NextNewKeyMeetsAnOldestThatIsNotInTheIndex) {
  ForEachKind<TypeParam>([](const Kind& kind, auto& store, LogCapture& log) {
    auto& index = MapDBTestAccess::Index(store);
    index.MarkKeyAsDeleted(PositionOf<TypeParam>(store, 2));
    EXPECT_TRUE(index.CompactDeleted());
    log.Clear();
    EXPECT_EQ(Put(store, TypeParam::Make(3), "3"), kind.recycles);
    EXPECT_EQ(log.Lines(1), kind.recycleLog);
    EXPECT_EQ(Get(store, TypeParam::Make(3)), kind.newIsFound ? std::optional<std::string>("3") : std::nullopt);
    EXPECT_EQ(Get(store, TypeParam::Make(0)), "0");
    EXPECT_EQ(Get(store, TypeParam::Make(1)), "1");
    EXPECT_TRUE(store.Clear());
    EXPECT_TRUE(Put(store, TypeParam::Make(2), "4")) << "a clear heals";
    EXPECT_EQ(Get(store, TypeParam::Make(2)), "4");
    IndexCheck::Check(store, 3);
  });
}

// Marking first, at positions that do not change meanwhile, and compacting once.
TYPED_TEST(MapDBMark, SeveralMarksAreSqueezedOutAtOnce) {
  ForEachKind<TypeParam>([](const Kind& kind, auto& store, LogCapture& log) {
    auto& index = MapDBTestAccess::Index(store);
    const u32 first = PositionOf<TypeParam>(store, 2);
    const u32 second = PositionOf<TypeParam>(store, 1);
    EXPECT_EQ(index.MarkKeyAsDeleted(first), kind.marks);
    EXPECT_EQ(index.MarkKeyAsDeleted(second), kind.marks);
    EXPECT_TRUE(index.CompactDeleted());
    log.Clear();
    for (const u32 number : {2U, 1U}) {
      EXPECT_EQ(Get(store, TypeParam::Make(number)).has_value(), !kind.marks);
    }
    EXPECT_EQ(Get(store, TypeParam::Make(0)), "0");
    EXPECT_TRUE(index.CompactDeleted());
    EXPECT_EQ(Get(store, TypeParam::Make(0)), "0");
    EXPECT_EQ(log.Lines(1), Lines{});
  });
}

TYPED_TEST(MapDBMark, PositionThatIsNoneIsAnErrorWithThePosition) {
  ForEachKind<TypeParam>([](const Kind& kind, auto& store, LogCapture& log) {
    auto& index = MapDBTestAccess::Index(store);
    for (const u32 position : {3U, 1000U, kNone}) {
      log.Clear();
      EXPECT_FALSE(index.MarkKeyAsDeleted(position));
      EXPECT_EQ(log.Lines(1), NoPositionLog(kind));
      EXPECT_EQ(log.Arguments("velmar.IndexPositionOutOfRange"), Lines{std::to_string(position)});
    }
    EXPECT_TRUE(index.CompactDeleted());
    IndexCheck::Check(store, 3);
  });
}

TYPED_TEST(MapDBMark, NothingIsMarkedInAnEmptyIndexAndCompactingItHarmsNothing) {
  ForEachKind<TypeParam>([](const Kind& kind, auto& store, LogCapture& log) {
    ASSERT_TRUE(store.Clear());
    auto& index = MapDBTestAccess::Index(store);
    EXPECT_TRUE(index.CompactDeleted());
    EXPECT_EQ(log.Lines(1), Lines{});
    // A table has its slots, used or not.
    const bool isTable = kind.kind == StoreFlags::kIndexSearch;
    EXPECT_EQ(index.MarkKeyAsDeleted(0), isTable);
    EXPECT_EQ(log.Lines(1), isTable ? Lines{} : NoPositionLog(kind));
    for (const u32 number : {1U, 2U}) {
      EXPECT_TRUE(Put(store, TypeParam::Make(number), "5"));
    }
    IndexCheck::Check(store, 3);
  });
}

}  // namespace
