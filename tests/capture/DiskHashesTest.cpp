// Digests of files on disk.
#include "host/agent/DiskHashes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Velmar/Utils/String.h"

namespace {

namespace fs = std::filesystem;

class DiskHashesTest : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/hashes-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { fs::remove_all(folder_); }

  void Write(const std::string& text) const { std::ofstream(folder_ / "program") << text; }

  // Hex of the MD5 and the second digest, "(none)" when there is no answer.
  std::string Digests(const fs::path& path) {
    RYL::Module::FileHashBlock block{};
    if (!hashes_.GetFileHashes(path.c_str(), &block, RYL::Module::kDefaultFileHashes)) {
      return "(none)";
    }
    char md5[33];
    char qid[65];
    Velmar::Utils::String::BufferToHex(block.md5, 16, md5, sizeof(md5), false, false);
    Velmar::Utils::String::BufferToHex(block.qid, 32, qid, sizeof(qid), false, false);
    return std::string(md5) + " " + qid;
  }

  fs::path folder_;
  Host::DiskHashes hashes_;
};

// Digests of "abc" from RFC 1321 and FIPS 180-4.
constexpr char kAbc[] =
    "900150983cd24fb0d6963f7d28e17f72 ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kEmpty[] =
    "d41d8cd98f00b204e9800998ecf8427e e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

TEST_F(DiskHashesTest, KnownContentsGivePublishedDigests) {
  Write("abc");
  EXPECT_EQ(Digests(folder_ / "program"), kAbc);
  EXPECT_EQ(Digests(folder_ / "program"), kAbc) << "a second question is answered from memory";
}

TEST_F(DiskHashesTest, ChangedFileIsReadAgain) {
  Write("abc");
  EXPECT_EQ(Digests(folder_ / "program"), kAbc);
  Write("");
  EXPECT_EQ(Digests(folder_ / "program"), kEmpty);
}

TEST_F(DiskHashesTest, MissingFileFolderAndPipeHaveNoDigests) {
  EXPECT_EQ(Digests(folder_ / "missing"), "(none)");
  EXPECT_EQ(Digests(folder_), "(none)");
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(Digests(folder_ / "pipe"), "(none)");
}

}  // namespace
