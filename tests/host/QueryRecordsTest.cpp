// The packed queries, read back by a reader of this file that trusts nothing in them.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "common/HashKind.h"
#include "host/events/NetDbQueryRecord.h"
#include "host/events/TableQueryRecord.h"

namespace {

using namespace Host;
using Bytes = std::vector<u8>;

// Little-endian, by bytes; nothing when it is not wholly inside.
std::optional<u64> Number(const Bytes& record, std::size_t offset, std::size_t size) {
  if (offset + size > record.size()) {
    return std::nullopt;
  }
  u64 value = 0;
  for (std::size_t i = size; i-- != 0;) {
    value = value << 8 | record[offset + i];
  }
  return value;
}

// The text at `offset` when its NUL is inside too.
std::optional<std::string> Text(const Bytes& record, std::size_t offset) {
  std::string text;
  for (std::size_t i = offset; i < record.size(); ++i) {
    if (record[i] == 0) {
      return text;
    }
    text.push_back(static_cast<char>(record[i]));
  }
  return std::nullopt;
}

// The text whose offset stands in the u16 at `field`; nothing for an offset of 0.
std::optional<std::string> TextBehind(const Bytes& record, std::size_t field) {
  const auto offset = Number(record, field, 2);
  return offset && *offset != 0 ? Text(record, *offset) : std::nullopt;
}

std::optional<std::vector<std::string>> Values(const Bytes& record) {
  const auto table = Number(record, 0x24, 2);
  const auto count = Number(record, 0x26, 2);
  std::vector<std::string> values;
  for (u64 i = 0; i < count.value_or(0); ++i) {
    const auto value = *table == 0 ? std::nullopt : TextBehind(record, *table + 2 * i);
    if (!value) {
      return std::nullopt;
    }
    values.push_back(*value);
  }
  return values;
}

NetDbQueryRecord Query(std::vector<std::string> values) {
  return {"FindPorts", 1700000000, 0xFEDCBA9876543210, std::move(values)};
}

// What cannot be packed, as the sentence that says so.
std::string Refusal(const NetDbQueryRecord& record) {
  std::string error;
  EXPECT_FALSE(PackNetDbQuery(record, error).has_value());
  return error;
}

std::string Refusal(const TableQueryRecord& record) {
  std::string error;
  EXPECT_FALSE(PackTableQuery(record, error).has_value());
  return error;
}

Bytes Packed(const NetDbQueryRecord& record) {
  std::string error;
  const auto packed = PackNetDbQuery(record, error);
  EXPECT_TRUE(packed.has_value()) << error;
  return packed.value_or(Bytes());
}

Bytes Packed(const TableQueryRecord& record) {
  std::string error;
  const auto packed = PackTableQuery(record, error);
  EXPECT_TRUE(packed.has_value()) << error;
  return packed.value_or(Bytes());
}

constexpr char kTooLarge[] = "the event record is too large: its texts must begin within the first 65536 bytes";

TEST(PackNetDbQuery, FieldsStandAtTheirOffsets) {
  const Bytes record = Packed(Query({"443", "80"}));
  EXPECT_EQ(Number(record, 0, 4), 68U);
  EXPECT_EQ(Number(record, 0x14, 8), 1700000000U);
  EXPECT_EQ(Number(record, 0x1C, 8), 0xFEDCBA9876543210U);
  EXPECT_EQ(Text(record, 0x28), "FindPorts");
  EXPECT_EQ(Number(record, 0x26, 2), 2U);
  EXPECT_EQ(Values(record), (std::vector<std::string>{"443", "80"}));
  EXPECT_EQ(record.back(), 0);
}

TEST(PackNetDbQuery, WithoutValuesThereIsNoTable) {
  const Bytes record = Packed(Query({}));
  EXPECT_EQ(Number(record, 0x24, 2), 0U);
  EXPECT_EQ(Number(record, 0x26, 2), 0U);
  EXPECT_EQ(Text(record, 0x28), "FindPorts");
}

TEST(PackNetDbQuery, EmptyValuesAreTexts) {
  const Bytes record = Packed(Query({"", "", "x"}));
  EXPECT_EQ(Values(record), (std::vector<std::string>{"", "", "x"}));
}

TEST(PackNetDbQuery, ValuesKeepEveryByteButNul) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) {
    all.push_back(static_cast<char>(byte));
  }
  EXPECT_EQ(Values(Packed(Query({all}))), std::vector<std::string>{all});
}

TEST(PackNetDbQuery, NulInsideATextIsRefused) {
  EXPECT_EQ(Refusal(Query({"80", std::string("4\0", 2)})), "value 2: a NUL byte inside, where the module would end it");
  NetDbQueryRecord record = Query({});
  record.kind = std::string("Iterate\0x", 9);
  EXPECT_EQ(Refusal(record), "the kind: a NUL byte inside, where the module would end it");
}

// The last value may begin at 65535 and no later.
TEST(PackNetDbQuery, LastOffsetThatFitsIsTheLargestOfItsField) {
  const std::size_t before = 0x28 + sizeof("FindPorts") + 2 * 2;
  const std::string first(0xFFFF - before - 1, 'a');
  const std::string last(1000, 'z');
  const Bytes record = Packed(Query({first, last}));
  EXPECT_EQ(Values(record), (std::vector<std::string>{first, last}));
  EXPECT_EQ(Number(record, *Number(record, 0x24, 2) + 2, 2), 0xFFFFU);
  EXPECT_EQ(Refusal(Query({first + "a", last})), kTooLarge);
}

TEST(PackNetDbQuery, TableBehindALongKindIsHeldToTheSameLimit) {
  NetDbQueryRecord record = Query({"1"});
  record.kind = std::string(0xFFFF - 2 - 0x28 - 1, 'k');
  EXPECT_EQ(Number(Packed(record), 0x24, 2), 0xFFFDU);
  EXPECT_EQ(Values(Packed(record)), std::vector<std::string>{"1"});
  record.kind += 'k';
  EXPECT_EQ(Refusal(record), kTooLarge);
}

TEST(PackNetDbQuery, TooManyValuesAreRefused) {
  EXPECT_EQ(Refusal(Query(std::vector<std::string>(65536, ""))), "more than 65535 values");
  // Those that a count can say, but whose table leaves no room for the texts.
  EXPECT_EQ(Refusal(Query(std::vector<std::string>(65535, ""))), kTooLarge);
}

// The numbers that the module holds.
TEST(FindQueryKind, EachTextHasItsHash) {
  const std::vector<u32> hashes = {0x2C457A39, 0x1AD02EE8, 0x1EDFDC12, 0xF65CAED9, 0x1556E329, 0xBB8B66B7, 0x81998A35};
  ASSERT_EQ(QueryKinds().size(), hashes.size());
  for (std::size_t i = 0; i < hashes.size(); ++i) {
    EXPECT_EQ(RYL::NetDB::HashKind(QueryKinds()[i].c_str()), hashes[i]) << QueryKinds()[i];
  }
}

TEST(FindQueryKind, TakesTheSevenTextsInAnyCase) {
  EXPECT_EQ(FindQueryKind("FINDPORTS"), "FindPorts");
  EXPECT_EQ(FindQueryKind("findprocessesqid"), "FindProcessesQID");
  EXPECT_EQ(FindQueryKind("Iterate"), "Iterate");
  EXPECT_FALSE(FindQueryKind("FindPort").has_value());
  EXPECT_FALSE(FindQueryKind("").has_value());
}

TEST(PackTableQuery, FieldsStandAtTheirOffsets) {
  const Bytes record = Packed(TableQueryRecord{"edr_netdb", "ip,port", "{\"ip\":1}", true});
  EXPECT_EQ(Number(record, 0, 4), 221U);
  EXPECT_EQ(Number(record, 0x0C, 1), 1U);
  EXPECT_EQ(Text(record, 0x15), "edr_netdb");
  EXPECT_EQ(TextBehind(record, 0x0D), "ip,port");
  EXPECT_EQ(TextBehind(record, 0x0F), "{\"ip\":1}");
  EXPECT_EQ(record.back(), 0);
}

TEST(PackTableQuery, WithoutWishesAsksForAllIntoTheExternalData) {
  const Bytes record = Packed(TableQueryRecord());
  EXPECT_EQ(Number(record, 0x0C, 1), 0U);
  EXPECT_EQ(Text(record, 0x15), "edr_netdb");
  EXPECT_EQ(TextBehind(record, 0x0D), "*");
  EXPECT_EQ(TextBehind(record, 0x0F), "{}");
}

TEST(PackTableQuery, EmptyTextsAreThere) {
  const Bytes record = Packed(TableQueryRecord{"", "", "", false});
  EXPECT_EQ(Text(record, 0x15), "");
  EXPECT_EQ(TextBehind(record, 0x0D), "");
  EXPECT_EQ(TextBehind(record, 0x0F), "");
}

TEST(PackTableQuery, NulInsideATextIsRefused) {
  const std::string bad("a\0b", 3);
  EXPECT_EQ(Refusal(TableQueryRecord{bad, "*", "{}", false}),
            "the name of the table: a NUL byte inside, where the module would end it");
  EXPECT_EQ(Refusal(TableQueryRecord{"t", bad, "{}", false}),
            "the list of columns: a NUL byte inside, where the module would end it");
  EXPECT_EQ(Refusal(TableQueryRecord{"t", "*", bad, false}),
            "the constraints: a NUL byte inside, where the module would end it");
}

TEST(PackTableQuery, ConstraintsMayBeginAtTheLargestOffsetAndBeOfAnyLength) {
  const std::string columns(0xFFFF - 0x15 - sizeof("edr_netdb") - 1, 'c');
  const std::string constraints(200000, ' ');
  const Bytes record = Packed(TableQueryRecord{"edr_netdb", columns, constraints, false});
  EXPECT_EQ(Number(record, 0x0F, 2), 0xFFFFU);
  EXPECT_EQ(TextBehind(record, 0x0D), columns);
  EXPECT_EQ(TextBehind(record, 0x0F), constraints);
  EXPECT_EQ(Refusal(TableQueryRecord{"edr_netdb", columns + "c", constraints, false}), kTooLarge);
}

TEST(PackTableQuery, ColumnsBehindALongTableNameAreHeldToTheSameLimit) {
  EXPECT_EQ(Refusal(TableQueryRecord{std::string(0x10000, 't'), "*", "{}", false}), kTooLarge);
}

}  // namespace
