#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using nlohmann::ordered_json;
using testing::HasSubstr;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14
constexpr Host::u64 kNextDay = kDay + 86400;

class ShowCommandTest : public testing::Test {
 protected:
  ProgramResult Show(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"show", "--data", folder_.Path()});
    return RunNetdb(arguments);
  }
  ordered_json Json(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--format", "json"});
    const ProgramResult result = Show(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return ordered_json::parse(result.out, nullptr, false);
  }
  void PutRows() {
    PutHistory(folder_.Path(), {{kDay + 1, 9, kDay + 60, "/usr/bin/curl", 443, 0x0840, 2000, 100},
                                {kDay + 5, 9, 0, "/opt/agent", 22, 0x0820, 3, 4},
                                {kDay + 7, 8, 0, "/opt/agent", 22, 0x0820, 5, 6},
                                {kNextDay + 9, 9, 0, "", 443, 0x0800, 0, 1}});
  }

  TemporaryFolder folder_;
};

TEST_F(ShowCommandTest, SumsUpAnAddress) {
  PutRows();
  const ordered_json shown = Json({"203.0.113.9"});
  EXPECT_EQ(shown["ip"], "203.0.113.9");
  EXPECT_EQ(shown["first_seen"], (kDay + 1) * 1000);
  EXPECT_EQ(shown["last_seen"], (kNextDay + 9) * 1000);
  EXPECT_EQ(shown["days"], 2);
  EXPECT_EQ(shown["conns_total"], 3);
  EXPECT_EQ(shown["conns_in"], 0);
  EXPECT_EQ(shown["conns_out"], 3);
  EXPECT_EQ(shown["bytes_in"], 3003);
  EXPECT_EQ(shown["bytes_out"], 105);
  EXPECT_EQ(shown["ports"].dump(),
            R"({"count":2,"top":[{"port":443,"conns":2,"bytes":3101},{"port":22,"conns":1,"bytes":7}]})");
  EXPECT_EQ(shown["protocols"]["count"], 3);
  EXPECT_EQ(shown["protocols"]["top"][0].dump(), R"({"protocol":"TCP","conns":3,"bytes":3108})");
  EXPECT_EQ(shown["processes"].dump(),
            R"({"count":3,"top":[{"process":"/usr/bin/curl","conns":1,"bytes":3100},)"
            R"({"process":"/opt/agent","conns":1,"bytes":7},{"process":"","conns":1,"bytes":1}]})");
  EXPECT_FALSE(shown.contains("peers"));
}

TEST_F(ShowCommandTest, SumsUpAProcess) {
  PutRows();
  const ordered_json shown = Json({"/opt/agent"});
  EXPECT_EQ(shown["process"], "/opt/agent");
  EXPECT_EQ(shown["conns_total"], 2);
  EXPECT_EQ(
      shown["peers"].dump(),
      R"({"count":2,"top":[{"ip":"203.0.113.8","conns":1,"bytes":11},{"ip":"203.0.113.9","conns":1,"bytes":7}]})");
  EXPECT_FALSE(shown.contains("processes"));
}

TEST_F(ShowCommandTest, BlocksAndPatternsTakeSeveral) {
  PutRows();
  EXPECT_EQ(Json({"203.0.113.8/31"})["conns_total"], 4);
  EXPECT_EQ(Json({"203.0.113.8/31"})["peers"]["count"], 2);
  EXPECT_EQ(Json({"%/AGENT"})["conns_total"], 2);
  EXPECT_EQ(Json({"%/%"})["processes"]["count"], 2);
}

TEST_F(ShowCommandTest, RangeCutsRows) {
  PutRows();
  EXPECT_EQ(Json({"203.0.113.9", "--since", "2023-11-15"})["conns_total"], 1);
  EXPECT_EQ(Json({"203.0.113.9", "--until", "2023-11-14"})["days"], 1);
  EXPECT_EQ(Json({"203.0.113.9", "--since", "2023-11-14T00:00:30Z", "--until", "2023-11-14T00:00:40Z"})["conns_total"],
            1)
      << "the row that spans the range";
}

TEST_F(ShowCommandTest, TableIsForPeople) {
  PutRows();
  const ProgramResult result = Show({"203.0.113.9"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, testing::StartsWith("203.0.113.9\n  first seen   2023-11-14T00:00:01Z\n"));
  EXPECT_THAT(result.out, HasSubstr("  bytes in     2.9 KiB\n"));
  EXPECT_THAT(result.out, HasSubstr("\nPorts  conns    bytes\n  443      2    3 KiB\n"));
}

TEST_F(ShowCommandTest, NothingFoundIsSaidAndDone) {
  PutRows();
  const ProgramResult result = Show({"198.51.100.1"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "netdb: nothing is stored about 198.51.100.1\n");
  EXPECT_EQ(Show({"/opt/agen", "--format", "json"}).out, "{}\n");
}

TEST_F(ShowCommandTest, WrongUseIsSaid) {
  EXPECT_EQ(Show({}).exitCode, 2);
  EXPECT_EQ(Show({""}).exitCode, 2);
  EXPECT_EQ(Show({"2001:db8::1"}).exitCode, 2);
  EXPECT_THAT(Show({"2001:db8::1"}).err, HasSubstr("IPv4 connections only"));
  EXPECT_EQ(Show({"203.0.113.9", "--since", "x"}).exitCode, 2);
  EXPECT_EQ(Show({"203.0.113.9", "--format", "csv"}).exitCode, 2);
}

TEST_F(ShowCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  const ProgramResult result = Show({"203.0.113.9", "--format", "json"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("there is no history"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path()));
}

TEST_F(ShowCommandTest, DamagedDayIsAPartialResult) {
  PutRows();
  folder_.Put("netdb/1699920000.db", "damaged");
  const ProgramResult result = Show({"203.0.113.9", "--format", "json"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("\"conns_total\":1,"));
  EXPECT_THAT(result.err, HasSubstr("1699920000.db is damaged"));
}

}  // namespace
