#include "host/verify/FolderVerifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "tests/host/DayFileBytes.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Verify;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr u64 kDay = DayFileBytes::kDay;

std::string DayBytes(u64 day) {
  DayFileBytes bytes;
  bytes.day = day;
  return bytes.Bytes();
}

class FolderVerifierTest : public testing::Test {
 protected:
  // `before` is called before each file that is looked at.
  std::map<std::string, FolderEntry> Run(const std::function<void(const std::string&)>& before = nullptr) {
    order_.clear();
    std::map<std::string, FolderEntry> entries;
    std::string error;
    FolderVerifier verifier(folder_.Path());
    EXPECT_TRUE(verifier.Run(
        [&](const FolderEntry& entry) {
          order_.push_back(entry.report.name);
          EXPECT_TRUE(entries.emplace(entry.report.name, entry).second) << entry.report.name << " came twice";
        },
        [&](std::size_t /*done*/, std::size_t /*total*/, const std::string& name) {
          if (before) {
            before(name);
          }
        },
        error))
        << error;
    return entries;
  }

  TemporaryFolder folder_;
  std::vector<std::string> order_;
};

TEST_F(FolderVerifierTest, EmptyFolderHasNothing) {
  EXPECT_THAT(Run(), IsEmpty());
}

TEST_F(FolderVerifierTest, MissingFolderIsAnError) {
  std::string error;
  FolderVerifier verifier(folder_.Path("none"));
  EXPECT_FALSE(verifier.Run([](const FolderEntry&) {}, [](std::size_t, std::size_t, const std::string&) {}, error));
  EXPECT_EQ(error, "there is no history: the folder " + folder_.Path("none") + " does not exist");
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("none")));
}

TEST_F(FolderVerifierTest, FilesComeByNameAndSavesLast) {
  folder_.Put("1700006400.db", DayBytes(kDay + 86400));
  folder_.Put("1699920000.db.temp", "");
  folder_.Put("1699920000.db", DayBytes(kDay));
  folder_.Put("notes.txt", "x");
  const auto entries = Run();
  EXPECT_THAT(order_, ElementsAre("1699920000.db", "1700006400.db", "notes.txt", "1699920000.db.temp"));
  EXPECT_EQ(entries.at("1699920000.db").kind, EntryKind::kDay);
  EXPECT_TRUE(entries.at("1700006400.db").report.IsGood());
  for (const auto& [name, entry] : entries) {
    EXPECT_FALSE(entry.IsWrong()) << name;
  }
}

TEST_F(FolderVerifierTest, DamagedFileIsWrongAndTheOthersAreStillRead) {
  std::string bytes = DayBytes(kDay);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  folder_.Put("1699920000.db", bytes);
  folder_.Put("1700006400.db", DayBytes(kDay + 86400));
  folder_.Put("1700092800.db", DayBytes(kDay));  // a copy under another name
  const auto entries = Run();
  EXPECT_TRUE(entries.at("1699920000.db").IsWrong());
  EXPECT_FALSE(entries.at("1700006400.db").IsWrong());
  EXPECT_TRUE(entries.at("1700092800.db").IsWrong());
}

TEST_F(FolderVerifierTest, BothFilesOfADayAreReadAndNoted) {
  DayFileBytes filtered;
  filtered.filterStamp = kDay + 100000;
  folder_.Put("1699920000.db", DayBytes(kDay));
  folder_.Put("1699920000.db.f", filtered.Bytes());
  const auto entries = Run();
  EXPECT_FALSE(entries.at("1699920000.db").IsWrong());
  EXPECT_FALSE(entries.at("1699920000.db.f").IsWrong());
  EXPECT_EQ(entries.at("1699920000.db.f").kind, EntryKind::kFilteredDay);
  EXPECT_THAT(entries.at("1699920000.db").report.notes,
              ElementsAre("the day has 1699920000.db.f too; queries read both, and new rows go there"));
  EXPECT_THAT(entries.at("1699920000.db.f").report.notes,
              ElementsAre("the day has 1699920000.db too; queries read both"));
  std::string bytes = filtered.Bytes();
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  folder_.Put("1699920000.db.f", bytes);
  EXPECT_TRUE(Run().at("1699920000.db.f").IsWrong());
}

TEST_F(FolderVerifierTest, FileThatCannotBeReadIsWrong) {
  std::filesystem::create_directory(folder_.Path("1699920000.db"));
  ASSERT_EQ(mkfifo(folder_.Path("1700006400.db").c_str(), 0600), 0);
  ASSERT_EQ(symlink("nowhere", folder_.Path("1700092800.db").c_str()), 0);
  const auto entries = Run();
  EXPECT_EQ(entries.at("1699920000.db").report.problems.at(0).text, "cannot be read: Is a directory");
  EXPECT_EQ(entries.at("1700006400.db").report.problems.at(0).text, "cannot be read: it is not a regular file");
  EXPECT_EQ(entries.at("1700092800.db").report.problems.at(0).text, "cannot be read: No such file or directory");
  for (const auto& [name, entry] : entries) {
    EXPECT_TRUE(entry.IsWrong()) << name;
  }
}

TEST_F(FolderVerifierTest, FileWithoutPermissionIsWrong) {
  if (geteuid() == 0) {
    GTEST_SKIP() << "root may read every file";
  }
  chmod(folder_.Put("1699920000.db", DayBytes(kDay)).c_str(), 0);
  const auto entries = Run();
  EXPECT_TRUE(entries.at("1699920000.db").IsWrong());
  EXPECT_EQ(entries.at("1699920000.db").report.problems.at(0).text, "cannot be read: Permission denied");
}

TEST_F(FolderVerifierTest, CompleteSaveWhoseFileIsMissingIsTold) {
  folder_.Put("1699920000.db.temp", DayBytes(kDay));
  const FolderEntry entry = Run().at("1699920000.db.temp");
  EXPECT_EQ(entry.kind, EntryKind::kCompleteSave);
  EXPECT_TRUE(entry.IsWrong()) << "nothing reads the rows of that day";
  EXPECT_EQ(entry.report.day, kDay);
  EXPECT_EQ(entry.report.rows, 4U);
  EXPECT_THAT(entry.report.notes, ElementsAre("a complete save of 2023-11-14 whose file is missing; to use it, stop "
                                              "what records and rename it to 1699920000.db"));
}

TEST_F(FolderVerifierTest, CompleteSaveBesideTheOtherFileOfItsDaySaysSo) {
  DayFileBytes filtered;
  filtered.filterStamp = 1;
  folder_.Put("1699920000.db.f", filtered.Bytes());
  folder_.Put("1699920000.db.temp", DayBytes(kDay));
  const FolderEntry entry = Run().at("1699920000.db.temp");
  EXPECT_EQ(entry.kind, EntryKind::kCompleteSave);
  EXPECT_THAT(entry.report.notes,
              ElementsAre(HasSubstr("; the day's rows in 1699920000.db.f would then be read with it")));
}

TEST_F(FolderVerifierTest, SavesOfFilteredFilesAndOfVerdictsAreToldToo) {
  DayFileBytes filtered;
  filtered.filterStamp = 1;
  folder_.Put("1699920000.db.f.temp", filtered.Bytes());
  StoreBytes::StoreFile verdicts;
  verdicts.fileFlags = 1;
  verdicts.keyEntrySize = 4;
  folder_.Put("cache.4.db.temp", Build(verdicts));
  const auto entries = Run();
  EXPECT_THAT(entries.at("1699920000.db.f.temp").report.notes, ElementsAre(HasSubstr("rename it to 1699920000.db.f")));
  EXPECT_EQ(entries.at("cache.4.db.temp").kind, EntryKind::kCompleteSave);
  EXPECT_FALSE(entries.at("cache.4.db.temp").IsWrong());
  EXPECT_THAT(entries.at("cache.4.db.temp").report.notes,
              ElementsAre("a complete save of the verdicts whose file is missing; to use it, stop what records and "
                          "rename it to cache.4.db"));
}

TEST_F(FolderVerifierTest, OtherSavesAreLeftovers) {
  const std::string whole = DayBytes(kDay);
  folder_.Put("1699920000.db", whole);
  folder_.Put("1699920000.db.temp", whole);
  folder_.Put("1700006400.db.temp", DayBytes(kDay + 86400).substr(0, whole.size() - 1));
  folder_.Put("1700092800.db.temp", whole);  // of another day
  const auto entries = Run();
  EXPECT_THAT(
      entries.at("1699920000.db.temp").report.notes,
      ElementsAre("a complete save that did not take the place of 1699920000.db, which is there; nothing reads it"));
  EXPECT_THAT(
      entries.at("1700006400.db.temp").report.notes,
      ElementsAre("the rest of a save of 1700006400.db that was cut short, or one under way; nothing reads it"));
  EXPECT_THAT(entries.at("1700092800.db.temp").report.notes,
              ElementsAre("a save of 2023-11-14 under the name of another day; nothing reads it"));
  for (const char* name : {"1699920000.db.temp", "1700006400.db.temp", "1700092800.db.temp"}) {
    EXPECT_EQ(entries.at(name).kind, EntryKind::kLeftover) << name;
    EXPECT_FALSE(entries.at(name).IsWrong()) << name;
  }
}

TEST_F(FolderVerifierTest, ForeignFilesAreListedAndNotRead) {
  folder_.Put("169992000.db", "nine digits");
  folder_.Put("16999200000.db", "eleven digits");
  folder_.Put("readme.temp", "x");
  folder_.Put("1699920000.db.damaged.1", "x");
  folder_.Put("cache.6.db", "x");
  std::filesystem::create_directory(folder_.Path("folder"));
  const auto entries = Run();
  ASSERT_EQ(entries.size(), 6U);
  for (const auto& [name, entry] : entries) {
    EXPECT_EQ(entry.kind, EntryKind::kOther) << name;
    EXPECT_FALSE(entry.IsWrong()) << name;
    EXPECT_EQ(entry.report.notes.size(), 1U) << name;
  }
  EXPECT_EQ(entries.at("169992000.db").report.notes[0], "not a file of ours");
  EXPECT_EQ(entries.at("169992000.db").report.size, 11U);
  EXPECT_EQ(entries.at("folder").report.notes[0], "a folder that is not ours");
  EXPECT_EQ(entries.at("1699920000.db.damaged.1").report.notes[0],
            "a damaged 1699920000.db that was set aside; nothing reads it");
}

TEST_F(FolderVerifierTest, VerdictCacheIsKnownByItsName) {
  StoreBytes::StoreFile verdicts;
  verdicts.fileFlags = 1;
  verdicts.keyEntrySize = 4;
  verdicts.hasIndex = true;
  verdicts.entryCount = 1;
  verdicts.index = StoreBytes::Word(7);
  verdicts.pages = {StoreBytes::CacheRecord(1700000000000, 172800000, true)};
  folder_.Put("cache.4.db", Build(verdicts));
  const auto entries = Run();
  EXPECT_EQ(entries.at("cache.4.db").kind, EntryKind::kVerdicts);
  EXPECT_EQ(entries.at("cache.4.db").report.entries, 1U);
  EXPECT_FALSE(entries.at("cache.4.db").IsWrong());
  folder_.Put("cache.4.db", Build(verdicts).substr(0, 60));
  EXPECT_TRUE(Run().at("cache.4.db").IsWrong());
}

TEST_F(FolderVerifierTest, FileThatWasDeletedMeanwhileIsNoFault) {
  folder_.Put("1699920000.db", DayBytes(kDay));
  folder_.Put("1700006400.db", DayBytes(kDay + 86400));
  folder_.Put("1699920000.db.temp", DayBytes(kDay));
  folder_.Put("other", "x");
  const auto entries = Run([this](const std::string& name) {
    if (name != "1700006400.db") {
      unlink(folder_.Path(name).c_str());
    }
  });
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_FALSE(entries.at("1700006400.db").IsWrong());
}

TEST_F(FolderVerifierTest, FileThatWasFilteredMeanwhileIsReadUnderItsNewName) {
  folder_.Put("1699920000.db", DayBytes(kDay));
  const auto entries =
      Run([this](const std::string& name) { std::filesystem::rename(folder_.Path(name), folder_.Path(name + ".f")); });
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries.at("1699920000.db.f").kind, EntryKind::kFilteredDay);
  EXPECT_FALSE(entries.at("1699920000.db.f").IsWrong());
}

// The scheduler may hold the thread back for longer than the wait; not each time.
TEST_F(FolderVerifierTest, FileThatComesBackIsRead) {
  constexpr int kRounds = 20;
  folder_.Put("1699920000.db", DayBytes(kDay));
  bool found = false;
  for (int i = 0; i < kRounds && !found; ++i) {
    std::thread returns;
    const auto entries = Run([&](const std::string& name) {
      const std::string away = folder_.Path("away");
      std::filesystem::rename(folder_.Path(name), away);
      returns = std::thread([this, name, away] { std::filesystem::rename(away, folder_.Path(name)); });
    });
    returns.join();
    found = entries.count("1699920000.db") != 0 && entries.at("1699920000.db").report.rows == 4;
    EXPECT_FALSE(found && entries.at("1699920000.db").IsWrong());
  }
  EXPECT_TRUE(found);
}

TEST_F(FolderVerifierTest, FileThatIsSavedAgainAndAgainIsNeverDamaged) {
  constexpr int kRounds = 20;
  folder_.Put("1699920000.db", DayBytes(kDay));
  std::atomic<bool> stop = false;
  std::thread writer([this, &stop] {
    const std::string path = folder_.Path("1699920000.db");
    const std::string bytes = DayBytes(kDay);
    while (!stop) {
      folder_.Put("1699920000.db.temp", bytes);
      unlink(path.c_str());
      rename((path + ".temp").c_str(), path.c_str());
      std::this_thread::yield();
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    for (const auto& [name, entry] : Run()) {
      EXPECT_FALSE(entry.IsWrong()) << name;
      EXPECT_TRUE(name != "1699920000.db" || entry.report.rows == 4);
    }
  }
  stop = true;
  writer.join();
}

TEST_F(FolderVerifierTest, NothingIsChanged) {
  folder_.Put("1699920000.db", DayBytes(kDay));
  folder_.Put("1700006400.db", "damaged");
  folder_.Put("1700092800.db.temp", DayBytes(kDay + 2 * 86400));
  folder_.Put("other", "x");
  const auto look = [this] {
    std::map<std::string, std::string> found;
    for (const auto& file : std::filesystem::directory_iterator(folder_.Path())) {
      struct stat status = {};
      stat(file.path().c_str(), &status);
      found[file.path().filename()] = TemporaryFolder::Get(file.path()) + std::to_string(status.st_ino) + " " +
                                      std::to_string(status.st_mtim.tv_sec) + " " +
                                      std::to_string(status.st_mtim.tv_nsec) + " " +
                                      std::to_string(status.st_ctim.tv_nsec) + " " + std::to_string(status.st_mode);
    }
    return found;
  };
  const auto before = look();
  Run();
  EXPECT_EQ(look(), before);
}

TEST_F(FolderVerifierTest, ProgressCountsEachFile) {
  folder_.Put("1699920000.db", DayBytes(kDay));
  folder_.Put("1699920000.db.temp", "");
  folder_.Put("x", "");
  std::vector<std::string> steps;
  std::string error;
  FolderVerifier verifier(folder_.Path());
  verifier.Run([](const FolderEntry&) {},
               [&steps](std::size_t done, std::size_t total, const std::string& name) {
                 steps.push_back(std::to_string(done) + "/" + std::to_string(total) + " " + name);
               },
               error);
  EXPECT_THAT(steps, ElementsAre("0/3 1699920000.db", "1/3 x", "2/3 1699920000.db.temp"));
}

}  // namespace
