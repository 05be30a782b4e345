#include "Velmar/Collections/StreamBuffer.h"

#include <gtest/gtest.h>

#include <cstring>

using Velmar::u16;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
using Velmar::Collections::Buffer;
using Velmar::Collections::GrowType;
using Velmar::Collections::StreamBuffer;

namespace {

constexpr u64 kToEnd = ~u64{0};

class StreamBufferTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(source_.Create(20, 20, 1, false, GrowType::kFixedStep));
    for (u8 i = 1; i <= 20; ++i) {
      source_.PushUInt8(i);
    }
  }
  Buffer source_{true};
};

TEST_F(StreamBufferTest, ReadsLittleEndianInOrder) {
  StreamBuffer in(source_, 0, kToEnd, true);
  u16 a = 0;
  u32 b = 0;
  u64 c = 0;
  u8 d[6] = {};
  ASSERT_TRUE(in.Read(a) && in.Read(b) && in.Read(c) && in.Read(d, 6));
  EXPECT_EQ(a, 0x0201);
  EXPECT_EQ(b, 0x06050403U);
  EXPECT_EQ(c, 0x0E0D0C0B0A090807U);
  EXPECT_EQ(d[5], 20);
  EXPECT_EQ(in.Remaining(), 0U);
}

TEST_F(StreamBufferTest, ExhaustedWindowReadsNothing) {
  StreamBuffer in(source_, 10, 1, true);
  u16 a = 77;
  u32 b = 77;
  u64 c = 77;
  u8 d[2] = {77, 77};
  EXPECT_FALSE(in.Read(a));
  EXPECT_FALSE(in.Read(b));
  EXPECT_FALSE(in.Read(c));
  EXPECT_FALSE(in.Read(d, 2));
  EXPECT_EQ(in.Take(2), nullptr);
  EXPECT_EQ(in.Take(0xFFFFFFFF), nullptr);
  EXPECT_EQ(a, 77);
  EXPECT_EQ(b, 77U);
  EXPECT_EQ(c, 77U);
  EXPECT_EQ(d[0], 77);
  EXPECT_EQ(in.Remaining(), 1U);
  EXPECT_TRUE(in.Read(d, 1));
  EXPECT_EQ(d[0], 11);
}

TEST_F(StreamBufferTest, WindowStaysInItsBounds) {
  StreamBuffer in(source_, 4, 3, true);
  EXPECT_EQ(in.Remaining(), 3U);
  const u8* bytes = in.Take(3);
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(std::memcmp(bytes, "\5\6\7", 3), 0);
  EXPECT_EQ(in.Take(1), nullptr);
  EXPECT_NE(in.Take(0), nullptr);
}

TEST_F(StreamBufferTest, WindowThatLeavesTheSourceIsEmpty) {
  const u64 windows[][2] = {
      {0, 21}, {20, 1}, {21, 0}, {21, kToEnd}, {1, ~0ULL - 1}, {~0ULL, 2}, {0, 0xFFFFFFFFULL}, {0x100000000ULL, 1}};
  for (const auto& window : windows) {
    StreamBuffer in(source_, window[0], window[1], true);
    u8 byte = 0;
    EXPECT_EQ(in.Remaining(), 0U);
    EXPECT_FALSE(in.Read(&byte, 1));
  }
}

TEST_F(StreamBufferTest, WindowAtTheEndIsEmptyButGood) {
  StreamBuffer in(source_, 20, kToEnd, true);
  EXPECT_EQ(in.Remaining(), 0U);
  EXPECT_TRUE(in.Read(nullptr, 0));
}

}  // namespace
