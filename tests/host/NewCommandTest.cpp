#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14
constexpr Host::u64 kNextDay = kDay + 86400;
constexpr char kHead[] = "kind,name,first_seen,last_seen,conns,bytes_in,bytes_out\r\n";

class NewCommandTest : public testing::Test {
 protected:
  ProgramResult New(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"new", "--data", folder_.Path()});
    return RunNetdb(arguments);
  }
  std::string Csv(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--format", "csv"});
    const ProgramResult result = New(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.out, testing::StartsWith(kHead));
    return result.out.substr(std::min(result.out.size(), sizeof(kHead) - 1));
  }

  TemporaryFolder folder_;
};

TEST_F(NewCommandTest, WhatWasSeenBeforeIsNotNew) {
  PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "/old"},
                              {kNextDay + 1, 1, 0, "/old", 80},
                              {kNextDay + 5, 2, kNextDay + 9, "/new", 443, 0x0840, 0, 7},
                              {kNextDay + 4, 3, 0, "/old"},
                              {kNextDay + 86400, 2, 0, "/new", 443, 0x0840, 5, 0}});
  EXPECT_EQ(Csv({"--since", "2023-11-15"}),
            "ip,203.0.113.3,1700006404000,1700006404000,1,0,0\r\n"
            "ip,203.0.113.2,1700006405000,1700092800000,2,1005,7\r\n"
            "process,/new,1700006405000,1700092800000,2,1005,7\r\n");
  EXPECT_EQ(Csv({"--since", "2023-11-16"}), "");
}

TEST_F(NewCommandTest, OfChoosesOne) {
  PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "/a"}, {kDay + 2, 2}});
  EXPECT_EQ(Csv({"--since", "1", "--of", "ip"}),
            "ip,203.0.113.1,1699920001000,1699920001000,1,0,0\r\n"
            "ip,203.0.113.2,1699920002000,1699920002000,1,0,0\r\n");
  EXPECT_EQ(Csv({"--since", "1", "--of", "process"}), "process,/a,1699920001000,1699920001000,1,0,0\r\n")
      << "a row without a process is no process";
}

TEST_F(NewCommandTest, DayIsSplitAtTheFirstSecondOfARow) {
  PutHistory(folder_.Path(),
             {{kDay + 100, 1, kDay + 900}, {kDay + 500, 2}, {kDay + 100, 3}, {kDay + 800, 3, 0, "", 80}});
  EXPECT_EQ(Csv({"--since", "1699920500"}), "ip,203.0.113.2,1699920500000,1699920500000,1,0,0\r\n")
      << "at the time itself counts as since then";
  EXPECT_EQ(Csv({"--since", "1699920501"}), "");
}

TEST_F(NewCommandTest, EachFormatHasTheSameColumns) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}});
  EXPECT_EQ(New({"--since", "1", "--format", "jsonl"}).out,
            R"({"kind":"ip","name":"203.0.113.1","first_seen":1699920001000,"last_seen":1699920001000,"conns":1,)"
            "\"bytes_in\":0,\"bytes_out\":0}\n");
  EXPECT_EQ(New({"--since", "2023-11-15", "--format", "json"}).out, "[]\n");
  EXPECT_THAT(New({"--since", "1"}).out, HasSubstr("\nip    203.0.113.1  2023-11-14T00:00:01Z  2023-11-14T00:00:01Z"));
}

TEST_F(NewCommandTest, WrongUseIsSaid) {
  EXPECT_THAT(New({"--since", ""}).err, HasSubstr("--since: its value is empty"));
  EXPECT_EQ(New({}).exitCode, 2);
  EXPECT_THAT(New({}).err, HasSubstr("--since is required"));
  EXPECT_EQ(New({"--since", "x"}).exitCode, 2);
  EXPECT_EQ(New({"--since", "1d", "--of", "port"}).exitCode, 2);
}

TEST_F(NewCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  const ProgramResult result = New({"--since", "1d"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("there is no history"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path()));
}

TEST_F(NewCommandTest, DayBeforeThatCannotBeReadMakesItPartial) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kNextDay + 1, 2}});
  folder_.Put("netdb/1699920000.db", "damaged");
  const ProgramResult result = New({"--since", "2023-11-15", "--format", "jsonl"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("203.0.113.2"));
  EXPECT_THAT(result.err, HasSubstr("1699920000.db is damaged"));
}

}  // namespace
