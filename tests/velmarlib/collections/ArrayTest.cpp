// Set-up, growth and access of Array.
#include "Velmar/Collections/Array.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/collections/TestElements.h"

namespace {

using namespace Velmar;
using namespace Velmar::Collections;
using Strings = std::vector<std::string>;

template <class T>
std::vector<T> Content(const Array<T>& array) {
  return std::vector<T>(array.data, array.data + array.count);
}

Strings Names(const Array<NamedRow>& array) {
  Strings names;
  for (u32 i = 0; i < array.count; ++i) {
    names.emplace_back(array.data[i].name.text);
  }
  return names;
}

TEST(Array, NewArrayHasTheDefaults) {
  const Array<u32> array;
  EXPECT_EQ(array.count, 0U);
  EXPECT_EQ(array.capacity, 0U);
  EXPECT_EQ(array.maxCapacity, 256U);
  EXPECT_EQ(array.flagWord, 0x90000096U);
  EXPECT_EQ(array.mutex, nullptr);
  EXPECT_FALSE(array.ownsLock);
  EXPECT_EQ(array.data, nullptr);
}

TEST(Array, NewArrayTakesElementsUpToItsCeiling) {
  LogCapture log;
  Array<u32> array;
  for (u32 i = 0; i < 256; ++i) {
    ASSERT_TRUE(array.Add(i)) << i;
  }
  EXPECT_FALSE(array.Add(256));
  EXPECT_EQ(array.GetCount(), 256U);
  EXPECT_EQ(array.data[255], 255U);
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayCeilingReached"});
}

TEST(ArrayCreate, HeapArrayHasDefaultElementsAndItsParameters) {
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(16, 0x40000, 1024, false, GrowType::kFixedStep));
  EXPECT_EQ(array.count, 0U);
  EXPECT_EQ(array.capacity, 16U);
  EXPECT_EQ(array.maxCapacity, 0x40000U);
  EXPECT_EQ(array.flagWord, 0x10000400U);
  EXPECT_EQ(array.mutex, nullptr);
  for (u32 i = 0; i < 16; ++i) {
    EXPECT_EQ(array.data[i], PlainRow());
  }
}

TEST(ArrayCreate, PercentGrowthSetsTheTopBit) {
  Array<u32> array;
  ASSERT_TRUE(array.Create(1, 10, 150, false, GrowType::kPercent));
  EXPECT_EQ(array.flagWord, 0x90000096U);
}

TEST(ArrayCreate, GrowthIsCutTo24Bits) {
  Array<u32> array;
  ASSERT_TRUE(array.Create(1, 10, 0xAB000002, false, GrowType::kFixedStep));
  EXPECT_EQ(array.flagWord, 0x10000002U);
}

TEST(ArrayCreate, CapacityZeroTakesNoMemory) {
  TestAllocator memory;
  Array<u32> array;
  EXPECT_TRUE(array.Create(0, 128, 64, false, GrowType::kFixedStep));
  EXPECT_EQ(array.data, nullptr);
  EXPECT_EQ(memory.requests, 0U);
}

TEST(ArrayCreate, CeilingZeroIsRefused) {
  LogCapture log;
  Array<u32> array;
  EXPECT_FALSE(array.Create(0, 0, 7, false, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayBadParameters"});
  EXPECT_EQ(log.Arguments("velmar.ArrayBadParameters"), (Strings{"0", "7"}));
}

TEST(ArrayCreate, GrowthZeroIsRefused) {
  LogCapture log;
  Array<u32> array;
  EXPECT_FALSE(array.Create(0, 7, 0, false, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayBadParameters"});
}

TEST(ArrayCreate, CapacityAboveCeilingIsRefusedWithNothingChanged) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Add(5));
  EXPECT_FALSE(array.Create(8, 7, 1, true, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayCapacityAboveCeiling"});
  EXPECT_EQ(log.Arguments("velmar.ArrayCapacityAboveCeiling"), (Strings{"8", "7"}));
  EXPECT_EQ(Content(array), std::vector<u32>{5});
  EXPECT_EQ(array.maxCapacity, 256U);
  EXPECT_EQ(array.mutex, nullptr);
}

TEST(ArrayCreate, CapacityAtCeilingIsTaken) {
  Array<u32> array;
  EXPECT_TRUE(array.Create(7, 7, 1, false, GrowType::kFixedStep));
}

TEST(ArrayCreate, NoLockIsAnError) {
  Sim::FailMutexCreate(1);
  LogCapture log;
  TestAllocator memory;
  Array<u32> array;
  EXPECT_FALSE(array.Create(4, 7, 1, true, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayNoLock"});
  EXPECT_FALSE(array.ownsLock);
  EXPECT_EQ(memory.requests, 0U);
}

TEST(ArrayCreate, NoLockOverAnAreaIsAnError) {
  Sim::FailMutexCreate(1);
  LogCapture log;
  u32 area[4] = {};
  Array<u32> array;
  EXPECT_FALSE(array.Create(area, 4, true, true, 0, 1, true, GrowType::kFixedStep, kNone));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayNoLock"});
  EXPECT_EQ(array.data, nullptr);
}

TEST(ArrayCreate, NoMemoryEmptiesTheArray) {
  TestAllocator memory;
  {
    LogCapture log;
    Array<u32> array;
    ASSERT_TRUE(array.Add(5));
    memory.FailRequest(0);
    EXPECT_FALSE(array.Create(40, 70, 1, false, GrowType::kFixedStep));
    EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayNoMemory"});
    EXPECT_EQ(log.Arguments("velmar.ArrayNoMemory"), Strings{"40"});
    EXPECT_EQ(array.count, 0U);
    EXPECT_TRUE(array.Add(6)) << "the old storage still serves";
  }
  EXPECT_EQ(memory.live, 0);
}

TEST(ArrayCreate, LockComesAndGoesWithThreadSafe) {
  Array<u32> array;
  ASSERT_TRUE(array.Create(1, 7, 1, true, GrowType::kFixedStep));
  void* const first = array.mutex;
  EXPECT_NE(first, nullptr);
  EXPECT_TRUE(array.ownsLock);
  ASSERT_TRUE(array.Create(2, 7, 1, true, GrowType::kFixedStep));
  EXPECT_EQ(array.mutex, first) << "a lock that fits stays";
  ASSERT_TRUE(array.Create(2, 7, 1, false, GrowType::kFixedStep));
  EXPECT_EQ(array.mutex, nullptr);
  EXPECT_FALSE(array.ownsLock);
}

TEST(ArrayCreate, BorrowedLockIsOnlyLetGo) {
  void* borrowed = OS::Threading::MutexCreate();
  {
    Array<u32> array;
    array.mutex = borrowed;
    EXPECT_TRUE(array.Add(1));
  }
  EXPECT_TRUE(OS::Threading::MutexLock(borrowed));
  EXPECT_TRUE(OS::Threading::MutexUnlock(borrowed));
  OS::Threading::MutexDestroy(borrowed);
}

TEST(ArrayCreate, SecondCreateFreesTheFirstStorage) {
  TestAllocator memory;
  {
    Array<NamedRow> array;
    ASSERT_TRUE(array.Create(8, 20, 1, false, GrowType::kFixedStep));
    ASSERT_TRUE(array.Create(3, 20, 1, false, GrowType::kFixedStep));
    EXPECT_EQ(memory.live, 1);
    NamedRow area[2];
    ASSERT_TRUE(array.Create(area, 2, true, true, 0, 1, false, GrowType::kFixedStep, kNone));
    EXPECT_EQ(memory.live, 0);
    ASSERT_TRUE(array.Create(3, 20, 1, false, GrowType::kFixedStep));
    EXPECT_EQ(memory.live, 1);
  }
  EXPECT_EQ(memory.live, 0);
}

TEST(ArrayCreateOverArea, MissingAreaSizeOrGrowthIsRefused) {
  LogCapture log;
  u32 area[4] = {};
  Array<u32> array;
  EXPECT_FALSE(array.Create(nullptr, 4, true, true, 0, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_FALSE(array.Create(area, 0, true, true, 0, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_FALSE(array.Create(area, 4, true, true, 0, 0, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(log.Lines(), Strings(3, "3 velmar.ArrayBadArea"));
  EXPECT_EQ(log.Arguments("velmar.ArrayBadArea"), (Strings{"4", "0"}));
  EXPECT_EQ(array.data, nullptr);
}

TEST(ArrayCreateOverArea, CountMustBeBelowSize) {
  LogCapture log;
  u32 area[4] = {};
  Array<u32> array;
  EXPECT_FALSE(array.Create(area, 4, true, true, 0, 1, false, GrowType::kFixedStep, 4));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayAreaTooSmall"});
  EXPECT_EQ(log.Arguments("velmar.ArrayAreaTooSmall"), (Strings{"4", "4"}));
  EXPECT_TRUE(array.Create(area, 4, true, true, 0, 1, false, GrowType::kFixedStep, 3));
  EXPECT_EQ(array.count, 3U);
}

TEST(ArrayCreateOverArea, CeilingBelowSizeIsRefused) {
  LogCapture log;
  u32 area[4] = {};
  Array<u32> array;
  EXPECT_FALSE(array.Create(area, 4, true, true, 3, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayCapacityAboveCeiling"});
  EXPECT_EQ(log.Arguments("velmar.ArrayCapacityAboveCeiling"), (Strings{"4", "3"}));
}

TEST(ArrayCreateOverArea, StartEmptyDecidesTheCount) {
  u32 area[3] = {7, 8, 9};
  Array<u32> array;
  ASSERT_TRUE(array.Create(area, 3, false, true, 0, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(Content(array), (std::vector<u32>{7, 8, 9}));
  ASSERT_TRUE(array.Create(area, 3, true, true, 0, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.count, 0U);
  EXPECT_EQ(array.data, area);
}

TEST(ArrayCreateOverArea, GivenCountOverridesStartEmpty) {
  u32 area[3] = {7, 8, 9};
  Array<u32> array;
  ASSERT_TRUE(array.Create(area, 3, true, true, 0, 1, false, GrowType::kFixedStep, 2));
  EXPECT_EQ(array.count, 2U);
  ASSERT_TRUE(array.Create(area, 3, false, true, 0, 1, false, GrowType::kFixedStep, 0));
  EXPECT_EQ(array.count, 0U);
}

TEST(ArrayCreateOverArea, CeilingFollowsLeaveAndSize) {
  u32 area[4] = {};
  Array<u32> array;
  ASSERT_TRUE(array.Create(area, 4, true, true, 0, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.maxCapacity, 8U);
  ASSERT_TRUE(array.Create(area, 4, true, true, 5, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.maxCapacity, 5U);
  ASSERT_TRUE(array.Create(area, 4, true, false, 100, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.maxCapacity, 4U);
  ASSERT_TRUE(array.Create(area, 4, true, false, 3, 1, false, GrowType::kFixedStep, kNone))
      << "a ceiling is not looked at where the area may not be left";
  EXPECT_EQ(array.capacity, 4U);
}

TEST(ArrayCreateOverArea, DoubledCeilingStopsAtTheLargestCount) {
  u32 area[1] = {};
  Array<u32> array;
  ASSERT_TRUE(array.Create(area, 0x90000000, true, true, 0, 1, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.maxCapacity, 0xFFFFFFFFU);
}

TEST(ArrayCreateOverArea, FlagWordTellsTheKindOfArea) {
  u32 area[4] = {};
  Array<u32> array;
  ASSERT_TRUE(array.Create(area, 4, true, false, 0, 0x0A000010, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.flagWord, 0x20000010U);
  ASSERT_TRUE(array.Create(area, 4, true, true, 0, 0x10, false, GrowType::kFixedStep, kNone));
  EXPECT_EQ(array.flagWord, 0x40000010U);
  ASSERT_TRUE(array.Create(area, 4, true, true, 0, 0x10, false, GrowType::kPercent, kNone));
  EXPECT_EQ(array.flagWord, 0xC0000010U);
}

TEST(ArrayGrow, FixedAreaRefusesTheElementPastItsSize) {
  LogCapture log;
  u32 area[3] = {};
  Array<u32> array;
  ASSERT_TRUE(array.Create(area, 3, true, false, 100, 10, false, GrowType::kFixedStep, kNone));
  for (u32 i = 0; i < 3; ++i) {
    ASSERT_TRUE(array.Add(i));
  }
  EXPECT_FALSE(array.Add(3));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayAreaIsFixed"});
  EXPECT_EQ(array.count, 3U);
  EXPECT_EQ(array.data, area);
  EXPECT_EQ(area[2], 2U);
}

TEST(ArrayGrow, LeavableAreaIsLeftForTheHeap) {
  TestAllocator memory;
  u32 area[2] = {};
  {
    Array<u32> array;
    ASSERT_TRUE(array.Create(area, 2, true, true, 0, 50, false, GrowType::kPercent, kNone));
    for (u32 i = 0; i < 4; ++i) {
      ASSERT_TRUE(array.Add(i + 1));
    }
    EXPECT_EQ(array.flagWord, 0x90000032U);
    EXPECT_NE(array.data, area);
    EXPECT_EQ(Content(array), (std::vector<u32>{1, 2, 3, 4}));
    EXPECT_FALSE(array.Add(5)) << "twice the area's size is the ceiling";
    EXPECT_EQ(memory.live, 1);
  }
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(area[0], 1U);
}

TEST(ArrayGrow, CeilingRefusesAddAndKeepsTheCount) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Create(2, 5, 2, false, GrowType::kFixedStep));
  for (u32 i = 0; i < 5; ++i) {
    ASSERT_TRUE(array.Add(i));
  }
  EXPECT_EQ(array.capacity, 5U) << "the last step is cut to the ceiling";
  EXPECT_FALSE(array.Add(5));
  EXPECT_EQ(array.count, 5U);
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayCeilingReached"});
  EXPECT_EQ(log.Arguments("velmar.ArrayCeilingReached"), Strings{"5"});
}

TEST(ArrayGrow, StepsAndPercentagesFollowTheRule) {
  Array<u32> steps;
  ASSERT_TRUE(steps.Create(3, 1000, 4, false, GrowType::kFixedStep));
  ASSERT_TRUE(steps.Grow());
  EXPECT_EQ(steps.capacity, 7U);
  EXPECT_EQ(steps.flagWord, 0x10000004U);
  Array<u32> percent;
  ASSERT_TRUE(percent.Create(10, 1000, 150, false, GrowType::kPercent));
  ASSERT_TRUE(percent.Grow());
  EXPECT_EQ(percent.capacity, 25U);
  EXPECT_EQ(percent.flagWord, 0x90000096U);
}

TEST(ArrayGrow, GrowthThatWasCutToZeroCannotGrow) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Create(1, 10, 0x1000000, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(1));
  EXPECT_FALSE(array.Add(2));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayCeilingReached"});
  EXPECT_EQ(Content(array), std::vector<u32>{1});
}

TEST(ArrayGrow, NewRoomHoldsDefaultElements) {
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(1, 10, 3, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(PlainRow{4, 5}));
  ASSERT_TRUE(array.Grow());
  EXPECT_EQ(array.data[0], (PlainRow{4, 5}));
  for (u32 i = 1; i < 4; ++i) {
    EXPECT_EQ(array.data[i], PlainRow());
  }
}

TEST(ArrayGrow, NoMemoryKeepsTheArray) {
  TestAllocator memory;
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Create(1, 10, 3, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(9));
  memory.FailRequest(0);
  EXPECT_FALSE(array.Add(8));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayNoMemory"});
  EXPECT_EQ(log.Arguments("velmar.ArrayNoMemory"), Strings{"4"});
  EXPECT_EQ(Content(array), std::vector<u32>{9});
  EXPECT_EQ(array.capacity, 1U);
  EXPECT_EQ(array.flagWord, 0x10000003U);
}

TEST(ArrayGrow, CopyThatFailsKeepsTheArray) {
  TestAllocator memory;
  {
    LogCapture log;
    Array<CopiedRow> array;
    ASSERT_TRUE(array.Create(3, 10, 2, false, GrowType::kFixedStep));
    for (int i = 0; i < 3; ++i) {
      CopiedRow row;
      row.value = i;
      ASSERT_TRUE(array.Add(row));
    }
    CopiedRow::copiesLeft = 2;
    EXPECT_FALSE(array.Grow());
    EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayNoMemory"});
    EXPECT_EQ(log.Arguments("velmar.ArrayNoMemory"), Strings{"5"});
    ASSERT_EQ(array.count, 3U);
    EXPECT_EQ(array.capacity, 3U);
    EXPECT_EQ(array.data[2].value, 2);
    EXPECT_EQ(CopiedRow::alive, 3);
    CopiedRow::copiesLeft = -1;
    EXPECT_TRUE(array.Grow());
    EXPECT_EQ(array.data[2].value, 2);
    EXPECT_EQ(CopiedRow::alive, 5);
  }
  EXPECT_EQ(CopiedRow::alive, 0);
  EXPECT_EQ(memory.live, 0);
}

TEST(Array, AddTakesOneOfItsOwnElementsWhileItGrows) {
  Array<NamedRow> array;
  ASSERT_TRUE(array.Create(1, 10, 1, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(NamedRow("a name that is longer than any inline area of a string could be")));
  ASSERT_TRUE(array.Add(array.data[0]));
  ASSERT_TRUE(array.InsertAt(0, array.data[1]));
  EXPECT_EQ(Names(array), Strings(3, "a name that is longer than any inline area of a string could be"));
}

TEST(Array, GetAtCountLeavesTheOutputUntouched) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Add(11));
  u32 out = 77;
  EXPECT_FALSE(array.Get(1, out));
  EXPECT_EQ(out, 77U);
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayIndexOutOfRange"});
  EXPECT_EQ(log.Arguments("velmar.ArrayIndexOutOfRange"), (Strings{"1", "1"}));
  EXPECT_TRUE(array.Get(0, out));
  EXPECT_EQ(out, 11U);
}

TEST(Array, GetWhoseCopyFailsSaysSo) {
  LogCapture log;
  Array<NamedRow> array;
  ASSERT_TRUE(array.Add(NamedRow("a")));
  NamedRow out;
  NamedRow::copiesFail = true;
  EXPECT_FALSE(array.Get(0, out));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayElementNotCopied"});
}

TEST(Array, SetReplacesAnElementBelowCount) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Add(1));
  ASSERT_TRUE(array.Add(2));
  EXPECT_TRUE(array.Set(1, 5));
  EXPECT_FALSE(array.Set(2, 6));
  EXPECT_EQ(Content(array), (std::vector<u32>{1, 5}));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayIndexOutOfRange"});
  EXPECT_EQ(log.Arguments("velmar.ArrayIndexOutOfRange"), (Strings{"2", "2"}));
}

TEST(Array, CopyThatFailsChangesNothing) {
  LogCapture log;
  Array<NamedRow> array;
  ASSERT_TRUE(array.Add(NamedRow("a")));
  ASSERT_TRUE(array.Add(NamedRow("b")));
  NamedRow::copiesFail = true;
  EXPECT_FALSE(array.Add(NamedRow("c")));
  EXPECT_FALSE(array.Set(0, NamedRow("c")));
  EXPECT_FALSE(array.InsertAt(0, NamedRow("c")));
  EXPECT_EQ(log.Lines(), Strings(3, "5 velmar.ArrayElementNotCopied"));
  EXPECT_EQ(Names(array), (Strings{"a", "b"}));
}

TEST(Array, StringsWhoseCopyFindsNoMemoryAreRefused) {
  LogCapture log;
  Array<Utils::String> array;
  const Utils::String text("a text that is longer than any inline area of a string could be", true);
  ASSERT_TRUE(array.Add(text));
  Sim::FailAllocation(0);
  EXPECT_FALSE(array.Add(text));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayElementNotCopied"});
  EXPECT_EQ(array.count, 1U);
}

TEST(ArrayInsertAt, PutsTheElementInOrder) {
  Array<u32> array;
  ASSERT_TRUE(array.Create(1, 10, 1, false, GrowType::kFixedStep));
  EXPECT_TRUE(array.InsertAt(0, 30));
  EXPECT_TRUE(array.InsertAt(0, 10));
  EXPECT_TRUE(array.InsertAt(1, 20));
  EXPECT_TRUE(array.InsertAt(3, 40));
  EXPECT_EQ(Content(array), (std::vector<u32>{10, 20, 30, 40}));
}

TEST(ArrayInsertAt, MovesObjectsOneByOne) {
  Array<NamedRow> array;
  for (const char* name : {"d", "b", "c", "a"}) {
    ASSERT_TRUE(array.InsertAt(array.count / 2, NamedRow(name)));
  }
  EXPECT_EQ(Names(array), (Strings{"b", "a", "c", "d"}));
}

TEST(ArrayInsertAt, IndexPastCountIsRefused) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Add(1));
  EXPECT_FALSE(array.InsertAt(2, 9));
  EXPECT_EQ(Content(array), std::vector<u32>{1});
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayIndexOutOfRange"});
  EXPECT_EQ(log.Arguments("velmar.ArrayIndexOutOfRange"), (Strings{"2", "1"}));
}

TEST(ArrayInsertAt, CeilingLeavesAllElementsInPlace) {
  LogCapture log;
  Array<u32> array;
  ASSERT_TRUE(array.Create(2, 2, 1, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(1));
  ASSERT_TRUE(array.Add(2));
  EXPECT_FALSE(array.InsertAt(0, 9));
  EXPECT_EQ(Content(array), (std::vector<u32>{1, 2}));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayCeilingReached"});
}

TEST(ArrayRemoveAt, ClosesTheGap) {
  LogCapture log;
  Array<u32> numbers;
  Array<NamedRow> names;
  for (u32 i = 0; i < 4; ++i) {
    ASSERT_TRUE(numbers.Add(i));
    ASSERT_TRUE(names.Add(NamedRow(std::to_string(i).c_str())));
  }
  EXPECT_TRUE(numbers.RemoveAt(1));
  EXPECT_TRUE(names.RemoveAt(1));
  EXPECT_EQ(Content(numbers), (std::vector<u32>{0, 2, 3}));
  EXPECT_EQ(Names(names), (Strings{"0", "2", "3"}));
  EXPECT_TRUE(numbers.RemoveAt(2));
  EXPECT_FALSE(numbers.RemoveAt(2));
  EXPECT_EQ(Content(numbers), (std::vector<u32>{0, 2}));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayIndexOutOfRange"});
}

TEST(ArrayPopBack, ArrayWithoutDataIsAnError) {
  LogCapture log;
  Array<u32> array;
  EXPECT_FALSE(array.PopBack());
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayWithoutData"});
}

TEST(ArrayPopBack, EmptyArrayIsFalseWithoutARecord) {
  Array<u32> array;
  ASSERT_TRUE(array.Add(1));
  ASSERT_TRUE(array.Add(2));
  EXPECT_TRUE(array.PopBack());
  EXPECT_EQ(Content(array), std::vector<u32>{1});
  EXPECT_TRUE(array.PopBack());
  LogCapture log;
  EXPECT_FALSE(array.PopBack());
  EXPECT_EQ(array.count, 0U);
  EXPECT_TRUE(log.Entries().empty());
}

TEST(Array, EmptyKeepsTheStorage) {
  TestAllocator memory;
  Array<u32> array;
  ASSERT_TRUE(array.Create(8, 8, 1, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(1));
  array.Empty();
  EXPECT_EQ(array.GetCount(), 0U);
  EXPECT_EQ(array.capacity, 8U);
  EXPECT_EQ(memory.requests, 1U);
}

}  // namespace
