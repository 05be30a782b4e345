// Table queries as a host sends them: what is delivered, where to, and what stands in the log when nothing is.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/libryl_netdb/QueryFixture.h"
#include "tests/libryl_netdb/TableQueryBuilder.h"
#include "tests/osquery/Records.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

using NetDB::OSQuery::Header;
using NetDB::OSQuery::RowsOf;
using StorageTest::Address;
using StorageTest::MakeProcess;
using Velmar::Utils::TreeContainer;

constexpr char kEmptyReply[] =
    R"({"osquery_msg":{"version":1,"error":0,"message_count":0,"messages":[]},"event_name":"netdb_query_output"})";

// The end of the module object ends libprotobuf's tables too: one test a process, as ctest runs them.
class HandleOSQueryTest : public QueryEventTest {
 protected:
  // Three rows: two of a program, one of none.
  void Fill() {
    const NetDB::Process curl = MakeProcess("/usr/bin/curl", 1);
    AddRow(80, Address(192, 0, 2, 1), 80, 0x0801, &curl);
    AddRow(90, Address(192, 0, 2, 2), 443, 0x0840, &curl);
    AddRow(100, Address(192, 0, 2, 3), 0, 0);
  }
  bool AskTable(const TableQueryBuilder& query) {
    EXPECT_TRUE(writer.Flush());
    log.Clear();
    sender.Clear();
    external.results.clear();
    return module->HandleEvent(query.Build().data(), &external);
  }
  // The one binary result.
  std::string Result(const TableQueryBuilder& query) {
    EXPECT_TRUE(AskTable(query));
    EXPECT_TRUE(sender.Replies().empty());
    EXPECT_EQ(external.results.size(), 1U);
    if (external.results.size() != 1) {
      return "";
    }
    EXPECT_EQ(external.results[0].first, "events");
    return external.results[0].second;
  }
  // The one event.
  std::string Reply(TableQueryBuilder query) {
    EXPECT_TRUE(AskTable(query.AsEvent()));
    EXPECT_TRUE(external.results.empty());
    const auto replies = sender.Replies();
    EXPECT_EQ(replies.size(), 1U);
    if (replies.size() != 1) {
      return "";
    }
    EXPECT_EQ(replies[0].kind, 8U);
    return replies[0].json;
  }
  static std::string ReplyWith(u32 error, u32 count, const std::string& messages) {
    return R"({"osquery_msg":{"version":1,"error":)" + std::to_string(error) + R"(,"message_count":)" +
           std::to_string(count) + R"(,"messages":[)" + messages + R"(]},"event_name":"netdb_query_output"})";
  }
  void ExpectNothingSent() {
    EXPECT_TRUE(external.results.empty());
    EXPECT_TRUE(sender.Replies().empty());
  }

  FakeExternalData external;
};

TEST_F(HandleOSQueryTest, ResultGoesToTheSideObject) {
  Fill();
  const std::string result = Result(TableQueryBuilder("ip,port"));
  EXPECT_EQ(result.substr(0, 9), Header(0, 3));
  const auto rows = RowsOf(result);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].ShortDebugString(), "ip: \"192.0.2.1\" port: 80");
  EXPECT_EQ(rows[1].ShortDebugString(), "ip: \"192.0.2.2\" port: 443");
  EXPECT_EQ(rows[2].ShortDebugString(), "ip: \"192.0.2.3\"");
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"2 ryl_netdb.TableQueryReceived"});
}

TEST_F(HandleOSQueryTest, ReplyGoesOutAsAnEvent) {
  Fill();
  EXPECT_EQ(Reply(TableQueryBuilder("ip,port")),
            ReplyWith(0, 3,
                      R"({"ip":"192.0.2.1","port":80},{"ip":"192.0.2.2","port":443},)"
                      R"({"ip":"192.0.2.3"})"));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"2 ryl_netdb.TableQueryReceived"});
}

TEST_F(HandleOSQueryTest, AnyFlagButZeroAsksForAnEvent) {
  for (const u8 flag : {u8{2}, u8{0x80}, u8{0xFF}}) {
    EXPECT_TRUE(AskTable(TableQueryBuilder().AsEvent(flag)));
    EXPECT_EQ(sender.Replies().size(), 1U);
    EXPECT_TRUE(external.results.empty());
  }
}

TEST_F(HandleOSQueryTest, NoRowsAreAnEmptyReply) {
  EXPECT_EQ(Result(TableQueryBuilder()), Header(0, 0));
  EXPECT_EQ(Reply(TableQueryBuilder()), kEmptyReply);
}

TEST_F(HandleOSQueryTest, AllColumnsOfARowComeInBothForms) {
  Fill();
  const auto rows = RowsOf(Result(TableQueryBuilder()));
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0].ShortDebugString(),
            "ip: \"192.0.2.1\" first_seen: 1699920080000 last_seen: 1699920080000 port: 80 protos: \"HTTP,TCP\" "
            "conns_total: 1 conns_out: 1 proc_fpath: \"/usr/bin/curl\" proc_md5: \"" +
                rows[0].proc_md5() + "\" proc_qid: \"" + rows[0].proc_qid() + "\" proc_puid: " +
                std::to_string(rows[0].proc_puid()) + " proc_pid: " + std::to_string(rows[0].proc_pid()));
  EXPECT_EQ(rows[0].proc_md5().size(), 32U);
  EXPECT_EQ(rows[0].proc_qid().size(), 64U);
  EXPECT_EQ(rows[2].proc_pid(), -1);
  const std::string reply = Reply(TableQueryBuilder());
  EXPECT_NE(reply.find(R"({"ip":"192.0.2.1","first_seen":"1699920080000","last_seen":"1699920080000","port":80,)"
                       R"("protos":"HTTP,TCP","conns_total":1,"conns_out":1,"proc_fpath":"/usr/bin/curl",)"),
            std::string::npos)
      << reply;
}

TEST_F(HandleOSQueryTest, NamesInUpperCaseWithBlanksAreTheSameColumns) {
  Fill();
  const std::string expected = Result(TableQueryBuilder("ip,conns_total"));
  for (const char* columns : {"IP,CONNS_TOTAL", " ip , conns_total ", "Ip\t,\nconns_total", ",ip,,conns_total,"}) {
    EXPECT_EQ(Result(TableQueryBuilder(columns)), expected) << columns;
  }
}

TEST_F(HandleOSQueryTest, EmptyColumnListMeansAll) {
  Fill();
  EXPECT_EQ(Result(TableQueryBuilder("")), Result(TableQueryBuilder("*")));
}

TEST_F(HandleOSQueryTest, UnknownColumnIsABadQueryWithoutRows) {
  Fill();
  EXPECT_EQ(Result(TableQueryBuilder("ip,host")), Header(4, 0));
  EXPECT_EQ(Reply(TableQueryBuilder("ip,host")), ReplyWith(4, 0, ""));
}

TEST_F(HandleOSQueryTest, RecordWithoutColumnsOrConstraintsIsABadQuery) {
  Fill();
  EXPECT_EQ(Result(TableQueryBuilder().NoColumnsText()), Header(4, 0));
  EXPECT_EQ(Reply(TableQueryBuilder().NoColumnsText()), ReplyWith(4, 0, ""));
  EXPECT_EQ(Result(TableQueryBuilder().NoConstraintsText()), Header(4, 0));
  EXPECT_EQ(Reply(TableQueryBuilder().NoConstraintsText()), ReplyWith(4, 0, ""));
}

TEST_F(HandleOSQueryTest, ConstraintsNarrowTheRows) {
  Fill();
  EXPECT_EQ(Reply(TableQueryBuilder("port").Constraints(
                R"({"ip":{"affinity":"TEXT","list":[{"op":2,"expr":"192.0.2.2"}]}})")),
            ReplyWith(0, 1, R"({"port":443})"));
}

TEST_F(HandleOSQueryTest, IPv6AddressIsAnEmptyAnswerAndNoError) {
  Fill();
  const std::string loopback = R"({"ip":{"affinity":"TEXT","list":[{"op":2,"expr":"::1"}]}})";
  EXPECT_EQ(Result(TableQueryBuilder().Constraints(loopback)), Header(0, 0));
  EXPECT_EQ(Reply(TableQueryBuilder().Constraints(loopback)), kEmptyReply);
}

TEST_F(HandleOSQueryTest, BadConstraintTextIsABadQuery) {
  Fill();
  for (const char* json : {"", "{", "[]", "7", R"({"ip":{"list":[]}})"}) {
    EXPECT_EQ(Result(TableQueryBuilder().Constraints(json)), Header(4, 0)) << json;
  }
}

TEST_F(HandleOSQueryTest, MoreRowsThanTheLimitDropAllOrKeepTheFirst) {
  Fill();
  Settings().max_query_rows.Set(2);
  EXPECT_EQ(Result(TableQueryBuilder("port")), Header(1, 0));
  EXPECT_EQ(log.Count("osquery.RowLimitReached"), 1);
  EXPECT_EQ(Reply(TableQueryBuilder("port")), ReplyWith(1, 2, R"({"port":80},{"port":443})"));
}

TEST_F(HandleOSQueryTest, AsManyRowsAsTheLimitAreAllThere) {
  Fill();
  Settings().max_query_rows.Set(3);
  const std::string result = Result(TableQueryBuilder("port"));
  EXPECT_EQ(result.substr(0, 9), Header(0, 3));
  EXPECT_EQ(RowsOf(result).size(), 3U);
  EXPECT_EQ(Reply(TableQueryBuilder("port")), ReplyWith(0, 3, R"({"port":80},{"port":443},{})"));
}

TEST_F(HandleOSQueryTest, SmallestAndLargestLimitsHold) {
  Fill();
  Settings().max_query_rows.Set(1);
  EXPECT_EQ(Result(TableQueryBuilder("port")), Header(1, 0));
  EXPECT_EQ(Reply(TableQueryBuilder("port")), ReplyWith(1, 1, R"({"port":80})"));
  // More than a policy may ask for.
  Settings().max_query_rows.Set(0xFFFFFFFF);
  Settings().max_query_bytes.Set(0xFFFFFFFF);
  EXPECT_EQ(Result(TableQueryBuilder("port")).substr(0, 9), Header(0, 3));
  EXPECT_EQ(Reply(TableQueryBuilder("port")), ReplyWith(0, 3, R"({"port":80},{"port":443},{})"));
}

// Rows of 600 bytes, of which 0x80000 bytes do not hold all.
TEST_F(HandleOSQueryTest, FullBufferDropsAllOrKeepsTheCompleteRows) {
  constexpr u32 kRows = 900;
  Settings().max_query_bytes.Set(0x80000);
  const NetDB::Process longPath = MakeProcess(("/" + std::string(509, 'x')).c_str(), 1);
  for (u32 i = 0; i < kRows; ++i) {
    AddRow(1, Address(192, 0, static_cast<u8>(i / 200), static_cast<u8>(1 + i % 200)), 80, 0, &longPath);
  }
  EXPECT_EQ(Result(TableQueryBuilder("*")), Header(2, 0));
  EXPECT_EQ(log.Count("osquery.BufferFull"), 1);
  const std::string reply = Reply(TableQueryBuilder("*"));
  TreeContainer tree;
  ASSERT_TRUE(tree.CreateFromJsonString(reply.data(), static_cast<int>(reply.size()), true, true));
  const u32 message = tree.GetNodeChild(TreeContainer::kRoot, "osquery_msg");
  const u32 count = tree.GetNodeValueUInt32(message, "message_count", 0, nullptr);
  EXPECT_EQ(tree.GetNodeValueUInt32(message, "error", 0, nullptr), 2U);
  EXPECT_GT(count, 700U);
  EXPECT_LT(count, kRows);
  EXPECT_EQ(tree.GetNodeChildrenCount(tree.GetNodeChild(message, "messages")), count);
}

TEST_F(HandleOSQueryTest, FewerThanTheLeastBytesMeanNoReply) {
  Settings().max_query_bytes.Set(0x7FFFF);
  for (const u8 flag : {u8{0}, u8{1}}) {
    EXPECT_FALSE(AskTable(TableQueryBuilder().AsEvent(flag)));
    ExpectNothingSent();
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "5 osquery.QueryBytesTooSmall",
                                                     "5 ryl_netdb.TableOutputNotCreated"}));
  }
  Settings().max_query_bytes.Set(0x80000);
  EXPECT_EQ(Result(TableQueryBuilder()), Header(0, 0));
}

TEST_F(HandleOSQueryTest, NoMemoryForTheResultMeansNoReply) {
  const auto record = TableQueryBuilder().Build();
  Velmar::Sim::FailAllocation(0);
  EXPECT_FALSE(module->HandleEvent(record.data(), &external));
  ExpectNothingSent();
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "5 osquery.NoOutputBuffer",
                                                   "5 ryl_netdb.TableOutputNotCreated"}));
}

TEST_F(HandleOSQueryTest, QueryThatFailsIsAnInternalFailure) {
  ASSERT_TRUE(Access::GetPath(Manager()).Set("/nowhere"));
  EXPECT_EQ(Result(TableQueryBuilder()), Header(5, 0));
  EXPECT_EQ(Reply(TableQueryBuilder()), ReplyWith(5, 0, ""));
}

// A policy may set less than what a result needs.
TEST_F(HandleOSQueryTest, PolicyLimitsTheNextQuery) {
  Fill();
  EXPECT_EQ(Result(TableQueryBuilder("port")).substr(0, 9), Header(0, 3));
  policy.values = {{PolicyKey::kMaxQueryRows, 2}};
  module->ApplySettings(&policy);
  EXPECT_EQ(Result(TableQueryBuilder("port")), Header(1, 0));
  policy.values = {{PolicyKey::kMaxQueryBytes, 0x7FFFF}};
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Count("ryl_netdb.ApplySettingsFailed"), 0);
  EXPECT_FALSE(AskTable(TableQueryBuilder("port")));
  ExpectNothingSent();
  policy.values = {{PolicyKey::kMaxQueryBytes, 0x80000}};
  module->ApplySettings(&policy);
  EXPECT_EQ(Result(TableQueryBuilder("port")).substr(0, 9), Header(0, 3));
}

TEST_F(HandleOSQueryTest, AnotherTableGetsNoReply) {
  Fill();
  for (const char* table : {"", "processes", "edr_netdb2", "edr_netd", "EDR_NETDB"}) {
    EXPECT_TRUE(AskTable(TableQueryBuilder().Table(table)));
    ExpectNothingSent();
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "3 ryl_netdb.TableUnknown"}));
    EXPECT_EQ(log.Arguments("ryl_netdb.TableUnknown"), std::vector<std::string>{table});
  }
}

TEST_F(HandleOSQueryTest, NoSideObjectIsRefusedAlsoForAnEvent) {
  for (const u8 flag : {u8{0}, u8{1}}) {
    log.Clear();
    EXPECT_FALSE(module->HandleEvent(TableQueryBuilder().AsEvent(flag).Build().data(), nullptr));
    ExpectNothingSent();
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "5 ryl_netdb.TableQueryIncomplete"}));
  }
}

TEST_F(HandleOSQueryTest, NoEventIsRefused) {
  EXPECT_FALSE(Access::HandleOSQuery(Manager(), nullptr, &external));
  ExpectNothingSent();
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "5 ryl_netdb.TableQueryIncomplete"}));
}

TEST_F(HandleOSQueryTest, HighBitsOfTheHeaderDoNotMatter) {
  EXPECT_EQ(Result(TableQueryBuilder().Header(0xABCDE000U | 221U)), Header(0, 0));
}

TEST_F(HandleOSQueryTest, DisabledModuleIgnoresTheQuery) {
  Fill();
  Settings().netdb_enabled.Set(false);
  EXPECT_TRUE(AskTable(TableQueryBuilder()));
  ExpectNothingSent();
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.ModuleDisabled"});
  EXPECT_EQ(log.Arguments("ryl_netdb.ModuleDisabled"), std::vector<std::string>{"221"});
}

TEST_F(HandleOSQueryTest, SideObjectThatRefusesIsAFailure) {
  Fill();
  external.takes = false;
  EXPECT_FALSE(AskTable(TableQueryBuilder("port")));
  EXPECT_EQ(external.results.size(), 1U);
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "5 osquery.ResultNotTaken",
                                                   "3 ryl_netdb.TableResultNotDelivered"}));
}

TEST_F(HandleOSQueryTest, SenderThatRefusesIsAFailure) {
  sender.accepts = false;
  EXPECT_FALSE(AskTable(TableQueryBuilder().AsEvent()));
  EXPECT_EQ(sender.Replies().size(), 1U);
  EXPECT_TRUE(external.results.empty());
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "3 ryl_netdb.TableReplyNotSent"}));
}

TEST_F(HandleOSQueryTest, NoSenderIsAFailureOfTheEventOnly) {
  host.sender = nullptr;
  EXPECT_FALSE(AskTable(TableQueryBuilder().AsEvent()));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "3 ryl_netdb.TableReplyNotSent"}));
  EXPECT_EQ(Result(TableQueryBuilder()), Header(0, 0));
}

TEST_F(HandleOSQueryTest, NoHostIsAFailureOfTheEventOnly) {
  Access::SetHost(Manager(), nullptr);
  EXPECT_FALSE(AskTable(TableQueryBuilder().AsEvent()));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"2 ryl_netdb.TableQueryReceived", "3 ryl_netdb.TableReplyNotSent"}));
  EXPECT_EQ(Result(TableQueryBuilder()), Header(0, 0));
  Access::SetHost(Manager(), &host);
}

TEST_F(HandleOSQueryTest, BadBytesOfAPathAreReplacedInBothForms) {
  const NetDB::Process odd = MakeProcess("/tmp/\xFF\xC3\xA4", 1);
  AddRow(80, Address(192, 0, 2, 1), 80, 0, &odd);
  const auto rows = RowsOf(Result(TableQueryBuilder("proc_fpath")));
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].proc_fpath(), "/tmp/\xEF\xBF\xBD\xC3\xA4");
  EXPECT_EQ(Reply(TableQueryBuilder("proc_fpath")), ReplyWith(0, 1, "{\"proc_fpath\":\"/tmp/\xEF\xBF\xBD\xC3\xA4\"}"));
}

TEST_F(HandleOSQueryTest, SeveralThreadsAskAtOnce) {
  constexpr int kThreads = 4;
  Fill();
  ASSERT_TRUE(writer.Flush());
  const auto binary = TableQueryBuilder().Build();
  const auto event = TableQueryBuilder("port").AsEvent().Build();
  FakeExternalData externals[kThreads];
  std::atomic<int> answers{0};
  std::vector<std::thread> threads;
  for (FakeExternalData& own : externals) {
    threads.emplace_back([&] {
      for (const auto* record : {&binary, &event}) {
        answers += module->HandleEvent(record->data(), &own) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(answers, 2 * kThreads);
  for (const FakeExternalData& own : externals) {
    ASSERT_EQ(own.results.size(), 1U);
    EXPECT_EQ(own.results[0].second, externals[0].results[0].second);
    EXPECT_EQ(RowsOf(own.results[0].second).size(), 3U);
  }
  ASSERT_EQ(sender.Replies().size(), static_cast<std::size_t>(kThreads));
  for (const auto& reply : sender.Replies()) {
    EXPECT_EQ(reply.json, ReplyWith(0, 3, R"({"port":80},{"port":443},{})"));
  }
}

// Each question is answered whole, or ignored by a module that is switched off; an event may find no host any more.
TEST_F(HandleOSQueryTest, QuestionsMayRunBesideStop) {
  constexpr int kQuestions = 200;
  Fill();
  ASSERT_TRUE(writer.Flush());
  const auto binary = TableQueryBuilder("port").Build();
  const auto event = TableQueryBuilder("port").AsEvent().Build();
  std::atomic<int> asked{0};
  int refused = 0;
  std::thread binaryAsker([&] {
    for (int i = 0; i < kQuestions; ++i, ++asked) {
      EXPECT_TRUE(module->HandleEvent(binary.data(), &external));
    }
  });
  std::thread eventAsker([&] {
    FakeExternalData own;
    for (int i = 0; i < kQuestions; ++i, ++asked) {
      refused += module->HandleEvent(event.data(), &own) ? 0 : 1;
    }
    EXPECT_TRUE(own.results.empty());
  });
  while (asked < kQuestions / 4) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(module->Stop());
  binaryAsker.join();
  eventAsker.join();
  for (const auto& result : external.results) {
    EXPECT_EQ(result.second.substr(0, 9), Header(0, 3));
  }
  for (const auto& reply : sender.Replies()) {
    EXPECT_EQ(reply.json, ReplyWith(0, 3, R"({"port":80},{"port":443},{})"));
  }
  EXPECT_GE(external.results.size() + sender.Replies().size(), kQuestions / 4U);
  EXPECT_LE(refused, 1);
}

class ThrowingExternalData : public Events::ExternalData {
 public:
  bool SetBinary(const char* /*name*/, const void* /*data*/, u32 /*size*/) override { throw 7; }
};

// The module is as before, and has lost no memory.
TEST_F(HandleOSQueryTest, WhatTheHostThrowsGoesBackToIt) {
  Fill();
  const std::string whole = Result(TableQueryBuilder());
  const std::string reply = Reply(TableQueryBuilder("port"));
  ThrowingExternalData throwing;
  CountingAllocator memory;
  Velmar::Collections::SetModuleAllocator(&memory);
  EXPECT_THROW(module->HandleEvent(TableQueryBuilder().Build().data(), &throwing), int);
  sender.onDispatch = [] { throw 7; };
  EXPECT_THROW(module->HandleEvent(TableQueryBuilder().AsEvent().Build().data(), &throwing), int);
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(memory.Out(), 0U);
  sender.onDispatch = nullptr;
  EXPECT_EQ(Result(TableQueryBuilder()), whole);
  EXPECT_EQ(Reply(TableQueryBuilder("port")), reply);
}

// A second module object in one loading of the library; libprotobuf has ended with the first.
TEST_F(HandleOSQueryTest, SecondModuleObjectAnswersWithAnError) {
  Fill();
  EXPECT_EQ(Result(TableQueryBuilder("port")).substr(0, 9), Header(0, 3));
  EXPECT_EQ(Reply(TableQueryBuilder("port")), ReplyWith(0, 3, R"({"port":80},{"port":443},{})"));
  module.reset();
  Uninit();
  module.reset(Init(nullptr));
  ASSERT_TRUE(Initialize());
  EXPECT_EQ(Result(TableQueryBuilder("port")), Header(5, 0));
  EXPECT_EQ(log.Count("osquery.NoDescriptor"), 1);
  EXPECT_EQ(Reply(TableQueryBuilder("port")), ReplyWith(5, 0, ""));
}

// Either the whole reply, or an error code, or no reply and a record that says so; never rows that look complete.
TEST_F(HandleOSQueryTest, EachFailedAllocationIsSurvived) {
  Fill();
  sender.onDispatch = [] { Velmar::Sim::FailAllocation(~u64{0}); };
  for (const u8 flag : {u8{0}, u8{1}}) {
    const auto record = TableQueryBuilder().AsEvent(flag).Build();
    ASSERT_TRUE(AskTable(TableQueryBuilder().AsEvent(flag)));
    const std::string whole = flag == 0 ? external.results[0].second : sender.Replies()[0].json;
    u64 failures = 0;
    for (u64 number = 0;; ++number) {
      SCOPED_TRACE(number);
      log.Clear();
      sender.Clear();
      external.results.clear();
      Velmar::Sim::FailAllocation(number);
      const u64 before = Velmar::Sim::CountAllocations();
      const bool answered = module->HandleEvent(record.data(), &external);
      const u64 used = Velmar::Sim::CountAllocations() - before;
      Velmar::Sim::FailAllocation(~u64{0});
      const std::size_t sent = external.results.size() + sender.Replies().size();
      EXPECT_EQ(sent, answered ? 1U : 0U);
      EXPECT_TRUE(answered || log.CountLevel(5) + log.CountLevel(3) > 0);
      if (answered && log.CountLevel(5) == 0) {
        EXPECT_EQ(flag == 0 ? external.results[0].second : sender.Replies()[0].json, whole);
      } else {
        ++failures;
      }
      if (number >= used) {
        EXPECT_TRUE(answered);
        break;
      }
    }
    EXPECT_GT(failures, 3U);
  }
}

TEST_F(HandleOSQueryTest, EachFailedModuleAllocationIsSurvived) {
  Fill();
  const auto record = TableQueryBuilder().Build();
  ASSERT_TRUE(AskTable(TableQueryBuilder()));
  const std::string whole = external.results[0].second;
  for (u64 number = 0;; ++number) {
    SCOPED_TRACE(number);
    log.Clear();
    external.results.clear();
    CountingAllocator memory;
    memory.FailFrom(number);
    Velmar::Collections::SetModuleAllocator(&memory);
    EXPECT_TRUE(module->HandleEvent(record.data(), &external));
    Velmar::Collections::SetModuleAllocator(nullptr);
    EXPECT_EQ(memory.Out(), 0U);
    ASSERT_EQ(external.results.size(), 1U);
    if (memory.Failures() == 0) {
      EXPECT_EQ(external.results[0].second, whole);
      EXPECT_GT(number, 3U);
      break;
    }
    // A day that finds no memory is left out with a record.
    EXPECT_GT(log.CountLevel(5) + log.CountLevel(3), 0);
  }
}

}  // namespace
}  // namespace RYL::Module
