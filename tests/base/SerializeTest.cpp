// Serial forms of String and Buffer, and what a hostile stream does to them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Utils/String.h"
#include "tests/base/FailingAllocations.h"

using Velmar::kNone;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
using Velmar::Collections::Buffer;
using Velmar::Collections::GrowType;
using Velmar::Collections::StreamBuffer;
using Velmar::Utils::String;

namespace {

constexpr u64 kToEnd = ~u64{0};

std::string Bytes(const Buffer& buffer) {
  return {reinterpret_cast<const char*>(buffer.GetUnsafePointer(0, buffer.size)), buffer.size};
}

// A stream that promises `length` bytes and has three.
void PushPromise(Buffer& buffer, u32 length) {
  ASSERT_TRUE(buffer.Create(64, 64, 1, false, GrowType::kFixedStep));
  ASSERT_NE(buffer.PushUInt32(length), kNone);
  ASSERT_NE(buffer.PushBuffer("abc", 3), kNone);
}

constexpr u32 kHostileLengths[] = {4, 1000, 26214400, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};

TEST(StringSerialize, WritesLengthAndBytes) {
  Buffer out(true);
  ASSERT_TRUE(out.Create(4, 100, 10, false, GrowType::kFixedStep));
  ASSERT_TRUE(String("abc", true).Serialize(out, nullptr));
  ASSERT_TRUE(String().Serialize(out, nullptr));
  EXPECT_EQ(Bytes(out), std::string("\3\0\0\0abc\0\0\0\0", 11));
}

TEST(StringSerialize, ReadsBackEveryByte) {
  String original;
  ASSERT_TRUE(original.Set("a\0\xFF z", 5));
  Buffer out(true);
  ASSERT_TRUE(out.Create(0, 100, 10, false, GrowType::kFixedStep));
  ASSERT_TRUE(original.Serialize(out, nullptr) && String("next", true).Serialize(out, nullptr));
  StreamBuffer in(out, 0, kToEnd, true);
  String read("old", true);
  ASSERT_TRUE(read.Deserialize(in, nullptr));
  EXPECT_TRUE(read == original);
  ASSERT_TRUE(read.Deserialize(in, nullptr));
  EXPECT_STREQ(read.text, "next");
  EXPECT_EQ(in.Remaining(), 0U);
}

TEST(StringSerialize, FullBufferIsLeftAsItWas) {
  Buffer out(true);
  ASSERT_TRUE(out.Create(6, 6, 1, false, GrowType::kFixedStep));
  EXPECT_FALSE(String("abc", true).Serialize(out, nullptr));
  EXPECT_EQ(out.size, 0U);
  ASSERT_NE(out.PushBuffer("xyz", 3), kNone);
  EXPECT_FALSE(String("abc", true).Serialize(out, nullptr));
  EXPECT_EQ(Bytes(out), "xyz");
  ASSERT_NE(out.PushZeroedBuffer(3), kNone);
  EXPECT_FALSE(String().Serialize(out, nullptr));
  EXPECT_EQ(out.size, 6U);
}

TEST(StringDeserialize, HostileLengthFailsWithoutAllocation) {
  for (const u32 length : kHostileLengths) {
    Buffer stream(true);
    PushPromise(stream, length);
    StreamBuffer in(stream, 0, kToEnd, true);
    String s("kept", true);
    const u64 before = Velmar::Sim::CountAllocations();
    EXPECT_FALSE(s.Deserialize(in, nullptr));
    EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
    EXPECT_STREQ(s.text, "kept");
  }
}

TEST(StringDeserialize, CutStreamFails) {
  Buffer stream(true);
  PushPromise(stream, 3);
  for (u32 cut = 0; cut < stream.size; ++cut) {
    StreamBuffer in(stream, 0, cut, true);
    String s("kept", true);
    EXPECT_FALSE(s.Deserialize(in, nullptr)) << cut;
    EXPECT_STREQ(s.text, "kept");
  }
}

TEST(StringDeserialize, ExhaustionLeavesTheString) {
  Buffer stream(true);
  ASSERT_TRUE(stream.Create(0, 1000, 100, false, GrowType::kPercent));
  ASSERT_TRUE(String(std::string(300, 'x').c_str(), true).Serialize(stream, nullptr));
  EXPECT_EQ(ForEachFailingAllocation([&] {
              char area[5];
              String s;
              s.Create(area, sizeof(area), true, true);
              s.Set("kept");
              StreamBuffer in(stream, 0, kToEnd, true);
              const bool done = s.Deserialize(in, nullptr);
              EXPECT_EQ(s.length, done ? 300 : 4);
              return done;
            }),
            1);
}

TEST(BufferSerialize, ReadsBackEveryByte) {
  Buffer original(true);
  ASSERT_TRUE(original.InitializeObject());
  ASSERT_NE(original.PushBuffer("a\0b", 3), kNone);
  Buffer out(true);
  ASSERT_TRUE(out.Create(0, 100, 10, false, GrowType::kFixedStep));
  ASSERT_TRUE(original.Serialize(out, nullptr));
  EXPECT_EQ(Bytes(out), std::string("\3\0\0\0a\0b", 7));
  Buffer read(true);
  ASSERT_TRUE(read.InitializeObject());
  ASSERT_NE(read.PushBuffer("a longer old content", 20), kNone);
  StreamBuffer in(out, 0, kToEnd, true);
  ASSERT_TRUE(read.Deserialize(in, nullptr));
  EXPECT_EQ(Bytes(read), std::string("a\0b", 3));
}

TEST(BufferSerialize, EmptyReadsBackEmpty) {
  Buffer original(true);
  ASSERT_TRUE(original.InitializeObject());
  Buffer out(true);
  ASSERT_TRUE(out.Create(0, 100, 10, false, GrowType::kFixedStep));
  ASSERT_TRUE(original.Serialize(out, nullptr));
  StreamBuffer in(out, 0, kToEnd, true);
  Buffer read(true);
  ASSERT_TRUE(read.InitializeObject());
  EXPECT_TRUE(read.Deserialize(in, nullptr));
  EXPECT_EQ(read.size, 0U);
}

TEST(BufferSerialize, FullBufferIsLeftAsItWas) {
  Buffer original(true);
  ASSERT_TRUE(original.InitializeObject());
  ASSERT_NE(original.PushBuffer("abc", 3), kNone);
  for (const u32 room : {0U, 3U, 4U, 6U}) {
    Buffer out(true);
    ASSERT_TRUE(out.Create(room, room, 1, false, GrowType::kFixedStep));
    EXPECT_FALSE(original.Serialize(out, nullptr));
    EXPECT_EQ(out.size, 0U);
  }
}

TEST(BufferDeserialize, HostileLengthFailsWithoutAllocation) {
  for (const u32 length : kHostileLengths) {
    Buffer stream(true);
    PushPromise(stream, length);
    StreamBuffer in(stream, 0, kToEnd, true);
    Buffer read(true);
    ASSERT_TRUE(read.InitializeObject());
    ASSERT_NE(read.PushBuffer("kept", 4), kNone);
    const u64 before = Velmar::Sim::CountAllocations();
    EXPECT_FALSE(read.Deserialize(in, nullptr));
    EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
    EXPECT_EQ(Bytes(read), "kept");
  }
}

TEST(BufferDeserialize, ContentAboveTheMaximumFailsWithoutAllocation) {
  Buffer stream(true);
  PushPromise(stream, 3);
  Buffer read(true);
  ASSERT_TRUE(read.Create(2, 2, 1, false, GrowType::kFixedStep));
  const u64 before = Velmar::Sim::CountAllocations();
  StreamBuffer in(stream, 0, kToEnd, true);
  EXPECT_FALSE(read.Deserialize(in, nullptr));
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
}

TEST(BufferDeserialize, BufferThatWasNotCreatedFails) {
  Buffer stream(true);
  PushPromise(stream, 0);
  StreamBuffer in(stream, 0, kToEnd, true);
  Buffer read(true);
  EXPECT_FALSE(read.Deserialize(in, nullptr));
}

TEST(BufferDeserialize, ExhaustionLeavesTheBuffer) {
  Buffer stream(true);
  PushPromise(stream, 3);
  EXPECT_EQ(ForEachFailingAllocation([&] {
              u8 area[2];
              Buffer read(true);
              read.CreateFromExistingBuffer(area, 2, true, true, 100, 1, false, GrowType::kFixedStep);
              read.PushUInt16(0x4142);
              StreamBuffer in(stream, 0, kToEnd, true);
              const bool done = read.Deserialize(in, nullptr);
              EXPECT_EQ(Bytes(read), done ? "abc" : "BA");
              return done;
            }),
            1);
}

}  // namespace
