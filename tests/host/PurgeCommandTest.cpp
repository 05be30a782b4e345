#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "Velmar/OS/Time.h"
#include "host/agent/DataFolder.h"
#include "host/text/TimeText.h"
#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using Names = std::set<std::string>;

constexpr Host::u64 kDay = 1699920000;  // 2023-11-14
constexpr Host::u64 kOneDay = 86400;

std::string DateOf(Host::u64 second) {
  return Host::Text::FormatUtc(second).substr(0, 10);
}

class PurgeCommandTest : public testing::Test {
 protected:
  ProgramResult Purge(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"purge", "--data", folder_.Path()});
    return RunNetdb(arguments);
  }
  void Put(Host::u64 day, std::size_t size, const char* suffix = ".db") {
    std::filesystem::create_directory(folder_.Path("netdb"));
    folder_.Put("netdb/" + std::to_string(day) + suffix, std::string(size, 'x'));
  }
  // Five days from 2023-11-14 on: 10, 20, 30, 40, 50 bytes.
  void PutFiveDays() {
    for (Host::u64 i = 0; i < 5; ++i) {
      Put(kDay + i * kOneDay, 10 + 10 * i, i == 1 ? ".db.f" : ".db");
    }
  }
  Names Files() {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.Path("netdb"))) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  TemporaryFolder folder_;
};

TEST_F(PurgeCommandTest, BeforeTakesTheDaysBeforeAndLeavesTheDayItself) {
  PutFiveDays();
  const ProgramResult result = Purge({"--before", "2023-11-16"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "1699920000.db    2023-11-14            10\n"
            "1700006400.db.f  2023-11-15            20\n"
            "deleted 2 files, 30 bytes\n");
  EXPECT_EQ(Files(), (Names{"1700092800.db", "1700179200.db", "1700265600.db"}));
}

TEST_F(PurgeCommandTest, SizeIsExactToTheByte) {
  PutFiveDays();
  EXPECT_THAT(Purge({"--to-size", "150"}).out, HasSubstr("deleted 0 files, 0 bytes"));
  EXPECT_EQ(Files().size(), 5U);
  EXPECT_THAT(Purge({"--to-size", "149"}).out, HasSubstr("deleted 1 file, 10 bytes"));
  EXPECT_EQ(Files().size(), 4U);
  EXPECT_THAT(Purge({"--to-size", "50"}).out, HasSubstr("deleted 3 files, 90 bytes"));
  EXPECT_EQ(Files(), (Names{"1700265600.db"}));
}

TEST_F(PurgeCommandTest, SizeZeroTakesEverything) {
  PutFiveDays();
  Put(Velmar::OS::Time::GetSystemTime() / kOneDay * kOneDay, 5);
  EXPECT_EQ(Purge({"--to-size", "0"}).exitCode, 0);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(PurgeCommandTest, BothLimitsHold) {
  PutFiveDays();
  EXPECT_THAT(Purge({"--before", "2023-11-15", "--to-size", "90"}).out, HasSubstr("deleted 3 files, 60 bytes"));
  EXPECT_THAT(Purge({"--before", "2023-11-18", "--to-size", "1K"}).out, HasSubstr("deleted 1 file, 40 bytes"));
}

TEST_F(PurgeCommandTest, BeforeTomorrowTakesTodayAndBeforeTodayDoesNot) {
  const Host::u64 now = Velmar::OS::Time::GetSystemTime();
  if (kOneDay - now % kOneDay < 60) {
    GTEST_SKIP() << "midnight would come between";
  }
  const Host::u64 today = now / kOneDay * kOneDay;
  Put(today, 5);
  Put(today - kOneDay, 5);
  EXPECT_EQ(Purge({"--before", DateOf(today)}).exitCode, 0);
  EXPECT_EQ(Files(), (Names{std::to_string(today) + ".db"}));
  EXPECT_EQ(Purge({"--before", DateOf(today + kOneDay)}).exitCode, 0);
  EXPECT_EQ(Files(), Names{});
}

TEST_F(PurgeCommandTest, DryRunShowsWhatIsDeletedAfterwardsAndDeletesNothing) {
  for (Host::u64 i = 0; i < 100; ++i) {
    Put(kDay + i * kOneDay, 10 + i, i % 3 == 0 ? ".db.f" : ".db");
    if (i % 7 == 0) {
      Put(kDay + i * kOneDay, 5, i % 3 == 0 ? ".db" : ".db.f");
    }
  }
  const Names before = Files();
  const std::vector<std::string> limits = {"--before", "2023-12-01", "--to-size", "3000", "--format", "json"};
  std::vector<std::string> dry = limits;
  dry.push_back("--dry-run");
  const ProgramResult planned = Purge(dry);
  EXPECT_EQ(planned.exitCode, 0);
  EXPECT_EQ(planned.err, "");
  EXPECT_EQ(Files(), before);
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("netdb.lock"))) << "reading takes no lock";

  const ProgramResult done = Purge(limits);
  EXPECT_EQ(done.exitCode, 0);
  EXPECT_LT(Files().size(), before.size() - 40);
  const auto listOf = [](const std::string& out) { return out.substr(out.find("\"files\"")); };
  EXPECT_EQ(listOf(planned.out), listOf(done.out));
  for (const std::string& name : before) {
    EXPECT_EQ(done.out.find('"' + name + '"') == std::string::npos, Files().count(name) == 1) << name;
  }
}

TEST_F(PurgeCommandTest, FormatsAreATableAndJson) {
  PutFiveDays();
  EXPECT_EQ(Purge({"--before", "2023-11-15", "--dry-run"}).out,
            "1699920000.db    2023-11-14            10\n"
            "would delete 1 file, 10 bytes\n");
  EXPECT_EQ(Purge({"--before", "2023-11-15", "--format", "json"}).out,
            "{\"dry_run\":false,\"files\":[{\"file\":\"1699920000.db\",\"day\":\"2023-11-14\",\"size\":10}],"
            "\"bytes\":10}\n");
}

TEST_F(PurgeCommandTest, NothingToDeleteIsDone) {
  PutFiveDays();
  const ProgramResult result = Purge({"--before", "2023-11-14", "--format", "json"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "{\"dry_run\":false,\"files\":[],\"bytes\":0}\n");
  EXPECT_EQ(Files().size(), 5U);
}

TEST_F(PurgeCommandTest, WhatIsNoDayFileStays) {
  PutFiveDays();
  for (const char* name : {"1699920000.db.temp", "1699920000.db.damaged", "cache.4.db", "note"}) {
    folder_.Put(std::string("netdb/") + name, "x");
  }
  EXPECT_EQ(Purge({"--to-size", "0"}).exitCode, 0);
  EXPECT_EQ(Files(), (Names{"1699920000.db.temp", "1699920000.db.damaged", "cache.4.db", "note"}));
}

TEST_F(PurgeCommandTest, RestIsStillAHistory) {
  PutHistory(folder_.Path(), {{kDay + 1, 1}, {kDay + kOneDay + 1, 2}});
  EXPECT_EQ(Purge({"--before", "2023-11-15"}).exitCode, 0);
  const ProgramResult rows = RunNetdb({"query", "--data", folder_.Path(), "--format", "jsonl"});
  EXPECT_THAT(rows.out, testing::StartsWith("{\"ip\":\"203.0.113.2\""));
  EXPECT_EQ(std::count(rows.out.begin(), rows.out.end(), '\n'), 1);
}

TEST_F(PurgeCommandTest, MissingFolderIsAnErrorAndIsNotMade) {
  for (const bool dryRun : {false, true}) {
    std::vector<std::string> arguments = {"--to-size", "0"};
    if (dryRun) {
      arguments.emplace_back("--dry-run");
    }
    const ProgramResult result = Purge(arguments);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "netdb: there is no history: the folder " + folder_.Path("netdb") + " does not exist\n");
    EXPECT_TRUE(std::filesystem::is_empty(folder_.Path()));
  }
}

TEST_F(PurgeCommandTest, WriterIsNamedAndOnlyADryRunGoesOnBesideIt) {
  PutFiveDays();
  Host::DataFolderLock lock;
  std::string error;
  ASSERT_TRUE(lock.Take(folder_.Path(), "run", error)) << error;
  const ProgramResult refused = Purge({"--to-size", "0"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_THAT(refused.err, HasSubstr("\"netdb run\" (process " + std::to_string(getpid()) + ") is writing to"));
  EXPECT_EQ(Files().size(), 5U);
  EXPECT_THAT(Purge({"--to-size", "0", "--dry-run"}).out, HasSubstr("would delete 5 files, 150 bytes"));
}

TEST_F(PurgeCommandTest, WrongUseDeletesNothing) {
  PutFiveDays();
  const std::string tooFar = DateOf(Velmar::OS::Time::GetSystemTime() + 3 * kOneDay);
  const std::vector<std::vector<std::string>> cases = {{},
                                                       {"--dry-run"},
                                                       {"--before", "soon"},
                                                       {"--before", "2023-13-01"},
                                                       {"--before", tooFar},
                                                       {"--to-size", "much"},
                                                       {"--to-size", "-1"},
                                                       {"--before", "2023-11-18", "--to-size", "1T"},
                                                       {"--before", "2023-11-18", "--format", "xml"}};
  for (const auto& arguments : cases) {
    const ProgramResult result = Purge(arguments);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err, "");
  }
  EXPECT_THAT(Purge({"--before", tooFar}).err, HasSubstr("lies beyond tomorrow"));
  EXPECT_EQ(Files().size(), 5U);
}

TEST_F(PurgeCommandTest, FileThatDoesNotGoIsAFailureWithItsReason) {
  PutFiveDays();
  ASSERT_EQ(chmod(folder_.Path("netdb").c_str(), 0500), 0);
  std::vector<std::string> words = {"purge", "--data", folder_.Path(), "--to-size", "0"};
  ProgramResult result;
  if (geteuid() == 0) {
    words.insert(words.begin(), {"--bounding-set", "-dac_override", NETDB_PROGRAM});
    result = RunProgram("/usr/bin/setpriv", words);
  } else {
    result = RunNetdb(words);
  }
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot delete 1699920000.db: Permission denied"));
  EXPECT_EQ(result.out, "deleted 0 files, 0 bytes\n");
  ASSERT_EQ(chmod(folder_.Path("netdb").c_str(), 0700), 0);
  EXPECT_EQ(Files().size(), 5U);
}

TEST_F(PurgeCommandTest, FileUnderAnotherNameIsAFailureAfterTheOthersAreGone) {
  PutFiveDays();
  Put(kDay, 5, "\x1B[2J.f");
  const ProgramResult planned = Purge({"--to-size", "0", "--dry-run"});
  EXPECT_EQ(planned.exitCode, 1);
  EXPECT_THAT(planned.out, HasSubstr("would delete 5 files, 150 bytes"));
  EXPECT_THAT(planned.err, HasSubstr("has not the name of its day's file and stays"));
  const ProgramResult result = Purge({"--to-size", "0"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.out, HasSubstr("deleted 5 files, 150 bytes"));
  EXPECT_THAT(result.err, HasSubstr("1699920000\\x1B[2J.f has not the name of its day's file and stays"));
  EXPECT_EQ(Files(), (Names{"1699920000\x1B[2J.f"}));
}

TEST_F(PurgeCommandTest, FullDiskOfTheOutputIsAFailure) {
  PutFiveDays();
  const ProgramResult result = RunProgram(
      "/bin/sh",
      {"-c", std::string(NETDB_PROGRAM) + " purge --dry-run --to-size 0 --data " + folder_.Path() + " > /dev/full"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
}

}  // namespace
