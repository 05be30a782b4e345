#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <vector>

#include "Machine.h"
#include "SystemCallFilter.h"
#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace Velmar;
using OS::File;
using OS::FileSystem;
using testing::ElementsAre;
using testing::ExitedWithCode;

class PosixFile : public MachineTest {};

// The contract tests of the same names run the ordinary way; these run with the kernel refusing a call.
class PosixFileDeathTest : public MachineTest {};

mode_t ModeOf(const std::string& path) {
  struct stat info = {};
  EXPECT_EQ(stat(path.c_str(), &info), 0);
  return info.st_mode & 07777;
}

TEST_F(PosixFile, OnlyTheOwnerMayUseWhatIsCreated) {
  mode_t old = umask(0);
  File file;
  EXPECT_TRUE(file.Create(Path("a").c_str(), false, true));
  EXPECT_TRUE(FileSystem::CreateDirectory(Path("outer/inner").c_str()));
  umask(old);
  EXPECT_EQ(ModeOf(Path("a")), 0600U);
  EXPECT_EQ(ModeOf(Path("outer")), 0700U);
  EXPECT_EQ(ModeOf(Path("outer/inner")), 0700U);
}

// Flags of each descriptor of this process that stands for `path`.
std::vector<int> DescriptorFlags(const std::string& path) {
  std::vector<int> flags;
  std::error_code failed;
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    auto link = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), failed);
    if (!failed && link == path) {
      flags.push_back(fcntl(descriptor, F_GETFD));
    }
  }
  return flags;
}

TEST_F(PosixFile, OpenFilesAreNotInherited) {
  File writer;
  File reader;
  ASSERT_TRUE(writer.Create(Path("a").c_str(), false, true));
  ASSERT_TRUE(reader.OpenRead(Path("a").c_str()));
  EXPECT_THAT(DescriptorFlags(Path("a")), ElementsAre(FD_CLOEXEC, FD_CLOEXEC));
}

TEST_F(PosixFile, CloseGivesTheDescriptorBack) {
  File file;
  ASSERT_TRUE(file.Create(Path("a").c_str(), false, true));
  EXPECT_TRUE(file.Close());
  EXPECT_THAT(DescriptorFlags(Path("a")), ElementsAre());
}

TEST_F(PosixFile, PipeIsNoFile) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  File file;
  EXPECT_FALSE(file.OpenRead(Path("pipe").c_str()));
  EXPECT_FALSE(file.Create(Path("pipe").c_str(), false, true)) << "nobody reads it";
  int reader = open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_FALSE(file.Create(Path("pipe").c_str(), false, true)) << "somebody reads it";
  EXPECT_THAT(DescriptorFlags(Path("pipe")), ElementsAre(FD_CLOEXEC)) << "the reader's alone";
  close(reader);
}

TEST_F(PosixFile, TimeBeforeTheEpochIsZero) {
  Put("a", "");
  const timespec times[] = {{-100000, 0}, {-100000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, Path("a").c_str(), times, 0), 0);
  auto note = [](const char*, const char*, u64, bool, OS::FileTimes& found, void* context) {
    *static_cast<OS::FileTimes*>(context) = found;
    return true;
  };
  OS::FileTimes found;
  found.modified = 77;
  Utils::String folder(machine_.Folder().c_str(), true);
  ASSERT_TRUE(FileSystem::EnumerateFiles(folder, false, note, &found, true, true, false));
  EXPECT_EQ(found.modified, 0U);
  EXPECT_EQ(found.accessed, 0U);
}

TEST_F(PosixFile, LinksAreFollowedExceptInAListing) {
  Put("a", "123");
  ASSERT_EQ(symlink(Path("a").c_str(), Path("link").c_str()), 0);
  ASSERT_EQ(symlink(Path("missing").c_str(), Path("dangling").c_str()), 0);
  EXPECT_TRUE(FileSystem::FileExists(Path("link").c_str(), false));
  EXPECT_FALSE(FileSystem::FileExists(Path("dangling").c_str(), false));
  EXPECT_TRUE(FileSystem::FileExists(Path("dangling").c_str(), true));
  EXPECT_EQ(File::GetFileSize(Path("link").c_str()), 3U);

  auto list = [this](bool withLinks) {
    std::vector<std::string> names;
    Utils::String folder(machine_.Folder().c_str(), true);
    auto note = [](const char*, const char* name, u64, bool, OS::FileTimes&, void* context) {
      static_cast<std::vector<std::string>*>(context)->emplace_back(name);
      return true;
    };
    EXPECT_TRUE(FileSystem::EnumerateFiles(folder, false, note, &names, true, true, withLinks));
    std::sort(names.begin(), names.end());
    return names;
  };
  EXPECT_THAT(list(false), ElementsAre("a"));
  EXPECT_THAT(list(true), ElementsAre("a", "link"));
}

TEST_F(PosixFile, FileSystemTellsNamesApartByCase) {
  Put("a", "lower");
  Put("A", "upper");
  EXPECT_TRUE(FileSystem::IsFileSystemCaseSensitive());
  EXPECT_EQ(Content("a"), "lower");
}

[[noreturn]] void Leave(bool asExpected) {
  _exit(asExpected ? 0 : 1);
}

TEST_F(PosixFileDeathTest, WriteThatFindsNoRoomTransfersAPartAndFails) {
  auto writeBeyondLimit = [this] {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {4096, 4096};
    std::string data(10000, 'x');
    File file;
    u32 done = 0;
    bool created = setrlimit(RLIMIT_FSIZE, &limit) == 0 && file.Create(Path("a").c_str(), false, true);
    bool written = file.Write(data.data(), static_cast<u32>(data.size()), &done);
    Leave(created && !written && done == 4096);
  };
  EXPECT_EXIT(writeBeyondLimit(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), std::string(4096, 'x'));
}

TEST_F(PosixFileDeathTest, CloseIsFalseWhenTheSyncFails) {
  auto closeWithoutSync = [this] {
    File file;
    File reader;
    bool open = file.Create(Path("a").c_str(), false, true) && file.Write("x", 1, nullptr) &&
                reader.OpenRead(Path("a").c_str()) && FailSystemCall(SYS_fsync, EIO);
    Leave(open && !file.Close() && DescriptorFlags(Path("a")).size() == 1 && reader.Close());
  };
  EXPECT_EXIT(closeWithoutSync(), ExitedWithCode(0), "");
}

TEST_F(PosixFileDeathTest, MoveFileIsTrueWithARecordWhenOnlyTheFolderSyncFails) {
  Put("a", "content");
  auto moveWithoutSync = [this] {
    LogCapture log;
    bool moved = FailSystemCall(SYS_fsync, EIO) && FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str());
    Leave(moved && log.Lines() == std::vector<std::string>{"3 base.FolderSyncFailed"} &&
          log.Arguments("base.FolderSyncFailed") == std::vector<std::string>{Path("b")});
  };
  EXPECT_EXIT(moveWithoutSync(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), "(missing)");
  EXPECT_EQ(Content("b"), "content");
}

TEST_F(PosixFileDeathTest, CreateDirectoryIsTrueWithARecordWhenOnlyTheFolderSyncFails) {
  auto makeWithoutSync = [this] {
    LogCapture log;
    bool made = FailSystemCall(SYS_fsync, EIO) && FileSystem::CreateDirectory(Path("outer/inner").c_str()) &&
                FileSystem::CreateDirectory(Path("outer/inner").c_str());
    // One record for each folder that was made, none for those that were there.
    Leave(made && log.Lines() == std::vector<std::string>(2, "3 base.FolderSyncFailed") &&
          log.Arguments("base.FolderSyncFailed") == std::vector<std::string>{Path("outer/inner")});
  };
  EXPECT_EXIT(makeWithoutSync(), ExitedWithCode(0), "");
  EXPECT_TRUE(FileSystem::DirectoryExists(Path("outer/inner").c_str(), false));
}

// Cut off between its steps, a link and an unlink would leave two names of one file.
TEST_F(PosixFileDeathTest, MoveFileWithoutExclusiveRenameMakesNoSecondName) {
  Put("a", "content");
  auto move = [this] {
    Leave(FailSystemCall(SYS_renameat2, EINVAL) && EndProcessOnSystemCall(SYS_link) &&
          FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  };
  EXPECT_EXIT(move(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), "(missing)");
  EXPECT_EQ(Content("b"), "content");
}

TEST_F(PosixFileDeathTest, MoveFileWorksWithoutExclusiveRename) {
  Put("a", "content");
  auto move = [this] {
    Leave(FailSystemCall(SYS_renameat2, EINVAL) && FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  };
  EXPECT_EXIT(move(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), "(missing)");
  EXPECT_EQ(Content("b"), "content");
}

TEST_F(PosixFileDeathTest, MoveFileWithoutExclusiveRenameNeverReplaces) {
  Put("a", "new");
  Put("b", "old");
  auto move = [this] {
    Leave(FailSystemCall(SYS_renameat2, EINVAL) && !FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  };
  EXPECT_EXIT(move(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), "new");
  EXPECT_EQ(Content("b"), "old");
}

TEST_F(PosixFileDeathTest, MoveFileFailsForAReasonThatIsNoMissingSupport) {
  Put("a", "content");
  auto move = [this] {
    Leave(FailSystemCall(SYS_renameat2, EACCES) && !FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  };
  EXPECT_EXIT(move(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), "content");
}

TEST_F(PosixFileDeathTest, DeleteFileIsFalseWhenTheFileStays) {
  Put("a", "content");
  auto remove = [this] {
    Leave(FailSystemCall(SYS_unlink, EACCES) && !FileSystem::DeleteFile(Path("a").c_str(), false, nullptr));
  };
  EXPECT_EXIT(remove(), ExitedWithCode(0), "");
  EXPECT_EQ(Content("a"), "content");
}

}  // namespace
