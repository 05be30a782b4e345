// The durability model of the simulated disk.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

#include "Machine.h"
#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "platform/sim/Sim.h"

namespace {

using namespace Velmar;
using OS::File;
using OS::FileSystem;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

constexpr u64 kSeeds = 256;

class SimDisk : public MachineTest {
 protected:
  void CutPowerAndReboot(u64 seed) {
    Sim::CutPower();
    Sim::Reboot(seed);
  }
  bool Move(const std::string& from, const std::string& to) {
    return FileSystem::MoveFile(Path(from).c_str(), Path(to).c_str());
  }
  bool Delete(const std::string& name) { return FileSystem::DeleteFile(Path(name).c_str(), false, nullptr); }
  // What `name` holds after `actions` and a power cut, over many seeds.
  template <class Actions>
  std::set<std::string> Outcomes(const std::string& name, Actions actions) {
    std::set<std::string> outcomes;
    for (u64 seed = 0; seed < kSeeds; ++seed) {
      Sim::Reset();
      EXPECT_TRUE(FileSystem::CreateDirectory(Path("other").c_str()));
      actions();
      CutPowerAndReboot(seed);
      outcomes.insert(Content(name));
    }
    return outcomes;
  }
};

TEST_F(SimDisk, UnsyncedDataIsLostWholeOrInPart) {
  std::set<std::string> outcomes = Outcomes("a", [this] {
    Put("a", "old");
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Write("12", 2, nullptr));
    EXPECT_TRUE(file.Write("34", 2, nullptr));
    Sim::CutPower();
  });
  EXPECT_THAT(outcomes, IsSupersetOf({std::string("old"), std::string("1234"), std::string("12"), std::string("123"),
                                      std::string("1\0\0\0", 4), std::string("12\0\0", 4)}));
}

TEST_F(SimDisk, UnsyncedWritesReachTheDiskInAnyOrder) {
  std::set<std::string> outcomes = Outcomes("a", [this] {
    Put("a", "");
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Write("....", 4, nullptr));
    EXPECT_TRUE(file.Write("data", 4, nullptr));
    EXPECT_TRUE(file.Seek(0));
    EXPECT_TRUE(file.Write("HEAD", 4, nullptr));
    Sim::CutPower();
  });
  EXPECT_THAT(outcomes, IsSupersetOf({std::string("HEAD"), std::string("HEAD\0\0\0\0", 8), std::string("....data"),
                                      std::string("\0\0\0\0data", 8), std::string("HEADdata")}));
  bool headBeforeData = false;
  for (const std::string& outcome : outcomes) {
    bool hasPartOfData =
        outcome.size() == 8 && outcome.substr(4) != "data" && outcome.substr(4) != std::string(4, '\0');
    headBeforeData = headBeforeData || (outcome.substr(0, 4) == "HEAD" && hasPartOfData);
  }
  EXPECT_TRUE(headBeforeData) << "a stretch of a write may be missing too";
}

TEST_F(SimDisk, SyncedDataStays) {
  std::set<std::string> outcomes = Outcomes("a", [this] {
    Put("a", "old");
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Write("synced", 6, nullptr));
    EXPECT_TRUE(file.Close());
  });
  EXPECT_THAT(outcomes, ElementsAre("synced"));
}

TEST_F(SimDisk, NewNameIsLostWithoutASyncOfTheFolder) {
  auto create = [this] {
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Write("synced", 6, nullptr));
    EXPECT_TRUE(file.Close());
  };
  EXPECT_THAT(Outcomes("a", create), UnorderedElementsAre("(missing)", "synced"));
}

TEST_F(SimDisk, MoveMakesAllEarlierChangesOfTheFolderDurable) {
  auto replace = [this] {
    Put("b", "old");
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Write("new", 3, nullptr));
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(Delete("b"));
    EXPECT_TRUE(Move("a", "b"));
  };
  EXPECT_THAT(Outcomes("b", replace), ElementsAre("new"));
  EXPECT_THAT(Outcomes("a", replace), ElementsAre("(missing)"));
}

TEST_F(SimDisk, ChangesOfOneFolderAreLostFromTheLast) {
  std::set<std::string> seen;
  for (u64 seed = 0; seed < kSeeds; ++seed) {
    Sim::Reset();
    Put("a", "a");
    Put("b", "b");
    EXPECT_TRUE(Delete("a"));
    EXPECT_TRUE(Delete("b"));
    CutPowerAndReboot(seed);
    seen.insert(Content("a") + Content("b"));
  }
  EXPECT_THAT(seen, ElementsAre("(missing)(missing)", "(missing)b", "ab"));
}

TEST_F(SimDisk, MoveBetweenFoldersStaysWholeOrNotAtAll) {
  std::set<std::string> seen;
  for (u64 seed = 0; seed < kSeeds; ++seed) {
    Sim::Reset();
    Put("a", "content");
    Put("other/keep", "");
    Sim::FailFileOperation(Sim::Operation::kSyncFolder, 0, Sim::Fault::kDrop, 2);
    EXPECT_TRUE(Move("a", "other/b"));
    CutPowerAndReboot(seed);
    seen.insert(Content("a") + " " + Content("other/b"));
  }
  EXPECT_THAT(seen, ElementsAre("(missing) content", "content (missing)"));
}

TEST_F(SimDisk, SyncOfOneFolderTakesAlongWhatAMoveOutOfAnotherNeeds) {
  auto moveNewFile = [this] {
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Close());
    Sim::FailFileOperation(Sim::Operation::kSyncFolder, 1, Sim::Fault::kDrop);
    EXPECT_TRUE(Move("a", "other/b"));
  };
  EXPECT_THAT(Outcomes("other/b", moveNewFile), ElementsAre(""));
  EXPECT_THAT(Outcomes("a", moveNewFile), ElementsAre("(missing)"));
}

TEST_F(SimDisk, KilledProcessLosesNothingThatTheSystemHas) {
  File file;
  ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
  EXPECT_TRUE(file.Write("unsynced", 8, nullptr));
  Sim::FailFileOperation(0, Sim::Fault::kKill);
  EXPECT_FALSE(file.Write("x", 1, nullptr));
  Sim::Reboot(1);
  EXPECT_EQ(Content("a"), "unsynced");
}

TEST_F(SimDisk, NothingWorksBetweenDeathAndReboot) {
  Put("a", "content");
  File open;
  ASSERT_TRUE(open.OpenRead(Path("a").c_str()));
  u64 counted = Sim::CountFileOperations();
  Sim::CutPower();
  char byte = 0;
  File file;
  EXPECT_FALSE(open.Read(&byte, 1, nullptr));
  EXPECT_FALSE(open.Seek(0));
  EXPECT_EQ(open.Tell(), ~u64{0});
  EXPECT_FALSE(file.Create(Path("b").c_str(), false, true));
  EXPECT_FALSE(file.OpenRead(Path("a").c_str()));
  EXPECT_FALSE(FileSystem::FileExists(Path("a").c_str(), false));
  EXPECT_FALSE(FileSystem::DirectoryExists(machine_.Folder().c_str(), false));
  EXPECT_FALSE(FileSystem::CreateDirectory(Path("folder").c_str()));
  EXPECT_FALSE(Delete("a"));
  EXPECT_FALSE(Move("a", "b"));
  EXPECT_EQ(File::GetFileSize(Path("a").c_str()), 0U);
  EXPECT_EQ(Sim::CountFileOperations(), counted);
  Sim::Reboot(1);
  EXPECT_EQ(Content("a"), "content");
}

TEST_F(SimDisk, OpenFilesAreGoneAfterReboot) {
  File writer;
  File reader;
  ASSERT_TRUE(writer.Create(Path("a").c_str(), false, true));
  ASSERT_TRUE(reader.OpenRead(Path("a").c_str()));
  Sim::FailFileOperation(0, Sim::Fault::kKill);
  EXPECT_FALSE(writer.Write("x", 1, nullptr));
  Sim::Reboot(1);
  char byte = 0;
  EXPECT_FALSE(reader.Read(&byte, 1, nullptr));
  EXPECT_FALSE(writer.Write("x", 1, nullptr));
  EXPECT_FALSE(writer.Close());
  EXPECT_TRUE(writer.OpenRead(Path("a").c_str()));
}

TEST_F(SimDisk, FullDiskTakesWhatFits) {
  Put("other-file", "1234");
  Sim::SetDiskLimit(10);
  File file;
  ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
  u32 done = 0;
  EXPECT_FALSE(file.Write("abcdefgh", 8, &done));
  EXPECT_EQ(done, 6U);
  EXPECT_FALSE(file.Write("i", 1, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_TRUE(file.Seek(0));
  EXPECT_TRUE(file.Write("ABCDEF", 6, &done)) << "overwriting needs no room";
  Sim::SetDiskLimit(0);
  EXPECT_TRUE(file.Write("ghi", 3, &done));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "ABCDEFghi");
}

TEST_F(SimDisk, DirectAccessIsDurableAndSeen) {
  Put("new/folder/a", "content");
  Sim::SetEpochTime(1700000005000);
  Put("new/b", "");
  CutPowerAndReboot(3);
  EXPECT_EQ(Content("new/folder/a"), "content");
  EXPECT_TRUE(FileSystem::DirectoryExists(Path("new").c_str(), false));
  EXPECT_THAT(Sim::ListFiles(), ElementsAre(Path("new/b"), Path("new/folder/a")));
  EXPECT_EQ(Sim::ModificationTime(Path("new/folder/a")), 1700000000000U);
  EXPECT_EQ(Sim::ModificationTime(Path("new/b")), 1700000005000U);
  EXPECT_EQ(Sim::ModificationTime(Path("missing")), 0U);
  EXPECT_TRUE(Sim::RemoveFile(Path("new/b")));
  EXPECT_FALSE(Sim::RemoveFile(Path("new/b")));
  CutPowerAndReboot(3);
  EXPECT_EQ(Content("new/b"), "(missing)");
}

TEST_F(SimDisk, DirectAccessHoldsAgainstEarlierChangesOfTheFolder) {
  auto createAndRemove = [this] {
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(Sim::RemoveFile(Path("a")));
  };
  auto createAndPut = [this] {
    File file;
    ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
    EXPECT_TRUE(file.Close());
    Put("a", "put");
  };
  EXPECT_THAT(Outcomes("a", createAndRemove), ElementsAre("(missing)"));
  EXPECT_THAT(Outcomes("a", createAndPut), ElementsAre("put"));
}

TEST_F(SimDisk, PathsAreCleanedByTheirText) {
  Put("folder/a", "content");
  EXPECT_TRUE(FileSystem::FileExists((machine_.Folder() + "//folder/./../folder/a").c_str(), false));
  EXPECT_TRUE(FileSystem::DirectoryExists("/..", false));
}

TEST_F(SimDisk, CaseSensitivityIsAsSet) {
  EXPECT_TRUE(FileSystem::IsFileSystemCaseSensitive());
  Sim::SetCaseSensitive(false);
  EXPECT_FALSE(FileSystem::IsFileSystemCaseSensitive());
}

TEST_F(SimDisk, ListingIsSortedOrShuffledBySeed) {
  const auto list = [this] {
    std::string names;
    Utils::String folder(machine_.Folder().c_str(), true);
    EXPECT_TRUE(FileSystem::EnumerateFiles(
        folder, false,
        [](const char*, const char* name, u64, bool, OS::FileTimes&, void* context) {
          static_cast<std::string*>(context)->append(name);
          return true;
        },
        &names, true, true, false));
    return names;
  };
  for (const char* name : {"d", "b", "a", "c"}) {
    Put(name, "x");
  }
  EXPECT_EQ(list(), "abcd");
  std::set<std::string> orders;
  for (u64 seed = 1; seed <= 20; ++seed) {
    Sim::ShuffleListings(seed);
    const std::string order = list();
    EXPECT_EQ(order, list()) << "one seed is one order";
    EXPECT_TRUE(std::is_permutation(order.begin(), order.end(), "abcd"));
    orders.insert(order);
  }
  EXPECT_GT(orders.size(), 1U);
}

}  // namespace
