// DBManager: a day that is filtered, its stamp, and the name that it gets.
#include <gtest/gtest.h>

#include "Velmar/OS/Time.h"
#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SimCloud.h"

namespace {

using namespace StorageTest;
using Access = DBManagerTestAccess;
using Lines = std::vector<std::string>;
using Sim::Fault;
using Sim::Operation;

// A day of the ports 1 to 3 at one address each, 203.0.113.PORT.
class DBManagerFilterTest : public FolderTest {
 protected:
  DBManagerFilterTest() {
    EXPECT_TRUE(status.Open(nullptr, false));
    DBManager writer;
    EXPECT_TRUE(writer.SetFolder(kFolder));
    for (u8 port = 1; port <= 3; ++port) {
      EXPECT_TRUE(writer.Add(MakeMessage(kDay + port, Address(203, 0, 113, port), port), nullptr));
    }
    EXPECT_TRUE(writer.Flush());
  }

  const std::string path = DayPath(kDay);
  SimCloud cloud;
  CloudStatus<IPv4> status;
};

TEST_F(DBManagerFilterTest, WithoutAFileThereIsNothingToFilter) {
  LogCapture log;
  DBManager closed;
  EXPECT_FALSE(closed.FilterIPs(&status));
  EXPECT_FALSE(Access::Dirty(closed));
  DBManager refused;
  ASSERT_FALSE(refused.SyncWith(DayPath(kNextDay).c_str(), false));
  log.Clear();
  EXPECT_FALSE(refused.FilterIPs(&status));
  EXPECT_EQ(log.Lines(1), Lines{"5 netdb_storage.FilterWithoutFile"});
  EXPECT_TRUE(cloud.Requests().empty());
}

TEST_F(DBManagerFilterTest, FilteredDayIsStampedAndWrittenByTheNextDump) {
  Sim::SetEpochTime(1700123456789);
  cloud.harmless = {"203.0.113.2"};
  {
    DBManager db;
    ASSERT_TRUE(db.SyncWith(path.c_str(), false));
    LogCapture log;
    EXPECT_TRUE(db.FilterIPs(&status));
    EXPECT_EQ(log.Names(1).back(), "netdb_storage.DayFiltered");
    EXPECT_EQ(log.Arguments("netdb_storage.DayFiltered"), Lines{"1699920000.db"});
    EXPECT_EQ(log.Lines(), Lines{"2 netdb_storage.RowsFiltered"});
    EXPECT_TRUE(Access::Dirty(db));
    EXPECT_EQ(Access::Cryptor(db).GetFilterStamp(), 1700123456U);
    EXPECT_EQ(AllRows().SortedPorts(), (std::vector<u16>{1, 2, 3})) << "the file waits for the dump";
    EXPECT_TRUE(db.Flush());
  }
  EXPECT_EQ(AllRows().SortedPorts(), (std::vector<u16>{1, 3}));
  DBManager reader;
  ASSERT_TRUE(reader.SyncWith(path.c_str(), true));
  EXPECT_EQ(Access::Cryptor(reader).GetFilterStamp(), 1700123456U);
}

TEST_F(DBManagerFilterTest, DayWithNothingToTakeOutIsWrittenAllTheSame) {
  DBManager db;
  ASSERT_TRUE(db.SyncWith(path.c_str(), false));
  EXPECT_TRUE(db.FilterIPs(&status));
  Sim::AdvanceTime(5000);
  EXPECT_TRUE(db.Flush());
  EXPECT_EQ(Sim::ModificationTime(path), Velmar::OS::Time::GetEpochTime(nullptr));
  EXPECT_EQ(AllRows().records.size(), 3U);
}

TEST_F(DBManagerFilterTest, DayThatTheCloudLeftIsDirtyAndNotStamped) {
  cloud.failsFrom = 0;
  DBManager db;
  ASSERT_TRUE(db.SyncWith(path.c_str(), false));
  LogCapture log;
  EXPECT_FALSE(db.FilterIPs(&status));
  EXPECT_EQ(log.Lines(),
            (Lines{"5 cloud.CloudRefused", "5 cloud.ResolveStopped", "5 netdb_storage.AddressesNotResolved",
                   "2 netdb_storage.RowsFiltered", "5 netdb_storage.DayNotFiltered"}));
  EXPECT_EQ(log.Arguments("netdb_storage.DayNotFiltered"), Lines{"1699920000.db"});
  EXPECT_TRUE(Access::Dirty(db));
  EXPECT_EQ(Access::Cryptor(db).GetFilterStamp(), 0U);
}

TEST_F(DBManagerFilterTest, MarkGivesTheFileItsFilteredName) {
  const std::string content = Content(path);
  LogCapture log;
  EXPECT_TRUE(DBManager::MarkFiltered(path.c_str()));
  EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
  EXPECT_EQ(Content(path + ".f"), content);
  EXPECT_TRUE(log.Entries().empty());
  EXPECT_TRUE(Sim::Sleeps().empty());
}

TEST_F(DBManagerFilterTest, MarkWithoutAPathOrAFileIsRefused) {
  LogCapture log;
  EXPECT_FALSE(DBManager::MarkFiltered(nullptr));
  EXPECT_FALSE(DBManager::MarkFiltered(DayPath(kNextDay).c_str()));
  EXPECT_EQ(log.Lines(1), (Lines{"5 netdb_storage.MarkWithoutFile", "5 netdb_storage.MarkWithoutFile"}));
}

TEST_F(DBManagerFilterTest, MarkTakesNoOtherSuffix) {
  const Lines names = {"1699920000.db.f", "1699920000.dbx", "1699920000.db.temp", "1699920000.d", "db"};
  for (const std::string& name : names) {
    const std::string other = std::string(kFolder) + "/" + name;
    Sim::PutFile(other, "x");
    LogCapture log;
    EXPECT_FALSE(DBManager::MarkFiltered(other.c_str())) << name;
    EXPECT_EQ(log.Lines(1), Lines{"5 netdb_storage.MarkOtherName"});
    EXPECT_EQ(log.Arguments("netdb_storage.MarkOtherName"), Lines{other});
    EXPECT_EQ(Content(other), "x");
  }
}

TEST_F(DBManagerFilterTest, MarkFollowsTheCaseRuleOfTheFileSystem) {
  const std::string upper = DayPath(kNextDay, ".DB");
  Sim::PutFile(upper, "x");
  Sim::SetCaseSensitive(true);
  EXPECT_FALSE(DBManager::MarkFiltered(upper.c_str()));
  Sim::SetCaseSensitive(false);
  EXPECT_TRUE(DBManager::MarkFiltered(upper.c_str()));
  EXPECT_EQ(Content(upper + ".f"), "x");
}

TEST_F(DBManagerFilterTest, MarkNeverOverwrites) {
  Sim::PutFile(path + ".f", "filtered before");
  LogCapture log;
  EXPECT_FALSE(DBManager::MarkFiltered(path.c_str()));
  EXPECT_EQ(log.Lines(1), Lines{"5 netdb_storage.MarkedFileExists"});
  EXPECT_EQ(log.Arguments("netdb_storage.MarkedFileExists"), Lines{path + ".f"});
  EXPECT_EQ(Content(path + ".f"), "filtered before");
  EXPECT_EQ(Files(), (Lines{"1699920000.db", "1699920000.db.f"}));
}

TEST_F(DBManagerFilterTest, RenameIsTriedFiveTimes) {
  for (u64 failures = 1; failures <= 5; ++failures) {
    Sim::FailFileOperation(Operation::kMove, 0, Fault::kFail, failures);
    const std::size_t slept = Sim::Sleeps().size();
    LogCapture log;
    EXPECT_EQ(DBManager::MarkFiltered(path.c_str()), failures < 5) << failures;
    Sim::ClearFaults();
    const u64 retries = failures < 5 ? failures : 4;
    EXPECT_EQ(log.Lines(3), Lines(retries, "3 netdb_storage.MarkRetry"));
    EXPECT_EQ(log.Arguments("netdb_storage.MarkRetry"), (Lines{path, std::to_string(retries)}));
    EXPECT_EQ(Sim::Sleeps().size() - slept, retries);
    EXPECT_EQ(Sim::Sleeps().back(), 100U);
    EXPECT_EQ(Files(), Lines{failures < 5 ? "1699920000.db.f" : "1699920000.db"});
    if (failures < 5) {
      ASSERT_TRUE(Velmar::OS::FileSystem::MoveFile((path + ".f").c_str(), path.c_str()));
    }
  }
}

TEST_F(DBManagerFilterTest, RenameWhoseFolderIsNotSyncedHolds) {
  Sim::FailFileOperation(Operation::kSyncFolder, 0, Fault::kFail);
  LogCapture log;
  EXPECT_TRUE(DBManager::MarkFiltered(path.c_str()));
  EXPECT_EQ(log.Lines(), Lines{"3 base.FolderSyncFailed"});
  EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
}

TEST_F(DBManagerFilterTest, NameWithoutMemoryIsRefused) {
  Sim::FailAllocation(0);
  LogCapture log;
  EXPECT_FALSE(DBManager::MarkFiltered(path.c_str()));
  EXPECT_EQ(log.CountLevel(5), 1);
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
}

}  // namespace
