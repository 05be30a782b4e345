#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14

class QueryCommandTest : public testing::Test {
 protected:
  ProgramResult Query(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"query", "--data", folder_.Path()});
    return RunNetdb(arguments);
  }
  // What the command prints on a terminal of 100 columns.
  std::string QueryOnTerminal() {
    winsize size = {};
    size.ws_col = 100;
    size.ws_row = 24;
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
      execl(NETDB_PROGRAM, "netdb", "query", "--data", folder_.Path().c_str(), nullptr);
      _exit(127);
    }
    std::string text;
    char block[4096];
    for (ssize_t got = 0; (got = read(terminal, block, sizeof(block))) > 0;) {
      text.append(block, static_cast<std::size_t>(got));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    close(terminal);
    return text;
  }

  TemporaryFolder folder_;
};

TEST_F(QueryCommandTest, PrintsATableByDefault) {
  PutHistory(folder_.Path(), {{kDay + 1, 9, 0, "/usr/bin/curl"}});
  const ProgramResult result = Query({});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("203.0.113.9  2023-11-14T00:00:01Z  2023-11-14T00:00:01Z   443  SSL,TCP"));
  EXPECT_THAT(result.out, HasSubstr("/usr/bin/curl"));
  EXPECT_THAT(result.out, testing::Not(HasSubstr("\x1B")));
}

TEST_F(QueryCommandTest, PrintsEachFormat) {
  PutHistory(folder_.Path(), {{kDay + 1, 9}});
  EXPECT_THAT(Query({"--format", "json"}).out,
              testing::StartsWith("[\n{\"ip\":\"203.0.113.9\",\"first_seen\":1699920001000,"));
  EXPECT_THAT(Query({"--format", "jsonl"}).out, testing::StartsWith("{\"ip\":\"203.0.113.9\","));
  EXPECT_THAT(Query({"--format", "csv"}).out, HasSubstr("\r\n203.0.113.9,1699920001000,"));
  EXPECT_THAT(Query({"--format", "line"}).out, HasSubstr(" first_seen = 2023-11-14T00:00:01Z\n"));
}

TEST_F(QueryCommandTest, EmptyResultIsDone) {
  PutHistory(folder_.Path(), {{kDay + 1, 9}});
  const ProgramResult result = Query({"--since", "2023-11-15", "--format", "json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "[]\n");
}

TEST_F(QueryCommandTest, RangeCutsRows) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kDay + 3600, 2}, {kDay + 86400, 3}});
  const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
  EXPECT_EQ(lines(Query({"--since", "2023-11-14", "--until", "2023-11-14", "--format", "jsonl"}).out), 2);
  EXPECT_EQ(lines(Query({"--since", "2023-11-14T01:00:00Z", "--format", "jsonl"}).out), 2);
  EXPECT_EQ(lines(Query({"--until", "1699920001", "--format", "jsonl"}).out), 1);
  EXPECT_EQ(lines(Query({"--until", "1s", "--format", "jsonl"}).out), 3);
}

TEST_F(QueryCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  const ProgramResult result = Query({});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "netdb: there is no history: the folder " + folder_.Path("netdb") + " does not exist\n");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path()));
}

TEST_F(QueryCommandTest, DamagedFileIsAPartialResult) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kDay + 86401, 2}});
  folder_.Put("netdb/1699920000.db", "damaged");
  const ProgramResult result = Query({"--format", "jsonl"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("203.0.113.2"));
  EXPECT_THAT(result.err, HasSubstr("1699920000.db is damaged"));
}

TEST_F(QueryCommandTest, NothingIsWrittenAndNoLockIsTaken) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  EXPECT_EQ(Query({}).exitCode, 0);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre("netdb", "1699920000.db"));
}

TEST_F(QueryCommandTest, FullDiskIsAFailure) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  const ProgramResult result = RunProgram(
      "/bin/sh",
      {"-c", std::string(NETDB_PROGRAM) + " query --format jsonl --data " + folder_.Path() + " > /dev/full"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
}

TEST_F(QueryCommandTest, TerminalGetsColourAndCutColumns) {
  PutHistory(folder_.Path(), {{kDay + 1, 9, 0, "/opt/some/long/way/to/the/program"}});
  unsetenv("NO_COLOR");
  const std::string text = QueryOnTerminal();
  EXPECT_THAT(text, testing::StartsWith("\x1B[1m"));
  EXPECT_THAT(text, HasSubstr("\xE2\x80\xA6/to/the/program"));
}

TEST_F(QueryCommandTest, NoColorIsHonoured) {
  PutHistory(folder_.Path(), {{kDay + 1, 9}});
  setenv("NO_COLOR", "1", 1);
  EXPECT_THAT(QueryOnTerminal(), testing::Not(HasSubstr("\x1B")));
}

}  // namespace
