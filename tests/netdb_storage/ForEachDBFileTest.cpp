// DBManager::ForEachDBFile: which names are database files, and which of them a walk gives.
#include <gtest/gtest.h>

#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Lines = std::vector<std::string>;

struct Visit {
  std::string path;
  u64 day;
  u64 size;
  bool operator==(const Visit& other) const { return path == other.path && day == other.day && size == other.size; }
  bool operator<(const Visit& other) const { return path < other.path; }
};

void PrintTo(const Visit& visit, std::ostream* out) {
  *out << visit.path << " " << visit.day << " " << visit.size;
}

class ForEachDBFileTest : public FolderTest {
 protected:
  void Put(const std::string& name, u32 size = 1) {
    Sim::PutFile(std::string(kFolder) + "/" + name, std::string(size, 'x'));
  }
  // What a walk gives, sorted by path.
  std::vector<Visit> Walk(bool skipToday = false, u64 from = 0, u64 to = kAllOnes64) {
    std::vector<Visit> visits;
    EXPECT_TRUE(DBManager::ForEachDBFile(
        kFolder, skipToday,
        [&visits](const char* path, u64 day, u64 size) {
          visits.push_back({path, day, size});
          return true;
        },
        from, to));
    std::sort(visits.begin(), visits.end());
    return visits;
  }
  std::vector<std::string> Names(const std::vector<Visit>& visits) {
    std::vector<std::string> names;
    for (const Visit& visit : visits) {
      names.push_back(visit.path.substr(sizeof(kFolder)));
    }
    return names;
  }
};

TEST_F(ForEachDBFileTest, FilesComeWithPathDayAndSize) {
  Put("1699920000.db", 7);
  Put("1700006400.db.f", 9);
  EXPECT_EQ(Walk(), (std::vector<Visit>{{"/data/netdb/1699920000.db", 1699920000, 7},
                                        {"/data/netdb/1700006400.db.f", 1700006400, 9}}));
}

TEST_F(ForEachDBFileTest, TenDigitsAndASuffixInAnyCaseMakeADatabaseFile) {
  for (const char* name : {"1699920000.db", "1699920000.DB.F", "1699920000.temp.f", "1699920000.Db"}) {
    Put(name);
  }
  EXPECT_EQ(Names(Walk()),
            (std::vector<std::string>{"1699920000.DB.F", "1699920000.Db", "1699920000.db", "1699920000.temp.f"}));
}

TEST_F(ForEachDBFileTest, OtherNamesArePassedOver) {
  const std::vector<std::string> kNames = {"169992000.db",        "16999200000.db", "1699920000.db.temp", "1699920000",
                                           "a1699920000.db",      "cache.4.db",     "1699920000.dbx",     ".db",
                                           "1699920000.db.temp.x"};
  for (const std::string& name : kNames) {
    Put(name);
  }
  LogCapture log;
  EXPECT_EQ(Walk(), std::vector<Visit>{});
  EXPECT_EQ(log.Count("netdb_storage.NotADatabaseFile"), static_cast<int>(kNames.size()));
  EXPECT_EQ(log.Lines(2), Lines{});
}

TEST_F(ForEachDBFileTest, FolderWithTheNameOfAFileIsPassedOver) {
  Sim::PutFile(DayPath(kDay) + "/inner.db", "x");
  LogCapture log;
  EXPECT_EQ(Walk(), std::vector<Visit>{});
  EXPECT_EQ(log.Lines(1), Lines{}) << "without a word";
}

TEST_F(ForEachDBFileTest, BoundsAreRoundedDownToDaysAndBothCount) {
  for (const char* name : {"1699833600.db", "1699920000.db", "1700006400.db", "1700092800.db"}) {
    Put(name);
  }
  LogCapture log;
  EXPECT_EQ(Names(Walk(false, 1699920000 + 86399, 1700006400)),
            (std::vector<std::string>{"1699920000.db", "1700006400.db"}));
  EXPECT_EQ(log.Count("netdb_storage.DayOutOfRange"), 2);
  EXPECT_EQ(log.Lines(2), Lines{});
  for (const LogCapture::Entry& entry : log.Entries()) {
    EXPECT_EQ(entry.arguments.at(1), "1699920000");
    EXPECT_EQ(entry.arguments.at(2), "1700006400");
  }
}

TEST_F(ForEachDBFileTest, TodayIsSkippedOnRequestOnly) {
  Put("1699920000.db");
  Put("1700006400.db");
  Put("1700006400.db.f");
  Sim::SetEpochTime(u64{1700006400 + 3600} * 1000 + 999);
  EXPECT_EQ(Walk(false).size(), 3U);
  LogCapture log;
  EXPECT_EQ(Names(Walk(true)), (std::vector<std::string>{"1699920000.db"}));
  EXPECT_EQ(log.Count("netdb_storage.TodaySkipped"), 2);
  EXPECT_EQ(log.Arguments("netdb_storage.TodaySkipped"), (Lines{"1700006400"}));
}

TEST_F(ForEachDBFileTest, CallbackThatRefusesStopsTheWalk) {
  Put("1699920000.db");
  Put("1700006400.db");
  int calls = 0;
  EXPECT_FALSE(DBManager::ForEachDBFile(
      kFolder, false,
      [&calls](const char*, u64, u64) {
        ++calls;
        return false;
      },
      0, kAllOnes64));
  EXPECT_EQ(calls, 1);
}

bool Refuse(const char*, u64, u64) {
  ADD_FAILURE() << "there is nothing to visit";
  return true;
}

TEST_F(ForEachDBFileTest, NullFolderIsRefused) {
  LogCapture log;
  EXPECT_FALSE(DBManager::ForEachDBFile(nullptr, false, &Refuse, 0, kAllOnes64));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkWithoutFolder"}));
}

TEST_F(ForEachDBFileTest, MissingFolderIsRefused) {
  LogCapture log;
  EXPECT_FALSE(DBManager::ForEachDBFile("/data/other", false, &Refuse, 0, kAllOnes64));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkFolderMissing"}));
  EXPECT_EQ(log.Arguments("netdb_storage.WalkFolderMissing"), (Lines{"/data/other"}));
}

TEST_F(ForEachDBFileTest, CallbackWithoutMemoryIsRefused) {
  LogCapture log;
  EXPECT_FALSE(DBManager::ForEachDBFile(kFolder, false, DBManager::FileCallback(), 0, kAllOnes64));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkWithoutCallback"}));
}

TEST_F(ForEachDBFileTest, LongFolderThatFindsNoMemoryIsRefused) {
  const std::string folder = "/" + std::string(300, 'f');
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(folder.c_str()));
  LogCapture log;
  Sim::FailAllocation(0);
  EXPECT_FALSE(DBManager::ForEachDBFile(folder.c_str(), false, &Refuse, 0, kAllOnes64));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkPathNotKept"}));
  EXPECT_TRUE(DBManager::ForEachDBFile(folder.c_str(), false, &Refuse, 0, kAllOnes64));
}

TEST_F(ForEachDBFileTest, FolderThatCannotBeListedFails) {
  Put("1699920000.db");
  Sim::FailFileOperation(Sim::Operation::kEnumerate, 0, Sim::Fault::kFail);
  EXPECT_FALSE(DBManager::ForEachDBFile(kFolder, false, &Refuse, 0, kAllOnes64));
}

TEST_F(ForEachDBFileTest, EntryWithoutPathNameOrContextEndsTheWalk) {
  Velmar::OS::FileTimes times;
  int context = 0;
  const auto visit = DBManagerTestAccess::VisitEntry();
  LogCapture log;
  EXPECT_FALSE(visit(nullptr, "1699920000.db", 1, false, times, &context));
  EXPECT_FALSE(visit("/1699920000.db", nullptr, 1, false, times, &context));
  EXPECT_FALSE(visit("/1699920000.db", "1699920000.db", 1, false, times, nullptr));
  EXPECT_EQ(log.Lines(), Lines(3, "5 netdb_storage.WalkEntryIncomplete"));
}

TEST_F(ForEachDBFileTest, EmptyFolderIsWalkedWell) {
  EXPECT_EQ(Walk(), std::vector<Visit>{});
}

}  // namespace
