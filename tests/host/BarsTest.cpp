#include "host/commands/Bars.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace Host;
using namespace Host::Commands;

const std::string kFull = "\xE2\x96\x88";
const std::string kHalf = "\xE2\x96\x8C";
const std::string kEighth = "\xE2\x96\x8F";

TEST(Bar, TheMostFillsTheWidth) {
  EXPECT_EQ(Bar(50, 50, 4, false), "####");
  EXPECT_EQ(Bar(50, 50, 3, true), kFull + kFull + kFull);
  EXPECT_EQ(Bar(~u64{0}, ~u64{0}, 2, true), kFull + kFull);
}

TEST(Bar, BlocksHaveEighths) {
  EXPECT_EQ(Bar(3, 8, 4, true), kFull + kHalf);
  EXPECT_EQ(Bar(1, 8, 1, true), kEighth);
  EXPECT_EQ(Bar(7, 8, 1, true), "\xE2\x96\x89");
  EXPECT_EQ(Bar(3, 8, 4, false), "##") << "one and a half";
}

TEST(Bar, NothingIsNothingAndLittleShows) {
  EXPECT_EQ(Bar(0, 50, 10, true), "");
  EXPECT_EQ(Bar(0, 0, 10, true), "");
  EXPECT_EQ(Bar(1, 1'000'000, 10, true), kEighth);
  EXPECT_EQ(Bar(1, 1'000'000, 10, false), "#");
  EXPECT_EQ(Bar(1, 1, 0, false), "");
}

}  // namespace
