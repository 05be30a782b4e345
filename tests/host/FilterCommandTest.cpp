#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Velmar/OS/Time.h"
#include "host/agent/DataFolder.h"
#include "host/text/TimeText.h"
#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"
#include "tests/support/ScriptedServer.h"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14
constexpr Host::u64 kOneDay = 86400;
constexpr char kHarmless[] = R"({"data":{"is_whitelisted":true}})";

// An odd last octet is harmless.
void AnswerByOctet(Peer& peer) {
  const std::string request = peer.ReadRequest();
  std::string reply = "[";
  const std::string head = "\"ip\":\"203.0.113.";
  for (std::size_t at = request.find(head); at != std::string::npos; at = request.find(head, at + 1)) {
    const bool isOdd = std::stoi(request.substr(at + head.size())) % 2 == 1;
    reply += (reply.size() > 1 ? "," : "") + std::string(isOdd ? kHarmless : "{}");
  }
  peer.Send(HttpReply(reply + "]"));
}

class FilterCommandTest : public testing::Test {
 protected:
  // Two days: .1 and .2 on the first, .3 on the second.
  void PutTwoDays() { PutHistory(folder_.Path(), {{kDay + 1, 1}, {kDay + 2, 2}, {kDay + kOneDay + 1, 3}}); }
  void PutPolicy(const std::string& endpoint, const std::string& settings = "") {
    folder_.Put("policy.toml", settings + "\n[cloud]\nendpoint = \"" + endpoint + "\"\n");
  }
  void AskAt(const ScriptedServer& server, const std::string& settings = "") {
    PutPolicy("http://127.0.0.1:" + std::to_string(server.Port()), settings);
  }
  std::vector<std::string> Words(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"filter", "--data", folder_.Path(), "--policy", folder_.Path("policy.toml")});
    return arguments;
  }
  ProgramResult Filter(const std::vector<std::string>& arguments = {}) const { return RunNetdb(Words(arguments)); }
  static Json Summary(const ProgramResult& result) { return Json::parse(result.out, nullptr, false); }
  [[nodiscard]] bool Has(const std::string& name) const {
    return std::filesystem::exists(folder_.Path("netdb/" + name));
  }
  [[nodiscard]] std::vector<std::string> Addresses() const {
    const std::string out = RunNetdb({"query", "--data", folder_.Path(), "--format", "jsonl"}).out;
    std::vector<std::string> addresses;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
      addresses.push_back(Json::parse(line)["ip"]);
    }
    return addresses;
  }

  TemporaryFolder folder_;
};

using Texts = std::vector<std::string>;

TEST_F(FilterCommandTest, FinishedDaysLoseTheirHarmlessRows) {
  PutTwoDays();
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  const ProgramResult result = Filter();
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, testing::ContainsRegex("^1699920000\\.db\\.f  2023-11-14  filtered +1 rows removed +[0-9]+ "
                                                 "bytes saved +1 requests\n1700006400\\.db\\.f  2023-11-15  filtered"));
  EXPECT_THAT(result.out, HasSubstr("2 files filtered, 0 failed, 0 left; 2 rows removed, "));
  EXPECT_EQ(Addresses(), Texts{"203.0.113.2"});
  EXPECT_TRUE(Has("1699920000.db.f") && Has("1700006400.db.f"));
  EXPECT_FALSE(Has("1699920000.db") || Has("1700006400.db"));
  EXPECT_EQ(RunNetdb({"verify", "--data", folder_.Path()}).exitCode, 0);
}

TEST_F(FilterCommandTest, JsonSummaryCounts) {
  PutTwoDays();
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  const Host::u64 before = std::filesystem::file_size(folder_.Path("netdb/1699920000.db"));
  const Json summary = Summary(Filter({"--format", "json"}));
  ASSERT_EQ(summary["files"].size(), 2U);
  const Json& first = summary["files"][0];
  EXPECT_EQ(first["file"], "1699920000.db.f");
  EXPECT_EQ(first["day"], "2023-11-14");
  EXPECT_EQ(first["state"], "filtered");
  EXPECT_EQ(first["rows_removed"], 1);
  EXPECT_EQ(first["size_before"], before);
  EXPECT_EQ(first["size_after"], std::filesystem::file_size(folder_.Path("netdb/1699920000.db.f")));
  EXPECT_EQ(first["requests"], 1);
  EXPECT_EQ(first["reasons"], Json::array());
  EXPECT_EQ(summary["filtered"], 2);
  EXPECT_EQ(summary["failed"], 0);
  EXPECT_EQ(summary["left"], 0);
  EXPECT_EQ(summary["rows_removed"], 2);
  EXPECT_EQ(summary["requests"], 2);
}

TEST_F(FilterCommandTest, VerdictsSurviveUnlessTheHistoryIsSmall) {
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kDay + 2, 2}});
  EXPECT_EQ(Filter().exitCode, 0);
  EXPECT_TRUE(Has("cache.4.db"));
  PutHistory(folder_.Path(), {{kDay + kOneDay, 1}, {kDay + kOneDay, 2}});
  const Json known = Summary(Filter({"--format", "json"}));
  EXPECT_EQ(known["requests"], 0);
  EXPECT_EQ(known["rows_removed"], 1);
  EXPECT_EQ(server.Connections(), 1);

  AskAt(server, "max_db_size = 8388608");
  PutHistory(folder_.Path(), {{kDay + 2 * kOneDay, 1}});
  EXPECT_EQ(Summary(Filter({"--format", "json"}))["requests"], 1);
  EXPECT_FALSE(Has("cache.4.db"));
}

TEST_F(FilterCommandTest, OneDayIsNamedByItsDateOrItsFile) {
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  PutTwoDays();
  EXPECT_EQ(Summary(Filter({"--format", "json", "--file", "2023-11-15"}))["files"][0]["file"], "1700006400.db.f");
  EXPECT_TRUE(Has("1699920000.db"));
  EXPECT_EQ(Summary(Filter({"--format", "json", "--file", "1699920000.db"}))["files"][0]["file"], "1699920000.db.f");
}

TEST_F(FilterCommandTest, DayThatIsFilteredAlreadyIsSaidAndDone) {
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  PutTwoDays();
  EXPECT_EQ(Filter().exitCode, 0);
  for (const char* day : {"2023-11-14", "1699920000.db", "1699920000.db.f"}) {
    const ProgramResult result = Filter({"--file", day});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "netdb: 2023-11-14 is filtered already\n");
    EXPECT_THAT(result.out, HasSubstr("0 files filtered, 0 failed, 0 left"));
  }
}

TEST_F(FilterCommandTest, TodayIsLeftAloneAndRefusedByName) {
  const Host::u64 now = Velmar::OS::Time::GetSystemTime();
  if (kOneDay - now % kOneDay < 60) {
    GTEST_SKIP() << "midnight would come between";
  }
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  PutHistory(folder_.Path(), {{now, 1}});
  const std::string date = Host::Text::FormatUtc(now).substr(0, 10);
  EXPECT_EQ(Summary(Filter({"--format", "json"}))["files"], Json::array());
  const ProgramResult result = Filter({"--file", date});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "netdb: " + date + " is not over; a day is filtered once nothing can come to it\n");
  EXPECT_EQ(server.Connections(), 0);
  EXPECT_EQ(Addresses(), Texts{"203.0.113.1"});
}

TEST_F(FilterCommandTest, DayWithoutAFileIsAnError) {
  PutTwoDays();
  PutPolicy("");
  const ProgramResult result = Filter({"--file", "2023-11-20"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("there is no file of 2023-11-20 in "));
}

TEST_F(FilterCommandTest, WrongUseIsTold) {
  PutTwoDays();
  PutPolicy("");
  for (const Texts& words :
       std::vector<Texts>{{"--file", "soon"}, {"--file", "/x/1699920000.db"}, {"--format", "csv"}}) {
    const ProgramResult result = Filter(words);
    EXPECT_EQ(result.exitCode, 2) << words[1];
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
}

TEST_F(FilterCommandTest, BadPolicyIsToldWithItsLine) {
  PutTwoDays();
  PutPolicy("http://203.0.113.1");  // in the clear, to another machine
  const ProgramResult result = Filter();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(": endpoint has to be https://"));
}

TEST_F(FilterCommandTest, AbsentCloudStopsAtTheFirstDayAndLosesNothing) {
  PutTwoDays();
  for (const std::string& endpoint : {"http://127.0.0.1:" + std::to_string(UnusedPort()), std::string()}) {
    PutPolicy(endpoint);
    const ProgramResult result = Filter({"--format", "json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("netdb: 1699920000.db is not filtered\n"));
    EXPECT_THAT(result.err, HasSubstr(endpoint.empty() ? "no endpoint is configured" : "connect to server"));
    EXPECT_THAT(result.err, testing::EndsWith("netdb: the cloud cannot be reached; 2 files are left\n"));
    const Json summary = Summary(result);
    EXPECT_EQ(summary["failed"], 1);
    EXPECT_EQ(summary["left"], 1);
    EXPECT_EQ(summary["files"][1]["state"], "left");
    EXPECT_EQ(Addresses(), (Texts{"203.0.113.1", "203.0.113.2", "203.0.113.3"}));
    EXPECT_TRUE(Has("1699920000.db") && Has("1700006400.db"));
  }
}

TEST_F(FilterCommandTest, DayThatFailsIsToldAndTheNextOneIsTried) {
  PutTwoDays();
  std::string bytes = TemporaryFolder::Get(folder_.Path("netdb/1699920000.db"));
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  folder_.Put("netdb/1699920000.db", bytes);
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  const ProgramResult result = Filter({"--format", "json"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.err, HasSubstr("netdb: 1699920000.db is not filtered\n"));
  EXPECT_THAT(result.err, HasSubstr("the filter job cannot open 1699920000.db"));
  const Json summary = Summary(result);
  EXPECT_EQ(summary["files"][0]["state"], "failed");
  EXPECT_THAT(summary["files"][0]["reasons"].dump(), HasSubstr("cannot open"));
  EXPECT_EQ(summary["files"][1]["state"], "filtered");
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("netdb/1699920000.db")), bytes);
}

TEST_F(FilterCommandTest, CloudThatRefusesIsNoReasonToStop) {
  PutTwoDays();
  const ScriptedServer server([](Peer& peer) {
    peer.ReadRequest();
    peer.Send(HttpReply("", "500 Internal Server Error"));
  });
  AskAt(server);
  const ProgramResult result = Filter({"--format", "json"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(Summary(result)["failed"], 2);
  EXPECT_EQ(server.Connections(), 2);
  EXPECT_EQ(Addresses().size(), 3U);
}

TEST_F(FilterCommandTest, FilteredFileInTheWayIsAFailure) {
  PutTwoDays();
  folder_.Put("netdb/1699920000.db.f", "in the way");
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  const ProgramResult result = Filter();
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.err, HasSubstr("1699920000.db.f exists and is not overwritten"));
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("netdb/1699920000.db.f")), "in the way");
}

TEST_F(FilterCommandTest, PolicyThatForbidsToAskIsObeyed) {
  PutTwoDays();
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server, "cloud_query_enabled = false");
  const ProgramResult result = Filter();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("policy.toml:1: cloud_query_enabled is off, so that nothing can be asked"));
  EXPECT_EQ(server.Connections(), 0);
}

TEST_F(FilterCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  PutPolicy("");
  const ProgramResult result = Filter();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "netdb: there is no history: the folder " + folder_.Path("netdb") + " does not exist\n");
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("netdb")));
}

TEST_F(FilterCommandTest, WriterIsNamed) {
  PutTwoDays();
  PutPolicy("");
  Host::DataFolderLock lock;
  std::string error;
  ASSERT_TRUE(lock.Take(folder_.Path(), "run", error)) << error;
  const ProgramResult result = Filter();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("\"netdb run\" (process " + std::to_string(getpid()) + ") is writing to"));
}

// The signal comes while the first request is under way: it is the last.
TEST_F(FilterCommandTest, InterruptFinishesTheRequestAndKeepsItsVerdicts) {
  std::vector<HistoryRow> rows;
  for (Host::u64 i = 1; i <= 120; ++i) {
    rows.push_back({kDay + i, static_cast<Host::u8>(i)});
  }
  PutHistory(folder_.Path(), rows);
  pid_t child = -1;
  std::promise<pid_t> started;
  std::future<pid_t> known = started.get_future();
  const ScriptedServer server([&known, &child](Peer& peer) {
    if (child < 0) {
      child = known.get();
      kill(child, SIGINT);
    }
    AnswerByOctet(peer);
  });
  AskAt(server);
  std::vector<std::string> words = Words({"--format", "json"});
  int terminal = -1;
  const pid_t process = forkpty(&terminal, nullptr, nullptr, nullptr);
  ASSERT_GE(process, 0);
  if (process == 0) {
    std::vector<char*> arguments = {const_cast<char*>(NETDB_PROGRAM)};
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(NETDB_PROGRAM, arguments.data());
    _exit(127);
  }
  started.set_value(process);
  std::string shown;
  char bytes[4096];
  for (ssize_t size = 0; (size = read(terminal, bytes, sizeof(bytes))) > 0;) {
    shown.append(bytes, static_cast<std::size_t>(size));
  }
  int status = 0;
  waitpid(process, &status, 0);
  close(terminal);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_THAT(shown, HasSubstr("interrupted; what the cloud said until then is kept, 1 files are left"));
  EXPECT_THAT(shown, HasSubstr("1 of 1: 1699920000.db, "));
  EXPECT_EQ(server.Connections(), 1);
  EXPECT_EQ(Addresses().size(), 95U);
  EXPECT_TRUE(Has("1699920000.db"));
}

TEST_F(FilterCommandTest, FullDiskOfTheOutputIsAFailure) {
  PutTwoDays();
  const ScriptedServer server(&AnswerByOctet);
  AskAt(server);
  std::string line = NETDB_PROGRAM;
  for (const std::string& word : Words({})) {
    line += " " + word;
  }
  const ProgramResult result = RunProgram("/bin/sh", {"-c", line + " > /dev/full"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
}

}  // namespace
