#include "Velmar/Collections/Growth.h"

#include <gtest/gtest.h>

using Velmar::u32;
using Velmar::Collections::GrowType;
using Velmar::Internal::CalculateCollectionGrowth;

namespace {

constexpr u32 kMax = 0xFFFFFFFF;

TEST(CollectionGrowth, FixedStepAddsTheStep) {
  EXPECT_EQ(CalculateCollectionGrowth(10, 5, GrowType::kFixedStep, 100), 15U);
  EXPECT_EQ(CalculateCollectionGrowth(0, 5, GrowType::kFixedStep, 100), 5U);
  EXPECT_EQ(CalculateCollectionGrowth(10, 0, GrowType::kFixedStep, 100), 10U);
}

TEST(CollectionGrowth, PercentRoundsDownButGrowsByOne) {
  EXPECT_EQ(CalculateCollectionGrowth(200, 50, GrowType::kPercent, 1000), 300U);
  EXPECT_EQ(CalculateCollectionGrowth(8192, 100, GrowType::kPercent, 26214400), 16384U);
  EXPECT_EQ(CalculateCollectionGrowth(199, 1, GrowType::kPercent, 1000), 200U);
  EXPECT_EQ(CalculateCollectionGrowth(3, 10, GrowType::kPercent, 1000), 4U);
}

TEST(CollectionGrowth, PercentOfNothingIsOne) {
  EXPECT_EQ(CalculateCollectionGrowth(0, 100, GrowType::kPercent, 1000), 1U);
  EXPECT_EQ(CalculateCollectionGrowth(0, 0, GrowType::kPercent, 1000), 1U);
  EXPECT_EQ(CalculateCollectionGrowth(50, 0, GrowType::kPercent, 1000), 51U);
}

TEST(CollectionGrowth, StopsAtTheCeiling) {
  EXPECT_EQ(CalculateCollectionGrowth(90, 20, GrowType::kFixedStep, 100), 100U);
  EXPECT_EQ(CalculateCollectionGrowth(90, 50, GrowType::kPercent, 100), 100U);
  EXPECT_EQ(CalculateCollectionGrowth(100, 1, GrowType::kFixedStep, 100), 100U);
  EXPECT_EQ(CalculateCollectionGrowth(100, 100, GrowType::kPercent, 100), 100U);
  EXPECT_EQ(CalculateCollectionGrowth(150, 1, GrowType::kFixedStep, 100), 100U);
  EXPECT_EQ(CalculateCollectionGrowth(0, 1, GrowType::kPercent, 0), 0U);
}

TEST(CollectionGrowth, NeverWrapsAround) {
  EXPECT_EQ(CalculateCollectionGrowth(kMax, kMax, GrowType::kFixedStep, kMax), kMax);
  EXPECT_EQ(CalculateCollectionGrowth(kMax, kMax, GrowType::kPercent, kMax), kMax);
  EXPECT_EQ(CalculateCollectionGrowth(kMax - 1, 2, GrowType::kFixedStep, kMax), kMax);
  EXPECT_EQ(CalculateCollectionGrowth(3000000000U, 50, GrowType::kPercent, kMax), kMax);
  EXPECT_EQ(CalculateCollectionGrowth(2000000000U, 50, GrowType::kPercent, kMax), 3000000000U);
}

}  // namespace
