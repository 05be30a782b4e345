#include "RYL/Events/GenericEventHolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/base/FailingAllocations.h"

using RYL::Events::GenericEventHolder;
using Velmar::u32;
using Velmar::u8;

namespace {

std::string Content(const GenericEventHolder& holder) {
  return {reinterpret_cast<const char*>(holder.GetData()), holder.GetSize()};
}

TEST(GenericEventHolder, StartsEmpty) {
  u8 area[8];
  const GenericEventHolder holder(area, sizeof(area));
  EXPECT_EQ(holder.GetData(), nullptr);
  EXPECT_EQ(holder.GetSize(), 0U);
}

TEST(GenericEventHolder, RecordThatFitsLiesInTheArea) {
  u8 area[8];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(holder.Set("12345678", 8));
  EXPECT_EQ(holder.GetData(), area);
  EXPECT_EQ(Content(holder), "12345678");
}

TEST(GenericEventHolder, RecordThatIsLargerLiesOnTheHeap) {
  u8 area[8];
  GenericEventHolder holder(area, sizeof(area));
  const std::string record(9000, 'r');
  ASSERT_TRUE(holder.Set(record.data(), 9000));
  EXPECT_NE(holder.GetData(), area);
  EXPECT_EQ(Content(holder), record);
}

TEST(GenericEventHolder, LatestRecordReplacesTheOneBefore) {
  u8 area[8];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(holder.Set("a record that is larger", 23));
  ASSERT_TRUE(holder.Set("another that is larger still", 28));
  EXPECT_EQ(Content(holder), "another that is larger still");
  ASSERT_TRUE(holder.Set("small", 5));
  EXPECT_EQ(holder.GetData(), area);
  EXPECT_EQ(Content(holder), "small");
}

TEST(GenericEventHolder, TakesAPartOfWhatItHolds) {
  u8 area[8];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(holder.Set("a record that is larger", 23));
  ASSERT_TRUE(holder.Set(holder.GetData() + 2, 6));
  EXPECT_EQ(Content(holder), "record");
  ASSERT_TRUE(holder.Set(holder.GetData() + 2, 4));
  EXPECT_EQ(Content(holder), "cord");
}

TEST(GenericEventHolder, RecordOfNoBytesIsEmpty) {
  u8 area[8];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(holder.Set("x", 1));
  EXPECT_TRUE(holder.Set(nullptr, 0));
  EXPECT_EQ(holder.GetData(), nullptr);
}

TEST(GenericEventHolder, NullRecordLeavesItEmpty) {
  u8 area[8];
  GenericEventHolder holder(area, sizeof(area));
  ASSERT_TRUE(holder.Set("x", 1));
  EXPECT_FALSE(holder.Set(nullptr, 4));
  EXPECT_EQ(holder.GetData(), nullptr);
  EXPECT_FALSE(holder.Set(nullptr, 400));
  EXPECT_EQ(holder.GetSize(), 0U);
}

TEST(GenericEventHolder, WorksWithoutAnArea) {
  GenericEventHolder holder(nullptr, 512);
  ASSERT_TRUE(holder.Set("x", 1));
  EXPECT_EQ(Content(holder), "x");
}

TEST(GenericEventHolder, ExhaustionLeavesItEmpty) {
  EXPECT_EQ(ForEachFailingAllocation([] {
              u8 area[8];
              GenericEventHolder holder(area, sizeof(area));
              holder.Set("x", 1);
              const bool done = holder.Set("a record that is larger", 23);
              EXPECT_EQ(holder.GetSize(), done ? 23U : 0U);
              EXPECT_EQ(holder.GetData() == nullptr, !done);
              return done;
            }),
            1);
}

}  // namespace
