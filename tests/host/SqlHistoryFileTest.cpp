#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "host/sql/HistoryFile.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using Host::Sql::HistoryFile;
using testing::ElementsAre;
using testing::IsEmpty;

unsigned ModeOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 0777U;
}

TEST(SqlHistoryFile, LiesInTheStateFolder) {
  setenv("HOME", "/home/ann", 1);
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(HistoryFile::UsualPath(), "/home/ann/.local/state/netdb/sql_history");
  setenv("XDG_STATE_HOME", "/state", 1);
  EXPECT_EQ(HistoryFile::UsualPath(), "/state/netdb/sql_history");
  setenv("XDG_STATE_HOME", "state", 1);  // no absolute path
  EXPECT_EQ(HistoryFile::UsualPath(), "/home/ann/.local/state/netdb/sql_history");
  unsetenv("HOME");
  EXPECT_EQ(HistoryFile::UsualPath(), "");
}

TEST(SqlHistoryFile, EntriesComeBackAsTheyWere) {
  const TemporaryFolder folder;
  HistoryFile file(folder.Path("h"));
  EXPECT_THAT(file.Open(), IsEmpty());
  const std::vector<std::string> entries = {"SELECT 1;", "SELECT\n  'a\\n\\\\';", "\\", "gr\xC3\xBC\xC3\x9F\xFF"};
  for (const std::string& entry : entries) {
    file.Add(entry);
  }
  EXPECT_EQ(HistoryFile(folder.Path("h")).Open(), entries);
}

TEST(SqlHistoryFile, FileAndItsFoldersAreTheUsersAlone) {
  const TemporaryFolder folder;
  HistoryFile(folder.Path("state/netdb/sql_history")).Open();
  EXPECT_EQ(ModeOf(folder.Path("state")), 0700U);
  EXPECT_EQ(ModeOf(folder.Path("state/netdb")), 0700U);
  EXPECT_EQ(ModeOf(folder.Path("state/netdb/sql_history")), 0600U);
}

TEST(SqlHistoryFile, FileThatOthersMayReadIsClosedToThem) {
  const TemporaryFolder folder;
  folder.Put("h", "SELECT 1;\n");
  chmod(folder.Path("h").c_str(), 0644);
  EXPECT_THAT(HistoryFile(folder.Path("h")).Open(), ElementsAre("SELECT 1;"));
  EXPECT_EQ(ModeOf(folder.Path("h")), 0600U);
}

TEST(SqlHistoryFile, TwoThatWriteBesideEachOtherLoseNothing) {
  const TemporaryFolder folder;
  HistoryFile one(folder.Path("h"));
  HistoryFile other(folder.Path("h"));
  one.Open();
  other.Open();
  one.Add("1");
  other.Add("2");
  one.Add("3");
  EXPECT_THAT(HistoryFile(folder.Path("h")).Open(), ElementsAre("1", "2", "3"));
}

TEST(SqlHistoryFile, LongFileGivesItsEndAndIsCutWhenTwiceAsLong) {
  const TemporaryFolder folder;
  std::string text;
  const auto linesAfterOpen = [&folder](const std::string& content) {
    folder.Put("h", content);
    const auto entries = HistoryFile(folder.Path("h")).Open();
    EXPECT_EQ(entries.size(), HistoryFile::kMostEntries);
    EXPECT_EQ(entries.back(), "last");
    const std::string left = TemporaryFolder::Get(folder.Path("h"));
    return static_cast<std::size_t>(std::count(left.begin(), left.end(), '\n'));
  };
  for (std::size_t i = 1; i < 2 * HistoryFile::kMostEntries; ++i) {
    text += std::to_string(i) + "\n";
  }
  EXPECT_EQ(linesAfterOpen(text + "last\n"), 2 * HistoryFile::kMostEntries);
  EXPECT_EQ(linesAfterOpen("0\n" + text + "last\n"), HistoryFile::kMostEntries);
  EXPECT_EQ(ModeOf(folder.Path("h")), 0600U);
}

TEST(SqlHistoryFile, WhatIsNoFileOrHasNoFolderKeepsNothing) {
  const TemporaryFolder folder;
  folder.Put("file", "");
  std::filesystem::create_directory(folder.Path("folder"));
  ASSERT_EQ(mkfifo(folder.Path("pipe").c_str(), 0600), 0);
  for (const std::string& path : {std::string(), folder.Path("file/below/h"), folder.Path("folder"),
                                  folder.Path("pipe"), std::string("/dev/full")}) {
    HistoryFile file(path);
    EXPECT_THAT(file.Open(), IsEmpty()) << path;
    file.Add("SELECT 1;");
    EXPECT_THAT(file.Open(), IsEmpty()) << path;
  }
}

}  // namespace
