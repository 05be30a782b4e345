#include "host/agent/StatisticsState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using Velmar::Collections::Array;
using Velmar::Utils::TreeContainer;

constexpr char kFile[] = "netdb-statistics.json";
constexpr char kRequests[] = "total_requests_v4";
constexpr char kSuccesses[] = "total_successful_requests_v4";

void Count(StatisticsState& state, u32 requests, u32 successes) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(8, 8, true, 8));
  tree.AddUInt32(TreeContainer::kRoot, kRequests, requests, false);
  tree.AddUInt32(TreeContainer::kRoot, kSuccesses, successes, false);
  state.Add(tree);
}

struct Sums {
  u32 trees = 0;
  u32 requests = 0;
  u32 successes = 0;
  bool operator==(const Sums& other) const {
    return trees == other.trees && requests == other.requests && successes == other.successes;
  }
};

// As the module adds them up.
Sums SumsOf(const StatisticsState& state) {
  Array<TreeContainer> history;
  EXPECT_TRUE(state.FillHistory(history));
  Sums sums;
  for (u32 i = 0; i < history.count; ++i) {
    ++sums.trees;
    sums.requests += history.data[i].GetNodeValueUInt32(TreeContainer::kRoot, kRequests, 0, nullptr);
    sums.successes += history.data[i].GetNodeValueUInt32(TreeContainer::kRoot, kSuccesses, 0, nullptr);
  }
  return sums;
}

TEST(StatisticsState, NothingIsKnownAtFirst) {
  const TemporaryFolder folder;
  StatisticsState state(folder.Path());
  std::string error;
  EXPECT_TRUE(state.Load(error));
  EXPECT_EQ(SumsOf(state), Sums{});
  EXPECT_TRUE(state.Store(error));
  EXPECT_FALSE(std::filesystem::exists(folder.Path(kFile)));
}

TEST(StatisticsState, CountersOutliveTheProcess) {
  const TemporaryFolder folder;
  std::string error;
  {
    StatisticsState state(folder.Path());
    Count(state, 5, 3);
    Count(state, 2, 2);
    ASSERT_TRUE(state.Store(error)) << error;
  }
  StatisticsState state(folder.Path());
  ASSERT_TRUE(state.Load(error)) << error;
  EXPECT_EQ(SumsOf(state), (Sums{2, 7, 5}));
}

TEST(StatisticsState, FileIsForTheOwnerOnlyAndAlone) {
  const TemporaryFolder folder;
  StatisticsState state(folder.Path());
  Count(state, 1, 1);
  std::string error;
  ASSERT_TRUE(state.Store(error)) << error;
  struct stat status = {};
  ASSERT_EQ(stat(folder.Path(kFile).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
  EXPECT_FALSE(std::filesystem::exists(folder.Path(std::string(kFile) + ".temp")));
}

TEST(StatisticsState, TreeWithoutCountsChangesNothing) {
  const TemporaryFolder folder;
  StatisticsState state(folder.Path());
  Count(state, 0, 0);
  std::string error;
  EXPECT_TRUE(state.Store(error));
  EXPECT_EQ(SumsOf(state), Sums{});
  EXPECT_FALSE(std::filesystem::exists(folder.Path(kFile)));
}

TEST(StatisticsState, OldTreesAreAddedUpWithWrap) {
  const TemporaryFolder folder;
  StatisticsState state(folder.Path());
  Count(state, 0xFFFFFFFF, 1);
  Count(state, 3, 0xFFFFFFFF);
  for (std::size_t i = 0; i < StatisticsState::kMaxTrees + 100; ++i) {
    Count(state, 10, 1);
  }
  const u32 many = static_cast<u32>(StatisticsState::kMaxTrees) + 100;
  EXPECT_EQ(SumsOf(state), (Sums{static_cast<u32>(StatisticsState::kMaxTrees), 2 + 10 * many, many}));
}

TEST(StatisticsState, OnlyWholeNumbersWithPlainNamesAreKept) {
  const TemporaryFolder folder;
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(8, 8, true, 8));
  tree.AddString(TreeContainer::kRoot, "text", "5", 1, false);
  tree.AddUInt64(TreeContainer::kRoot, "large", u64{1} << 32, false);
  tree.AddUInt32(TreeContainer::kRoot, "na\"me", 5, false);
  tree.AddUInt32(TreeContainer::kRoot, kRequests, 5, false);
  StatisticsState state(folder.Path());
  state.Add(tree);
  std::string error;
  ASSERT_TRUE(state.Store(error)) << error;
  EXPECT_EQ(TemporaryFolder::Get(folder.Path(kFile)), "{\"trees\":[{\"total_requests_v4\":5}],\"version\":1}\n");
}

TEST(StatisticsState, DamagedFileIsReportedAndStartedAnew) {
  const std::string tree = "{\"version\":1,\"trees\":[{\"total_requests_v4\":5}]}";
  std::vector<std::string> damaged = {
      "",
      "[]",
      "nonsense",
      std::string(StatisticsState::kMaxFileSize + 1, ' '),
      "{\"version\":2,\"trees\":[]}",
      "{\"version\":1}",
      "{\"version\":1,\"trees\":{}}",
      "{\"version\":1,\"trees\":[5]}",
      "{\"version\":1,\"trees\":[{\"total_requests_v4\":-1}]}",
      "{\"version\":1,\"trees\":[{\"total_requests_v4\":4294967296}]}",
      "{\"version\":1,\"trees\":[{\"total_requests_v4\":\"5\"}]}",
      "{\"version\":1,\"trees\":[{\"a b\":5}]}",
  };
  for (std::size_t size = 1; size < tree.size(); ++size) {
    damaged.push_back(tree.substr(0, size));
  }
  for (const std::string& text : damaged) {
    const TemporaryFolder folder;
    folder.Put(kFile, text);
    StatisticsState state(folder.Path());
    std::string error;
    EXPECT_FALSE(state.Load(error)) << text;
    EXPECT_THAT(error, testing::HasSubstr("is damaged; counting starts anew"));
    EXPECT_EQ(SumsOf(state), Sums{});
    Count(state, 2, 1);
    EXPECT_TRUE(state.Store(error));
    StatisticsState next(folder.Path());
    EXPECT_TRUE(next.Load(error)) << error;
    EXPECT_EQ(SumsOf(next), (Sums{1, 2, 1}));
  }
}

TEST(StatisticsState, LargestStateFitsTheFile) {
  const TemporaryFolder folder;
  StatisticsState state(folder.Path());
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(64, 8, true, 8));
  for (u32 i = 0; i < 20; ++i) {
    const std::string name = std::string(62, 'n') + std::to_string(10 + i);
    tree.AddUInt32(TreeContainer::kRoot, {name.c_str(), 64}, 0xFFFFFFFF, false);
  }
  for (std::size_t i = 0; i < StatisticsState::kMaxTrees + 5; ++i) {
    state.Add(tree);
  }
  std::string error;
  ASSERT_TRUE(state.Store(error)) << error;
  StatisticsState next(folder.Path());
  EXPECT_TRUE(next.Load(error)) << error;
  EXPECT_EQ(SumsOf(next).trees, StatisticsState::kMaxTrees);
}

TEST(StatisticsState, FailedWriteKeepsTheOldFileAndTheCounters) {
  const TemporaryFolder folder;
  std::string error;
  StatisticsState state(folder.Path());
  Count(state, 5, 3);
  ASSERT_TRUE(state.Store(error)) << error;
  const std::string before = TemporaryFolder::Get(folder.Path(kFile));
  std::filesystem::create_directory(folder.Path(std::string(kFile) + ".temp"));
  Count(state, 1, 1);
  EXPECT_FALSE(state.Store(error));
  EXPECT_THAT(error, testing::HasSubstr("cannot write " + folder.Path(kFile)));
  EXPECT_EQ(TemporaryFolder::Get(folder.Path(kFile)), before);
  std::filesystem::remove(folder.Path(std::string(kFile) + ".temp"));
  EXPECT_TRUE(state.Store(error));
  StatisticsState next(folder.Path());
  EXPECT_TRUE(next.Load(error)) << error;
  EXPECT_EQ(SumsOf(next), (Sums{2, 6, 4}));
}

TEST(StatisticsState, WhatHasTheNameOfTheTemporaryFileIsReplaced) {
  const TemporaryFolder folder;
  const std::string temporary = folder.Path(std::string(kFile) + ".temp");
  const std::string other = folder.Put("other", "of somebody else");
  std::string error;
  StatisticsState state(folder.Path());
  ASSERT_EQ(mkfifo(temporary.c_str(), 0600), 0);  // whose open would wait for a reader
  Count(state, 5, 3);
  EXPECT_TRUE(state.Store(error)) << error;
  std::filesystem::create_symlink(other, temporary);
  Count(state, 1, 1);
  EXPECT_TRUE(state.Store(error)) << error;
  std::filesystem::create_hard_link(other, temporary);
  Count(state, 1, 0);
  EXPECT_TRUE(state.Store(error)) << error;
  EXPECT_EQ(TemporaryFolder::Get(other), "of somebody else");
  StatisticsState next(folder.Path());
  EXPECT_TRUE(next.Load(error)) << error;
  EXPECT_EQ(SumsOf(next), (Sums{3, 7, 4}));
}

TEST(StatisticsState, LinkInItsPlaceIsNotFollowed) {
  const TemporaryFolder folder;
  const std::string target = folder.Put("elsewhere", "{\"version\":1,\"trees\":[]}");
  std::filesystem::create_symlink(target, folder.Path(kFile));
  StatisticsState state(folder.Path());
  std::string error;
  EXPECT_FALSE(state.Load(error));
  EXPECT_THAT(error, testing::HasSubstr("cannot read"));
}

}  // namespace
