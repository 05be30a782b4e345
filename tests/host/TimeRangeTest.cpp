#include "host/commands/TimeRange.h"

#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Commands;

constexpr u64 kNow = 1'700'000'000;

TimeRange Range(const std::string& since, const std::string& until) {
  std::string error;
  const auto range = ReadTimeRange(since, until, kNow, error);
  EXPECT_TRUE(range) << error;
  return range.value_or(TimeRange{1, 0});
}

std::string ErrorOf(const std::string& since, const std::string& until) {
  std::string error;
  EXPECT_FALSE(ReadTimeRange(since, until, kNow, error));
  return error;
}

TEST(ReadTimeRange, NothingGivenIsEverything) {
  EXPECT_EQ(Range("", "").since, 0U);
  EXPECT_EQ(Range("", "").until, ~u64{0});
}

TEST(ReadTimeRange, DateIsAWholeDay) {
  EXPECT_EQ(Range("2023-11-14", "").since, 1699920000U);
  EXPECT_EQ(Range("", "2023-11-14").until, 1700006399U);
  EXPECT_EQ(Range("2023-11-14", "2023-11-14").until - Range("2023-11-14", "2023-11-14").since, 86399U);
}

TEST(ReadTimeRange, TimesAndSecondsAreTakenAsTheyAre) {
  EXPECT_EQ(Range("2023-11-14T22:13:20Z", "").since, kNow);
  EXPECT_EQ(Range("", "2023-11-14T23:13:20.9+01:00").until, kNow);
  EXPECT_EQ(Range("1699999999", "1700000000").since, 1699999999U);
  EXPECT_EQ(Range("1699999999", "1700000000").until, kNow);
}

TEST(ReadTimeRange, AgeCountsBackFromNow) {
  EXPECT_EQ(Range("7d", "").since, kNow - 604800);
  EXPECT_EQ(Range("", "12h").until, kNow - 43200);
  EXPECT_EQ(Range("99999w", "").since, 0U);
}

TEST(ReadTimeRange, SameSecondIsARange) {
  EXPECT_EQ(Range("5", "5").since, 5U);
}

TEST(ReadTimeRange, AnythingElseIsNamedInTheError) {
  EXPECT_NE(ErrorOf("yesterday", "").find("\"yesterday\" is no time"), std::string::npos);
  EXPECT_NE(ErrorOf("", "2023-02-29").find("\"2023-02-29\" is no time"), std::string::npos);
  EXPECT_NE(ErrorOf("-5", "").find("\"-5\" is no time"), std::string::npos);
  EXPECT_NE(ErrorOf("7", "x").find("\"x\" is no time"), std::string::npos);
}

TEST(ReadTimeRange, RangeThatEndsBeforeItBeginsIsRefused) {
  EXPECT_EQ(ErrorOf("6", "5"), "--since is later than --until");
}

}  // namespace
