// History queries as a host sends them: which rows come back, and what stands in the log when none do.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/libryl_netdb/QueryFixture.h"

namespace RYL::Module {
namespace {

using NetDB::Process;
using StorageTest::Address;
using StorageTest::MakeProcess;

constexpr u64 kAllOnes = ~u64{0};
constexpr char kEmptyReply[] = R"({"event_name":"netdb_query_output","results":[]})";

class HandleQueryTest : public QueryEventTest {
 protected:
  // Rows of two programs and of none, at second `port` of the day.
  void Fill() {
    curl = MakeProcess("/usr/bin/curl", 1);
    std::memset(curl.proc_md5, 0xAB, sizeof(curl.proc_md5));
    std::memset(curl.proc_qid, 0xCD, sizeof(curl.proc_qid));
    ssh = MakeProcess("/usr/bin/ssh", 2);
    ssh.proc_md5[15] = 0x10;
    ssh.proc_qid[0] = 0x20;
    AddRow(80, Address(192, 0, 2, 1), 80, 0x0801, &curl);
    AddRow(443, Address(192, 0, 2, 2), 443, 0x0840, &curl);
    AddRow(22, Address(192, 0, 2, 2), 22, 0x0820, &ssh);
    AddRow(53, Address(192, 0, 2, 3), 53, 0x0400);
  }
  static std::string Hex(const u8* bytes, std::size_t size) {
    std::string text(2 * size + 1, '\0');
    EXPECT_TRUE(Velmar::Utils::String::BufferToHex(bytes, static_cast<u32>(size), text.data(),
                                                   static_cast<u32>(text.size()), false, false));
    text.pop_back();
    return text;
  }

  Process curl;
  Process ssh;
};

TEST_F(HandleQueryTest, IterateGivesTheWholeRange) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate")), (Ports{22, 53, 80, 443}));
}

TEST_F(HandleQueryTest, IterateReadsNoValues) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate", {"x", "y"}).NoText(0)), (Ports{22, 53, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate", {"x"}).NoTable()), (Ports{22, 53, 80, 443}));
}

TEST_F(HandleQueryTest, AddressesFindTheirRows) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindIPv4", {"192.0.2.2"})), (Ports{22, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindIPv4", {"192.0.2.3", "192.0.2.1", "10.0.0.1"})), (Ports{53, 80}));
}

TEST_F(HandleQueryTest, PathsFindTheRowsOfTheirProcesses) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {"/usr/bin/curl"})), (Ports{80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {"/usr/bin/ssh", "/usr/bin/curl"})), (Ports{22, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {"/usr/bin/CURL"})), Ports{});
}

TEST_F(HandleQueryTest, PathLongerThanTheFrameHoldsIsOneToo) {
  const std::string path = "/" + std::string(700, 'x');
  const Process process = MakeProcess(path, 1);
  AddRow(1, Address(192, 0, 2, 1), 80, 0, &process);
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {path})), Ports{80});
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {path.substr(0, 511)})), Ports{});
}

TEST_F(HandleQueryTest, PortsFindTheirRowsInAnyOrder) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"443"})), Ports{443});
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"443", "1", "22", "443", "65535", "80"})), (Ports{22, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"444"})), Ports{});
}

TEST_F(HandleQueryTest, ProtocolsFindRowsThatHaveOneOfThem) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindProtos", {"ssh"})), Ports{22});
  EXPECT_EQ(Answer(QueryEventBuilder("FindProtos", {"HTTPS", "ssl"})), (Ports{80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProtos", {"tcp"})), (Ports{22, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProtos", {"rdp"})), Ports{});
}

TEST_F(HandleQueryTest, FileHashesFindStoredDigests) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesMD5", {Hex(curl.proc_md5, 16)})), (Ports{80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesMD5", {Hex(ssh.proc_md5, 16), Hex(curl.proc_md5, 16)})),
            (Ports{22, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesMD5", {"ABABABABABABABABABABABABABABABAB"})), (Ports{80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesMD5", {std::string(32, '0')})), Ports{})
      << "a row without a process has no digest, not one of zeroes";
}

// Digests that differ in one of their halves only, in both orders of the bytes of each.
TEST_F(HandleQueryTest, BothHalvesOfADigestCount) {
  std::vector<std::string> all;
  u16 port = 1;
  for (const std::size_t at : {0U, 7U, 8U, 15U}) {
    Process process = MakeProcess("/bin/p", port);
    std::memset(process.proc_md5, 0, sizeof(process.proc_md5));
    process.proc_md5[at] = 0x80;
    AddRow(port, Address(192, 0, 2, 1), port, 0, &process);
    all.push_back(Hex(process.proc_md5, sizeof(process.proc_md5)));
    EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesMD5", {all.back()})), Ports{port});
    ++port;
  }
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesMD5", all)), (Ports{1, 2, 3, 4}));
}

TEST_F(HandleQueryTest, IdentitiesFindStoredDigests) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesQID", {Hex(ssh.proc_qid, 32)})), Ports{22});
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesQID", {Hex(ssh.proc_qid, 32), Hex(curl.proc_qid, 32)})),
            (Ports{22, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesQID", {std::string(64, 'f')})), Ports{});
}

TEST_F(HandleQueryTest, EachWordOfAnIdentityCounts) {
  std::vector<std::string> all;
  Ports ports;
  for (std::size_t at = 0; at < 32; ++at) {
    const u16 port = static_cast<u16>(at + 1);
    Process process = MakeProcess("/bin/p", port);
    std::memset(process.proc_qid, 0, sizeof(process.proc_qid));
    process.proc_qid[at] = static_cast<u8>(0x11 * (at % 15 + 1));
    AddRow(port, Address(192, 0, 2, 1), port, 0, &process);
    all.push_back(Hex(process.proc_qid, sizeof(process.proc_qid)));
    ports.push_back(port);
  }
  for (std::size_t at = 0; at < 32; ++at) {
    EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesQID", {all[at]})), Ports{ports[at]});
  }
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesQID", all)), ports);
}

TEST_F(HandleQueryTest, CaseOfAKindDoesNotMatter) {
  Fill();
  for (const char* kind : {"findports", "FINDPORTS", "fINDpORTS"}) {
    EXPECT_EQ(Answer(QueryEventBuilder(kind, {"443"})), Ports{443}) << kind;
  }
  EXPECT_EQ(Answer(QueryEventBuilder("iterate")), (Ports{22, 53, 80, 443}));
  EXPECT_EQ(Answer(QueryEventBuilder("FINDIPV4", {"192.0.2.1"})), Ports{80});
  EXPECT_EQ(Answer(QueryEventBuilder("FINDPROTOS", {"ssh"})), Ports{22});
  EXPECT_EQ(Answer(QueryEventBuilder("findprocessespath", {"/usr/bin/ssh"})), Ports{22});
  EXPECT_EQ(Answer(QueryEventBuilder("findprocessesmd5", {Hex(ssh.proc_md5, 16)})), Ports{22});
  EXPECT_EQ(Answer(QueryEventBuilder("findprocessesqid", {Hex(ssh.proc_qid, 32)})), Ports{22});
}

TEST_F(HandleQueryTest, RangeNarrowsEachKind) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(kDay + 53, kDay + 80)), (Ports{53, 80}));
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"22", "80", "443"}).Range(kDay + 53, kDay + 80)), Ports{80});
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {"/usr/bin/curl"}).Range(kDay, kDay + 100)), Ports{80});
}

TEST_F(HandleQueryTest, RangeOfOneSecondIsARange) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(kDay + 53, kDay + 53)), Ports{53});
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(kDay + 54, kDay + 54)), Ports{});
}

TEST_F(HandleQueryTest, EndsOfTheRangeMayBeAnyNumber) {
  Fill();
  const Ports all = {22, 53, 80, 443};
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(0, kAllOnes - 1)), all);
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(1, kAllOnes)), all);
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(0, 0)), Ports{});
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate").Range(kAllOnes, kAllOnes)), Ports{});
}

TEST_F(HandleQueryTest, ReversedRangeHasNoReplyAndIsNoFailure) {
  Fill();
  EXPECT_TRUE(Ask(QueryEventBuilder("Iterate").Range(kDay + 54, kDay + 53)));
  EXPECT_EQ(log.Lines(), Lines{"3 ryl_netdb.QueryRangeReversed"});
  EXPECT_EQ(log.Arguments("ryl_netdb.QueryRangeReversed"),
            (Lines{std::to_string(kDay + 54), std::to_string(kDay + 53)}));
  EXPECT_TRUE(sender.Replies().empty());
  EXPECT_TRUE(Ask(QueryEventBuilder("NoSuchKind").Range(kAllOnes, 0)));
  EXPECT_EQ(log.Lines(), Lines{"3 ryl_netdb.QueryRangeReversed"}) << "before the kind is looked at";
}

TEST_F(HandleQueryTest, NothingFoundIsAnEmptyReply) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"1"})), Ports{});
  EXPECT_EQ(sender.Replies().at(0).json, kEmptyReply);
}

TEST_F(HandleQueryTest, EmptyFolderIsAnEmptyReply) {
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate")), Ports{});
  EXPECT_EQ(sender.Replies().at(0).json, kEmptyReply);
}

TEST_F(HandleQueryTest, ReplyIsAnEventOfKindEight) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"53"})), Ports{53});
  const auto reply = sender.Replies().at(0);
  EXPECT_EQ(reply.kind, 8U);
  EXPECT_EQ(reply.json,
            R"({"event_name":"netdb_query_output","results":[{"ip":"192.0.2.3","port":53,"protos":"UDP",)"
            R"("first_seen":"2023-11-14 00:00:53","last_seen":"2023-11-14 00:00:53","conns_total":1,"conns_in":0,)"
            R"("conns_out":1,"bytes_in":0,"bytes_out":0,"proc_fpath":"",)"
            R"("proc_md5":"00000000000000000000000000000000",)"
            R"("proc_qid":"0000000000000000000000000000000000000000000000000000000000000000",)"
            R"("proc_puid":0,"proc_pid":-1}]})");
}

TEST_F(HandleQueryTest, RowsOfSeveralDaysAreOneReply) {
  Fill();
  ASSERT_TRUE(writer.Add(StorageTest::MakeMessage(kDay + 86400, Address(192, 0, 2, 1), 9), nullptr));
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate")), (Ports{9, 22, 53, 80, 443}));
}

TEST_F(HandleQueryTest, TypeIsInTheLowTenBits) {
  Fill();
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {"53"}).Header(0xFFFFFC00U | 68U)), Ports{53});
}

TEST_F(HandleQueryTest, NullEventIsAnError) {
  EXPECT_FALSE(Access::HandleQuery(Manager(), nullptr));
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.QueryNullEvent"});
  EXPECT_TRUE(sender.Replies().empty());
}

TEST_F(HandleQueryTest, UnknownKindIsNamedAndHasNoReply) {
  for (const std::string kind : {"", "FindPort", "FindPorts ", "Everything"}) {
    SCOPED_TRACE(kind);
    ExpectRefused(QueryEventBuilder(kind, {"443"}), {"5 ryl_netdb.QueryKindUnknown"});
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryKindUnknown"), Lines{kind});
  }
}

TEST_F(HandleQueryTest, BadValueAmongGoodOnesHasNoReply) {
  Fill();
  const QueryEventBuilder queries[] = {
      QueryEventBuilder("FindPorts", {"443", "65536"}),
      QueryEventBuilder("FindPorts", {"https", "443"}),
      QueryEventBuilder("FindIPv4", {"192.0.2.1", "2001:db8::1"}),
      QueryEventBuilder("FindProtos", {"ssh", "udp"}),
      QueryEventBuilder("FindProcessesMD5", {Hex(ssh.proc_md5, 16), std::string(33, '0')}),
      QueryEventBuilder("FindProcessesQID", {std::string(63, '0'), Hex(ssh.proc_qid, 32)}),
  };
  for (const QueryEventBuilder& query : queries) {
    ExpectRefused(query, {"5 ryl_netdb.QueryValueRefused"});
  }
}

TEST_F(HandleQueryTest, MissingAndSurplusValuesHaveNoReply) {
  Fill();
  ExpectRefused(QueryEventBuilder("FindPorts"), {"5 ryl_netdb.QueryWithoutValues"});
  ExpectRefused(QueryEventBuilder("FindPorts", {"443", "80"}).NoText(1), {"5 ryl_netdb.QueryValueMissing"});
  ExpectRefused(QueryEventBuilder("FindPorts", {"443"}).NoTable(), {"5 ryl_netdb.QueryValueMissing"});
  for (const QueryEventBuilder& query :
       {QueryEventBuilder("FindPorts", Values(129, "443")), QueryEventBuilder("FindIPv4", Values(129, "192.0.2.1"))}) {
    ExpectRefused(query, {"3 velmar.ArrayCeilingReached", "5 ryl_netdb.QueryValueNotKept"});
  }
}

// Offsets have 16 bits, but the text behind the last one may have any length.
TEST_F(HandleQueryTest, TextsOfAnyLengthAreTakenWhole) {
  constexpr std::size_t kLength = 100000;
  const Process process = MakeProcess("/" + std::string(kLength, 'x'), 1);
  AddRow(1, Address(192, 0, 2, 1), 443, 0x0800, &process);
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {process.proc_fpath.text})), Ports{443});
  EXPECT_EQ(Answer(QueryEventBuilder("FindProcessesPath", {"/" + std::string(kLength, 'y')})), Ports{});
  EXPECT_EQ(Answer(QueryEventBuilder("FindPorts", {std::string(kLength, '0') + "443"})), Ports{443});
  for (const char* kind : {"FindPorts", "FindIPv4", "FindProtos", "FindProcessesMD5", "FindProcessesQID"}) {
    const std::string value(kLength, '1');
    ExpectRefused(QueryEventBuilder(kind, {value}), {"5 ryl_netdb.QueryValueRefused"});
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryValueRefused"), Lines{value}) << kind;
  }
  const std::string kind(kLength, 'k');
  ExpectRefused(QueryEventBuilder(kind).NoTable(), {"5 ryl_netdb.QueryKindUnknown"});
  EXPECT_EQ(log.Arguments("ryl_netdb.QueryKindUnknown"), Lines{kind});
}

// Every entry of the largest table has the same text.
TEST_F(HandleQueryTest, LargestCountIsWalked) {
  Fill();
  static constexpr u16 kCount = 0xFFFF;
  const auto repeat = [](const QueryEventBuilder& query) {
    auto record = query.Build();
    u16 table = 0;
    std::memcpy(&table, &record[Events::QueryEvent::kValueTableOffset], sizeof(table));
    const u16 text = static_cast<u16>(table + sizeof(u16));
    const u16 moved = static_cast<u16>(record.size());
    record.resize(record.size() + kCount * sizeof(u16));
    std::memcpy(&record[Events::QueryEvent::kValueTableOffset], &moved, sizeof(moved));
    std::memcpy(&record[Events::QueryEvent::kValueCount], &kCount, sizeof(kCount));
    for (std::size_t i = 0; i < kCount; ++i) {
      std::memcpy(&record[moved + i * sizeof(u16)], &text, sizeof(text));
    }
    return record;
  };
  ASSERT_TRUE(writer.Flush());
  log.Clear();
  EXPECT_TRUE(module->HandleEvent(repeat(QueryEventBuilder("FindProtos", {"ssh"})).data(), nullptr));
  EXPECT_EQ(log.Lines(), Lines{});
  ASSERT_EQ(sender.Replies().size(), 1U);
  EXPECT_EQ(sender.Replies()[0].ports, Ports{22});
  EXPECT_FALSE(module->HandleEvent(repeat(QueryEventBuilder("FindProcessesPath", {"/usr/bin/ssh"})).data(), nullptr));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 ryl_netdb.QueryValueNotKept"}));
  EXPECT_EQ(sender.Replies().size(), 1U);
}

TEST_F(HandleQueryTest, ReplyLeavesTheSideObjectAlone) {
  struct Untouched : Events::ExternalData {
    bool SetBinary(const char*, const void*, u32) override {
      ADD_FAILURE() << "the reply is an event";
      return true;
    }
  };
  Fill();
  ASSERT_TRUE(writer.Flush());
  Untouched external;
  const auto record = QueryEventBuilder("Iterate").Build();
  EXPECT_TRUE(module->HandleEvent(record.data(), &external));
  EXPECT_EQ(sender.Replies().size(), 1U);
}

TEST_F(HandleQueryTest, DisabledModuleHasNoReply) {
  Fill();
  Settings().netdb_enabled.Set(false);
  EXPECT_TRUE(Ask(QueryEventBuilder("Iterate")));
  EXPECT_EQ(log.Lines(), Lines{"3 ryl_netdb.ModuleDisabled"});
  EXPECT_EQ(log.Arguments("ryl_netdb.ModuleDisabled"), Lines{"68"});
  EXPECT_TRUE(sender.Replies().empty());
}

TEST_F(HandleQueryTest, FailedQueryHasNoPartialReply) {
  Fill();
  StorageTest::IPDBTestAccess<NetDB::IPv4>::Rows(NetDB::DBManagerTestAccess::Ips(writer)).data[2].proc_index = 9;
  ExpectRefused(QueryEventBuilder("Iterate"),
                {"3 netdb_storage.ProcessIndexOutOfRange", "5 netdb_storage.RowPointsNowhere",
                 "5 netdb_storage.AddressWalkEnded", "5 netdb_storage.QueryEnded", "5 ryl_netdb.QueryFailed"});
  EXPECT_EQ(log.Arguments("ryl_netdb.QueryFailed"), Lines{"/data/netdb"});
  EXPECT_EQ(Answer(QueryEventBuilder("FindIPv4", {"192.0.2.1"})), Ports{80}) << "the module goes on";
}

TEST_F(HandleQueryTest, FileThatCannotBeOpenedCostsItsRowsOnly) {
  Fill();
  ASSERT_TRUE(writer.Flush());
  Velmar::Sim::PutFile(StorageTest::DayPath(kDay + 86400), "damaged");
  EXPECT_TRUE(Ask(QueryEventBuilder("Iterate")));
  EXPECT_EQ(log.Lines(5).back(), "5 netdb_storage.QueryFileSkipped");
  EXPECT_EQ(sender.Replies().at(0).ports, (Ports{22, 53, 80, 443}));
}

TEST_F(HandleQueryTest, FolderThatCannotBeWalkedFailsTheQuery) {
  Fill();
  ASSERT_TRUE(writer.Flush());
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kEnumerate, 0, Velmar::Sim::Fault::kFail);
  EXPECT_FALSE(Ask(QueryEventBuilder("Iterate")));
  EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.QueryFailed");
  EXPECT_TRUE(sender.Replies().empty());
}

TEST_F(HandleQueryTest, ReplyThatTheSenderRefusesIsAFailure) {
  Fill();
  sender.accepts = false;
  EXPECT_FALSE(Ask(QueryEventBuilder("Iterate")));
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.QueryReplyNotSent"});
  EXPECT_EQ(sender.Replies().size(), 1U);
}

TEST_F(HandleQueryTest, HostWithoutASenderIsAFailure) {
  Fill();
  host.sender = nullptr;
  ExpectRefused(QueryEventBuilder("Iterate"), {"5 ryl_netdb.QueryReplyNotSent"});
}

TEST_F(HandleQueryTest, ModuleWithoutAHostIsAFailure) {
  Fill();
  Access::SetHost(Manager(), nullptr);
  ExpectRefused(QueryEventBuilder("Iterate"), {"5 ryl_netdb.QueryReplyNotSent"});
}

class QueryBeforeInitializeTest : public ModuleTest {};

TEST_F(QueryBeforeInitializeTest, ThereIsNoFolderToAsk) {
  const auto all = QueryEventBuilder("Iterate").Build();
  EXPECT_FALSE(module->HandleEvent(all.data(), nullptr));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"5 netdb_storage.WalkFolderMissing", "5 ryl_netdb.QueryFailed"}));
  const auto ssh = QueryEventBuilder("FindProtos", {"ssh"}).Build();
  EXPECT_FALSE(module->HandleEvent(ssh.data(), nullptr));
  EXPECT_EQ(log.Lines().back(), "5 ryl_netdb.QueryValueRefused") << "nor a table of protocols";
}

TEST_F(HandleQueryTest, RowsSinceTheLastDumpAreNotSeen) {
  ASSERT_TRUE(module->Start());
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(Handle(Connection("203.0.113.1").Port(1)));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(Handle(Connection("203.0.113.2").Port(2)));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_EQ(Answer(QueryEventBuilder("Iterate")), Ports{1});
}

// Each asker has its own kind, so that a list that two calls shared would show. The day that the worker writes
// meanwhile is read whole or not at all, and has no row that is asked for.
TEST_F(HandleQueryTest, SeveralAskBesideTheWorker) {
  constexpr int kRounds = 40;
  // A finished day, which only the filter job would touch.
  AddRow(0, Address(203, 0, 113, 1), 1);
  ASSERT_TRUE(writer.Flush());
  Velmar::Sim::SetEpochTime((kDay + 86400) * 1000);
  Settings().cloud_query_enabled.Set(false);
  ASSERT_TRUE(module->Start());
  const QueryEventBuilder::Bytes queries[] = {QueryEventBuilder("FindPorts", {"9", "1"}).Build(),
                                              QueryEventBuilder("FindIPv4", {"203.0.113.1"}).Build()};
  std::atomic<int> answered{0};
  std::vector<std::thread> askers;
  for (const auto& query : queries) {
    askers.emplace_back([this, &query, &answered] {
      for (int round = 0; round < kRounds; ++round) {
        answered += module->HandleEvent(query.data(), nullptr) ? 1 : 0;
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) {
    EXPECT_TRUE(Handle(Connection("203.0.113.2").Port(static_cast<u16>(100 + round)).Time((kDay + 86400) * 1000)));
    Velmar::Sim::AdvanceTime(60000);
  }
  for (std::thread& asker : askers) {
    asker.join();
  }
  EXPECT_EQ(answered, 2 * kRounds);
  const auto replies = sender.Replies();
  EXPECT_EQ(replies.size(), 2U * kRounds);
  for (const auto& reply : replies) {
    EXPECT_EQ(reply.ports, Ports{1});
  }
}

// A query beside Stop has a reply, or finds the module off or without a host.
TEST_F(HandleQueryTest, StopBesideAQueryIsSafe) {
  ASSERT_TRUE(module->Start());
  EXPECT_TRUE(Handle(Connection("203.0.113.1").Port(1)));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  const auto query = QueryEventBuilder("Iterate").Build();
  int answered = 0;
  std::thread asker([this, &query, &answered] {
    for (int round = 0; round < 50; ++round) {
      module->HandleEvent(query.data(), nullptr);
    }
    answered = static_cast<int>(sender.Replies().size());
  });
  EXPECT_TRUE(module->Stop());
  asker.join();
  EXPECT_EQ(answered + log.Count("ryl_netdb.ModuleDisabled") + log.Count("ryl_netdb.QueryReplyNotSent"), 50);
  EXPECT_TRUE(module->HandleEvent(query.data(), nullptr));
  EXPECT_EQ(static_cast<int>(sender.Replies().size()), answered);
}

}  // namespace
}  // namespace RYL::Module
