#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"
#include "tests/host/Terminal.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14
constexpr Host::u64 kNextDay = kDay + 86400;

class TopCommandTest : public testing::Test {
 protected:
  ProgramResult Top(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"top", "--data", folder_.Path()});
    return RunNetdb(arguments);
  }
  std::string Csv(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--format", "csv"});
    const ProgramResult result = Top(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out;
  }
  void PutRows() {
    PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "/a", 443, 0x0840, 4000, 100},
                                {kDay + 2, 1, 0, "/a", 80, 0x0801, 0, 10},
                                {kDay + 3, 2, 0, "/b", 443, 0x0840, 1, 2000},
                                {kNextDay + 1, 3, 0, "", 53, 0x0400, 3, 30},
                                {kNextDay + 2, 1, 0, "/b", 443, 0x0840, 0, 0}});
  }

  TemporaryFolder folder_;
};

TEST_F(TopCommandTest, AddressesWithTheMostBytesAreTheDefault) {
  PutRows();
  EXPECT_EQ(Csv({}),
            "ip,conns,bytes_in,bytes_out,bytes\r\n"
            "203.0.113.1,3,4000,110,4110\r\n"
            "203.0.113.2,1,1,2000,2001\r\n"
            "203.0.113.3,1,3,30,33\r\n");
}

TEST_F(TopCommandTest, ByChoosesWhatIsCompared) {
  PutRows();
  const auto first = [this](const char* by) {
    const std::string text = Csv({"--by", by, "--of", "process", "--limit", "1"});
    return text.substr(text.find('\n') + 1);
  };
  EXPECT_EQ(first("bytes"), "/a,2,4000,110,4110\r\n");
  EXPECT_EQ(first("bytes_in"), "/a,2,4000,110,4110\r\n");
  EXPECT_EQ(first("bytes_out"), "/b,2,1,2000,2001\r\n");
  EXPECT_EQ(first("conns"), "/a,2,4000,110,4110\r\n") << "of equals, the first name";
}

TEST_F(TopCommandTest, OfChoosesWhatIsAddedUp) {
  PutRows();
  EXPECT_EQ(Csv({"--of", "process"}),
            "process,conns,bytes_in,bytes_out,bytes\r\n/a,2,4000,110,4110\r\n/b,2,1,2000,2001\r\n")
      << "what has no process is left out";
  EXPECT_EQ(Csv({"--of", "port", "--by", "conns"}),
            "port,conns,bytes_in,bytes_out,bytes\r\n443,3,4001,2100,6101\r\n53,1,3,30,33\r\n80,1,0,10,10\r\n");
  EXPECT_EQ(Csv({"--of", "day"}),
            "day,conns,bytes_in,bytes_out,bytes\r\n2023-11-14,3,4001,2110,6111\r\n2023-11-15,2,3,30,33\r\n");
}

TEST_F(TopCommandTest, LimitAndRangeCut) {
  PutRows();
  EXPECT_EQ(Csv({"--limit", "1"}), "ip,conns,bytes_in,bytes_out,bytes\r\n203.0.113.1,3,4000,110,4110\r\n");
  EXPECT_EQ(Csv({"--since", "2023-11-15"}),
            "ip,conns,bytes_in,bytes_out,bytes\r\n203.0.113.3,1,3,30,33\r\n203.0.113.1,1,0,0,0\r\n");
}

TEST_F(TopCommandTest, TenAreShownUnlessSaidOtherwise) {
  std::vector<HistoryRow> rows;
  for (Host::u8 octet = 1; octet <= 12; ++octet) {
    rows.push_back({kDay + octet, octet});
  }
  PutHistory(folder_.Path(), rows);
  const auto lines = [](const std::string& text) { return std::count(text.begin(), text.end(), '\n'); };
  EXPECT_EQ(lines(Csv({})), 11);
  EXPECT_EQ(lines(Csv({"--limit", "99"})), 13);
}

TEST_F(TopCommandTest, TableHasSizesForPeopleAndNoBarsWithoutATerminal) {
  PutRows();
  EXPECT_EQ(Top({"--limit", "2"}).out,
            "ip           conns  bytes_in  bytes_out    bytes\n"
            "203.0.113.1      3   3.9 KiB  110 bytes    4 KiB\n"
            "203.0.113.2      1    1 byte    1.9 KiB  1.9 KiB\n");
  EXPECT_EQ(Top({"--limit", "1", "--format", "jsonl"}).out,
            "{\"ip\":\"203.0.113.1\",\"conns\":3,\"bytes_in\":4000,\"bytes_out\":110,\"bytes\":4110}\n");
}

TEST_F(TopCommandTest, TerminalGetsBars) {
  PutRows();
  setenv("NO_COLOR", "1", 1);
  setenv("LC_ALL", "C", 1);
  const std::string plain = RunOnTerminal({"top", "--data", folder_.Path()}, 90);
  EXPECT_THAT(plain, HasSubstr("  4 KiB  " + std::string(39, '#') + "\r\n"));
  EXPECT_THAT(plain, HasSubstr("1.9 KiB  " + std::string(19, '#') + "\r\n"));
  EXPECT_THAT(plain, HasSubstr("33 bytes  #\r\n"));
  setenv("LC_ALL", "en_GB.UTF-8", 1);
  EXPECT_THAT(RunOnTerminal({"top", "--data", folder_.Path()}, 90), HasSubstr("\xE2\x96\x88\xE2\x96\x88"));
  EXPECT_THAT(RunOnTerminal({"top", "--data", folder_.Path(), "--format", "csv"}), Not(HasSubstr("\xE2\x96\x88")));
}

TEST_F(TopCommandTest, BarsFollowTheWidthOfTheTerminal) {
  PutRows();
  setenv("NO_COLOR", "1", 1);
  setenv("LC_ALL", "C", 1);
  const auto longest = [this](unsigned short columns) {
    const std::string text = RunOnTerminal({"top", "--data", folder_.Path()}, columns);
    return std::count(text.begin() + static_cast<std::ptrdiff_t>(text.find('#')),
                      text.begin() + static_cast<std::ptrdiff_t>(text.find('\r', text.find('#'))), '#');
  };
  EXPECT_EQ(longest(300), 40);
  EXPECT_LT(longest(80), 40);
  EXPECT_EQ(longest(20), 8);
}

TEST_F(TopCommandTest, SumsPastTheNumbersOfSqlAreOrderedAndStayAtTheMostOf64Bits) {
  constexpr Host::u64 kHalf = Host::u64{1} << 63;
  PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "", 443, 0, kHalf},
                              {kDay + 2, 2, 0, "", 443, 0, kHalf, kHalf / 2},
                              {kDay + 3, 3, 0, "", 443, 0, ~Host::u64{0}, ~Host::u64{0}},
                              {kDay + 4, 4, 0, "", 443, 0, 3, 1}});
  EXPECT_EQ(Csv({}),
            "ip,conns,bytes_in,bytes_out,bytes\r\n"
            "203.0.113.3,1,18446744073709551615,18446744073709551615,18446744073709551615\r\n"
            "203.0.113.2,1,9223372036854775808,4611686018427387904,13835058055282163712\r\n"
            "203.0.113.1,1,9223372036854775808,0,9223372036854775808\r\n"
            "203.0.113.4,1,3,1,4\r\n");
}

TEST_F(TopCommandTest, EqualsComeByTheirNames) {
  PutHistory(folder_.Path(), {{kDay + 1, 9, 0, "/b", 443}, {kDay + 2, 7, 0, "/a", 80}, {kDay + 3, 8, 0, "/c", 22}});
  EXPECT_THAT(Csv({"--of", "process"}), testing::EndsWith("/a,1,0,0,0\r\n/b,1,0,0,0\r\n/c,1,0,0,0\r\n"));
  EXPECT_THAT(Csv({"--of", "port", "--by", "conns"}), testing::EndsWith("22,1,0,0,0\r\n80,1,0,0,0\r\n443,1,0,0,0\r\n"));
}

TEST_F(TopCommandTest, WithoutTrafficThereIsNoColumnOfBars) {
  PutHistory(folder_.Path(), {{1699920001, 1}});
  setenv("NO_COLOR", "1", 1);
  EXPECT_EQ(RunOnTerminal({"top", "--data", folder_.Path()}, 90),
            "ip           conns  bytes_in  bytes_out    bytes\r\n"
            "203.0.113.1      1   0 bytes    0 bytes  0 bytes\r\n");
}

TEST_F(TopCommandTest, NothingStoredIsAnEmptyResult) {
  PutRows();
  EXPECT_EQ(Top({"--since", "2023-11-16", "--format", "json"}).out, "[]\n");
  EXPECT_EQ(Top({"--since", "2023-11-16"}).out, "ip  conns  bytes_in  bytes_out  bytes\n");
}

TEST_F(TopCommandTest, WrongUseIsSaid) {
  EXPECT_EQ(Top({"--by", "ports"}).exitCode, 2);
  EXPECT_EQ(Top({"--of", "md5"}).exitCode, 2);
  EXPECT_EQ(Top({"--limit", "none"}).exitCode, 2);
  EXPECT_EQ(Top({"--since", "x"}).exitCode, 2);
}

TEST_F(TopCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  const ProgramResult result = Top({});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("there is no history"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.Path()));
}

TEST_F(TopCommandTest, DamagedDayIsAPartialResult) {
  PutRows();
  folder_.Put("netdb/1699920000.db", "damaged");
  const ProgramResult result = Top({"--format", "jsonl"});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("203.0.113.3"));
  EXPECT_THAT(result.err, HasSubstr("1699920000.db is damaged"));
}

}  // namespace
