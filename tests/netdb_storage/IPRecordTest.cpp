// IPRecord: merging, order and stored form.
#include <gtest/gtest.h>

#include <numeric>

#include "tests/netdb_storage/Tables.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;

constexpr u32 kAllOnes = 0xFFFFFFFF;
constexpr u64 kAllOnes64 = ~u64{0};

const IPv4 kAddress = Address(192, 0, 2, 7);

TEST(IPRecord, DefaultRowIsZeroWithoutAProcess) {
  const Row row;
  EXPECT_EQ(row.bytes_in, 0U);
  EXPECT_EQ(row.bytes_out, 0U);
  EXPECT_EQ(u64{row.first_seen}, 0U);
  EXPECT_EQ(u64{row.last_seen}, 0U);
  EXPECT_EQ(u64{row.protos}, 0U);
  EXPECT_EQ(row.conns_total, 0U);
  EXPECT_EQ(row.conns_in, 0U);
  EXPECT_EQ(row.conns_out, 0U);
  EXPECT_EQ(row.proc_index, kAllOnes);
  EXPECT_TRUE(row.ip == IPv4());
  EXPECT_EQ(row.port, 0U);
}

TEST(IPRecord, MergeWidensTheTimes) {
  Row target = MakeRow(kAddress, 1, 443);
  target.first_seen = 50;
  target.last_seen = 150;
  Row source = MakeRow(kAddress, 1, 443);
  source.first_seen = 100;
  source.last_seen = 200;
  ASSERT_TRUE(target.MergeInto(source));
  EXPECT_EQ(u64{target.first_seen}, 50U);
  EXPECT_EQ(u64{target.last_seen}, 200U);

  source.first_seen = 10;
  source.last_seen = 20;
  ASSERT_TRUE(target.MergeInto(source));
  EXPECT_EQ(u64{target.first_seen}, 10U);
  EXPECT_EQ(u64{target.last_seen}, 200U);
}

TEST(IPRecord, MergeJoinsProtocolsAndAddsCounters) {
  LogCapture log;
  Row target = MakeRow(kAddress, 1, 443);
  target.protos = 0x0001;
  target.conns_total = 5;
  target.conns_in = 1;
  target.conns_out = 2;
  target.bytes_in = 10;
  target.bytes_out = 20;
  Row source = MakeRow(kAddress, 1, 443);
  source.protos = 0x0400;
  source.conns_total = 7;
  source.conns_in = 3;
  source.conns_out = 4;
  source.bytes_in = u64{1} << 40;
  source.bytes_out = 1;
  ASSERT_TRUE(target.MergeInto(source));
  EXPECT_EQ(u64{target.protos}, 0x0401U);
  EXPECT_EQ(target.conns_total, 12U);
  EXPECT_EQ(target.conns_in, 4U);
  EXPECT_EQ(target.conns_out, 6U);
  EXPECT_EQ(target.bytes_in, (u64{1} << 40) + 10);
  EXPECT_EQ(target.bytes_out, 21U);
  EXPECT_TRUE(log.Entries().empty());
}

TEST(IPRecord, FullCounterStaysFullAndTheOthersGoOn) {
  LogCapture log;
  Row target = MakeRow(kAddress, 1, 443);
  target.conns_total = kAllOnes;
  Row source = MakeRow(kAddress, 1, 443);
  source.bytes_in = 9;
  ASSERT_TRUE(target.MergeInto(source));
  EXPECT_EQ(target.conns_total, kAllOnes);
  EXPECT_EQ(target.bytes_in, 9U);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"3 netdb_storage.CounterSaturated"}));
  ASSERT_TRUE(target.MergeInto(source));
  EXPECT_EQ(target.conns_total, kAllOnes);
  EXPECT_EQ(log.Count("netdb_storage.CounterSaturated"), 2);
}

TEST(IPRecord, EachCounterSaturatesAloneInOrder) {
  LogCapture log;
  Row target = MakeRow(kAddress, 1, 443);
  target.conns_total = target.conns_in = target.conns_out = kAllOnes - 1;
  target.bytes_in = target.bytes_out = kAllOnes64 - 1;
  Row source = MakeRow(kAddress, 1, 443);
  source.conns_total = source.conns_in = source.conns_out = 2;
  source.bytes_in = source.bytes_out = 2;
  ASSERT_TRUE(target.MergeInto(source));
  EXPECT_EQ(target.conns_total, kAllOnes);
  EXPECT_EQ(target.conns_in, kAllOnes);
  EXPECT_EQ(target.conns_out, kAllOnes);
  EXPECT_EQ(target.bytes_in, kAllOnes64);
  EXPECT_EQ(target.bytes_out, kAllOnes64);
  std::vector<std::string> counters;
  for (const LogCapture::Entry& entry : log.Entries()) {
    EXPECT_EQ(entry.level, 3U);
    counters.push_back(entry.arguments.at(0));
  }
  EXPECT_EQ(counters, (std::vector<std::string>{"1", "2", "3", "4", "5"}));
}

TEST(IPRecord, CounterThatJustReachesItsLimitIsNoOverflow) {
  LogCapture log;
  Row target = MakeRow(kAddress, 1, 443);
  target.conns_total = kAllOnes - 1;
  ASSERT_TRUE(target.MergeInto(MakeRow(kAddress, 1, 443)));
  EXPECT_EQ(target.conns_total, kAllOnes);
  EXPECT_TRUE(log.Entries().empty());
}

TEST(IPRecord, RowsOfDifferentKeysDoNotMerge) {
  const Row target = MakeRow(kAddress, 1, 443);
  const Row others[] = {MakeRow(Address(192, 0, 2, 8), 1, 443), MakeRow(kAddress, 2, 443), MakeRow(kAddress, 1, 444),
                        MakeRow(kAddress, kNone, 443)};
  for (Row other : others) {
    LogCapture log;
    other.bytes_in = 77;
    Row copy = target;
    EXPECT_FALSE(copy.MergeInto(other));
    EXPECT_EQ(copy.bytes_in, 0U);
    EXPECT_EQ(copy.conns_total, 1U);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"3 netdb_storage.RowKeysDiffer"}));
  }
}

TEST(IPRecord, OrderIsAddressThenProcessThenPort) {
  const Row row = MakeRow(kAddress, 5, 80);
  EXPECT_EQ(CompareRows(row, MakeRow(kAddress, 5, 80)), 0);
  EXPECT_LT(CompareRows(row, MakeRow(Address(192, 0, 2, 8), 0, 0)), 0);
  EXPECT_GT(CompareRows(row, MakeRow(Address(192, 0, 2, 6), 9, 9)), 0);
  EXPECT_LT(CompareRows(row, MakeRow(kAddress, 6, 1)), 0);
  EXPECT_GT(CompareRows(row, MakeRow(kAddress, 4, 99)), 0);
  EXPECT_LT(CompareRows(row, MakeRow(kAddress, 5, 81)), 0);
  EXPECT_GT(CompareRows(row, MakeRow(kAddress, 5, 79)), 0);
  EXPECT_LT(CompareRows(MakeRow(kAddress, 0, 80), MakeRow(kAddress, kNone, 80)), 0) << "no process comes last";
}

std::vector<u8> Counting(u32 number) {
  std::vector<u8> bytes(number);
  std::iota(bytes.begin(), bytes.end(), u8{1});
  return bytes;
}

template <class T>
void ExpectFieldsOfCountingBytes(const IPRecord<T>& row) {
  constexpr u32 kBase = T::kSize;
  const auto at = [](u32 offset, u32 size) {
    u64 value = 0;
    for (u32 i = 0; i < size; ++i) {
      value |= u64{offset + i + 1} << (8 * i);
    }
    return value;
  };
  EXPECT_EQ(row.ip.bytes[0], 1);
  EXPECT_EQ(row.ip.bytes[T::kSize - 1], T::kSize);
  EXPECT_EQ(row.proc_index, at(kBase, 4));
  EXPECT_EQ(row.port, at(kBase + 4, 2));
  EXPECT_EQ(u64{row.first_seen}, at(kBase + 6, 8) & 0x1FFFF);
  EXPECT_EQ(u64{row.last_seen}, at(kBase + 6, 8) >> 17 & 0x1FFFF);
  EXPECT_EQ(u64{row.protos}, at(kBase + 6, 8) >> 34);
  EXPECT_EQ(row.conns_total, at(kBase + 14, 4));
  EXPECT_EQ(row.conns_in, at(kBase + 18, 4));
  EXPECT_EQ(row.bytes_in, at(kBase + 22, 8));
  EXPECT_EQ(row.conns_out, at(kBase + 30, 4));
  EXPECT_EQ(row.bytes_out, at(kBase + 34, 8));
}

template <class T>
class IPRecordForm : public testing::Test {};
using Families = testing::Types<IPv4, IPv6>;
TYPED_TEST_SUITE(IPRecordForm, Families);

TYPED_TEST(IPRecordForm, FieldsStandInTheirOrderAndRoundTrip) {
  constexpr u32 kSize = TypeParam::kSize == 4 ? 46 : 58;
  Value in;
  const std::vector<u8> bytes = Counting(kSize);
  ASSERT_NE(in->PushBuffer(bytes.data(), kSize), kNone);
  StreamBuffer stream(*in, 0, ~u64{0}, true);
  IPRecord<TypeParam> row;
  ASSERT_TRUE(row.Deserialize(stream));
  EXPECT_EQ(stream.Remaining(), 0U);
  ExpectFieldsOfCountingBytes(row);

  Value out;
  ASSERT_TRUE(row.Serialize(*out));
  EXPECT_EQ(Bytes(*out), bytes);
}

TYPED_TEST(IPRecordForm, EveryShortReadFails) {
  constexpr u32 kSize = IPRecord<TypeParam>::kMinimumElementSize;
  const std::vector<u8> bytes = Counting(kSize);
  for (u32 length = 0; length < kSize; ++length) {
    LogCapture log;
    Value in;
    ASSERT_NE(in->PushBuffer(bytes.data(), length), kNone);
    StreamBuffer stream(*in, 0, ~u64{0}, true);
    IPRecord<TypeParam> row;
    EXPECT_FALSE(row.Deserialize(stream)) << length;
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"5 netdb_storage.RowNotRead"}));
  }
}

TYPED_TEST(IPRecordForm, PushThatFindsNoRoomFails) {
  LogCapture log;
  u8 area[IPRecord<TypeParam>::kMinimumElementSize - 1];
  Buffer small(true);
  ASSERT_TRUE(
      small.CreateFromExistingBuffer(area, sizeof(area), true, false, sizeof(area), 1, false, GrowType::kFixedStep));
  EXPECT_FALSE(IPRecord<TypeParam>().Serialize(small));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"5 netdb_storage.RowNotWritten"}));
}

TEST(IPRecord, LastSecondOfTheDayFits) {
  Row row = MakeRow(kAddress, 1, 443);
  row.first_seen = row.last_seen = 86399;
  row.protos = 0x3FFFFFFF;
  Value bytes;
  ASSERT_TRUE(row.Serialize(*bytes));
  StreamBuffer stream(*bytes, 0, ~u64{0}, true);
  Row read;
  ASSERT_TRUE(read.Deserialize(stream));
  EXPECT_EQ(u64{read.first_seen}, 86399U);
  EXPECT_EQ(u64{read.last_seen}, 86399U);
  EXPECT_EQ(u64{read.protos}, 0x3FFFFFFFU);
}

TEST(IPRecordArray, ThreeRowsTakeTheirFrameAndThreeTimesTheirSize) {
  Array<Row> rows;
  ASSERT_TRUE(rows.Create(16, 0x40000, 1024, false, GrowType::kFixedStep));
  for (u16 port = 1; port <= 3; ++port) {
    ASSERT_TRUE(rows.Add(MakeRow(kAddress, kNone, port)));
  }
  Value out;
  ASSERT_TRUE(rows.Serialize(*out));
  EXPECT_EQ(out->size, 152U);
  const std::vector<u8> bytes = Bytes(*out);
  const std::vector<u8> frame(bytes.begin(), bytes.begin() + 14);
  EXPECT_EQ(frame, (std::vector<u8>{1, 0, 3, 0, 0, 0, 0, 0, 4, 0, 0, 4, 0, 0x10}));
}

TEST(IPRecordArray, VersionZeroRaisesTheCeilingToItsCount) {
  Array<Row> rows;
  ASSERT_TRUE(rows.Create(5, 5, 1, false, GrowType::kFixedStep));
  Value in;
  ASSERT_NE(in->PushUInt16(0), kNone);
  ASSERT_NE(in->PushUInt32(10), kNone);
  for (u16 port = 0; port < 10; ++port) {
    ASSERT_TRUE(MakeRow(kAddress, kNone, port).Serialize(*in));
  }
  StreamBuffer stream(*in, 0, ~u64{0}, true);
  ASSERT_TRUE(rows.Deserialize(stream));
  EXPECT_EQ(rows.count, 10U);
  EXPECT_EQ(rows.maxCapacity, 10U);
  EXPECT_EQ(rows.data[9].port, 9U);
}

}  // namespace
