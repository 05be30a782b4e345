#include "host/agent/DataFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777;
}

TEST(DataFolder, DefaultDependsOnTheUser) {
  setenv("XDG_STATE_HOME", "/state", 1);
  EXPECT_EQ(DefaultDataFolder(), geteuid() == 0 ? "/var/lib/ryl" : "/state/ryl");
}

TEST(DataFolder, RelativeStateHomeIsIgnored) {
  setenv("XDG_STATE_HOME", "state", 1);
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(DefaultDataFolder(), geteuid() == 0 ? "/var/lib/ryl" : "/home/someone/.local/state/ryl");
}

TEST(DataFolder, DatabaseFolderIsBelow) {
  EXPECT_EQ(DatabaseFolder("/data"), "/data/netdb");
  EXPECT_EQ(DatabaseFolder("/data/"), "/data/netdb");
}

TEST(DataFolder, MissingHistoryIsToldFromOneThatCannotBeReached) {
  const TemporaryFolder folder;
  std::string error;
  EXPECT_FALSE(HasHistory(folder.Path(), error));
  EXPECT_EQ(error, "there is no history: the folder " + folder.Path("netdb") + " does not exist");
  const std::string file = folder.Put("file", "");
  EXPECT_FALSE(HasHistory(file, error));
  EXPECT_EQ(error, "there is no history: the folder " + file + "/netdb does not exist");
  folder.Put("netdb", "");
  EXPECT_FALSE(HasHistory(folder.Path(), error));
  EXPECT_EQ(error, "there is no history: the folder " + folder.Path("netdb") + " does not exist");
  const std::string tooLong = folder.Path(std::string(300, 'a'));  // refused to root too
  EXPECT_FALSE(HasHistory(tooLong, error));
  EXPECT_EQ(error, "cannot look into the folder " + tooLong + "/netdb: File name too long");
  std::filesystem::create_directories(folder.Path("whole/netdb"));
  EXPECT_TRUE(HasHistory(folder.Path("whole"), error));
}

TEST(DataFolder, PathLengthIsCheckedAgainstTheLongestFileName) {
  std::string error;
  const std::string longest(190 - std::string("/netdb/1699920000.db.f").size(), 'a');
  EXPECT_TRUE(CheckPathLength(longest, error));
  EXPECT_FALSE(CheckPathLength(longest + "a", error));
  EXPECT_NE(error.find("191 characters, and 190 is the limit"), std::string::npos) << error;
}

TEST(DataFolder, EmptyNameIsRefused) {
  std::string error;
  EXPECT_FALSE(CheckPathLength("", error));
  EXPECT_FALSE(error.empty());
}

TEST(DataFolderLock, FolderAndFileAreForTheOwnerOnly) {
  const TemporaryFolder folder;
  DataFolderLock lock;
  std::string error;
  ASSERT_TRUE(lock.Take(folder.Path("a/b"), "import", error)) << error;
  EXPECT_EQ(ModeOf(folder.Path("a/b")), 0700U);
  EXPECT_EQ(ModeOf(folder.Path("a/b/netdb.lock")), 0600U);
}

TEST(DataFolderLock, SecondWriterIsToldWhoHoldsIt) {
  const TemporaryFolder folder;
  DataFolderLock first;
  DataFolderLock second;
  std::string error;
  ASSERT_TRUE(first.Take(folder.Path(), "run", error)) << error;
  EXPECT_FALSE(second.Take(folder.Path(), "import", error));
  EXPECT_NE(error.find("\"netdb run\" (process " + std::to_string(getpid()) + ") is writing to " + folder.Path()),
            std::string::npos)
      << error;
}

TEST(DataFolderLock, LockEndsWithItsObject) {
  const TemporaryFolder folder;
  std::string error;
  {
    DataFolderLock first;
    ASSERT_TRUE(first.Take(folder.Path(), "run", error)) << error;
  }
  DataFolderLock second;
  EXPECT_TRUE(second.Take(folder.Path(), "import", error)) << error;
  EXPECT_EQ(TemporaryFolder::Get(folder.Path("netdb.lock")), std::to_string(getpid()) + " import\n");
}

TEST(DataFolderLock, FolderThatCannotBeMadeIsAnError) {
  const TemporaryFolder folder;
  folder.Put("file", "");
  DataFolderLock lock;
  std::string error;
  EXPECT_FALSE(lock.Take(folder.Path("file/data"), "import", error));
  EXPECT_NE(error.find("cannot make the data folder"), std::string::npos) << error;
}

TEST(DataFolderLock, LinkInPlaceOfTheLockFileIsNotFollowed) {
  const TemporaryFolder folder;
  const std::string victim = folder.Put("victim", "precious");
  ASSERT_EQ(symlink(victim.c_str(), folder.Path("netdb.lock").c_str()), 0);
  DataFolderLock lock;
  std::string error;
  EXPECT_FALSE(lock.Take(folder.Path(), "import", error));
  EXPECT_EQ(TemporaryFolder::Get(victim), "precious");
}

}  // namespace
