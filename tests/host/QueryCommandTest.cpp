#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"
#include "tests/host/Terminal.h"

namespace {

using testing::HasSubstr;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14

class QueryCommandTest : public testing::Test {
 protected:
  ProgramResult Query(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"query", "--data", folder_.Path()});
    return RunNetdb(arguments);
  }
  std::string QueryOnTerminal() { return RunOnTerminal({"query", "--data", folder_.Path()}); }

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

TEST_F(QueryCommandTest, CounterAtItsMostIsAWholeNumber) {
  PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "", 443, 0, ~Host::u64{0}, 9223372036854775807}});
  EXPECT_EQ(Query({"--columns", "bytes_in,bytes_out", "--format", "jsonl"}).out,
            "{\"bytes_in\":18446744073709551615,\"bytes_out\":9223372036854775807}\n");
}

constexpr char kDigest[] = "abababababababababababababababab";

// One row differs from the next in one thing.
std::vector<HistoryRow> Various() {
  return {{kDay + 1, 1, 0, "/usr/bin/curl", 443, 0x0840, 10, 100, 0xAB},
          {kDay + 2, 2, 0, "/usr/bin/curl", 80, 0x0801, 20, 90, 0xAB},
          {kDay + 3, 3, 0, "/opt/Agent/agent", 22, 0x0820, 30, 80, 0xCD},
          {kDay + 86400, 4, 0, "", 53, 0x0400, 40, 70},
          {kDay + 86401, 5, 0, "/usr/bin/curl_", 443, 0, 50, 60, 0xEF}};
}

class QueryFilterTest : public QueryCommandTest {
 protected:
  void SetUp() override { PutHistory(folder_.Path(), Various()); }
  // Last octets of the addresses, in the order in which they come.
  std::string Octets(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--format", "jsonl", "--columns", "ip"});
    const ProgramResult result = Query(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    std::string octets;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_EQ(line.substr(0, line.size() - 3), "{\"ip\":\"203.0.113.");
      octets += line[line.size() - 3];
    }
    return octets;
  }
  // A use that is refused before anything is read.
  std::string Refused(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"query", "--data", folder_.Path("nowhere")});
    const ProgramResult result = RunNetdb(arguments);
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_EQ(result.out, "");
    return result.err;
  }
};

TEST_F(QueryFilterTest, ByAddressAndBlock) {
  EXPECT_EQ(Octets({}), "12345");
  EXPECT_EQ(Octets({"--ip", "203.0.113.3"}), "3");
  EXPECT_EQ(Octets({"--ip", "203.0.113.5", "--ip", "203.0.113.1"}), "15") << "as stored, not as asked";
  EXPECT_EQ(Octets({"--ip", "203.0.113.2/31"}), "23");
  EXPECT_EQ(Octets({"--ip", "203.0.113.4/31", "--ip", "203.0.113.1", "--ip", "203.0.113.2"}), "1245");
  EXPECT_EQ(Octets({"--ip", "0.0.0.0/0"}), "12345");
  EXPECT_EQ(Octets({"--ip", "198.51.100.0/24"}), "");
}

TEST_F(QueryFilterTest, ByProcess) {
  EXPECT_EQ(Octets({"--process", "/usr/bin/curl"}), "12") << "all of the path";
  EXPECT_EQ(Octets({"--process", "/usr/bin/CURL"}), "") << "and its case";
  EXPECT_EQ(Octets({"--process", "/usr/bin/curl_"}), "5") << "no pattern without a percent sign";
  EXPECT_EQ(Octets({"--process", "%curl%"}), "125");
  EXPECT_EQ(Octets({"--process", "%/AGENT"}), "3");
  EXPECT_EQ(Octets({"--process", "%/agent", "--process", "/usr/bin/curl_"}), "35");
  EXPECT_EQ(Octets({"--process", "%curl_", "--process", "%agent"}), "35");
}

TEST_F(QueryFilterTest, ByPortProtocolAndDigest) {
  EXPECT_EQ(Octets({"--port", "443"}), "15");
  EXPECT_EQ(Octets({"--port", "53", "--port", "80"}), "24");
  EXPECT_EQ(Octets({"--proto", "tcp"}), "123");
  EXPECT_EQ(Octets({"--proto", "https", "--proto", "Udp"}), "24");
  EXPECT_EQ(Octets({"--md5", kDigest}), "12");
  EXPECT_EQ(Octets({"--md5", "ABABABABABABABABABABABABABABABAB", "--md5", "cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd"}), "123");
  EXPECT_EQ(Octets({"--qid", std::string(kDigest) + kDigest}), "12");
  EXPECT_EQ(Octets({"--md5", std::string(32, '0')}), "4") << "rows without a process";
}

TEST_F(QueryFilterTest, DifferentOptionsAreAllMet) {
  EXPECT_EQ(Octets({"--process", "%curl%", "--port", "443"}), "15");
  EXPECT_EQ(Octets({"--process", "%curl%", "--port", "443", "--until", "2023-11-14"}), "1");
  EXPECT_EQ(Octets({"--proto", "tcp", "--port", "22", "--md5", kDigest}), "");
  EXPECT_EQ(Octets({"--since", "2023-11-15", "--ip", "203.0.113.0/24"}), "45");
}

TEST_F(QueryFilterTest, ThousandsOfValuesAreTaken) {
  constexpr int kMany = 3000;
  std::vector<std::string> blocks;
  std::vector<std::string> patterns;
  std::vector<std::string> protocols;
  for (int i = 0; i < kMany; ++i) {
    blocks.insert(blocks.end(), {"--ip", "10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24"});
    patterns.insert(patterns.end(), {"--process", "%" + std::to_string(i)});
    protocols.insert(protocols.end(), {"--proto", "icmp"});
  }
  blocks.insert(blocks.end(), {"--ip", "203.0.113.2", "--ip", "203.0.113.4/31"});
  EXPECT_EQ(Octets(blocks), "245");
  patterns.insert(patterns.begin(), {"--process", "%agent"});
  EXPECT_EQ(Octets(patterns), "3");
  protocols.insert(protocols.end(), {"--proto", "udp"});
  EXPECT_EQ(Octets(protocols), "4");
}

TEST_F(QueryFilterTest, OrderAndLimit) {
  EXPECT_EQ(Octets({"--order", "bytes_out"}), "54321");
  EXPECT_EQ(Octets({"--order", "bytes_in:desc", "--limit", "2"}), "54");
  EXPECT_EQ(Octets({"--order=-bytes_in", "--limit", "1"}), "5");
  EXPECT_EQ(Octets({"--order", "port:desc, first_seen:desc "}), "51243");
  EXPECT_EQ(Octets({"--order", "port:desc", "--order", "first_seen"}), "15243");
  EXPECT_EQ(Octets({"--limit", "3"}), "123");
  EXPECT_EQ(Octets({"--limit", "99"}), "12345");
}

TEST_F(QueryFilterTest, ColumnsComeAsTheyAreNamed) {
  EXPECT_EQ(Query({"--columns", "PORT,ip", "--limit", "1", "--format", "csv"}).out, "port,ip\r\n443,203.0.113.1\r\n");
  EXPECT_EQ(Query({"--columns", "protos", "--ip", "203.0.113.2", "--format", "jsonl"}).out,
            "{\"protos\":\"HTTP,TCP\"}\n");
  EXPECT_EQ(Query({"--columns", "first_seen,proc_fpath", "--ip", "203.0.113.4"}).out,
            "          first_seen  proc_fpath\n2023-11-15T00:00:00Z  -\n");
}

TEST_F(QueryFilterTest, WrongValuesAreRefusedBeforeAnythingIsRead) {
  EXPECT_THAT(Refused({"--ip", "example.org"}), HasSubstr("\"example.org\" is no address"));
  EXPECT_THAT(Refused({"--ip", "2001:db8::1"}), HasSubstr("IPv4 connections only"));
  EXPECT_THAT(Refused({"--port", "70000"}), HasSubstr("\"70000\" is no port"));
  EXPECT_THAT(Refused({"--proto", "quic"}), HasSubstr("the protocols are HTTP, SMB"));
  EXPECT_THAT(Refused({"--md5", "12"}), HasSubstr("give 32 hex digits"));
  EXPECT_THAT(Refused({"--qid", "12"}), HasSubstr("give 64 hex digits"));
  EXPECT_THAT(Refused({"--columns", "ip,bytes"}), HasSubstr("the columns are ip, first_seen"));
  EXPECT_THAT(Refused({"--order", "ip:up"}), HasSubstr("\"ip:up\" is no order"));
  EXPECT_THAT(Refused({"--limit", "0"}), HasSubstr("\"0\" is no limit"));
  EXPECT_THAT(Refused({"--since", "yesterday"}), HasSubstr("\"yesterday\" is no time"));
  for (const char* option : {"--since", "--until", "--limit", "--columns"}) {
    EXPECT_THAT(Refused({option, ""}), HasSubstr(std::string(option) + ": its value is empty"));
  }
  EXPECT_THAT(Refused({"203.0.113.9"}), HasSubstr("netdb help query"));
}

TEST_F(QueryFilterTest, DamagedDayIsSaidUnlessItIsNotAskedFor) {
  folder_.Put("netdb/1699920000.db", "damaged");
  const ProgramResult result = Query({"--proto", "udp", "--columns", "ip", "--format", "csv"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.out, "ip\r\n203.0.113.4\r\n");
  EXPECT_THAT(result.err, HasSubstr("1699920000.db is damaged"));
  EXPECT_EQ(Query({"--proto", "udp", "--since", "2023-11-15"}).exitCode, 0);
}

}  // namespace
