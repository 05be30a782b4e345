// The stored form of a cache value.
#include "Velmar/Collections/Caches/TimeCacheObjectWrapper.h"

#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;

TEST(TimeCacheObjectWrapper, StoredFormIs17Bytes) {
  const TimeCacheValue value{0x0102030405060708, 0x1112131415161718, {true}};
  Buffer out(true);
  ASSERT_TRUE(out.Create(0, 100, 100, false, GrowType::kPercent));
  EXPECT_TRUE(value.Serialize(out, nullptr));
  EXPECT_EQ(GetValue(out), std::string("\x08\x07\x06\x05\x04\x03\x02\x01\x18\x17\x16\x15\x14\x13\x12\x11\x01", 17));
}

TEST(TimeCacheObjectWrapper, ReadsBackWhatItWrote) {
  for (const bool flag : {false, true}) {
    const TimeCacheValue value{1700000000000, 48 * 3600 * 1000, {flag}};
    Buffer out(true);
    ASSERT_TRUE(out.Create(0, 100, 100, false, GrowType::kPercent));
    ASSERT_TRUE(value.Serialize(out, nullptr));
    StreamBuffer in(out, 0, out.size, true);
    TimeCacheValue copy{};
    EXPECT_TRUE(copy.Deserialize(in, nullptr));
    EXPECT_EQ(copy.expiry, value.expiry);
    EXPECT_EQ(copy.timeToLive, value.timeToLive);
    EXPECT_EQ(copy.object.value, flag);
    EXPECT_EQ(in.Remaining(), 0U);
  }
}

TEST(TimeCacheObjectWrapper, AnyByteButZeroIsTrue) {
  Buffer bytes(true);
  ASSERT_TRUE(bytes.Create(0, 100, 100, false, GrowType::kPercent));
  ASSERT_NE(bytes.PushZeroedBuffer(16), kNone);
  ASSERT_NE(bytes.PushUInt8(0x80), kNone);
  StreamBuffer in(bytes, 0, bytes.size, true);
  TimeCacheValue value{};
  EXPECT_TRUE(value.Deserialize(in, nullptr));
  EXPECT_TRUE(value.object.value);
}

TEST(TimeCacheObjectWrapper, EachFailedPushIsAnError) {
  const TimeCacheValue value{1, 2, {true}};
  for (u32 room = 1; room < 17; ++room) {
    LogCapture log;
    Buffer out(true);
    ASSERT_TRUE(out.Create(0, room, 100, false, GrowType::kPercent));
    EXPECT_FALSE(value.Serialize(out, nullptr)) << room;
    EXPECT_EQ(log.Lines(), Lines{"5 velmar.CacheValueNotWritten"});
  }
}

TEST(TimeCacheObjectWrapper, EachShortReadIsAnError) {
  Buffer bytes(true);
  ASSERT_TRUE(bytes.Create(0, 100, 100, false, GrowType::kPercent));
  ASSERT_NE(bytes.PushZeroedBuffer(17), kNone);
  for (u32 length = 0; length < 17; ++length) {
    LogCapture log;
    StreamBuffer in(bytes, 0, length, true);
    TimeCacheValue value{};
    EXPECT_FALSE(value.Deserialize(in, nullptr)) << length;
    EXPECT_EQ(log.Lines(), Lines{"5 velmar.CacheValueNotRead"});
  }
}

}  // namespace
