#include "Velmar/OS/FileSystem.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "Machine.h"
#include "Velmar/OS/Time.h"

namespace {

using namespace Velmar;
using OS::FileSystem;
using testing::ElementsAre;
using testing::IsEmpty;

class FileSystemContract : public MachineTest {
 protected:
  bool Exists(const std::string& name) { return FileSystem::FileExists(Path(name).c_str(), false); }
  bool Delete(const std::string& name) { return FileSystem::DeleteFile(Path(name).c_str(), false, nullptr); }
  bool Move(const std::string& from, const std::string& to) {
    return FileSystem::MoveFile(Path(from).c_str(), Path(to).c_str());
  }
  bool MakeFolder(const std::string& name) { return FileSystem::CreateDirectory(Path(name).c_str()); }
};

TEST_F(FileSystemContract, FilesAndFoldersAreToldApart) {
  Put("file", "");
  ASSERT_TRUE(MakeFolder("folder"));
  EXPECT_TRUE(Exists("file"));
  EXPECT_FALSE(Exists("folder"));
  EXPECT_FALSE(Exists("missing"));
  EXPECT_FALSE(FileSystem::DirectoryExists(Path("file").c_str(), false));
  EXPECT_TRUE(FileSystem::DirectoryExists(Path("folder").c_str(), false));
  EXPECT_TRUE(FileSystem::DirectoryExists(Utils::String(Path("folder").c_str(), true), false));
  EXPECT_FALSE(FileSystem::DirectoryExists(Path("missing").c_str(), false));
}

TEST_F(FileSystemContract, NoPathIsNothing) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(FileSystem::FileExists(path, false));
    EXPECT_FALSE(FileSystem::DirectoryExists(path, false));
    EXPECT_FALSE(FileSystem::CreateDirectory(path));
    EXPECT_FALSE(FileSystem::MoveFile(path, Path("a").c_str()));
    EXPECT_FALSE(FileSystem::MoveFile(Path("a").c_str(), path));
    EXPECT_FALSE(FileSystem::DeleteFile(path, false, nullptr));
  }
}

TEST_F(FileSystemContract, CreateDirectoryMakesParentsAndAcceptsAnOldFolder) {
  EXPECT_TRUE(MakeFolder("a/b/c"));
  EXPECT_TRUE(FileSystem::DirectoryExists(Path("a/b/c").c_str(), false));
  EXPECT_TRUE(MakeFolder("a/b/c"));
  EXPECT_TRUE(MakeFolder("a/d/"));
  EXPECT_TRUE(FileSystem::DirectoryExists(Path("a/d").c_str(), false));
}

TEST_F(FileSystemContract, CreateDirectoryFailsWhereAFileIs) {
  Put("a", "");
  EXPECT_FALSE(MakeFolder("a"));
  EXPECT_FALSE(MakeFolder("a/b"));
  EXPECT_TRUE(Exists("a"));
}

TEST_F(FileSystemContract, DeleteFileRemoves) {
  Put("a", "x");
  EXPECT_TRUE(Delete("a"));
  EXPECT_FALSE(Exists("a"));
  Put("b", "x");
  Utils::String path(Path("b").c_str(), true);
  EXPECT_TRUE(FileSystem::DeleteFile(path, false, nullptr));
  EXPECT_FALSE(Exists("b"));
}

TEST_F(FileSystemContract, DeleteFileOfAMissingFileSucceeds) {
  Put("file", "");
  EXPECT_TRUE(Delete("missing"));
  EXPECT_TRUE(Delete("missing/a"));
  EXPECT_TRUE(Delete("file/a"));
}

TEST_F(FileSystemContract, DeleteFileLeavesAFolder) {
  ASSERT_TRUE(MakeFolder("folder"));
  EXPECT_FALSE(Delete("folder"));
  EXPECT_TRUE(FileSystem::DirectoryExists(Path("folder").c_str(), false));
}

TEST_F(FileSystemContract, DeleteFileThatIsNotConfirmedLeavesTheFile) {
  Put("a", "x");
  EXPECT_FALSE(FileSystem::DeleteFile(Path("a").c_str(), false, [](const char*) { return false; }));
  EXPECT_TRUE(Exists("a"));
  EXPECT_TRUE(FileSystem::DeleteFile(Path("a").c_str(), false, [](const char*) { return true; }));
  EXPECT_FALSE(Exists("a"));
}

TEST_F(FileSystemContract, MoveFileRenames) {
  Put("a", "content");
  EXPECT_TRUE(Move("a", "b"));
  EXPECT_EQ(Content("a"), "(missing)");
  EXPECT_EQ(Content("b"), "content");
}

TEST_F(FileSystemContract, MoveFileNeverReplaces) {
  Put("a", "new");
  Put("b", "old");
  ASSERT_TRUE(MakeFolder("folder"));
  EXPECT_FALSE(Move("a", "b"));
  EXPECT_FALSE(Move("a", "folder"));
  EXPECT_EQ(Content("a"), "new");
  EXPECT_EQ(Content("b"), "old");
}

TEST_F(FileSystemContract, MoveFileFailsWithoutSourceOrTargetFolder) {
  Put("a", "content");
  EXPECT_FALSE(Move("missing", "b"));
  EXPECT_FALSE(Move("a", "missing/b"));
  EXPECT_EQ(Content("a"), "content");
}

TEST_F(FileSystemContract, MoveFileGoesFromFolderToFolder) {
  Put("a", "content");
  ASSERT_TRUE(MakeFolder("folder"));
  EXPECT_TRUE(Move("a", "folder/b"));
  EXPECT_EQ(Content("a"), "(missing)");
  EXPECT_EQ(Content("folder/b"), "content");
}

struct Seen {
  std::vector<std::string> paths;
  std::vector<std::string> names;
  std::vector<u64> sizes;
  std::vector<std::string> folders;
  std::vector<OS::FileTimes> times;
  std::size_t stopAfter = 100;
};

bool Note(const char* path, const char* name, u64 size, bool isDirectory, OS::FileTimes& times, void* context) {
  auto* seen = static_cast<Seen*>(context);
  seen->paths.emplace_back(path);
  seen->names.emplace_back(name);
  if (isDirectory) {
    seen->folders.emplace_back(name);
  } else {
    seen->sizes.push_back(size);
    seen->times.push_back(times);
  }
  return seen->paths.size() < seen->stopAfter;
}

std::vector<std::string> Sorted(std::vector<std::string> texts) {
  std::sort(texts.begin(), texts.end());
  return texts;
}

class EnumerateContract : public FileSystemContract {
 protected:
  bool Enumerate(const std::string& folder, Seen& seen, bool recursive = false, bool withSizes = true,
                 bool withDirectories = true) {
    Utils::String path(folder.c_str(), true);
    return FileSystem::EnumerateFiles(path, recursive, &Note, &seen, withSizes, withDirectories, false);
  }
};

TEST_F(EnumerateContract, GivesFullPathNameAndKindOfEachEntry) {
  Put("b", "12");
  Put("a", "1");
  ASSERT_TRUE(MakeFolder("folder/inner"));
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder(), seen));
  EXPECT_THAT(Sorted(seen.names), ElementsAre("a", "b", "folder"));
  EXPECT_THAT(Sorted(seen.paths), ElementsAre(Path("a"), Path("b"), Path("folder")));
  EXPECT_THAT(seen.folders, ElementsAre("folder"));
}

TEST_F(EnumerateContract, GivesSizesAndTimes) {
  Put("a", "12345");
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder(), seen));
  ASSERT_THAT(seen.sizes, ElementsAre(5U));
  u64 now = OS::Time::GetEpochTime(nullptr);
  EXPECT_LE(seen.times[0].modified, now + 60000);
  EXPECT_GE(seen.times[0].modified + 60000, now);
  EXPECT_LE(seen.times[0].created, seen.times[0].modified);
  EXPECT_GT(seen.times[0].created, 0U);
  EXPECT_GT(seen.times[0].accessed, 0U);
}

TEST_F(EnumerateContract, WithoutSizesSizesAndTimesAreZero) {
  Put("a", "12345");
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder(), seen, false, false));
  EXPECT_THAT(seen.sizes, ElementsAre(0U));
  EXPECT_EQ(seen.times[0].modified, 0U);
}

TEST_F(EnumerateContract, WithoutDirectoriesOnlyFilesAreGiven) {
  Put("a", "");
  ASSERT_TRUE(MakeFolder("folder"));
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder(), seen, false, true, false));
  EXPECT_THAT(seen.names, ElementsAre("a"));
}

TEST_F(EnumerateContract, RecursiveWalkEntersFolders) {
  ASSERT_TRUE(MakeFolder("folder/inner"));
  Put("folder/inner/a", "");
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder(), seen, true));
  EXPECT_THAT(Sorted(seen.paths), ElementsAre(Path("folder"), Path("folder/inner"), Path("folder/inner/a")));
  Seen files;
  EXPECT_TRUE(Enumerate(machine_.Folder(), files, true, true, false));
  EXPECT_THAT(files.paths, ElementsAre(Path("folder/inner/a")));
}

TEST_F(EnumerateContract, SeparatorAtTheEndIsNotDoubled) {
  Put("a", "");
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder() + "/", seen));
  EXPECT_THAT(seen.paths, ElementsAre(Path("a")));
}

TEST_F(EnumerateContract, CallbackThatStopsMakesItFalse) {
  Put("a", "");
  Put("b", "");
  Seen seen;
  seen.stopAfter = 1;
  EXPECT_FALSE(Enumerate(machine_.Folder(), seen));
  EXPECT_EQ(seen.paths.size(), 1U);
}

TEST_F(EnumerateContract, CallbackThatStopsInAnInnerFolderMakesItFalse) {
  ASSERT_TRUE(MakeFolder("folder"));
  Put("folder/a", "");
  Seen seen;
  seen.stopAfter = 2;
  EXPECT_FALSE(Enumerate(machine_.Folder(), seen, true));
  EXPECT_EQ(seen.paths.size(), 2U);
}

TEST_F(EnumerateContract, EmptyFolderGivesNothing) {
  Seen seen;
  EXPECT_TRUE(Enumerate(machine_.Folder(), seen));
  EXPECT_THAT(seen.paths, IsEmpty());
}

TEST_F(EnumerateContract, WhatIsNoFolderFails) {
  Put("a", "");
  Seen seen;
  EXPECT_FALSE(Enumerate(Path("missing"), seen));
  EXPECT_FALSE(Enumerate(Path("a"), seen));
  EXPECT_FALSE(Enumerate("", seen));
  EXPECT_THAT(seen.paths, IsEmpty());
}

TEST_F(EnumerateContract, CallbackMayDeleteWhatItIsGiven) {
  Put("a", "");
  Put("b", "");
  Utils::String folder(machine_.Folder().c_str(), true);
  EXPECT_TRUE(FileSystem::EnumerateFiles(
      folder, false,
      [](const char* path, const char*, u64, bool, OS::FileTimes&, void*) {
        return FileSystem::DeleteFile(path, false, nullptr);
      },
      nullptr, true, true, false));
  EXPECT_FALSE(Exists("a"));
  EXPECT_FALSE(Exists("b"));
}

}  // namespace
