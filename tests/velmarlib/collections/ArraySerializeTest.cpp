// The stored form of Array: frame, elements, and every way in which it can be broken.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/collections/TestElements.h"

namespace {

using namespace Velmar;
using namespace Velmar::Collections;
using Bytes = std::vector<u8>;
using Strings = std::vector<std::string>;

class ArraySerializeTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bytes_.Create(256, 1 << 20, 256, false, GrowType::kFixedStep)); }

  // A frame of version 1 without elements.
  void PutFrame(u32 count, u32 ceiling, u32 flags) {
    bytes_.Reset();
    bytes_.PushUInt16(1);
    bytes_.PushUInt32(count);
    bytes_.PushUInt32(ceiling);
    bytes_.PushUInt32(flags);
  }

  void PutRows(u32 count) {
    for (u32 i = 0; i < count; ++i) {
      ASSERT_TRUE((PlainRow{100 + i, static_cast<u16>(i)}).Serialize(bytes_));
    }
  }

  // Three rows in a ceiling of 0x40000 with a growth of 1024.
  void PutThreeRows() {
    PutFrame(3, 0x40000, 0x10000400);
    PutRows(3);
  }

  template <class T>
  bool Read(Array<T>& array, u32 size = kNone) {
    StreamBuffer in(bytes_, 0, size == kNone ? bytes_.size : size, true);
    const bool result = array.Deserialize(in);
    remaining_ = in.Remaining();
    return result;
  }

  Bytes Written() {
    return Bytes(bytes_.GetUnsafePointer(0, bytes_.size), bytes_.GetUnsafePointer(0, 0) + bytes_.size);
  }

  Buffer bytes_{true};
  u64 remaining_ = 0;
};

TEST_F(ArraySerializeTest, FrameAndRowsLieInTheirOrder) {
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(16, 0x40000, 1024, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(PlainRow{0x04030201, 0x0605}));
  ASSERT_TRUE(array.Add(PlainRow{7, 8}));
  bytes_.PushUInt64(0x1122334455667788);
  ASSERT_TRUE(array.Serialize(bytes_));
  EXPECT_EQ(Written(), (Bytes{1, 0, 2, 0, 0, 0, 0, 0, 4, 0, 0, 4, 0, 0x10, 1, 2, 3, 4, 5, 6, 7, 0, 0, 0, 8, 0}))
      << "what was in the buffer is gone";
}

TEST_F(ArraySerializeTest, EmptyArrayIsItsFrame) {
  const Array<PlainRow> array;
  ASSERT_TRUE(array.Serialize(bytes_));
  EXPECT_EQ(Written(), (Bytes{1, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0x96, 0, 0, 0x90}));
}

TEST_F(ArraySerializeTest, BufferThatIsTooSmallIsAnErrorAtEachSize) {
  Array<PlainRow> array;
  ASSERT_TRUE(array.Add(PlainRow{1, 2}));
  ASSERT_TRUE(array.Add(PlainRow{3, 4}));
  for (u32 size = 1; size < 26; ++size) {
    LogCapture log;
    Buffer small(true);
    ASSERT_TRUE(small.Create(0, size, 1, false, GrowType::kFixedStep));
    EXPECT_FALSE(array.Serialize(small)) << size;
    EXPECT_EQ(log.Lines(), size < 14 ? Strings{"5 velmar.ArrayFrameNotWritten"} : Strings{})
        << "an element logs for itself, at size " << size;
  }
  Buffer enough(true);
  ASSERT_TRUE(enough.Create(0, 26, 1, false, GrowType::kFixedStep));
  EXPECT_TRUE(array.Serialize(enough));
}

TEST_F(ArraySerializeTest, ObjectsComeBackAsTheyWere) {
  Array<NamedRow> array;
  const Strings names = {"", "one", "a name that is longer than any inline area of a string could be"};
  for (const std::string& name : names) {
    ASSERT_TRUE(array.Add(NamedRow(name.c_str())));
  }
  ASSERT_TRUE(array.Serialize(bytes_));
  Array<NamedRow> copy;
  ASSERT_TRUE(copy.Add(NamedRow("gone")));
  ASSERT_TRUE(Read(copy));
  ASSERT_EQ(copy.count, 3U);
  for (u32 i = 0; i < 3; ++i) {
    EXPECT_EQ(copy.data[i].name.text, names[i]);
  }
  EXPECT_EQ(remaining_, 0U);
}

TEST_F(ArraySerializeTest, ReadTakesExactlyTheCountThatIsStored) {
  PutThreeRows();
  bytes_.PushUInt32(0xEEEEEEEE);
  Array<PlainRow> array;
  ASSERT_TRUE(Read(array));
  ASSERT_EQ(array.count, 3U);
  EXPECT_EQ(array.capacity, 3U);
  EXPECT_EQ(array.maxCapacity, 0x40000U);
  EXPECT_EQ(array.flagWord, 0x10000400U);
  EXPECT_EQ(array.data[0], (PlainRow{100, 0}));
  EXPECT_EQ(array.data[2], (PlainRow{102, 2}));
  EXPECT_EQ(remaining_, 4U) << "what follows is not the array's";
}

TEST_F(ArraySerializeTest, RoomThatSufficesStays) {
  TestAllocator memory;
  PutThreeRows();
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(8, 8, 1, false, GrowType::kFixedStep));
  ASSERT_TRUE(Read(array));
  EXPECT_EQ(array.capacity, 8U);
  EXPECT_EQ(memory.requests, 1U);
}

TEST_F(ArraySerializeTest, VersionTwoIsRefused) {
  PutThreeRows();
  bytes_.GetUnsafePointer(0, 1)[0] = 2;
  LogCapture log;
  Array<PlainRow> array;
  ASSERT_TRUE(array.Add(PlainRow{1, 1}));
  EXPECT_FALSE(Read(array));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayVersionUnknown"});
  EXPECT_EQ(log.Arguments("velmar.ArrayVersionUnknown"), Strings{"2"});
  EXPECT_EQ(array.count, 0U);
}

TEST_F(ArraySerializeTest, VersionZeroRaisesTheCeilingToItsCount) {
  bytes_.PushUInt16(0);
  bytes_.PushUInt32(10);
  PutRows(10);
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(0, 5, 7, false, GrowType::kFixedStep));
  ASSERT_TRUE(Read(array));
  EXPECT_EQ(array.count, 10U);
  EXPECT_EQ(array.maxCapacity, 10U);
  EXPECT_EQ(array.flagWord, 0x10000007U);
  EXPECT_EQ(array.data[9], (PlainRow{109, 9}));
}

TEST_F(ArraySerializeTest, VersionZeroLeavesAHigherCeiling) {
  bytes_.PushUInt16(0);
  bytes_.PushUInt32(2);
  PutRows(2);
  Array<PlainRow> array;
  ASSERT_TRUE(Read(array));
  EXPECT_EQ(array.count, 2U);
  EXPECT_EQ(array.maxCapacity, 256U);
}

TEST_F(ArraySerializeTest, FlagWordIsMadeOfTheArraysAndTheStoredBits) {
  PutFrame(1, 9, 0xFF000400);
  PutRows(1);
  Array<PlainRow> heap;
  ASSERT_TRUE(heap.Create(4, 9, 3, false, GrowType::kFixedStep));
  ASSERT_TRUE(Read(heap));
  EXPECT_EQ(heap.flagWord, 0x90000400U);
  PlainRow area[4];
  Array<PlainRow> fixed;
  ASSERT_TRUE(fixed.Create(area, 4, true, false, 0, 3, false, GrowType::kPercent, kNone));
  ASSERT_TRUE(Read(fixed));
  EXPECT_EQ(fixed.flagWord, 0xA0000400U);
  EXPECT_EQ(fixed.data, area);
  PutFrame(1, 9, 0x00000400);
  PutRows(1);
  ASSERT_TRUE(Read(fixed));
  EXPECT_EQ(fixed.flagWord, 0x20000400U) << "the stored word decides on the percentage";
}

TEST_F(ArraySerializeTest, EnlargedArrayOwnsItsStorageAndGrowsBySteps) {
  TestAllocator memory;
  {
    PutFrame(3, 9, 0x80000032);
    PutRows(3);
    PlainRow area[2];
    Array<PlainRow> array;
    ASSERT_TRUE(array.Create(area, 2, true, false, 0, 3, false, GrowType::kFixedStep, kNone));
    ASSERT_TRUE(Read(array));
    EXPECT_EQ(array.flagWord, 0x10000032U);
    EXPECT_NE(array.data, area);
    EXPECT_EQ(area[0], PlainRow());
    EXPECT_EQ(memory.live, 1);
  }
  EXPECT_EQ(memory.live, 0);
}

TEST_F(ArraySerializeTest, EnlargedArrayFreesItsFormerStorage) {
  TestAllocator memory;
  PutThreeRows();
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(2, 2, 1, false, GrowType::kFixedStep));
  ASSERT_TRUE(Read(array));
  EXPECT_EQ(memory.live, 1);
  EXPECT_EQ(memory.frees, 1U);
}

TEST_F(ArraySerializeTest, CountAboveTheCeilingIsRefusedTwiceLogged) {
  TestAllocator memory;
  PutFrame(3, 2, 0x10000400);
  PutRows(3);
  LogCapture log;
  Array<PlainRow> array;
  ASSERT_TRUE(array.Create(2, 4, 1, false, GrowType::kFixedStep));
  ASSERT_TRUE(array.Add(PlainRow{1, 1}));
  EXPECT_FALSE(Read(array));
  EXPECT_EQ(log.Lines(), (Strings{"3 velmar.ArrayCountAboveCeiling", "5 velmar.ArrayNotRead"}));
  EXPECT_EQ(log.Arguments("velmar.ArrayCountAboveCeiling"), (Strings{"3", "2"}));
  EXPECT_EQ(array.count, 0U);
  EXPECT_EQ(array.maxCapacity, 2U);
  EXPECT_EQ(memory.requests, 1U);
}

TEST_F(ArraySerializeTest, GrowthZeroIsRefused) {
  PutFrame(1, 9, 0x10000000);
  PutRows(1);
  LogCapture log;
  Array<PlainRow> array;
  ASSERT_TRUE(array.Add(PlainRow{1, 1}));
  EXPECT_FALSE(Read(array));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayGrowthIsZero"});
  EXPECT_EQ(array.count, 0U);
}

TEST_F(ArraySerializeTest, GrowthZeroIsRefusedWithoutElementsToo) {
  PutFrame(0, 9, 0x10000000);
  LogCapture log;
  Array<PlainRow> array;
  EXPECT_FALSE(Read(array));
  EXPECT_EQ(log.Lines(), Strings{"3 velmar.ArrayGrowthIsZero"});
}

TEST_F(ArraySerializeTest, CountZeroEmptiesTheArray) {
  PutFrame(0, 9, 0x10000004);
  Array<PlainRow> array;
  ASSERT_TRUE(array.Add(PlainRow{1, 1}));
  EXPECT_TRUE(Read(array));
  EXPECT_EQ(array.count, 0U);
  EXPECT_EQ(array.maxCapacity, 9U);
}

TEST_F(ArraySerializeTest, EachTruncationIsRefusedWithAnEmptyArray) {
  PutThreeRows();
  for (u32 size = 0; size < bytes_.size; ++size) {
    LogCapture log;
    Array<PlainRow> array;
    ASSERT_TRUE(array.Add(PlainRow{1, 1}));
    EXPECT_FALSE(Read(array, size)) << size;
    EXPECT_EQ(log.Lines(), Strings{size < 14 ? "5 velmar.ArrayFrameMissing" : "5 velmar.ArrayElementsMissing"}) << size;
    EXPECT_EQ(array.count, 0U) << size;
  }
}

TEST_F(ArraySerializeTest, TruncatedFrameChangesNeitherCeilingNorFlags) {
  PutThreeRows();
  Array<PlainRow> array;
  EXPECT_FALSE(Read(array, 13));
  EXPECT_EQ(array.maxCapacity, 256U);
  EXPECT_EQ(array.flagWord, 0x90000096U);
}

TEST_F(ArraySerializeTest, CountThatTheStreamCannotHoldTakesNoMemory) {
  TestAllocator memory;
  PutFrame(0xFFFFFFFF, 0xFFFFFFFF, 0x10000400);
  PutRows(3);
  LogCapture log;
  Array<PlainRow> array;
  EXPECT_FALSE(Read(array));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayElementsMissing"});
  EXPECT_EQ(log.Arguments("velmar.ArrayElementsMissing"), (Strings{"4294967295", "18"}));
  EXPECT_EQ(memory.requests, 0U);
  EXPECT_EQ(array.count, 0U);
}

TEST_F(ArraySerializeTest, ElementThatCannotBeReadIsNamedInTheRecord) {
  Array<NamedRow> array;
  for (const char* name : {"first", "second", "third"}) {
    ASSERT_TRUE(array.Add(NamedRow(name)));
  }
  ASSERT_TRUE(array.Serialize(bytes_));
  LogCapture log;
  Array<NamedRow> copy;
  EXPECT_FALSE(Read(copy, bytes_.size - 1));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayElementNotRead"});
  EXPECT_EQ(log.Arguments("velmar.ArrayElementNotRead"), (Strings{"2", "3"}));
  EXPECT_EQ(copy.count, 0U);
}

TEST_F(ArraySerializeTest, NoMemoryForTheElementsIsAnError) {
  TestAllocator memory;
  {
    PutThreeRows();
    LogCapture log;
    Array<PlainRow> array;
    ASSERT_TRUE(array.Add(PlainRow{1, 1}));
    memory.FailRequest(0);
    EXPECT_FALSE(Read(array));
    EXPECT_EQ(log.Lines(), Strings{"5 velmar.ArrayNoMemory"});
    EXPECT_EQ(log.Arguments("velmar.ArrayNoMemory"), Strings{"3"});
    EXPECT_EQ(array.count, 0U);
    EXPECT_TRUE(Read(array)) << "with memory it goes on as ever";
    EXPECT_EQ(array.count, 3U);
  }
  EXPECT_EQ(memory.live, 0);
}

TEST_F(ArraySerializeTest, NoMemoryInsideAnElementIsAnError) {
  Array<NamedRow> array;
  const std::string name(100, 'n');
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(array.Add(NamedRow(name.c_str())));
  }
  ASSERT_TRUE(array.Serialize(bytes_));
  for (u32 n = 0; n < 5; ++n) {
    LogCapture log;
    Array<NamedRow> copy;
    Sim::FailAllocation(n);
    EXPECT_FALSE(Read(copy));
    EXPECT_EQ(log.Count("velmar.ArrayElementNotRead"), 1);
    EXPECT_EQ(log.Arguments("velmar.ArrayElementNotRead"), (Strings{std::to_string(n), "5"}));
    EXPECT_EQ(copy.count, 0U);
  }
}

}  // namespace
