// SortedMergeVisit against sorted keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace Velmar;
using namespace Velmar::Collections;
using Strings = std::vector<std::string>;

struct Item {
  u32 key = 0;
  u32 row = 0;
};

int Compare(const Item& item, u32 key) {
  return item.key < key ? -1 : (item.key > key ? 1 : 0);
}

class SortedMergeVisitTest : public testing::Test {
 protected:
  // Item keys and wanted keys, both ascending.
  void Fill(const std::vector<u32>& itemKeys, const std::vector<u32>& wantedKeys) {
    ASSERT_TRUE(items_.Create(0, 4096, 64, false, GrowType::kFixedStep));
    ASSERT_TRUE(wanted_.Create(0, 4096, 64, false, GrowType::kFixedStep));
    for (u32 i = 0; i < itemKeys.size(); ++i) {
      ASSERT_TRUE(items_.Add(Item{itemKeys[i], i}));
    }
    for (const u32 key : wantedKeys) {
      ASSERT_TRUE(wanted_.Add(key));
    }
  }

  bool Walk() {
    visited_.clear();
    compared_ = 0;
    return SortedMergeVisit(
        items_, wanted_,
        [this](const Item& item, u32 key) {
          ++compared_;
          return Compare(item, key);
        },
        [this](const Item& item, u32 key) {
          EXPECT_EQ(item.key, key);
          visited_.push_back(item.row);
          return visited_.size() != stopAfter_;
        });
  }

  Array<Item> items_;
  Array<u32> wanted_;
  std::vector<u32> visited_;
  u32 compared_ = 0;
  std::size_t stopAfter_ = 0;
};

TEST_F(SortedMergeVisitTest, NothingToWalkIsTrue) {
  Fill({}, {1, 2});
  EXPECT_TRUE(Walk());
  EXPECT_EQ(compared_, 0U);
  Fill({1, 2}, {});
  LogCapture log;
  EXPECT_TRUE(Walk());
  EXPECT_EQ(compared_, 0U);
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(SortedMergeVisitTest, AllRowsOfAllWantedKeysAreVisitedInOrder) {
  Fill({1, 3, 3, 3, 5, 7, 7, 9}, {2, 3, 7, 8});
  EXPECT_TRUE(Walk());
  EXPECT_EQ(visited_, (std::vector<u32>{1, 2, 3, 5, 6}));
}

TEST_F(SortedMergeVisitTest, DuplicateWantedKeyVisitsItsRowsOnce) {
  Fill({1, 3, 3, 5}, {3, 3});
  EXPECT_TRUE(Walk());
  EXPECT_EQ(visited_, (std::vector<u32>{1, 2}));
}

TEST_F(SortedMergeVisitTest, WantedAboveAllRowsVisitsNothing) {
  Fill({1, 3, 5}, {6});
  EXPECT_TRUE(Walk());
  EXPECT_TRUE(visited_.empty());
}

TEST_F(SortedMergeVisitTest, WantedBelowAllRowsVisitsNothing) {
  Fill({4, 5}, {1, 2});
  EXPECT_TRUE(Walk());
  EXPECT_TRUE(visited_.empty());
}

TEST_F(SortedMergeVisitTest, RunThatStartsAtRowZeroIsWhole) {
  Fill({3, 3, 3, 3, 3}, {3});
  EXPECT_TRUE(Walk());
  EXPECT_EQ(visited_, (std::vector<u32>{0, 1, 2, 3, 4}));
}

TEST_F(SortedMergeVisitTest, StartIsTheRowBelowTheFirstWantedKey) {
  Fill({1, 2, 3, 3, 3, 4, 5}, {3});
  LogCapture log;
  EXPECT_TRUE(Walk());
  EXPECT_EQ(log.Arguments("velmar.MergeVisitStarts"), Strings{"1"});
  EXPECT_EQ(log.Lines(1), (Strings{"1 velmar.MergeVisitStarts", "1 velmar.MergeVisitMatches",
                                   "1 velmar.MergeVisitMatches", "1 velmar.MergeVisitMatches"}));
  EXPECT_EQ(log.Arguments("velmar.MergeVisitMatches"), (Strings{"4", "0"}));
}

TEST_F(SortedMergeVisitTest, VisitThatEndsTheWalkIsFalse) {
  Fill({1, 3, 3, 5}, {3, 5});
  stopAfter_ = 2;
  LogCapture log;
  EXPECT_FALSE(Walk());
  EXPECT_EQ(visited_, (std::vector<u32>{1, 2}));
  EXPECT_EQ(log.Lines(), Strings{"5 velmar.MergeVisitEnded"});
  EXPECT_EQ(log.Arguments("velmar.MergeVisitEnded"), (Strings{"2", "0"}));
}

TEST_F(SortedMergeVisitTest, RandomArraysGiveWhatASimpleWalkGives) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    std::vector<u32> itemKeys(random() % 40);
    std::vector<u32> wantedKeys(random() % 12);
    for (auto* keys : {&itemKeys, &wantedKeys}) {
      for (u32& key : *keys) {
        key = static_cast<u32>(random() % 30);
      }
      std::sort(keys->begin(), keys->end());
    }
    std::vector<u32> expected;
    for (u32 i = 0; i < itemKeys.size(); ++i) {
      if (std::binary_search(wantedKeys.begin(), wantedKeys.end(), itemKeys[i])) {
        expected.push_back(i);
      }
    }
    Fill(itemKeys, wantedKeys);
    EXPECT_TRUE(Walk());
    EXPECT_EQ(visited_, expected) << "round " << round;
  }
}

TEST_F(SortedMergeVisitTest, OnePassAndOneSearchAreEnough) {
  std::vector<u32> itemKeys(1000);
  for (u32 i = 0; i < 1000; ++i) {
    itemKeys[i] = i * 2;
  }
  Fill(itemKeys, {1900, 1950, 1998});
  EXPECT_TRUE(Walk());
  EXPECT_EQ(visited_, (std::vector<u32>{950, 975, 999}));
  EXPECT_LT(compared_, 80U) << "the walk starts at the first wanted key, not at row 0";
}

}  // namespace
