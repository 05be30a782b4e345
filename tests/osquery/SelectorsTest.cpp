#include "osquery/osquery/Selectors.h"

#include <gtest/gtest.h>

#include "platform/sim/Sim.h"
#include "tests/osquery/Records.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

class SelectorsTest : public ::testing::Test {
 protected:
  SelectorsTest() { EXPECT_TRUE(CreateSelectors(selectors)); }

  // The row that the selector of `column` alone makes of `record`, as protobuf prints it.
  std::string Written(const char* column, const QueryRecord& record) {
    selectors.Empty();
    EXPECT_TRUE(AddSelector(column, selectors)) << column;
    edr_netdb row;
    selectors.data[0](record, row);
    return row.ShortDebugString();
  }
  std::string WrittenPath(const std::string& path) {
    QueryRecord record = FullRecord();
    SetPath(record, path);
    selectors.Empty();
    EXPECT_TRUE(AddSelector("proc_fpath", selectors));
    edr_netdb row;
    selectors.data[0](record, row);
    return row.proc_fpath();
  }

  LogCapture log;
  SelectorArray selectors;
};

struct ColumnCase {
  const char* column;
  const char* written;
};

// In the order of the message's fields.
const ColumnCase kCases[] = {
    {"ip", "ip: \"203.0.113.9\""},
    {"first_seen", "first_seen: 1700000000000"},
    {"last_seen", "last_seen: 1700000060000"},
    {"port", "port: 443"},
    {"protos", "protos: \"HTTP,SSL,TCP\""},
    {"conns_total", "conns_total: 7"},
    {"conns_in", "conns_in: 3"},
    {"conns_out", "conns_out: 4"},
    {"bytes_in", "bytes_in: 5120"},
    {"bytes_out", "bytes_out: 8589934592"},
    {"proc_fpath", "proc_fpath: \"/usr/bin/curl\""},
    {"proc_md5", "proc_md5: \"000102030405060708090a0b0c0d0e0f\""},
    {"proc_qid", "proc_qid: \"fffefdfcfbfaf9f8f7f6f5f4f3f2f1f0efeeedecebeae9e8e7e6e5e4e3e2e1e0\""},
    {"proc_puid", "proc_puid: 18446744073709551615"},
    {"proc_pid", "proc_pid: 4321"},
};

TEST_F(SelectorsTest, EachColumnWritesItsOwnFieldAndNoOther) {
  for (const ColumnCase& test : kCases) {
    EXPECT_EQ(Written(test.column, FullRecord()), test.written);
  }
  EXPECT_EQ(log.Lines(), std::vector<std::string>{});
}

TEST_F(SelectorsTest, AllColumnsComeInTheOrderOfTheFields) {
  ASSERT_TRUE(AddAllSelectors(selectors));
  ASSERT_EQ(selectors.count, std::size(kCases));
  for (u32 i = 0; i < selectors.count; ++i) {
    edr_netdb row;
    selectors.data[i](FullRecord(), row);
    EXPECT_EQ(row.ShortDebugString(), kCases[i].written);
  }
}

// What an asker's own reader of the messages was made from.
TEST_F(SelectorsTest, FieldsHaveTheirNumbersAndTypes) {
  const google::protobuf::Descriptor* const row = edr_netdb::descriptor();
  EXPECT_EQ(row->full_name(), "edr_netdb");
  EXPECT_EQ(row->file()->syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO3);
  EXPECT_EQ(row->file()->package(), "");
  EXPECT_EQ(row->file()->message_type_count(), 1);
  const std::string types[] = {"string", "uint64", "uint64", "uint32", "string", "uint32", "uint32", "uint32",
                               "uint64", "uint64", "string", "string", "string", "uint64", "int64"};
  ASSERT_EQ(row->field_count(), 15);
  for (int i = 0; i < 15; ++i) {
    EXPECT_EQ(row->field(i)->number(), i + 1);
    EXPECT_EQ(row->field(i)->name(), kCases[i].column);
    EXPECT_EQ(row->field(i)->type_name(), types[i]);
    EXPECT_FALSE(row->field(i)->is_repeated());
    EXPECT_FALSE(row->field(i)->has_presence());
  }
}

TEST_F(SelectorsTest, NamesAreFoundInAnyCase) {
  for (const char* name : {"proc_md5", "PROC_MD5", "Proc_Md5"}) {
    EXPECT_EQ(Written(name, FullRecord()), "proc_md5: \"000102030405060708090a0b0c0d0e0f\"") << name;
  }
}

TEST_F(SelectorsTest, UnknownNameIsRefusedWithoutARecord) {
  for (const char* name : {"", "*", " ip", "ip ", "ip6", "edr_netdb", "proc", "proc_fpath,port"}) {
    EXPECT_FALSE(AddSelector(name, selectors)) << name;
  }
  EXPECT_EQ(selectors.count, 0U);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{});
}

TEST_F(SelectorsTest, RoomIsForAsManyAsThereAreFields) {
  EXPECT_EQ(ColumnCount(), 15U);
  EXPECT_EQ(ColumnCount(), static_cast<u32>(edr_netdb::descriptor()->field_count()));
  EXPECT_EQ(selectors.capacity, 15U);
  for (u32 i = 0; i < 15; ++i) {
    EXPECT_TRUE(AddSelector("ip", selectors));
  }
  EXPECT_FALSE(AddSelector("ip", selectors));
  EXPECT_EQ(selectors.count, 15U);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"3 velmar.ArrayCeilingReached"});
}

TEST_F(SelectorsTest, AllColumnsNeedRoomForAll) {
  ASSERT_TRUE(AddSelector("ip", selectors));
  EXPECT_FALSE(AddAllSelectors(selectors));
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"3 velmar.ArrayCeilingReached"});
}

TEST_F(SelectorsTest, NoMemoryForSelectorsIsARecordOfTheArray) {
  CountingAllocator memory;
  Velmar::Collections::SetModuleAllocator(&memory);
  memory.FailFrom(0);
  {
    SelectorArray refused;
    EXPECT_FALSE(CreateSelectors(refused));
    EXPECT_EQ(refused.count, 0U);
  }
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 velmar.ArrayNoMemory"});
  EXPECT_EQ(memory.Out(), 0U);
}

TEST_F(SelectorsTest, AddressFollowsItsFamily) {
  QueryRecord record = {};
  EXPECT_EQ(Written("ip", record), "ip: \"0.0.0.0\"");
  record.is_ipv6 = 1;
  record.address[0] = 0x20;
  record.address[1] = 0x01;
  record.address[15] = 0x0A;
  EXPECT_EQ(Written("ip", record), "ip: \"2001::a\"");
  std::memset(record.address, 0xFE, sizeof(record.address));
  EXPECT_EQ(Written("ip", record), "ip: \"fefe:fefe:fefe:fefe:fefe:fefe:fefe:fefe\"");
}

TEST_F(SelectorsTest, ProtocolsAreTheTwelveNamesFromBitZeroUp) {
  QueryRecord record = {};
  EXPECT_EQ(Written("protos", record), "");
  record.protos = 0xF000;
  EXPECT_EQ(Written("protos", record), "");
  record.protos = 0x1002;
  EXPECT_EQ(Written("protos", record), "protos: \"SMB\"");
  record.protos = 0xFFFF;
  EXPECT_EQ(Written("protos", record), "protos: \"HTTP,SMB,FTP,Telnet,RDP,SSH,SSL,WMI,RPC,ICMP,UDP,TCP\"");
}

TEST_F(SelectorsTest, RowWithoutProcessHasPidMinusOneAndZeroDigests) {
  QueryRecord record = {};
  record.proc_pid = -1;
  EXPECT_EQ(Written("proc_pid", record), "proc_pid: -1");
  EXPECT_EQ(Written("proc_fpath", record), "");
  EXPECT_EQ(Written("proc_puid", record), "");
  EXPECT_EQ(Written("proc_md5", record), "proc_md5: \"" + std::string(32, '0') + "\"");
  EXPECT_EQ(Written("proc_qid", record), "proc_qid: \"" + std::string(64, '0') + "\"");
}

TEST_F(SelectorsTest, EachBadByteOfAPathIsAReplacementCharacter) {
  const std::string bad = "\xEF\xBF\xBD";
  struct {
    std::string path;
    std::string written;
  } const cases[] = {
      {"/\xC3\xA4/\xE2\x82\xAC/\xF0\x9F\x98\x80", "/\xC3\xA4/\xE2\x82\xAC/\xF0\x9F\x98\x80"},  // all well-formed
      {"\xFF", bad},
      {"/a\x80z", "/a" + bad + "z"},
      {"a\xE2\x82", "a" + bad + bad},               // ends inside a character
      {"\xE2\x82z", bad + bad + "z"},               // a character that does not go on
      {"\xC0\x80", bad + bad},                      // overlong
      {"\xED\xA0\x80", bad + bad + bad},            // a surrogate
      {"\xF4\x90\x80\x80", bad + bad + bad + bad},  // beyond U+10FFFF
      {"\xC3\xA4\xFE\xC3\xA4", "\xC3\xA4" + bad + "\xC3\xA4"},
      {"", ""},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(WrittenPath(test.path), test.written);
  }
}

TEST_F(SelectorsTest, LongestPathOfBadBytesIsWrittenWhole) {
  std::string expected;
  for (int i = 0; i < 511; ++i) {
    expected += "\xEF\xBF\xBD";
  }
  EXPECT_EQ(WrittenPath(std::string(511, '\xFF')), expected);
  EXPECT_EQ(WrittenPath(std::string(511, 'x')), std::string(511, 'x'));
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
