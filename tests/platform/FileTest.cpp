#include "Velmar/OS/File.h"

#include <gtest/gtest.h>

#include "Machine.h"
#include "Velmar/OS/FileSystem.h"

namespace {

using namespace Velmar;
using OS::File;
using OS::FileSystem;

constexpr u32 kUntouched = 77;

class FileContract : public MachineTest {
 protected:
  // Leaves `file` open for writing behind `content`.
  void CreateWith(File& file, const std::string& name, const std::string& content) {
    ASSERT_TRUE(file.Create(Path(name).c_str(), false, true));
    ASSERT_TRUE(file.Write(content.data(), static_cast<u32>(content.size()), nullptr));
  }
};

TEST_F(FileContract, WrittenBytesAreReadBack) {
  File file;
  CreateWith(file, "a", "hello ");
  u32 done = kUntouched;
  EXPECT_TRUE(file.Write("world", 5, &done));
  EXPECT_EQ(done, 5U);
  EXPECT_EQ(file.Tell(), 11U);
  EXPECT_TRUE(file.Close());

  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  char data[11];
  EXPECT_TRUE(file.Read(data, sizeof(data), &done));
  EXPECT_EQ(done, 11U);
  EXPECT_EQ(std::string(data, sizeof(data)), "hello world");
  EXPECT_TRUE(file.Close());
}

TEST_F(FileContract, CreateTruncatesAnOldFile) {
  Put("a", "a long old content");
  File file;
  CreateWith(file, "a", "new");
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "new");
}

TEST_F(FileContract, CreateWithoutTruncateKeepsTheRest) {
  Put("a", "0123456789");
  File file;
  ASSERT_TRUE(file.Create(Path("a").c_str(), false, false));
  EXPECT_TRUE(file.Write("ab", 2, nullptr));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "ab23456789");
}

TEST_F(FileContract, AppendWritesBehindTheEnd) {
  Put("a", "0123");
  File file;
  ASSERT_TRUE(file.Create(Path("a").c_str(), true, false));
  EXPECT_TRUE(file.Write("45", 2, nullptr));
  EXPECT_TRUE(file.Seek(0));
  EXPECT_TRUE(file.Write("67", 2, nullptr));
  EXPECT_EQ(file.Tell(), 8U);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "01234567");
}

TEST_F(FileContract, CreateFailsWithoutAFolder) {
  File file;
  EXPECT_FALSE(file.Create(Path("missing/a").c_str(), false, true));
  EXPECT_FALSE(file.Write("x", 1, nullptr));
}

TEST_F(FileContract, FolderIsNoFile) {
  File file;
  EXPECT_FALSE(file.Create(machine_.Folder().c_str(), false, true));
  EXPECT_FALSE(file.OpenRead(machine_.Folder().c_str()));
  EXPECT_EQ(File::GetFileSize(machine_.Folder().c_str()), 0U);
}

TEST_F(FileContract, OpenReadFailsOnMissingFile) {
  File file;
  EXPECT_FALSE(file.OpenRead(Path("a").c_str()));
  EXPECT_EQ(Content("a"), "(missing)");
}

TEST_F(FileContract, NullPathFails) {
  File file;
  EXPECT_FALSE(file.Create(nullptr, false, true));
  EXPECT_FALSE(file.OpenRead(nullptr));
  EXPECT_EQ(File::GetFileSize(nullptr), 0U);
}

TEST_F(FileContract, ReadPastTheEndFailsAndTellsWhatItGot) {
  Put("a", "abc");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  char data[4] = {};
  u32 done = kUntouched;
  EXPECT_FALSE(file.Read(data, sizeof(data), &done));
  EXPECT_EQ(done, 3U);
  EXPECT_STREQ(data, "abc");
  EXPECT_FALSE(file.Read(data, 1, &done));
  EXPECT_EQ(done, 0U);
}

TEST_F(FileContract, NoBytesAreTransferredAtTheEnd) {
  Put("a", "");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  u32 done = kUntouched;
  EXPECT_TRUE(file.Read(nullptr, 0, &done));
  EXPECT_EQ(done, 0U);
}

TEST_F(FileContract, SeekMovesReading) {
  Put("a", "0123456789");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  EXPECT_EQ(file.Tell(), 0U);
  EXPECT_TRUE(file.Seek(7));
  EXPECT_EQ(file.Tell(), 7U);
  char digit = 0;
  EXPECT_TRUE(file.Read(&digit, 1, nullptr));
  EXPECT_EQ(digit, '7');
  EXPECT_TRUE(file.Seek(100));
  EXPECT_FALSE(file.Read(&digit, 1, nullptr));
}

TEST_F(FileContract, SeekOutsideTheSignedRangeFails) {
  Put("a", "0123456789");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  EXPECT_TRUE(file.Seek(3));
  EXPECT_FALSE(file.Seek(~u64{0}));
  EXPECT_EQ(file.Tell(), 3U);
}

TEST_F(FileContract, SeekBackOverwritesInPlace) {
  File file;
  CreateWith(file, "a", "....456789");
  EXPECT_TRUE(file.Seek(0));
  EXPECT_TRUE(file.Write("0123", 4, nullptr));
  EXPECT_EQ(file.Tell(), 4U);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "0123456789");
}

TEST_F(FileContract, WriteBehindTheEndLeavesZeroes) {
  File file;
  CreateWith(file, "a", "ab");
  EXPECT_TRUE(file.Seek(4));
  EXPECT_TRUE(file.Write("c", 1, nullptr));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), std::string("ab\0\0c", 5));
}

TEST_F(FileContract, HandleWorksInItsOwnDirectionOnly) {
  File file;
  CreateWith(file, "a", "abc");
  EXPECT_TRUE(file.Seek(0));
  char data = 0;
  u32 done = kUntouched;
  EXPECT_FALSE(file.Read(&data, 1, &done));
  EXPECT_EQ(done, 0U);

  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  done = kUntouched;
  EXPECT_FALSE(file.Write("x", 1, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "abc");
}

TEST_F(FileContract, ClosedFileRefusesEverythingButClose) {
  File file;
  CreateWith(file, "a", "abc");
  EXPECT_TRUE(file.Close());
  EXPECT_TRUE(file.Close());
  char data = 0;
  u32 done = kUntouched;
  EXPECT_FALSE(file.Read(&data, 1, &done));
  EXPECT_EQ(done, 0U);
  done = kUntouched;
  EXPECT_FALSE(file.Write(&data, 1, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_FALSE(file.Seek(0));
  EXPECT_EQ(file.Tell(), ~u64{0});
}

TEST_F(FileContract, OpeningAgainClosesFirst) {
  File file;
  CreateWith(file, "a", "first");
  CreateWith(file, "b", "second");
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "first");
  EXPECT_EQ(Content("b"), "second");
}

TEST_F(FileContract, DestructorCloses) {
  {
    File file;
    CreateWith(file, "a", "kept");
  }
  EXPECT_EQ(Content("a"), "kept");
  EXPECT_TRUE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
}

TEST_F(FileContract, ReadHandleBlocksNeitherRenameNorDelete) {
  Put("a", "abc");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  EXPECT_TRUE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  EXPECT_TRUE(FileSystem::DeleteFile(Path("b").c_str(), false, nullptr));
  char data[3];
  EXPECT_TRUE(file.Read(data, sizeof(data), nullptr));
  EXPECT_EQ(std::string(data, sizeof(data)), "abc");
}

TEST_F(FileContract, GetFileSizeCountsBytes) {
  Put("a", "0123456789");
  EXPECT_EQ(File::GetFileSize(Path("a").c_str()), 10U);
  EXPECT_EQ(File::GetFileSize(Path("missing").c_str()), 0U);
}

}  // namespace
