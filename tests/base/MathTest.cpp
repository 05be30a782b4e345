#include "Velmar/Math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST(Math, FloorRoundsTowardsMinusInfinity) {
  EXPECT_EQ(Velmar::Math::Floor(2.9), 2.0);
  EXPECT_EQ(Velmar::Math::Floor(-2.1), -3.0);
  EXPECT_EQ(Velmar::Math::Floor(3.0), 3.0);
  EXPECT_EQ(Velmar::Math::Floor(1e300), 1e300);
  EXPECT_TRUE(std::isnan(Velmar::Math::Floor(std::numeric_limits<double>::quiet_NaN())));
}

}  // namespace
