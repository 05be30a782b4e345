#include "Velmar/Collections/Buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/base/FailingAllocations.h"

using Velmar::kNone;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
using Velmar::Collections::Buffer;
using Velmar::Collections::GrowType;

namespace {

constexpr u32 kBlockMax = 26214400;

std::string Bytes(const Buffer& buffer) {
  return {reinterpret_cast<const char*>(buffer.GetUnsafePointer(0, buffer.size)), buffer.size};
}

TEST(Buffer, IsUnusableUntilCreated) {
  Buffer buffer(true);
  EXPECT_EQ(buffer.PushUInt8(1), kNone);
  EXPECT_EQ(buffer.PushBuffer("", 0), kNone);
  EXPECT_EQ(buffer.PushZeroedBuffer(0), kNone);
  EXPECT_EQ(buffer.AllocateBuffer(0), kNone);
  EXPECT_EQ(buffer.GetUnsafePointer(0, 1), nullptr);
  EXPECT_EQ(buffer.size, 0U);
}

TEST(Buffer, PushesLittleEndianAndGivesOffsets) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(0, 100, 1, false, GrowType::kFixedStep));
  EXPECT_EQ(buffer.PushUInt8(0x01), 0U);
  EXPECT_EQ(buffer.PushUInt16(0x0203), 1U);
  EXPECT_EQ(buffer.PushUInt32(0x04050607), 3U);
  EXPECT_EQ(buffer.PushUInt64(0x08090A0B0C0D0E0F), 7U);
  EXPECT_EQ(buffer.PushBuffer("xy", 2), 15U);
  EXPECT_EQ(buffer.PushZeroedBuffer(2), 17U);
  EXPECT_EQ(Bytes(buffer), std::string("\x01\x03\x02\x07\x06\x05\x04\x0F\x0E\x0D\x0C\x0B\x0A\x09\x08xy\0\0", 19));
}

TEST(Buffer, NeverPassesItsMaximum) {
  for (const GrowType type : {GrowType::kFixedStep, GrowType::kPercent}) {
    Buffer buffer(true);
    ASSERT_TRUE(buffer.Create(1, 7, 100, false, type));
    ASSERT_EQ(buffer.PushUInt32(0), 0U);
    EXPECT_EQ(buffer.PushUInt32(0), kNone);
    EXPECT_EQ(buffer.PushUInt64(0), kNone);
    EXPECT_EQ(buffer.PushZeroedBuffer(4), kNone);
    EXPECT_EQ(buffer.AllocateBuffer(4), kNone);
    EXPECT_EQ(buffer.AllocateBuffer(0xFFFFFFFF), kNone);
    EXPECT_EQ(buffer.size, 4U);
    EXPECT_EQ(buffer.PushBuffer("abc", 3), 4U);
    EXPECT_EQ(buffer.PushUInt8(0), kNone);
    EXPECT_EQ(buffer.PushBuffer("", 0), 7U);
  }
}

TEST(Buffer, CreateRefusesNoGrowthAndCapacityAboveTheMaximum) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(4, 8, 1, false, GrowType::kFixedStep));
  ASSERT_EQ(buffer.PushBuffer("abc", 3), 0U);
  EXPECT_FALSE(buffer.Create(4, 8, 0, false, GrowType::kFixedStep));
  EXPECT_FALSE(buffer.Create(9, 8, 1, false, GrowType::kFixedStep));
  EXPECT_EQ(Bytes(buffer), "abc");
}

TEST(Buffer, CreateAgainStartsEmpty) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(4, 8, 1, false, GrowType::kFixedStep));
  ASSERT_EQ(buffer.PushBuffer("abc", 3), 0U);
  ASSERT_TRUE(buffer.Create(2, 4, 1, false, GrowType::kFixedStep));
  EXPECT_EQ(buffer.size, 0U);
  EXPECT_EQ(buffer.PushZeroedBuffer(5), kNone);
}

TEST(Buffer, NullDataIsRefused) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(4, 8, 1, false, GrowType::kFixedStep));
  EXPECT_EQ(buffer.PushBuffer(nullptr, 1), kNone);
  EXPECT_EQ(buffer.PushBuffer(nullptr, 0), 0U);
}

TEST(Buffer, AreaIsUsedUntilItIsOutgrown) {
  u8 area[4];
  Buffer buffer(true);
  ASSERT_TRUE(buffer.CreateFromExistingBuffer(area, 4, true, true, 100, 100, false, GrowType::kPercent));
  ASSERT_EQ(buffer.PushUInt32(0x64636261), 0U);
  EXPECT_EQ(buffer.GetUnsafePointer(0, 4), area);
  ASSERT_EQ(buffer.PushUInt8('e'), 4U);
  EXPECT_NE(buffer.GetUnsafePointer(0, 5), area);
  EXPECT_EQ(Bytes(buffer), "abcde");
}

TEST(Buffer, AreaThatMayNotBeLeftIsTheMaximum) {
  u8 area[4] = {'a', 'b', 'c', 'd'};
  Buffer buffer(true);
  ASSERT_TRUE(buffer.CreateFromExistingBuffer(area, 4, false, false, 100, 100, false, GrowType::kPercent));
  EXPECT_EQ(Bytes(buffer), "abcd");
  EXPECT_EQ(buffer.PushUInt8('e'), kNone);
  EXPECT_TRUE(buffer.Truncate(2));
  EXPECT_EQ(buffer.PushUInt16(0x7978), 2U);
  EXPECT_EQ(Bytes(buffer), "abxy");
}

TEST(Buffer, BadAreasAreRefused) {
  u8 area[4];
  Buffer buffer(true);
  EXPECT_FALSE(buffer.CreateFromExistingBuffer(nullptr, 4, true, true, 100, 100, false, GrowType::kPercent));
  EXPECT_FALSE(buffer.CreateFromExistingBuffer(area, 0, true, true, 100, 100, false, GrowType::kPercent));
  EXPECT_FALSE(buffer.CreateFromExistingBuffer(area, 4, true, true, 100, 0, false, GrowType::kPercent));
  EXPECT_FALSE(buffer.CreateFromExistingBuffer(area, 4, true, true, 3, 100, false, GrowType::kPercent));
  EXPECT_EQ(buffer.PushUInt8(1), kNone);
}

TEST(Buffer, ZeroedBufferClearsItsRoom) {
  u8 area[8];
  std::memset(area, 0xEE, sizeof(area));
  Buffer buffer(true);
  ASSERT_TRUE(buffer.CreateFromExistingBuffer(area, 8, true, true, 100, 100, true, GrowType::kPercent));
  EXPECT_EQ(buffer.AllocateBuffer(12), 0U);
  EXPECT_EQ(Bytes(buffer), std::string(12, '\0'));
}

TEST(Buffer, PointersAreGivenForBytesInUseOnly) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(64, 64, 1, false, GrowType::kFixedStep));
  ASSERT_EQ(buffer.PushBuffer("abcd", 4), 0U);
  EXPECT_EQ(*buffer.GetUnsafePointer(3, 1), 'd');
  EXPECT_NE(buffer.GetUnsafePointer(4, 0), nullptr);
  EXPECT_EQ(buffer.GetUnsafePointer(4, 1), nullptr);
  EXPECT_EQ(buffer.GetUnsafePointer(5, 0), nullptr);
  EXPECT_EQ(buffer.GetUnsafePointer(1, 0xFFFFFFFF), nullptr);
  EXPECT_EQ(buffer.GetUnsafePointer(0xFFFFFFFF, 1), nullptr);
}

TEST(Buffer, NoBytesOfAnEmptyBufferHaveAPlace) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.InitializeObject());
  EXPECT_NE(buffer.GetUnsafePointer(0, 0), nullptr);
}

TEST(Buffer, ResetKeepsTheStorage) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(0, 1000, 1, false, GrowType::kFixedStep));
  ASSERT_EQ(buffer.PushZeroedBuffer(1000), 0U);
  const u64 before = Velmar::Sim::CountAllocations();
  buffer.Reset();
  EXPECT_EQ(buffer.size, 0U);
  EXPECT_EQ(buffer.AllocateBuffer(1000), 0U);
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
}

TEST(Buffer, TruncateShortensOnly) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(8, 8, 1, false, GrowType::kFixedStep));
  ASSERT_EQ(buffer.PushUInt32(0), 0U);
  EXPECT_FALSE(buffer.Truncate(5));
  EXPECT_TRUE(buffer.Truncate(4));
  EXPECT_TRUE(buffer.Truncate(0));
  EXPECT_EQ(buffer.size, 0U);
}

TEST(Buffer, GrowsInStepsNotInBytes) {
  Buffer buffer(true);
  ASSERT_TRUE(buffer.Create(0, 1 << 20, 100, false, GrowType::kPercent));
  const u64 before = Velmar::Sim::CountAllocations();
  for (int i = 0; i < (1 << 20); ++i) {
    ASSERT_NE(buffer.PushUInt8(1), kNone);
  }
  EXPECT_LE(Velmar::Sim::CountAllocations() - before, 22U);
}

TEST(Buffer, EveryPushKeepsTheContentWhenMemoryFails) {
  const std::function<u32(Buffer&)> pushes[] = {
      [](Buffer& b) { return b.PushUInt8(1); },       [](Buffer& b) { return b.PushUInt16(1); },
      [](Buffer& b) { return b.PushUInt32(1); },      [](Buffer& b) { return b.PushUInt64(1); },
      [](Buffer& b) { return b.PushBuffer("x", 1); }, [](Buffer& b) { return b.PushZeroedBuffer(1); },
      [](Buffer& b) { return b.AllocateBuffer(1); },
  };
  for (const auto& push : pushes) {
    EXPECT_EQ(ForEachFailingAllocation([&] {
                u8 area[3];
                Buffer buffer(true);
                buffer.CreateFromExistingBuffer(area, 3, true, true, 100, 100, false, GrowType::kPercent);
                buffer.PushBuffer("abc", 3);
                const u32 offset = push(buffer);
                EXPECT_EQ(offset, offset == kNone ? kNone : 3U);
                EXPECT_EQ(Bytes(buffer).substr(0, 3), "abc");
                return offset != kNone;
              }),
              1);
  }
}

TEST(Buffer, CreateKeepsTheOldContentWhenMemoryFails) {
  EXPECT_EQ(ForEachFailingAllocation([] {
              u8 area[3];
              Buffer buffer(true);
              buffer.CreateFromExistingBuffer(area, 3, true, true, 100, 100, false, GrowType::kPercent);
              buffer.PushBuffer("abc", 3);
              const bool done = buffer.Create(10, 10, 1, false, GrowType::kFixedStep);
              EXPECT_EQ(buffer.size, done ? 0U : 3U);
              return done;
            }),
            1);
}

// A Buffer as it lies in a value pool: raw memory with no object in it.
struct RawBuffer {
  alignas(Buffer) unsigned char memory[sizeof(Buffer)];
  RawBuffer() { std::memset(memory, 0xEE, sizeof(memory)); }
  Buffer& Get() { return *reinterpret_cast<Buffer*>(memory); }
};

TEST(BufferObject, FillsAValueSlotOfThirtyTwoBytes) {
  EXPECT_EQ(sizeof(Buffer), 32U);
}

TEST(BufferObject, LivesInRawMemory) {
  RawBuffer raw;
  ASSERT_TRUE(raw.Get().InitializeObject());
  ASSERT_EQ(raw.Get().PushBuffer("abc", 3), 0U);
  ASSERT_TRUE(raw.Get().ReinitializeObject());
  EXPECT_EQ(raw.Get().size, 0U);
  ASSERT_EQ(raw.Get().PushBuffer("de", 2), 0U);
  EXPECT_EQ(Bytes(raw.Get()), "de");
  raw.Get().UninitializeObject();
}

TEST(BufferObject, GrowsToWhatOneBlockHolds) {
  RawBuffer raw;
  ASSERT_TRUE(raw.Get().InitializeObject());
  EXPECT_EQ(raw.Get().AllocateBuffer(kBlockMax), 0U);
  EXPECT_EQ(raw.Get().PushUInt8(1), kNone);
  raw.Get().UninitializeObject();
}

TEST(BufferObject, CopyIsIndependentOfItsSource) {
  u8 area[8];
  Buffer source(true);
  ASSERT_TRUE(source.CreateFromExistingBuffer(area, 8, true, false, 8, 1, false, GrowType::kFixedStep));
  ASSERT_EQ(source.PushBuffer("abc", 3), 0U);
  RawBuffer raw;
  ASSERT_TRUE(raw.Get().InitializeObjectFrom(source));
  source.Reset();
  EXPECT_EQ(Bytes(raw.Get()), "abc");
  EXPECT_EQ(raw.Get().PushZeroedBuffer(100), 3U);
  raw.Get().UninitializeObject();
}

TEST(BufferObject, CopyOfAnEmptyBufferIsUsable) {
  const Buffer source(true);
  RawBuffer raw;
  ASSERT_TRUE(raw.Get().InitializeObjectFrom(source));
  EXPECT_EQ(raw.Get().PushUInt8(1), 0U);
  raw.Get().UninitializeObject();
}

TEST(BufferObject, CopyWithoutMemoryIsEmpty) {
  Buffer source(true);
  ASSERT_TRUE(source.InitializeObject());
  ASSERT_EQ(source.PushBuffer("abc", 3), 0U);
  EXPECT_EQ(ForEachFailingAllocation([&] {
              RawBuffer raw;
              const bool done = raw.Get().InitializeObjectFrom(source);
              EXPECT_EQ(raw.Get().size, done ? 3U : 0U);
              raw.Get().UninitializeObject();
              return done;
            }),
            1);
}

TEST(BufferObject, MoveTakesTheStorage) {
  RawBuffer source;
  ASSERT_TRUE(source.Get().InitializeObject());
  ASSERT_EQ(source.Get().PushBuffer("abc", 3), 0U);
  const u8* storage = source.Get().GetUnsafePointer(0, 3);
  const u64 before = Velmar::Sim::CountAllocations();
  RawBuffer target;
  target.Get().InitializeObjectByMove(source.Get());
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
  EXPECT_EQ(target.Get().GetUnsafePointer(0, 3), storage);
  EXPECT_EQ(target.Get().PushUInt8('d'), 3U);
  EXPECT_EQ(Bytes(target.Get()), "abcd");
  target.Get().UninitializeObject();
}

}  // namespace
