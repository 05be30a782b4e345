#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "host/agent/DataFolder.h"
#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using Host::u64;
using testing::HasSubstr;
using Json = nlohmann::json;

constexpr char kHeader[] =
    "#fields\tts\tid.orig_h\tid.resp_h\tid.resp_p\tproto\tservice\tduration\torig_bytes\tresp_bytes\n";

class ImportCommandTest : public testing::Test {
 protected:
  ProgramResult Import(std::vector<std::string> arguments, const std::string& input = {}) {
    const std::string policy = folder_.Put("policy.toml", policy_);
    arguments.insert(arguments.begin(), {"import", "--policy", policy, "--data", folder_.Path("data")});
    return RunNetdb(arguments, input);
  }
  // The rows of the history.
  std::vector<Json> Rows() {
    std::vector<Json> rows;
    const ProgramResult result = RunNetdb({"query", "--data", folder_.Path("data"), "--format", "json"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const Json array = Json::parse(result.out, nullptr, false);
    EXPECT_TRUE(array.is_array()) << result.out;
    for (const Json& row : array) {
      rows.push_back(row);
    }
    return rows;
  }

  TemporaryFolder folder_;
  std::string policy_ = "max_db_days = 1000000\n";
};

TEST_F(ImportCommandTest, ZeekLogBecomesRows) {
  const std::string log =
      folder_.Put("conn.log", std::string(kHeader) +
                                  "1699920001.5\t10.0.0.1\t203.0.113.1\t443\ttcp\tssl\t2.0\t100\t5000000000\n"
                                  "1699920005.0\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\n"
                                  "1699920009.0\t203.0.113.2\t10.0.0.1\t53\tudp\tdns\t-\t-\t-\n");
  const ProgramResult result = Import({log});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "lines read   4\nconnections  3\nevents       6\n");
  EXPECT_EQ(result.err, "");
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["ip"], "203.0.113.1");
  EXPECT_EQ(rows[0]["first_seen"], 1699920001000);
  EXPECT_EQ(rows[0]["last_seen"], 1699920005000);
  EXPECT_EQ(rows[0]["protos"], "SSL,TCP");
  EXPECT_EQ(rows[0]["conns_total"], 2);
  EXPECT_EQ(rows[0]["conns_out"], 2);
  EXPECT_EQ(rows[0]["bytes_in"], 5000000000);
  EXPECT_EQ(rows[0]["bytes_out"], 100);
  EXPECT_EQ(rows[0]["proc_pid"], -1);
  EXPECT_EQ(rows[1]["ip"], "203.0.113.2");
  EXPECT_EQ(rows[1]["conns_in"], 1);
  EXPECT_EQ(rows[1]["protos"], "");
}

TEST_F(ImportCommandTest, TrafficBehindMidnightBelongsToTheNextDay) {
  Import({folder_.Put("conn.log", std::string(kHeader) + "1700006399\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t2\t7\t9\n")});
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["conns_total"], 1);
  EXPECT_EQ(rows[0]["bytes_in"], 0);
  EXPECT_EQ(rows[1]["conns_total"], 0);
  EXPECT_EQ(rows[1]["first_seen"], 1700006401000);
  EXPECT_EQ(rows[1]["bytes_in"], 9);
}

TEST_F(ImportCommandTest, SysmonProcessesReachTheRows) {
  const std::string connection =
      R"({"EventID":3,"UtcTime":"2023-11-14 00:00:09.5","ProcessGuid":"{1}","ProcessId":"5","Image":"C:\\a.exe",)"
      R"("Protocol":"tcp","Initiated":"true","SourceIp":"10.0.0.1","SourcePort":"9","DestinationIp":"203.0.113.3",)"
      R"("DestinationPort":"443"})";
  const std::string creation =
      R"({"EventID":1,"UtcTime":"2023-11-14 00:00:01","ProcessGuid":"{2}","ProcessId":"6","Image":"C:\\A.exe",)"
      R"("Hashes":"MD5=49D503CA73BABD8FCCF522A611B539D1"})";
  const ProgramResult result = Import({"-", "--json"}, connection + "\n" + creation + "\n");
  EXPECT_EQ(result.exitCode, 0) << result.err;
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0]["proc_fpath"], "C:\\a.exe");
  EXPECT_EQ(rows[0]["proc_pid"], 5);
  EXPECT_EQ(rows[0]["proc_md5"], "49d503ca73babd8fccf522a611b539d1");
}

TEST_F(ImportCommandTest, SummaryAsJsonHasItsKeys) {
  const std::string log =
      folder_.Put("conn.log", std::string(kHeader) +
                                  "1699920001\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t1\t1\t1\n"
                                  "garbage\n"
                                  "1699920001\t10.0.0.1\t::1\t443\ttcp\t-\t-\t-\t-\n"
                                  "1699920001\t10.0.0.1\t10.0.0.2\t443\ttcp\t-\t-\t-\t-\n"
                                  "99\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\n"
                                  "1699920001\t10.0.0.1\t203.0.113.1\t1\ttcp\t-\t-\t1099511627777\t-\n"
                                  "99999999999\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\n");
  const ProgramResult result = Import({"--json", log});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out,
            "{\"lines_read\":8,\"connections\":1,\"events\":2,\"skipped\":{\"malformed\":2,\"ipv6\":1,"
            "\"not_one_local_side\":1,\"time_out_of_range\":1,\"bytes_too_large\":1,\"too_old\":0,"
            "\"private_address\":0,\"special_address\":0}}\n");
  EXPECT_THAT(result.err, HasSubstr("netdb: " + log + ":3: skipped, malformed: "));
  EXPECT_THAT(result.err, HasSubstr("netdb: " + log + ":7: skipped, bytes_too_large: "));
}

TEST_F(ImportCommandTest, LocalSideIsWhatTheOptionSays) {
  const std::string log =
      folder_.Put("conn.log", std::string(kHeader) + "1699920001\t203.0.113.7\t198.51.100.1\t22\ttcp\t-\t-\t-\t-\n");
  EXPECT_THAT(Import({"--local", "192.0.2.1,203.0.113.0/24", log}).out, HasSubstr("connections  1\n"));
  EXPECT_EQ(Rows()[0]["ip"], "198.51.100.1");
  EXPECT_THAT(Import({log}).out, HasSubstr("skipped      1 not_one_local_side\n"));
}

TEST_F(ImportCommandTest, DaysPastTheAgeLimitAreLeftOut) {
  constexpr u64 kDay = 86400;
  policy_ = "max_db_days = 30\n";
  std::string oldestKept;
  ProgramResult result;
  u64 today = 0;
  do {  // again when midnight came in between
    today = static_cast<u64>(time(nullptr)) / kDay;
    std::filesystem::remove_all(folder_.Path("data"));
    oldestKept = std::to_string((today - 29) * kDay);
    result = Import({folder_.Put(
        "conn.log", std::string(kHeader) + oldestKept + "\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\n" +
                        std::to_string((today - 29) * kDay - 1) + "\t10.0.0.1\t203.0.113.2\t443\ttcp\t-\t5\t-\t-\n" +
                        std::to_string((today - 30) * kDay) + "\t10.0.0.1\t203.0.113.3\t443\ttcp\t-\t-\t-\t-\n")});
  } while (static_cast<u64>(time(nullptr)) / kDay != today);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "lines read   4\nconnections  1\nevents       1\nskipped      2 too_old\n");
  EXPECT_THAT(result.err, HasSubstr(":3: skipped, too_old: "));
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0]["ip"], "203.0.113.1");
  EXPECT_EQ(std::to_string(rows[0]["first_seen"].get<u64>() / 1000), oldestKept);
}

TEST_F(ImportCommandTest, SummaryTellsTheRowsWhateverThePolicyKeeps) {
  const std::string log = folder_.Put("conn.log", std::string(kHeader) +
                                                      "1699920001\t203.0.113.7\t198.51.100.1\t1\ttcp\t-\t-\t-\t-\n"
                                                      "1699920001\t203.0.113.7\t10.0.0.1\t2\ttcp\t-\t-\t-\t-\n"
                                                      "1699920001\t203.0.113.7\t172.31.0.1\t3\ttcp\t-\t-\t-\t-\n"
                                                      "1699920001\t203.0.113.7\t127.0.0.1\t4\ttcp\t-\t-\t-\t-\n"
                                                      "1699920001\t203.0.113.7\t169.254.1.1\t5\ttcp\t-\t-\t-\t-\n"
                                                      "1699920001\t203.0.113.7\t0.0.0.0\t6\ttcp\t-\t-\t-\t-\n");
  EXPECT_EQ(Import({"--local", "203.0.113.7", log}).out,
            "lines read   7\nconnections  1\nevents       1\nskipped      2 private_address\nskipped      3 "
            "special_address\n");
  EXPECT_EQ(Rows().size(), 1U);

  policy_ += "keep_private_addresses = true\n";
  std::filesystem::remove_all(folder_.Path("data"));
  const ProgramResult result = Import({"--json", "--local", "203.0.113.7", log});
  const Json summary = Json::parse(result.out, nullptr, false);
  EXPECT_EQ(summary["connections"], 3);
  EXPECT_EQ(summary["events"], 3);
  EXPECT_EQ(summary["skipped"]["private_address"], 0);
  EXPECT_EQ(summary["skipped"]["special_address"], 3);
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[0]["ip"], "10.0.0.1");
  EXPECT_EQ(rows[1]["ip"], "172.31.0.1");
}

TEST_F(ImportCommandTest, BadPolicyFailsBeforeAnythingIsMade) {
  const std::string log = folder_.Put("log", "");
  policy_ = "\nmax_db_siz = 5\n";
  ProgramResult result = Import({log});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr(folder_.Path("policy.toml") + ":2: there is no setting \"max_db_siz\""));
  EXPECT_EQ(result.out, "");
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("data")));
  result = RunNetdb({"import", "--data", folder_.Path("data"), "--policy", folder_.Path("missing"), log});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot read the policy " + folder_.Path("missing")));
}

TEST_F(ImportCommandTest, PolicyThatRecordsNothingFailsTheCommand) {
  policy_ = "# off\nnetdb_enabled = false\n";
  const ProgramResult result = Import({folder_.Put("log", "")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr(folder_.Path("policy.toml") + ":2: netdb_enabled is off"));
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("data")));
}

TEST_F(ImportCommandTest, WhatAQueryPrintsGivesTheSameRowsAgain) {
  Import({folder_.Put("conn.log", std::string(kHeader) +
                                      "1699920001\t10.0.0.1\t203.0.113.1\t443\ttcp\tssl,http\t2\t1\t5000000000\n"
                                      "1699920001\t203.0.113.2\t10.0.0.1\t0\ticmp\t-\t-\t-\t-\n"
                                      "1700006399\t10.0.0.1\t203.0.113.1\t443\ttcp\tsmb\t2\t7\t9\n")});
  PutHistory(folder_.Path("data"), {{1699930000, 9, 1699930100, "/bin/\xC3\xA4 \"x\""}, {1699930000, 9}});
  const std::vector<std::string> query = {"query", "--format", "jsonl", "--data"};
  auto first = query;
  first.push_back(folder_.Path("data"));
  const std::string rows = RunNetdb(first).out;
  EXPECT_EQ(RunNetdb({"import", "--data", folder_.Path("copy"), "-"}, rows).exitCode, 0);
  auto second = query;
  second.push_back(folder_.Path("copy"));
  const auto sorted = [](const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
  };
  // A row's process that was stored without an identifier gets one.
  const auto without = [](std::string text) {
    const std::size_t at = text.find("\"proc_puid\":");
    return at == std::string::npos ? text : text.erase(at, text.find(',', at) - at);
  };
  auto expected = sorted(rows);
  auto stored = sorted(RunNetdb(second).out);
  std::transform(expected.begin(), expected.end(), expected.begin(), without);
  std::transform(stored.begin(), stored.end(), stored.begin(), without);
  EXPECT_GE(expected.size(), 5U);
  EXPECT_EQ(stored, expected);
}

TEST_F(ImportCommandTest, FileThatFailsFailsTheCommandBehindTheOthers) {
  const std::string good =
      folder_.Put("good", std::string(kHeader) + "1699920001\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\n");
  const ProgramResult result = Import({folder_.Path("missing"), good});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot read " + folder_.Path("missing")));
  EXPECT_EQ(Rows().size(), 1U);
}

TEST_F(ImportCommandTest, NothingToReadMakesNoFolder) {
  const ProgramResult result = Import({folder_.Path("missing")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("data")));
}

TEST_F(ImportCommandTest, SecondWriterIsRefused) {
  Host::DataFolderLock lock;
  std::string error;
  ASSERT_TRUE(lock.Take(folder_.Path("data"), "run", error)) << error;
  const ProgramResult result = Import({folder_.Put("log", "")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("\"netdb run\" (process " + std::to_string(getpid()) + ") is writing to "));
}

TEST_F(ImportCommandTest, FolderWithTooLongANameIsRefused) {
  const ProgramResult result = RunNetdb({"import", "--data", "/" + std::string(200, 'd'), folder_.Put("log", "")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("has too long a name"));
}

TEST_F(ImportCommandTest, DayThatCannotBeWrittenFailsTheCommand) {
  std::filesystem::create_directories(folder_.Path("data/netdb"));
  folder_.Put("data/netdb/1699920000.db", "damaged");
  const ProgramResult result = Import(
      {folder_.Put("conn.log", std::string(kHeader) + "1699920001\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\n")});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("not everything was stored"));
  EXPECT_THAT(result.err, HasSubstr("1699920000.db"));
  EXPECT_EQ(TemporaryFolder::Get(folder_.Path("data/netdb/1699920000.db")), "damaged");
}

TEST_F(ImportCommandTest, SignalStoresWhatWasReadUntilThen) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const std::string err = folder_.Path("err");
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[0], STDIN_FILENO);
    const int file = open(err.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(file, STDERR_FILENO);
    dup2(file, STDOUT_FILENO);
    execl(NETDB_PROGRAM, "netdb", "import", "--data", folder_.Path("data").c_str(), "--from", "zeek", "-", nullptr);
    _exit(127);
  }
  close(ends[0]);
  // The skip is reported when its line was read, and so tells that the row before it was.
  const std::string lines = std::string(kHeader) + "1699920001\t10.0.0.1\t203.0.113.1\t443\ttcp\t-\t-\t-\t-\ngarbage\n";
  const std::string padding = std::string(256 * 1024, '\n');  // fills the reader's buffer
  ASSERT_EQ(write(ends[1], lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
  for (std::size_t at = 0; at < padding.size();) {
    const ssize_t done = write(ends[1], padding.data() + at, padding.size() - at);
    ASSERT_GT(done, 0);
    at += static_cast<std::size_t>(done);
  }
  while (TemporaryFolder::Get(err).find("skipped") == std::string::npos) {
    std::this_thread::yield();
  }
  kill(child, SIGINT);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  close(ends[1]);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_THAT(TemporaryFolder::Get(err), HasSubstr("interrupted; what was read until then is stored"));
  EXPECT_EQ(Rows().size(), 1U);
}

}  // namespace
