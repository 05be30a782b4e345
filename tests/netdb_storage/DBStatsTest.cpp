// DBManager: what a folder's day files take, its statistics, and the oldest file for a filter job.
#include <gtest/gtest.h>

#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Lines = std::vector<std::string>;
using Velmar::Utils::String;

constexpr u64 kToday = kDay;  // of the clock that the simulated machine starts with
constexpr u64 kOneDay = 86400;

class DBStatsTest : public FolderTest {
 protected:
  static void Put(const std::string& name, std::size_t size) {
    Sim::PutFile(std::string(kFolder) + "/" + name, std::string(size, 'x'));
  }
  static void Put(u64 day, const char* suffix, std::size_t size) { Put(std::to_string(day) + suffix, size); }
};

TEST_F(DBStatsTest, SizeIsThatOfAllDayFiles) {
  Put("1699920000.db", 100);
  Put("1699920000.DB.F", 20);
  Put("1699920000.temp.f", 3);
  for (const char* other : {"169992000.db", "16999200000.db", "1699920000.db.temp", "cache.4.db"}) {
    Put(other, 1000);
  }
  u64 size = 7;
  EXPECT_TRUE(DBManager::GetSizeOnDisk(kFolder, size));
  EXPECT_EQ(size, 123U);
}

TEST_F(DBStatsTest, SizeOfAnEmptyFolderIsZero) {
  u64 size = 7;
  EXPECT_TRUE(DBManager::GetSizeOnDisk(kFolder, size));
  EXPECT_EQ(size, 0U);
}

TEST_F(DBStatsTest, SizeCountsTodayAndDaysToCome) {
  Put(kToday, ".db", 1);
  Put(kToday + kOneDay, ".db", 2);
  Put(kToday - 1000 * kOneDay, ".db", 4);
  u64 size = 0;
  EXPECT_TRUE(DBManager::GetSizeOnDisk(kFolder, size));
  EXPECT_EQ(size, 7U);
}

TEST_F(DBStatsTest, SizeWithoutAFolderIsZeroAndFalse) {
  LogCapture log;
  u64 size = 7;
  EXPECT_FALSE(DBManager::GetSizeOnDisk(nullptr, size));
  EXPECT_EQ(size, 0U);
  size = 7;
  EXPECT_FALSE(DBManager::GetSizeOnDisk("/data/other", size));
  EXPECT_EQ(size, 0U);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkWithoutFolder", "5 netdb_storage.WalkFolderMissing"}));
}

TEST_F(DBStatsTest, EmptyFolderLeavesTheStartValues) {
  DBStats stats;
  stats = {1, 2, 3, 4.0, 5, 6, 7, 8, 9};
  EXPECT_TRUE(DBManager::ComputeStatistics(kFolder, stats));
  EXPECT_EQ(stats.min_size, kAllOnes64);
  EXPECT_EQ(stats.max_size, 0U);
  EXPECT_EQ(stats.total_size, 0U);
  EXPECT_EQ(stats.average_size, 0.0);
  EXPECT_EQ(stats.oldest, kAllOnes64);
  EXPECT_EQ(stats.newest, 0U);
  EXPECT_EQ(stats.newest_size, 0U);
  EXPECT_EQ(stats.filtered_count, 0U);
  EXPECT_EQ(stats.unfiltered_count, 0U);
}

TEST_F(DBStatsTest, StatisticsAreThoseOfTheFiles) {
  Put(kDay - 2 * kOneDay, ".db.f", 100);
  Put(kDay - kOneDay, ".db.f", 40);
  Put(kDay, ".db", 10);
  for (u64 seed = 0; seed < 6; ++seed) {
    Sim::ShuffleListings(seed);
    DBStats stats;
    EXPECT_TRUE(DBManager::ComputeStatistics(kFolder, stats));
    EXPECT_EQ(stats.min_size, 10U);
    EXPECT_EQ(stats.max_size, 100U);
    EXPECT_EQ(stats.total_size, 150U);
    EXPECT_DOUBLE_EQ(stats.average_size, 50.0);
    EXPECT_EQ(stats.oldest, kDay - 2 * kOneDay);
    EXPECT_EQ(stats.newest, kDay);
    EXPECT_EQ(stats.newest_size, 10U);
    EXPECT_EQ(stats.filtered_count, 2U);
    EXPECT_EQ(stats.unfiltered_count, 1U);
  }
}

TEST_F(DBStatsTest, NewestSizeIsThatOfTheFirstFileOfTheNewestDay) {
  Put(kDay, ".db", 5);
  Put(kDay, ".db.f", 7);
  DBStats stats;
  EXPECT_TRUE(DBManager::ComputeStatistics(kFolder, stats));
  EXPECT_EQ(stats.newest_size, 5U);
}

TEST_F(DBStatsTest, FileOfNeitherClassThatComesFirstEndsThemPartial) {
  Put(kDay, ".DB", 5);
  Put(kDay + kOneDay, ".db", 7);
  LogCapture log;
  DBStats stats;
  EXPECT_FALSE(DBManager::ComputeStatistics(kFolder, stats));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NeitherFilteredNorNot"}));
  EXPECT_EQ(log.Arguments("netdb_storage.NeitherFilteredNorNot"), (Lines{DayPath(kDay, ".DB")}));
  EXPECT_EQ(stats.total_size, 0U);
  EXPECT_EQ(stats.unfiltered_count, 0U);
}

TEST_F(DBStatsTest, FileOfNeitherClassFurtherOnCountsForSizesAndDays) {
  Put(kDay, ".db", 6);
  Put(kDay + kOneDay, ".DB.F", 8);
  LogCapture log;
  DBStats stats;
  EXPECT_TRUE(DBManager::ComputeStatistics(kFolder, stats));
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(stats.filtered_count, 0U);
  EXPECT_EQ(stats.unfiltered_count, 1U);
  EXPECT_EQ(stats.total_size, 14U);
  EXPECT_EQ(stats.max_size, 8U);
  EXPECT_EQ(stats.newest, kDay + kOneDay);
  EXPECT_DOUBLE_EQ(stats.average_size, 8.0) << "one file of a class is counted, and the last one is its average";
}

TEST_F(DBStatsTest, StatisticsWithoutAFolderAreTheStartValuesAndFalse) {
  LogCapture log;
  DBStats stats;
  stats.total_size = 7;
  EXPECT_FALSE(DBManager::ComputeStatistics(nullptr, stats));
  EXPECT_EQ(stats.total_size, 0U);
  EXPECT_FALSE(DBManager::ComputeStatistics("/data/other", stats));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkWithoutFolder", "5 netdb_storage.WalkFolderMissing"}));
}

class OldestUnfilteredFileTest : public DBStatsTest {
 protected:
  // The path that is found, or "(none)".
  static std::string Oldest() {
    String path("old", true);
    bool found = true;
    EXPECT_TRUE(DBManager::GetOldestUnfilteredFile(kFolder, path, found));
    EXPECT_EQ(found, path.length != 0);
    return found ? path.text : "(none)";
  }
};

TEST_F(OldestUnfilteredFileTest, OldestPlainFileIsFoundInAnyOrder) {
  for (u64 age = 1; age <= 30; ++age) {
    Put(kToday - age * kOneDay, age > 20 ? ".db.f" : ".db", 1);
  }
  for (u64 seed = 0; seed < 20; ++seed) {
    Sim::ShuffleListings(seed);
    EXPECT_EQ(Oldest(), DayPath(kToday - 20 * kOneDay)) << "seed " << seed;
  }
}

TEST_F(OldestUnfilteredFileTest, TodaysFileIsNeverFound) {
  Put(kToday, ".db", 1);
  EXPECT_EQ(Oldest(), "(none)");
  Put(kToday + kOneDay, ".db", 1);
  EXPECT_EQ(Oldest(), DayPath(kToday + kOneDay));
}

TEST_F(OldestUnfilteredFileTest, FilteredFilesAndAnEmptyFolderGiveNone) {
  EXPECT_EQ(Oldest(), "(none)");
  Put(kToday - kOneDay, ".db.f", 1);
  Put(kToday - kOneDay, ".temp.f", 1);
  EXPECT_EQ(Oldest(), "(none)");
}

TEST_F(OldestUnfilteredFileTest, FilteredSuffixInUpperCaseCountsAsUnfiltered) {
  Put(kToday - kOneDay, ".DB.F", 1);
  EXPECT_EQ(Oldest(), DayPath(kToday - kOneDay, ".DB.F"));
}

TEST_F(OldestUnfilteredFileTest, FolderThatCannotBeWalkedIsFalseAndFindsNone) {
  Put(kToday - kOneDay, ".db", 1);
  LogCapture log;
  String path("old", true);
  bool found = true;
  EXPECT_FALSE(DBManager::GetOldestUnfilteredFile("/data/other", path, found));
  EXPECT_FALSE(found);
  EXPECT_STREQ(path.text, "");
  found = true;
  EXPECT_FALSE(DBManager::GetOldestUnfilteredFile(nullptr, path, found));
  EXPECT_FALSE(found);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkFolderMissing", "5 netdb_storage.WalkWithoutFolder"}));
  found = true;
  Sim::FailFileOperation(Sim::Operation::kEnumerate, 0, Sim::Fault::kFail);
  EXPECT_FALSE(DBManager::GetOldestUnfilteredFile(kFolder, path, found));
  EXPECT_FALSE(found);
}

TEST_F(OldestUnfilteredFileTest, PathThatFindsNoMemoryStopsTheWalk) {
  Put(kToday - kOneDay, ".db", 1);
  LogCapture log;
  String path;
  bool found = true;
  Sim::FailAllocation(0);
  EXPECT_FALSE(DBManager::GetOldestUnfilteredFile(kFolder, path, found));
  EXPECT_FALSE(found);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.OldestNotKept"}));
}

}  // namespace
