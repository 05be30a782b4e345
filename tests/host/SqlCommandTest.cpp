#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14
constexpr char kEndless[] = "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT x FROM c";

class SqlCommandTest : public testing::Test {
 protected:
  SqlCommandTest() { PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "/usr/bin/curl"}, {kDay + 86401, 2}}); }

  ProgramResult Sql(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), {"sql", "--data", folder_.Path()});
    return RunNetdb(arguments, input);
  }
  ProgramResult InShell(const std::string& words) {
    return RunProgram("/bin/sh", {"-c", std::string(NETDB_PROGRAM) + " sql --data " + folder_.Path() + " " + words});
  }
  void DamageFirstDay() { folder_.Put("netdb/1699920000.db", "damaged"); }

  TemporaryFolder folder_;
};

TEST_F(SqlCommandTest, PrintsATableByDefault) {
  const ProgramResult result = Sql({"SELECT ip, port, proc_fpath FROM edr_netdb ORDER BY ip"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out,
            "ip           port  proc_fpath\n"
            "203.0.113.1   443  /usr/bin/curl\n"
            "203.0.113.2   443  -\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(SqlCommandTest, PrintsEachFormat) {
  const std::string sql = "SELECT ip, port FROM edr_netdb WHERE ip = '203.0.113.2'";
  EXPECT_EQ(Sql({"--format", "json", sql}).out, "[\n{\"ip\":\"203.0.113.2\",\"port\":443}\n]\n");
  EXPECT_EQ(Sql({"--format", "jsonl", sql}).out, "{\"ip\":\"203.0.113.2\",\"port\":443}\n");
  EXPECT_EQ(Sql({"--format", "csv", sql}).out, "ip,port\r\n203.0.113.2,443\r\n");
  EXPECT_EQ(Sql({"--format", "line", sql}).out, "  ip = 203.0.113.2\nport = 443\n");
}

TEST_F(SqlCommandTest, RowIsTheOneOfTheQuery) {
  const ProgramResult query = RunNetdb({"query", "--data", folder_.Path(), "--format", "jsonl"});
  EXPECT_EQ(Sql({"--format", "jsonl", "SELECT * FROM edr_netdb"}).out, query.out);
}

TEST_F(SqlCommandTest, TimesAreNumbersAndTextsByTs) {
  const ProgramResult result = Sql({"SELECT first_seen, ts(first_seen) AS t FROM edr_netdb WHERE ip LIKE '%.1'"});
  EXPECT_EQ(result.out, "   first_seen  t\n1699920001000  2023-11-14 00:00:01\n");
}

TEST_F(SqlCommandTest, SeveralStatementsRunInTurn) {
  EXPECT_EQ(Sql({"--format", "csv", "SELECT 1 AS a; SELECT 2 AS b", "SELECT 3 AS c"}).out,
            "a\r\n1\r\nb\r\n2\r\nc\r\n3\r\n");
}

TEST_F(SqlCommandTest, DotCommandsMayStandBetweenStatements) {
  const ProgramResult result = Sql({".mode csv", "SELECT 1 AS a", " .tables", ".quit", "SELECT 2 AS b"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "a\r\n1\r\ndays\nedr_netdb\nprocesses\n");
  EXPECT_EQ(Sql({".dump", "SELECT 1"}).exitCode, 1);
}

TEST_F(SqlCommandTest, NothingToRunIsDone) {
  for (const char* sql : {"", "  ", "-- nothing", ";"}) {
    const ProgramResult result = Sql({"--", sql}, "SELECT 1;");
    EXPECT_EQ(result.exitCode, 0) << sql;
    EXPECT_EQ(result.out, "") << sql;
  }
}

TEST_F(SqlCommandTest, FailedStatementIsAFailure) {
  const ProgramResult result = Sql({"--format", "csv", "SELECT 1 AS a", "SELECT nowhere FROM edr_netdb", "SELECT 2"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "a\r\n1\r\n");
  EXPECT_EQ(result.err, "netdb: no such column: nowhere\n");
}

TEST_F(SqlCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  const TemporaryFolder empty;
  const ProgramResult result = RunNetdb({"sql", "--data", empty.Path(), "SELECT 1"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "netdb: there is no history: the folder " + empty.Path("netdb") + " does not exist\n");
  EXPECT_TRUE(std::filesystem::is_empty(empty.Path()));
}

TEST_F(SqlCommandTest, WrongFormatIsWrongUse) {
  EXPECT_EQ(Sql({"--format", "xml", "SELECT 1"}).exitCode, 2);
}

TEST_F(SqlCommandTest, MissingRowsAreAPartialResult) {
  DamageFirstDay();
  const ProgramResult result = Sql({"--format", "csv", "SELECT ip FROM edr_netdb"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.out, "ip\r\n203.0.113.2\r\n");
  EXPECT_THAT(result.err, HasSubstr("1699920000.db is damaged"));
}

TEST_F(SqlCommandTest, OneResultWithoutSomeRowsMakesAllPartial) {
  DamageFirstDay();
  const std::string cut = "SELECT count(*) FROM edr_netdb";
  EXPECT_EQ(Sql({cut + "; SELECT 1"}).exitCode, 3);
  EXPECT_EQ(Sql({cut, "SELECT 1"}).exitCode, 3);
  EXPECT_EQ(Sql({}, cut + ";\nSELECT 1;\n").exitCode, 3);
  EXPECT_EQ(Sql({cut, "SELEC"}).exitCode, 1);
  EXPECT_EQ(Sql({}, cut + ";\nSELEC;\n").exitCode, 1);
}

TEST_F(SqlCommandTest, ScriptRunsToItsEnd) {
  const ProgramResult result =
      Sql({"--format", "csv"}, "-- the first\r\nSELECT 1\r\n  AS a;\r\n.mode jsonl\r\nSELECT 2 AS b; SELECT 3 AS c");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "a\r\n1\r\n{\"b\":2}\n{\"c\":3}\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(SqlCommandTest, ScriptStopsAtTheFirstFailure) {
  const ProgramResult result = Sql({"--format", "csv"}, "SELECT 1 AS a;\nSELEC;\nSELECT 2 AS b;\n");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "a\r\n1\r\n");
  EXPECT_EQ(result.err, "netdb: near \"SELEC\": syntax error\n");
  EXPECT_EQ(Sql({}, ".dump\nSELECT 1;\n").exitCode, 1);
}

TEST_F(SqlCommandTest, EmptyScriptIsDone) {
  const ProgramResult result = Sql({});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(SqlCommandTest, InputThatCannotBeReadIsAFailure) {
  const ProgramResult result = InShell("< " + folder_.Path());
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "netdb: cannot read standard input\n");
}

TEST_F(SqlCommandTest, FullDiskIsAFailure) {
  for (const char* words : {"'SELECT 1' > /dev/full", "> /dev/full << END\n.tables\nSELECT 1;\nEND\n"}) {
    const ProgramResult result = InShell(words);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "netdb: cannot write to standard output\n");
  }
}

TEST_F(SqlCommandTest, ClosedPipeEndsTheStatementWithoutAWord) {
  signal(SIGPIPE, SIG_DFL);  // as a shell's children have it
  const ProgramResult result = InShell(std::string("--format csv '") + kEndless + "' | head -n 2");
  EXPECT_EQ(result.out, "x\r\n1\r\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(SqlCommandTest, NothingIsWrittenAndNoLockIsTaken) {
  EXPECT_EQ(Sql({"SELECT * FROM edr_netdb"}).exitCode, 0);
  EXPECT_EQ(Sql({"CREATE TABLE mine AS SELECT ip FROM edr_netdb; SELECT count(*) FROM mine"}).exitCode, 0);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre("netdb", "1699920000.db", "1700006400.db"));
}

TEST_F(SqlCommandTest, InterruptEndsTheStatement) {
  int terminal = -1;
  const std::string sql = std::string(kEndless) + " WHERE x = 1";
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    execl(NETDB_PROGRAM, "netdb", "sql", "--format", "jsonl", "--data", folder_.Path().c_str(), sql.c_str(), nullptr);
    _exit(127);
  }
  std::string text;
  char block[4096];
  bool interrupted = false;
  for (ssize_t got = 0; (got = read(terminal, block, sizeof(block))) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
    if (!interrupted && text.find("{\"x\":1}") != std::string::npos) {
      interrupted = write(terminal, "\x03", 1) == 1;
    }
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  close(terminal);
  EXPECT_TRUE(interrupted);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_THAT(text, HasSubstr("interrupted"));
}

TEST_F(SqlCommandTest, HelpShowsExamples) {
  const ProgramResult result = RunNetdb({"help", "sql"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, StartsWith("Ask the stored connections in SQL"));
  EXPECT_THAT(result.out, HasSubstr("netdb sql < questions.sql"));
}

}  // namespace
