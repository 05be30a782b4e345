#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/History.h"
#include "tests/host/Program.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using testing::HasSubstr;

constexpr Host::u64 kDay = 1699920000;

class InspectCommandTest : public testing::Test {
 protected:
  InspectCommandTest() {
    PutHistory(folder_.Path(), {{kDay + 1, 1, 0, "/bin/a"}, {kDay + 2, 2}});
    file_ = folder_.Path("netdb/1699920000.db");
  }

  TemporaryFolder folder_;
  std::string file_;
};

TEST_F(InspectCommandTest, WholeFileIsDone) {
  const ProgramResult result = RunNetdb({"inspect", file_});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, HasSubstr("day           2023-11-14T00:00:00Z (1699920000)\n"));
  EXPECT_THAT(result.out,
              HasSubstr("\np      processes        1           1           0      131072  0x10000064  good"));
  EXPECT_THAT(result.out,
              HasSubstr("\n4      IPv4 rows        1           2           -      262144  0x10000400  good"));
}

TEST_F(InspectCommandTest, JsonIsOneObject) {
  const ProgramResult result = RunNetdb({"inspect", "--format", "json", file_});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.out, testing::StartsWith("{\"file\":\"" + file_ + "\",\"size\":"));
  EXPECT_THAT(result.out, testing::EndsWith("\"problems\":[]}\n"));
}

TEST_F(InspectCommandTest, DamagedFileIsPartial) {
  std::string bytes = TemporaryFolder::Get(file_);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  const ProgramResult result = RunNetdb({"inspect", folder_.Put("damaged", bytes)});
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_THAT(result.out, HasSubstr("damaged\n"));
  EXPECT_THAT(result.err, HasSubstr("index: the block's CRC is wrong"));
}

TEST_F(InspectCommandTest, FileThatIsNoStoreFails) {
  EXPECT_EQ(RunNetdb({"inspect", folder_.Put("text", std::string(100, 'x'))}).exitCode, 1);
  EXPECT_EQ(RunNetdb({"inspect", folder_.Put("empty", "")}).exitCode, 1);
}

TEST_F(InspectCommandTest, MissingFileAndFolderFail) {
  const ProgramResult missing = RunNetdb({"inspect", folder_.Path("nothing")});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "netdb: cannot read " + folder_.Path("nothing") + ": No such file or directory\n");
  const ProgramResult directory = RunNetdb({"inspect", folder_.Path()});
  EXPECT_EQ(directory.exitCode, 1);
  EXPECT_THAT(directory.err, HasSubstr("Is a directory"));
}

}  // namespace
