// DBManager::EnsureDiskFootprintConstraints: which days go, in which order, and what a failure leaves.
#include <gtest/gtest.h>

#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Lines = std::vector<std::string>;
using Sim::Fault;
using Sim::Operation;

constexpr u64 kToday = kDay;  // of the clock that the simulated machine starts with
constexpr u64 kOneDay = 86400;
constexpr u64 kNoLimit = kAllOnes64;
constexpr u64 kSeeds = 8;

std::string Name(u64 day, const char* suffix = ".db") {
  return std::to_string(day) + suffix;
}

u64 Ago(u64 days) {
  return kToday - days * kOneDay;
}

class FootprintTest : public FolderTest {
 protected:
  static void Put(u64 day, std::size_t size = 1, const char* suffix = ".db") {
    Sim::PutFile(DayPath(day, suffix), std::string(size, 'x'));
  }
  static bool Ensure(u64 maxBytes, u64 maxDays) {
    return DBManager::EnsureDiskFootprintConstraints(kFolder, maxBytes, maxDays);
  }
  // Names of what was deleted, in order.
  static Lines Deleted(const LogCapture& log) {
    Lines names;
    for (const LogCapture::Entry& entry : log.Entries()) {
      if (entry.name == "netdb_storage.DayFileDeleted") {
        names.push_back(entry.arguments.at(0));
      }
    }
    return names;
  }
};

TEST_F(FootprintTest, DayAtTheCutOffGoesAndTheNextStays) {
  for (const u64 ofDay : {u64{0}, kOneDay * 1000 - 1}) {
    Sim::SetEpochTime(kToday * 1000 + ofDay);
    for (const u64 age : {4U, 3U, 2U, 0U}) {
      Put(Ago(age));
    }
    EXPECT_TRUE(Ensure(kNoLimit, 3));
    EXPECT_EQ(Files(), (Lines{Name(Ago(2)), Name(Ago(0))}));
  }
}

TEST_F(FootprintTest, ZeroDaysTakesTodayAndLeavesTomorrow) {
  Put(kToday);
  Put(kToday + kOneDay);
  EXPECT_TRUE(Ensure(kNoLimit, 0));
  EXPECT_EQ(Files(), (Lines{Name(kToday + kOneDay)}));
}

TEST_F(FootprintTest, AgeBeyondTheEpochDeletesNothing) {
  Put(Ago(3000));
  Put(1000080000);  // near the first day with ten digits
  const u64 today = kToday / kOneDay;
  for (const u64 maxDays : {today, today + 1, kNoLimit}) {
    EXPECT_TRUE(Ensure(kNoLimit, maxDays));
    EXPECT_EQ(Files().size(), 2U) << maxDays;
  }
}

TEST_F(FootprintTest, SizeAtTheLimitStaysAndOneByteMoreTakesTheOldestDay) {
  Put(Ago(3), 10);
  Put(Ago(2), 20);
  Put(Ago(1), 30);
  EXPECT_TRUE(Ensure(60, kNoLimit));
  EXPECT_EQ(Files().size(), 3U);
  EXPECT_TRUE(Ensure(59, kNoLimit));
  EXPECT_EQ(Files(), (Lines{Name(Ago(2)), Name(Ago(1))}));
  EXPECT_TRUE(Ensure(49, kNoLimit));
  EXPECT_EQ(Files(), (Lines{Name(Ago(1))}));
}

TEST_F(FootprintTest, ZeroBytesDeletesAllFilesTodaysToo) {
  Put(Ago(1), 1, ".db.f");
  Put(kToday);
  Put(kToday + kOneDay);
  EXPECT_TRUE(Ensure(0, kNoLimit));
  EXPECT_EQ(Files(), Lines{});
}

TEST_F(FootprintTest, EmptyFilesAreWithinZeroBytes) {
  Put(kToday, 0);
  EXPECT_TRUE(Ensure(0, kNoLimit));
  EXPECT_EQ(Files(), (Lines{Name(kToday)}));
}

TEST_F(FootprintTest, OldestDayGoesFirstFilteredOrNot) {
  Put(Ago(4), 1, ".db");
  Put(Ago(3), 1, ".db.f");
  Put(Ago(2), 1, ".db");
  Put(Ago(1), 1, ".db.f");
  LogCapture log;
  EXPECT_TRUE(Ensure(1, kNoLimit));
  EXPECT_EQ(Deleted(log), (Lines{Name(Ago(4)), Name(Ago(3), ".db.f"), Name(Ago(2))}));
  EXPECT_EQ(Files(), (Lines{Name(Ago(1), ".db.f")}));
}

TEST_F(FootprintTest, BothFilesOfADayCountAndGoByTheirOwnEntries) {
  Put(Ago(1), 10, ".db");
  Put(Ago(1), 20, ".db.f");
  Put(kToday, 5);
  EXPECT_TRUE(Ensure(35, kNoLimit));
  EXPECT_EQ(Files().size(), 3U) << "both count, and the limit is just met";
  LogCapture log;
  EXPECT_TRUE(Ensure(5, kNoLimit));
  EXPECT_EQ(Deleted(log).size(), 2U);
  EXPECT_EQ(Files(), (Lines{Name(kToday)}));
}

TEST_F(FootprintTest, OfEqualDaysTheLaterArrivalGoesFirst) {
  bool sawBothOrders[2] = {false, false};
  for (u64 seed = 1; seed <= 20; ++seed) {
    Put(Ago(1), 1, ".db");
    Put(Ago(1), 1, ".db.f");
    Sim::ShuffleListings(seed);
    std::string last;
    const auto note = [&last](const char* path, u64, u64) {
      last = path;
      return true;
    };
    ASSERT_TRUE(DBManager::ForEachDBFile(kFolder, false, note, 0, kAllOnes64));
    EXPECT_TRUE(Ensure(1, kNoLimit));
    EXPECT_EQ(Content(last), "(missing)") << "seed " << seed;
    EXPECT_EQ(Files().size(), 1U);
    sawBothOrders[last.back() == 'f' ? 1 : 0] = true;
  }
  EXPECT_TRUE(sawBothOrders[0] && sawBothOrders[1]);
}

TEST_F(FootprintTest, FullListTakesALaterArrivalOfItsLastDay) {
  for (u64 age = 40; age >= 8; --age) {
    Put(Ago(age));
  }
  Put(Ago(9), 1, ".db.f");  // arrives behind the plain one, when the list of 32 ends with that day
  LogCapture log;
  EXPECT_TRUE(Ensure(2, kNoLimit));
  const Lines deleted = Deleted(log);
  ASSERT_EQ(deleted.size(), 32U);
  EXPECT_EQ(deleted.back(), Name(Ago(9), ".db.f"));
  EXPECT_EQ(Files(), (Lines{Name(Ago(9)), Name(Ago(8))}));
}

TEST_F(FootprintTest, FortyFilesTakeTwoPasses) {
  for (u64 age = 1; age <= 40; ++age) {
    Put(Ago(age));
  }
  Put(kToday);
  const u64 walks = Sim::CountFileOperations(Operation::kEnumerate);
  LogCapture log;
  EXPECT_TRUE(Ensure(kNoLimit, 1));
  EXPECT_EQ(Sim::CountFileOperations(Operation::kEnumerate) - walks, 2U);
  EXPECT_EQ(Deleted(log).size(), 40U);
  EXPECT_EQ(Files(), (Lines{Name(kToday)}));
}

TEST_F(FootprintTest, WholeListDeletedIsFollowedByAWalkThatFindsNothing) {
  for (u64 age = 0; age < 32; ++age) {
    Put(Ago(age));
  }
  const u64 walks = Sim::CountFileOperations(Operation::kEnumerate);
  EXPECT_TRUE(Ensure(0, kNoLimit));
  EXPECT_EQ(Sim::CountFileOperations(Operation::kEnumerate) - walks, 2U);
  EXPECT_EQ(Files(), Lines{});
}

TEST_F(FootprintTest, FolderInAnyOrderLosesItsOldestDaysInOrder) {
  Lines days;
  for (u64 age = 130; age > 0; --age) {
    days.push_back(Name(Ago(age), age % 3 == 0 ? ".db.f" : ".db"));
  }
  for (u64 seed = 1; seed <= kSeeds; ++seed) {
    for (const std::string& name : days) {
      Sim::PutFile(std::string(kFolder) + "/" + name, "12345");
    }
    Sim::ShuffleListings(seed);
    LogCapture log;
    EXPECT_TRUE(Ensure(20 * 5, kNoLimit));
    EXPECT_EQ(Deleted(log), Lines(days.begin(), days.end() - 20)) << "seed " << seed;
    EXPECT_EQ(Files(), Lines(days.end() - 20, days.end())) << "seed " << seed;
  }
}

TEST_F(FootprintTest, WhatIsNoDatabaseFileStays) {
  const Lines names = {"1600000000.db.temp", "169992000.db", "16999200000.db", "cache.4.db"};
  for (const std::string& name : names) {
    Sim::PutFile(std::string(kFolder) + "/" + name, std::string(1000, 'x'));
  }
  Put(Ago(1));
  EXPECT_TRUE(Ensure(1, 100)) << "their sizes do not count";
  EXPECT_EQ(Files().size(), 5U);
  EXPECT_TRUE(Ensure(0, 0));
  EXPECT_EQ(Files(), names);
}

TEST_F(FootprintTest, EmptyFolderIsWithinAllLimits) {
  LogCapture log;
  EXPECT_TRUE(Ensure(0, 0));
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(FootprintTest, SeparatorBehindTheFolderIsNoHindrance) {
  Put(Ago(2));
  Put(Ago(1));
  EXPECT_TRUE(DBManager::EnsureDiskFootprintConstraints("/data/netdb/", 0, 0));
  EXPECT_EQ(Files(), Lines{});
}

TEST_F(FootprintTest, EachDeletionIsTold) {
  Put(Ago(2), 5000, ".db.f");
  LogCapture log;
  EXPECT_TRUE(Ensure(2047, 17));
  EXPECT_EQ(log.Arguments("netdb_storage.DayFileToDelete"), (Lines{Name(Ago(2), ".db.f"), "5000", "17", "1"}));
  EXPECT_EQ(log.Arguments("netdb_storage.DayFileDeleted"), (Lines{Name(Ago(2), ".db.f")}));
  EXPECT_EQ(log.Count("netdb_storage.FootprintTimed"), 1);
  EXPECT_EQ(log.CountLevel(1), static_cast<int>(log.Entries().size()));
}

TEST_F(FootprintTest, DayThatAManagerHasOpenComesBackWithItsNextDump) {
  DBManager manager;
  ASSERT_TRUE(manager.SetFolder(kFolder));
  ASSERT_TRUE(manager.Add(MakeMessage(kDay + 1, Address(10, 0, 0, 1), 1), nullptr));
  ASSERT_TRUE(manager.Flush());
  EXPECT_TRUE(Ensure(0, 0));
  EXPECT_EQ(Files(), Lines{});
  ASSERT_TRUE(manager.Add(MakeMessage(kDay + 2, Address(10, 0, 0, 1), 2), nullptr));
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(AllRows().SortedPorts(), (std::vector<u16>{1, 2}));
}

// --- names that lead to no file ---

TEST_F(FootprintTest, PassThatFindsNoFileUnderItsNameEnds) {
  for (const char* suffix : {".temp.f", ".DB.F", ".DB"}) {
    Put(kDay, 10, suffix);
    LogCapture log;
    EXPECT_FALSE(Ensure(0, kNoLimit)) << suffix;
    EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NothingWasDeleted"})) << suffix;
    EXPECT_EQ(log.Arguments("netdb_storage.NothingWasDeleted"), (Lines{"1"}));
    EXPECT_EQ(Files(), (Lines{Name(kDay, suffix)}));
    Sim::RemoveFile(DayPath(kDay, suffix));
  }
}

TEST_F(FootprintTest, RealFilesGoBeforeAPassEndsThatFindsNone) {
  Put(Ago(3), 10, ".temp.f");
  Put(Ago(2), 10);
  Put(Ago(1), 10);
  LogCapture log;
  EXPECT_FALSE(Ensure(0, kNoLimit));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NothingWasDeleted"}));
  EXPECT_EQ(Files(), (Lines{Name(Ago(3), ".temp.f")}));
}

TEST_F(FootprintTest, PassThatOnlyFoundAMissingNameIsFalseThoughItMetTheLimits) {
  Put(Ago(3), 10, ".temp.f");
  Put(Ago(1), 10);
  LogCapture log;
  EXPECT_FALSE(Ensure(kNoLimit, 2));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NothingWasDeleted"}));
  EXPECT_EQ(Files(), (Lines{Name(Ago(3), ".temp.f"), Name(Ago(1))}));
}

// --- failures ---

TEST_F(FootprintTest, NullFolderIsRefused) {
  LogCapture log;
  EXPECT_FALSE(DBManager::EnsureDiskFootprintConstraints(nullptr, 0, 0));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkWithoutFolder", "5 netdb_storage.FootprintWalkFailed"}));
  EXPECT_EQ(log.Arguments("netdb_storage.FootprintWalkFailed"), (Lines{"32"}));
}

TEST_F(FootprintTest, MissingFolderIsRefused) {
  LogCapture log;
  EXPECT_FALSE(DBManager::EnsureDiskFootprintConstraints("/data/other", 0, 0));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkFolderMissing", "5 netdb_storage.FootprintWalkFailed"}));
}

TEST_F(FootprintTest, WalkThatFailsDeletesNothingInItsPass) {
  for (u64 age = 1; age <= 40; ++age) {
    Put(Ago(age));
  }
  LogCapture log;
  Sim::FailFileOperation(Operation::kEnumerate, 0, Fault::kFail);
  EXPECT_FALSE(Ensure(0, 0));
  EXPECT_EQ(Files().size(), 40U);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FootprintWalkFailed"}));
  EXPECT_EQ(log.Arguments("netdb_storage.FootprintWalkFailed"), (Lines{"32"}));

  Sim::FailFileOperation(Operation::kEnumerate, 1, Fault::kFail);
  EXPECT_FALSE(Ensure(0, 0));
  EXPECT_EQ(Files().size(), 8U) << "the first pass stands";
}

TEST_F(FootprintTest, DeletionThatFailsSixTimesEndsAndWhatWentStaysGone) {
  Put(Ago(3));
  Put(Ago(2));
  Put(Ago(1));
  LogCapture log;
  Sim::FailFileOperation(Operation::kDelete, 1, Fault::kFail, 6);
  EXPECT_FALSE(Ensure(0, kNoLimit));
  EXPECT_EQ(Files(), (Lines{Name(Ago(2)), Name(Ago(1))}));
  EXPECT_EQ(log.Lines(), Lines(5, "3 netdb_storage.DayFileNotDeleted"));
  int attempt = 0;
  for (const LogCapture::Entry& entry : log.Entries()) {
    if (entry.level == 3) {
      EXPECT_EQ(entry.arguments, (Lines{Name(Ago(2)), std::to_string(++attempt), "100"}));
    }
  }
  EXPECT_EQ(Sim::Sleeps(), std::vector<u32>(5, 100));
  EXPECT_EQ(Sim::CountFileOperations(Operation::kDelete), 7U);
}

TEST_F(FootprintTest, DeletionThatWorksAtTheSixthAttemptGoesOn) {
  Put(Ago(2));
  Put(Ago(1));
  LogCapture log;
  Sim::FailFileOperation(Operation::kDelete, 0, Fault::kFail, 5);
  EXPECT_TRUE(Ensure(0, kNoLimit));
  EXPECT_EQ(Files(), Lines{});
  EXPECT_EQ(log.Lines(), Lines(5, "3 netdb_storage.DayFileNotDeleted"));
  EXPECT_EQ(Sim::Sleeps().size(), 5U);
}

// The folder's name fills the area, or the file's name does behind it.
TEST_F(FootprintTest, PathThatFindsNoMemoryEndsWithTheFileThere) {
  struct Case {
    std::size_t length;
    u64 allocation;
    const char* record;
  };
  for (const Case& test :
       {Case{300, 1, "5 netdb_storage.FootprintPathNotKept"}, Case{250, 0, "5 netdb_storage.DayFilePathNotMade"}}) {
    const std::string folder = "/" + std::string(test.length, 'f');
    const std::string path = folder + "/" + Name(kDay);
    Sim::PutFile(path, "x");
    LogCapture log;
    Sim::FailAllocation(test.allocation);
    EXPECT_FALSE(DBManager::EnsureDiskFootprintConstraints(folder.c_str(), 0, 0));
    EXPECT_EQ(log.Lines(), (Lines{test.record}));
    EXPECT_EQ(Content(path), "x");
    Sim::FailAllocation(kAllOnes64);
    EXPECT_TRUE(DBManager::EnsureDiskFootprintConstraints(folder.c_str(), 0, 0));
    EXPECT_EQ(Content(path), "(missing)");
  }
}

// 35 days to delete in two passes, and two that stay.
class FootprintFaultTest : public FootprintTest {
 protected:
  static constexpr u64 kOld = 35;

  static void Prepare() {
    Sim::Reset();
    for (u64 age = kOld + 1; age > 0; --age) {
      Put(Ago(age));
    }
    Put(kToday);
  }
  static bool EnsureOldGo() { return Ensure(kNoLimit, 2); }
  static Lines Remaining(u64 oldFiles) {
    Lines names;
    for (u64 age = oldFiles + 1; age > 0; --age) {
      names.push_back(Name(Ago(age)));
    }
    names.push_back(Name(kToday));
    return names;
  }
  static u64 OperationsOfACall() {
    Prepare();
    const u64 before = Sim::CountFileOperations();
    EXPECT_TRUE(EnsureOldGo());
    return Sim::CountFileOperations() - before;
  }
  // The oldest days are gone and no other, and the next call deletes the rest.
  static void ExpectOldestGone(bool all) {
    const std::size_t count = Files().size();
    ASSERT_GE(count, 2U);
    EXPECT_EQ(Files(), Remaining(count - 2));
    EXPECT_TRUE(!all || count == 2U);
    Sim::ClearFaults();
    EXPECT_TRUE(EnsureOldGo());
    EXPECT_EQ(Files(), Remaining(0));
  }
};

TEST_F(FootprintFaultTest, AnyOperationThatFailsLeavesTheYoungerDaysAndTheNextCallCompletes) {
  const u64 operations = OperationsOfACall();
  for (u64 n = 0; n < operations; ++n) {
    SCOPED_TRACE(n);
    Prepare();
    Sim::FailFileOperation(n, Fault::kFail);
    const bool done = EnsureOldGo();
    ExpectOldestGone(done);
  }
}

TEST_F(FootprintFaultTest, PowerCutAtAnyOperationLeavesTheYoungerDaysAndTheNextCallCompletes) {
  const u64 operations = OperationsOfACall();
  for (u64 n = 0; n < operations; ++n) {
    for (u64 seed = 0; seed < kSeeds; ++seed) {
      SCOPED_TRACE(n);
      Prepare();
      Sim::FailFileOperation(n, Fault::kPowerCut);
      EXPECT_FALSE(EnsureOldGo());
      Sim::Reboot(seed);
      ExpectOldestGone(false);
    }
  }
}

}  // namespace
