// The tree that answers a history query: its form, and what is left of it when memory ends.
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "common/libryl_netdb/QueryReply.h"
#include "tests/libryl_netdb/QueryFixture.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

using NetDB::QueryRecord;
using Velmar::Utils::TreeContainer;
using Velmar::Utils::TreeNodeType;
using Lines = std::vector<std::string>;

constexpr u32 kRoot = TreeContainer::kRoot;
const Lines kKeys = {"ip",          "port",     "protos",    "first_seen", "last_seen",
                     "conns_total", "conns_in", "conns_out", "bytes_in",   "bytes_out",
                     "proc_fpath",  "proc_md5", "proc_qid",  "proc_puid",  "proc_pid"};

QueryRecord MakeRecord() {
  QueryRecord record{};
  const u8 address[] = {192, 0, 2, 9};
  std::memcpy(record.address, address, sizeof(address));
  record.first_seen = 1699920000;
  record.last_seen = 1700006399;
  record.protos = 0x0C00;
  record.port = 65535;
  record.conns_total = 0xFFFFFFFF;
  record.conns_in = 1;
  record.conns_out = 0xFFFFFFFE;
  record.bytes_in = ~u64{0};
  record.bytes_out = 7;
  for (u8 i = 0; i < 32; ++i) {
    record.proc_md5[i % 16] = i;
    record.proc_qid[i] = static_cast<u8>(0xF0 + i);
  }
  record.proc_puid = 0x8000000000000001;
  record.proc_pid = 4321;
  std::strcpy(record.proc_fpath, "/usr/bin/curl");
  return record;
}

std::string JsonOf(QueryReply& reply) {
  Velmar::Utils::String json;
  EXPECT_TRUE(reply.GetTree().AppendJson(json));
  return json.text;
}

u32 ResultsOf(QueryReply& reply) {
  return reply.GetTree().GetNodeChild(kRoot, "results");
}

class QueryReplyTest : public ::testing::Test {
 protected:
  QueryReplyTest() { Velmar::Sim::Reset(); }
  // The text of one key of the one row.
  static std::string TextOf(const QueryRecord& record, const char* key) {
    QueryReply reply;
    EXPECT_TRUE(reply.Create());
    EXPECT_TRUE(reply.AppendRow(record));
    const u32 row = reply.GetTree().GetNodeChild(ResultsOf(reply), 0U);
    const auto text = reply.GetTree().GetNodeValueString(row, key, "(missing)", nullptr);
    return {text.text, text.length};
  }

  LogCapture log;
};

TEST_F(QueryReplyTest, BeginsWithItsNameAndAnEmptyList) {
  QueryReply reply;
  ASSERT_TRUE(reply.Create());
  EXPECT_EQ(JsonOf(reply), R"({"event_name":"netdb_query_output","results":[]})");
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(QueryReplyTest, RowHasAllKeysInOrderWithTheirTypes) {
  QueryReply reply;
  ASSERT_TRUE(reply.Create());
  ASSERT_TRUE(reply.AppendRow(MakeRecord()));
  const TreeContainer& tree = reply.GetTree();
  EXPECT_EQ(tree.GetNodeType(ResultsOf(reply)), TreeNodeType::kList);
  const u32 row = tree.GetNodeChild(ResultsOf(reply), 0U);
  EXPECT_EQ(tree.GetNodeType(row), TreeNodeType::kDictionary);
  EXPECT_EQ(tree.GetNodeName(row).length, 0U);
  const TreeNodeType text = TreeNodeType::kString;
  const TreeNodeType types[] = {text,
                                TreeNodeType::kUInt16,
                                text,
                                text,
                                text,
                                TreeNodeType::kUInt32,
                                TreeNodeType::kUInt32,
                                TreeNodeType::kUInt32,
                                TreeNodeType::kUInt64,
                                TreeNodeType::kUInt64,
                                text,
                                text,
                                text,
                                TreeNodeType::kInt64,
                                TreeNodeType::kInt64};
  ASSERT_EQ(tree.GetNodeChildrenCount(row), kKeys.size());
  for (u32 i = 0; i < kKeys.size(); ++i) {
    const u32 node = tree.GetNodeChild(row, i);
    EXPECT_EQ(std::string(tree.GetNodeName(node).text), kKeys[i]);
    EXPECT_EQ(tree.GetNodeType(node), types[i]) << kKeys[i];
  }
}

TEST_F(QueryReplyTest, RowHoldsTheRecord) {
  QueryReply reply;
  ASSERT_TRUE(reply.Create());
  ASSERT_TRUE(reply.AppendRow(MakeRecord()));
  EXPECT_EQ(JsonOf(reply),
            R"({"event_name":"netdb_query_output","results":[{"ip":"192.0.2.9","port":65535,"protos":"UDP,TCP",)"
            R"("first_seen":"2023-11-14 00:00:00","last_seen":"2023-11-14 23:59:59","conns_total":4294967295,)"
            R"("conns_in":1,"conns_out":4294967294,"bytes_in":18446744073709551615,"bytes_out":7,)"
            R"("proc_fpath":"/usr/bin/curl","proc_md5":"101112131415161718191a1b1c1d1e1f",)"
            R"("proc_qid":"f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff000102030405060708090a0b0c0d0e0f",)"
            R"("proc_puid":-9223372036854775807,"proc_pid":4321}]})");
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(QueryReplyTest, RowsComeInTheOrderInWhichTheyWereGiven) {
  QueryReply reply;
  ASSERT_TRUE(reply.Create());
  QueryRecord record = MakeRecord();
  for (u16 port = 0; port < 1000; ++port) {
    record.port = port;
    ASSERT_TRUE(reply.AppendRow(record));
  }
  const TreeContainer& tree = reply.GetTree();
  ASSERT_EQ(tree.GetNodeChildrenCount(ResultsOf(reply)), 1000U);
  for (u32 i = 0; i < 1000; ++i) {
    EXPECT_EQ(tree.GetNodeValueUInt32(tree.GetNodeChild(ResultsOf(reply), i), "port", 9999, nullptr), i);
  }
}

TEST_F(QueryReplyTest, AddressHasTheFormOfItsFamily) {
  QueryRecord record = MakeRecord();
  EXPECT_EQ(TextOf(record, "ip"), "192.0.2.9");
  record.is_ipv6 = 1;
  const u8 address[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  std::memcpy(record.address, address, sizeof(address));
  EXPECT_EQ(TextOf(record, "ip"), "2001:db8::1");
}

TEST_F(QueryReplyTest, ProtocolsAreTheNamesOfTheLowTwelveBits) {
  QueryRecord record = MakeRecord();
  const char* const names[] = {"HTTP", "SMB", "FTP", "Telnet", "RDP", "SSH", "SSL", "WMI", "RPC", "ICMP", "UDP", "TCP"};
  for (u32 bit = 0; bit < 16; ++bit) {
    record.protos = static_cast<u16>(1U << bit);
    EXPECT_EQ(TextOf(record, "protos"), bit < 12 ? names[bit] : "") << bit;
  }
  record.protos = 0;
  EXPECT_EQ(TextOf(record, "protos"), "");
  record.protos = 0xFFFF;
  EXPECT_EQ(TextOf(record, "protos"), "HTTP,SMB,FTP,Telnet,RDP,SSH,SSL,WMI,RPC,ICMP,UDP,TCP");
}

TEST_F(QueryReplyTest, TimesAreDatesOfUtc) {
  QueryRecord record = MakeRecord();
  struct Row {
    u64 seconds;
    const char* text;
  };
  for (const Row& row : {Row{0, "1970-01-01 00:00:00"}, Row{951782400, "2000-02-29 00:00:00"},
                         Row{253402300800, "10000-01-01 00:00:00"}}) {
    record.first_seen = row.seconds;
    record.last_seen = row.seconds;
    EXPECT_EQ(TextOf(record, "first_seen"), row.text);
    EXPECT_EQ(TextOf(record, "last_seen"), row.text);
  }
}

TEST_F(QueryReplyTest, LongestDateHasRoom) {
  QueryRecord record = MakeRecord();
  record.last_seen = 67767976233532799;
  EXPECT_EQ(TextOf(record, "last_seen"), "2147483647-12-31 23:59:59");
}

TEST_F(QueryReplyTest, LongestPathHasRoomAndBadTextIsKept) {
  QueryRecord record = MakeRecord();
  std::memset(record.proc_fpath, 0xFF, 511);
  record.proc_fpath[511] = '\0';
  EXPECT_EQ(TextOf(record, "proc_fpath"), std::string(511, '\xFF'));
}

TEST_F(QueryReplyTest, RowStaysAsFarAsItCame) {
  struct Row {
    u64 first;
    u64 last;
    const char* key;
    u32 kept;
  };
  for (const Row& row : {Row{u64{1} << 63, 0, "first_seen", 3}, Row{0, u64{1} << 63, "last_seen", 4},
                         Row{0, ~u64{0}, "last_seen", 4}, Row{~(u64{1} << 63), 0, "first_seen", 3}}) {
    SCOPED_TRACE(row.key);
    QueryReply reply;
    ASSERT_TRUE(reply.Create());
    QueryRecord record = MakeRecord();
    record.first_seen = row.first;
    record.last_seen = row.last;
    log.Clear();
    EXPECT_FALSE(reply.AppendRow(record));
    EXPECT_EQ(log.Lines(), (Lines{"5 ryl_netdb.NoSuchTime", "5 ryl_netdb.QueryKeyNotAdded"}));
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryKeyNotAdded"), Lines{row.key});
    EXPECT_EQ(reply.GetTree().GetNodeChildrenCount(reply.GetTree().GetNodeChild(ResultsOf(reply), 0U)), row.kept);
    EXPECT_TRUE(reply.AppendRow(MakeRecord()));
    EXPECT_EQ(reply.GetTree().GetNodeChildrenCount(ResultsOf(reply)), 2U);
  }
}

TEST_F(QueryReplyTest, EachFailedAllocationOfAnEmptyReplyIsTold) {
  for (u64 failing = 0;; ++failing) {
    SCOPED_TRACE(failing);
    QueryReply reply;
    log.Clear();
    Velmar::Sim::FailAllocation(failing);
    const u64 before = Velmar::Sim::CountAllocations();
    const bool created = reply.Create();
    const bool reached = Velmar::Sim::CountAllocations() - before > failing;
    Velmar::Sim::FailAllocation(~u64{0});
    EXPECT_NE(created, reached);
    if (created) {
      EXPECT_GE(failing, 2U);
      break;
    }
    EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.QueryReplyNotCreated"});
  }
}

class QueryReplyMemoryTest : public QueryReplyTest {
 protected:
  // Fills a reply so that it has `nodes` nodes before its last row, which is given while an allocation fails.
  // True when that allocation was asked for.
  bool FailOne(u32 nodes, u64 failing) {
    QueryReply reply;
    EXPECT_TRUE(reply.Create());
    for (u32 i = 3; i < nodes; ++i) {
      EXPECT_NE(reply.GetTree().AddUInt16(kRoot, "n", 0, false), TreeContainer::kError);
    }
    log.Clear();
    Velmar::Sim::FailAllocation(failing);
    const u64 before = Velmar::Sim::CountAllocations();
    const bool added = reply.AppendRow(MakeRecord());
    const bool reached = Velmar::Sim::CountAllocations() - before > failing;
    Velmar::Sim::FailAllocation(~u64{0});
    EXPECT_NE(added, reached);
    if (!added) {
      ExpectCut(reply.GetTree(), ResultsOf(reply));
    }
    return reached;
  }
  void ExpectCut(const TreeContainer& tree, u32 results) {
    if (tree.GetNodeChildrenCount(results) == 0) {
      EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.QueryRowNotAdded"});
      cutAt.insert("row");
      return;
    }
    const u32 row = tree.GetNodeChild(results, 0U);
    const u32 kept = tree.GetNodeChildrenCount(row);
    ASSERT_LT(kept, kKeys.size());
    for (u32 i = 0; i < kept; ++i) {
      EXPECT_EQ(std::string(tree.GetNodeName(tree.GetNodeChild(row, i)).text), kKeys[i]);
    }
    EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.QueryKeyNotAdded"});
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryKeyNotAdded"), Lines{kKeys[kept]});
    cutAt.insert(kKeys[kept]);
  }

  std::set<std::string> cutAt;  // first key that was not added, "row" for the row itself
};

TEST_F(QueryReplyMemoryTest, EachKeyThatIsNotAddedEndsTheRowThere) {
  // Each filling of the tree makes another node the one that finds no room.
  constexpr u32 kCapacity = 0x80;
  for (u32 nodes = kCapacity - 20; nodes <= kCapacity; ++nodes) {
    SCOPED_TRACE(nodes);
    u64 failing = 0;
    while (FailOne(nodes, failing)) {
      ++failing;
    }
  }
  std::set<std::string> all(kKeys.begin(), kKeys.end());
  all.insert("row");
  EXPECT_EQ(cutAt, all);
}

// Day files name no day that the calendar lacks, so that in a query only memory ends a row early.
class QueryAllocationTest : public QueryEventTest {
 protected:
  QueryAllocationTest() {
    for (u16 i = 0; i < 40; ++i) {
      const NetDB::Process process = StorageTest::MakeProcess("/bin/" + std::to_string(i), i + 1);
      AddRow(i, StorageTest::Address(192, 0, 2, static_cast<u8>(i)), i, 0x0800, &process);
      EXPECT_TRUE(writer.Flush());
    }
    EXPECT_TRUE(Ask(QueryEventBuilder("Iterate")));
    whole = sender.Replies().at(0).json;
  }
  // The reply is there exactly when the result says so, and lacks rows only of a day that the log says was skipped.
  void ExpectConsistent(bool result, const std::string& expected) {
    const auto replies = sender.Replies();
    ASSERT_EQ(replies.size(), result ? 1U : 0U);
    if (!result) {
      EXPECT_GT(log.CountLevel(5), 0);
      return;
    }
    if (log.Count("netdb_storage.QueryFileSkipped") == 0) {
      EXPECT_EQ(replies[0].json, expected);
    } else {
      EXPECT_EQ(replies[0].json, R"({"event_name":"netdb_query_output","results":[]})");
    }
  }

  std::string whole;
};

TEST_F(QueryAllocationTest, EachFailedBaseAllocationGivesNoReplyOrAWholeOne) {
  const auto record = QueryEventBuilder("Iterate").Build();
  int cutRows = 0;
  u64 asked = 0;
  // What the collector allocates is not the module's.
  sender.onDispatch = [&asked] {
    asked = Velmar::Sim::CountAllocations();
    Velmar::Sim::FailAllocation(~u64{0});
  };
  for (u64 failing = 0;; ++failing) {
    SCOPED_TRACE(failing);
    sender.Clear();
    log.Clear();
    asked = 0;
    Velmar::Sim::FailAllocation(failing);
    const u64 before = Velmar::Sim::CountAllocations();
    const bool result = module->HandleEvent(record.data(), nullptr);
    const bool reached = (asked == 0 ? Velmar::Sim::CountAllocations() : asked) - before > failing;
    Velmar::Sim::FailAllocation(~u64{0});
    ExpectConsistent(result, whole);
    if (log.Count("ryl_netdb.QueryKeyNotAdded") + log.Count("ryl_netdb.QueryRowNotAdded") != 0) {
      EXPECT_FALSE(result);
      const Lines lines = log.Lines(2);
      EXPECT_EQ(Lines(lines.begin() + 1, lines.end()),
                (Lines{"5 netdb_storage.AddressWalkEnded", "5 netdb_storage.QueryEnded", "5 ryl_netdb.QueryFailed"}));
      ++cutRows;
    }
    if (!reached) {
      EXPECT_EQ(sender.Replies().at(0).json, whole);
      break;
    }
  }
  EXPECT_GT(cutRows, 2);
}

TEST_F(QueryAllocationTest, EachFailedModuleAllocationGivesNoReplyOrAWholeOne) {
  const Values paths = {"/bin/1", "/bin/2", "/bin/3", "/bin/4", "/bin/5", "/bin/6"};
  const QueryEventBuilder kinds[] = {QueryEventBuilder("Iterate"), QueryEventBuilder("FindPorts", {"3", "1", "7"}),
                                     QueryEventBuilder("FindProcessesPath", paths),
                                     QueryEventBuilder("FindProtos", {"tcp"})};
  for (const QueryEventBuilder& query : kinds) {
    ASSERT_TRUE(Ask(query));
    const std::string expected = sender.Replies().at(0).json;
    for (u64 failing = 0;; ++failing) {
      SCOPED_TRACE(failing);
      CountingAllocator memory;
      Velmar::Collections::SetModuleAllocator(&memory);
      memory.FailFrom(failing);
      const auto record = query.Build();
      log.Clear();
      sender.Clear();
      const bool result = module->HandleEvent(record.data(), nullptr);
      Velmar::Collections::SetModuleAllocator(nullptr);
      EXPECT_EQ(memory.Out(), 0U);
      ExpectConsistent(result, expected);
      if (memory.Failures() == 0) {
        EXPECT_TRUE(result);
        EXPECT_GT(failing, 3U);
        break;
      }
    }
  }
}

}  // namespace
}  // namespace RYL::Module
