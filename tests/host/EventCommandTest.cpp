#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <set>

#include "host/agent/DataFolder.h"
#include "host/events/TableReply.h"
#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

// Three rows on two days.
constexpr char kRows[] =
    R"({"ip":"203.0.113.1","first_seen":1699920001000,"port":443,"protos":"SSL,TCP","conns_total":1,"proc_fpath":"/usr/bin/curl","proc_puid":7,"proc_pid":70})"
    "\n"
    R"({"ip":"203.0.113.2","first_seen":1699920002000,"port":80,"protos":"TCP","conns_total":1,"proc_fpath":"/usr/bin/wget","proc_puid":8,"proc_pid":80})"
    "\n"
    R"({"ip":"203.0.113.3","first_seen":1700006401000,"port":443,"protos":"TCP","conns_total":1})"
    "\n";

class EventCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    const ProgramResult result = RunNetdb({"import", "--policy", Policy(), "--data", folder_.Path("data"), "-"}, kRows);
    ASSERT_EQ(result.exitCode, 0) << result.err;
  }

  ProgramResult Event(const std::string& form, std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), {"event", form, "--policy", Policy(), "--data", folder_.Path("data")});
    return RunNetdb(arguments, input);
  }
  // The document of a reply, once the exit code is the wanted one.
  Json Reply(const std::string& form, const std::vector<std::string>& arguments, int exitCode = 0,
             const std::string& input = {}) {
    const ProgramResult result = Event(form, arguments, input);
    EXPECT_EQ(result.exitCode, exitCode) << result.err;
    error_ = result.err;
    return Json::parse(result.out, nullptr, false);
  }
  // The last octets of the addresses of a history query's rows, whose days come in no fixed order.
  std::set<int> Octets(const std::vector<std::string>& arguments) {
    std::set<int> octets;
    const Json reply = Reply("query", arguments);
    EXPECT_EQ(reply.value("event_name", ""), "netdb_query_output");
    for (const Json& row : reply.value("results", Json::array())) {
      EXPECT_EQ(row.size(), 15U);
      EXPECT_TRUE(octets.insert(row.value("ip", "?").back() - '0').second);
    }
    return octets;
  }

  std::string Policy() { return folder_.Put("policy.toml", policy_); }

  TemporaryFolder folder_;
  std::string policy_ = "max_db_days = 1000000\n";
  std::string error_;
};

TEST_F(EventCommandTest, EachKindOfHistoryQueryFindsItsRows) {
  const std::string md5(32, '0');
  const std::string qid(64, '0');
  EXPECT_EQ(Octets({"--kind", "FindIPv4", "203.0.113.2", "203.0.113.3"}), (std::set<int>{2, 3}));
  EXPECT_EQ(Octets({"--kind", "FindProcessesPath", "/usr/bin/curl"}), (std::set<int>{1}));
  EXPECT_EQ(Octets({"--kind", "FindPorts", "443", "8080"}), (std::set<int>{1, 3}));
  EXPECT_EQ(Octets({"--kind", "FindProtos", "ssl"}), (std::set<int>{1}));
  EXPECT_EQ(Octets({"--kind", "FindProcessesMD5", std::string(32, 'a')}), (std::set<int>{}));
  EXPECT_EQ(Octets({"--kind", "FindProcessesMD5", md5}), (std::set<int>{1, 2}));
  EXPECT_EQ(Octets({"--kind", "FindProcessesQID", qid}), (std::set<int>{1, 2}));
  EXPECT_EQ(Octets({"--kind", "Iterate"}), (std::set<int>{1, 2, 3}));
}

TEST_F(EventCommandTest, HistoryQueryHasARangeAndAnyCaseOfItsKind) {
  EXPECT_EQ(Octets({"--kind", "ITERATE", "--since", "2023-11-15"}), (std::set<int>{3}));
  EXPECT_EQ(Octets({"--kind", "findports", "443", "--until", "2023-11-14"}), (std::set<int>{1}));
  EXPECT_EQ(Octets({"--kind", "Iterate", "--since", "2023-11-14T00:00:02Z", "--until", "2023-11-14"}),
            (std::set<int>{2}));
}

TEST_F(EventCommandTest, QueryWithoutAReplyFailsWithTheModulesReason) {
  const ProgramResult result = Event("query", {"--kind", "FindPorts", "443", "65536"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "netdb: the module gave no reply\nnetdb: query's value \"65536\" is not one of its kind\n");
  EXPECT_EQ(Event("query", {"--kind", "FindPorts"}).exitCode, 1);
}

TEST_F(EventCommandTest, WrongUseOfTheQueryIsSaid) {
  const ProgramResult kind = Event("query", {"--kind", "FindPort", "443"});
  EXPECT_EQ(kind.exitCode, 2);
  EXPECT_THAT(kind.err, HasSubstr("\"FindPort\" is no kind of query; there are FindIPv4"));
  EXPECT_EQ(Event("query", {}).exitCode, 2);
  const ProgramResult time = Event("query", {"--kind", "Iterate", "--since", "soon"});
  EXPECT_EQ(time.exitCode, 2);
  EXPECT_THAT(time.err, HasSubstr("\"soon\" is no time"));
  EXPECT_EQ(RunNetdb({"event"}).exitCode, 2);
}

TEST_F(EventCommandTest, TooLargeARecordIsRefused) {
  const ProgramResult result =
      Event("query", {"--kind", "FindProcessesPath", std::string(70000, 'a'), "/usr/bin/curl"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(result.err, HasSubstr("the event record is too large"));
}

TEST_F(EventCommandTest, BothFormsOfATableReplyHoldTheSameRows) {
  const Json binary = Reply("table", {});
  const Json event = Reply("table", {"--as-event"});
  EXPECT_EQ(event.value("event_name", ""), "netdb_query_output");
  EXPECT_EQ(event.value("osquery_msg", Json()), binary);
  EXPECT_EQ(binary.value("version", 0), 1);
  EXPECT_EQ(binary.value("error", 9), 0);
  EXPECT_EQ(binary.value("message_count", 0), 3);
  ASSERT_EQ(binary.value("messages", Json()).size(), 3U);
  const Json row = {{"ip", "203.0.113.1"},
                    {"first_seen", "1699920001000"},
                    {"last_seen", "1699920001000"},
                    {"port", 443},
                    {"protos", "SSL,TCP"},
                    {"conns_total", 1},
                    {"proc_fpath", "/usr/bin/curl"},
                    {"proc_md5", std::string(32, '0')},
                    {"proc_qid", std::string(64, '0')},
                    {"proc_puid", "7"},
                    {"proc_pid", "70"}};
  EXPECT_THAT(binary["messages"], testing::Contains(row));
}

TEST_F(EventCommandTest, ColumnsAndConstraintsReachTheModule) {
  const std::string constraints =
      folder_.Put("constraints.json", R"({"proc_fpath":{"affinity":"TEXT","list":[{"op":65,"expr":"%/CURL"}]}})");
  const Json wanted = Json::array({{{"ip", "203.0.113.1"}, {"port", 443}}});
  const std::vector<std::string> arguments = {"--columns", "Port, IP", "--constraints", constraints};
  EXPECT_EQ(Reply("table", arguments)["messages"], wanted);
  EXPECT_EQ(
      Reply("table", {"--columns", "ip,port", "--constraints", "-"}, 0, TemporaryFolder::Get(constraints))["messages"],
      wanted);
}

TEST_F(EventCommandTest, RawReplyIsWhatAHostGets) {
  const ProgramResult result = Event("table", {"--raw", "-"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  std::string error;
  const std::vector<Host::u8> bytes(result.out.begin(), result.out.end());
  const auto reply = Host::ReadTableReply(bytes, error);
  ASSERT_TRUE(reply.has_value()) << error;
  EXPECT_EQ(reply->messageCount, 3U);
  const ProgramResult file = Event("table", {"--raw", folder_.Path("reply.bin")});
  EXPECT_EQ(file.exitCode, 0) << file.err;
  EXPECT_EQ(file.out, "");
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("reply.bin")), result.out);
}

TEST_F(EventCommandTest, RowLimitMakesAPartialResult) {
  policy_ += "max_query_rows = 2\n";
  const Json event = Reply("table", {"--as-event"}, 3);
  EXPECT_EQ(error_, "netdb: error 1: more rows match than max_query_rows of the policy allows\n");
  EXPECT_EQ(event["osquery_msg"]["error"], 1);
  EXPECT_EQ(event["osquery_msg"]["messages"].size(), 2U);
  const Json binary = Reply("table", {}, 3);
  const Json wanted = {{"version", 1}, {"error", 1}, {"message_count", 0}, {"messages", Json::array()}};
  EXPECT_EQ(binary, wanted);
  policy_ = "max_db_days = 1000000\nmax_query_rows = 3\n";
  EXPECT_EQ(Reply("table", {})["message_count"], 3);
}

TEST_F(EventCommandTest, RawReplyWithAnErrorIsWrittenToo) {
  policy_ += "max_query_rows = 2\n";
  const ProgramResult result = Event("table", {"--raw", "-"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.out, std::string("\1\1\0\0\0\0\0\0\0", 9));
}

TEST_F(EventCommandTest, BadQueryFailsAndShowsTheReply) {
  const Json column = Reply("table", {"--columns", "ip,colour"}, 1);
  EXPECT_EQ(column["error"], 4);
  EXPECT_THAT(error_, HasSubstr("error 4: a column, or a constraint or its value, is none that the module takes"));
  EXPECT_EQ(Reply("table", {"--constraints", "-"}, 1, "not JSON")["error"], 4);
}

TEST_F(EventCommandTest, OtherTableHasNoReply) {
  const ProgramResult result = Event("table", {"--table", "processes"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("the module gave no reply"));
}

TEST_F(EventCommandTest, QueryLimitOfBytesBelowTheSmallestHasNoReply) {
  policy_ += "max_query_bytes = 524287\n";
  EXPECT_EQ(Event("table", {}).exitCode, 1);
  policy_ = "max_db_days = 1000000\nmax_query_bytes = 524288\n";
  EXPECT_EQ(Event("table", {}).exitCode, 0);
}

TEST_F(EventCommandTest, ConstraintsThatCannotBeSentAreRefused) {
  const ProgramResult missing = Event("table", {"--constraints", folder_.Path("none")});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_THAT(missing.err, HasSubstr("cannot read"));
  const ProgramResult large = Event("table", {"--constraints", "-"}, std::string(1024 * 1024 + 1, ' '));
  EXPECT_EQ(large.exitCode, 1);
  EXPECT_EQ(large.err, "netdb: - has more than 1 MiB\n");
  const ProgramResult nul = Event("table", {"--constraints", "-"}, std::string("{}\0", 3));
  EXPECT_EQ(nul.exitCode, 2);
  EXPECT_THAT(nul.err, HasSubstr("the constraints: a NUL byte inside"));
}

TEST_F(EventCommandTest, RawAndEventExcludeEachOther) {
  const ProgramResult result = Event("table", {"--as-event", "--raw", "-"});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.err, "netdb: --raw is for the binary reply, --as-event asks for none\n");
}

TEST_F(EventCommandTest, RawFileThatCannotBeWrittenIsAnError) {
  const ProgramResult result = Event("table", {"--raw", folder_.Path("none/reply.bin")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write"));
}

// What a reader of protocol buffers would refuse, never leaves the module.
TEST_F(EventCommandTest, PathThatIsNotUtf8HasReplacementsInBothForms) {
  const std::string data = folder_.Path("strange");
  PutHistory(data, {{1699920001, 1, 0, "/opt/\xFFtool\xC3"}});
  const std::vector<std::string> place = {"--policy", Policy(), "--data", data, "--columns", "proc_fpath"};
  std::vector<std::string> words = {"event", "table"};
  words.insert(words.end(), place.begin(), place.end());
  const ProgramResult binary = RunNetdb(words);
  words.emplace_back("--as-event");
  const ProgramResult event = RunNetdb(words);
  EXPECT_EQ(binary.exitCode, 0) << binary.err;
  EXPECT_EQ(event.exitCode, 0) << event.err;
  const Json wanted = Json::array({{{"proc_fpath", "/opt/\xEF\xBF\xBDtool\xEF\xBF\xBD"}}});
  EXPECT_EQ(Json::parse(binary.out)["messages"], wanted);
  EXPECT_EQ(Json::parse(event.out)["osquery_msg"]["messages"], wanted);
}

TEST_F(EventCommandTest, DamagedDayIsLeftOutAndSaid) {
  folder_.Put("data/netdb/1699920000.db", "no store");
  const ProgramResult result = Event("query", {"--kind", "Iterate"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.err, HasSubstr("the reply leaves out "));
  EXPECT_EQ(Json::parse(result.out)["results"].size(), 1U);
}

// The rows are of 2023, and their files larger than the smallest limit would need to be empty.
TEST_F(EventCommandTest, AskingDeletesNoDayPastTheLimits) {
  folder_.Put("data/netdb/1699833600.db", std::string(0x40000, 'x'));
  const std::string verdicts = TemporaryFolder::Get(folder_.Path("data/netdb/cache.4.db"));
  const std::string day = TemporaryFolder::Get(folder_.Path("data/netdb/1699920000.db"));
  ASSERT_NE(day, "");
  policy_ = "max_db_days = 2\nmax_db_size = 262144\n";
  EXPECT_EQ(Reply("query", {"--kind", "Iterate"}, 3)["results"].size(), 3U);
  EXPECT_EQ(Reply("table", {}, 3)["message_count"], 3);
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("data/netdb/1699833600.db")).size(), 0x40000U);
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("data/netdb/1699920000.db")), day);
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("data/netdb/cache.4.db")), verdicts);
}

TEST_F(EventCommandTest, FolderThatIsHeldIsLeftAlone) {
  Host::DataFolderLock lock;
  std::string error;
  ASSERT_TRUE(lock.Take(folder_.Path("data"), "test", error)) << error;
  const ProgramResult result = Event("query", {"--kind", "Iterate"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("test"));
}

TEST_F(EventCommandTest, MissingHistoryIsAnErrorAndStaysMissing) {
  const ProgramResult result = RunNetdb({"event", "query", "--kind", "Iterate", "--data", folder_.Path("other")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("there is no history"));
  EXPECT_NE(access(folder_.Path("other").c_str(), F_OK), 0);
}

TEST_F(EventCommandTest, ModuleThatIsOffIsNotAsked) {
  policy_ += "netdb_enabled = false\n";
  const ProgramResult result = Event("query", {"--kind", "Iterate"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("policy.toml:2: netdb_enabled is off, so that the module answers nothing"));
}

}  // namespace
