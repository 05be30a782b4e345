#include "host/text/TimeText.h"

#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Text;

constexpr u64 kNs = kNanosPerSecond;

TEST(FormatUtc, GivesRfc3339) {
  EXPECT_EQ(FormatUtc(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(FormatUtc(1709210096), "2024-02-29T12:34:56Z");
  EXPECT_EQ(FormatUtc(4102444799), "2099-12-31T23:59:59Z");
}

TEST(FormatUtc, TimeBeyondTheCalendarIsItsNumber) {
  EXPECT_EQ(FormatUtc(~u64{0}), "18446744073709551615");
}

TEST(ParseUtc, ReadsTheUsualForms) {
  EXPECT_EQ(ParseUtc("2024-02-29T12:34:56Z"), 1709210096 * kNs);
  EXPECT_EQ(ParseUtc("2024-02-29 12:34:56.250"), 1709210096 * kNs + 250'000'000);
  EXPECT_EQ(ParseUtc("2024-02-29t14:34:56+02:00"), 1709210096 * kNs);
  EXPECT_EQ(ParseUtc("2024-02-29T06:04:56-06:30"), 1709210096 * kNs);
  EXPECT_EQ(ParseUtc("2022-05-13T08:54:05.1230000Z"), 1652432045 * kNs + 123'000'000);
  EXPECT_EQ(ParseUtc("1970-01-01T00:00:00.123456789999Z"), 123456789U);
}

TEST(ParseUtc, LeapSecondCountsAsTheOneBefore) {
  EXPECT_EQ(ParseUtc("2016-12-31T23:59:60Z"), ParseUtc("2016-12-31T23:59:59Z"));
}

TEST(ParseUtc, EverythingElseIsNoTime) {
  for (const char* text : {"",
                           "x",
                           "2024-02-29",
                           "2024-02-30T00:00:00Z",
                           "2023-02-29T00:00:00Z",
                           "2024-13-01T00:00:00Z",
                           "2024-00-01T00:00:00Z",
                           "2024-01-00T00:00:00Z",
                           "2024-01-01T24:00:00Z",
                           "2024-01-01T00:60:00Z",
                           "2024-01-01T00:00:61Z",
                           "2024-01-01T00:00:00.Z",
                           "2024-01-01T00:00:00+1",
                           "2024-01-01T00:00:00Zx",
                           "2024-01-01T00:00",
                           "1969-12-31T23:59:59Z",
                           "1970-01-01T00:00:00+01:00",
                           "9999-01-01T00:00:00Z",
                           "2024-01-01X00:00:00Z",
                           "24-01-01T00:00:00Z"}) {
    EXPECT_EQ(ParseUtc(text), std::nullopt) << text;
  }
}

TEST(ParseUtc, IsTheInverseOfFormatUtc) {
  for (u64 second = 0; second < 4'000'000'000; second += 86'399'999) {
    EXPECT_EQ(ParseUtc(FormatUtc(second)), second * kNs) << second;
  }
}

TEST(ParseDate, ReadsADay) {
  EXPECT_EQ(ParseDate("2024-03-01"), 1709251200U);
  EXPECT_EQ(ParseDate("2024-03-01T00:00:00Z"), std::nullopt);
  EXPECT_EQ(ParseDate("2024-3-1"), std::nullopt);
}

TEST(ParseAge, ReadsNumberAndUnit) {
  EXPECT_EQ(ParseAge("90s"), 90U);
  EXPECT_EQ(ParseAge("15m"), 900U);
  EXPECT_EQ(ParseAge("12h"), 43200U);
  EXPECT_EQ(ParseAge("7d"), 604800U);
  EXPECT_EQ(ParseAge("2w"), 1209600U);
}

TEST(ParseAge, EverythingElseIsNoAge) {
  for (const char* text : {"", "d", "7", "7y", "-7d", "7 d", "1.5h", "1234567890d", "7dd"}) {
    EXPECT_EQ(ParseAge(text), std::nullopt) << text;
  }
}

TEST(ParseDecimalNanos, KeepsEveryDigitThatCounts) {
  EXPECT_EQ(ParseDecimalNanos("0"), 0U);
  EXPECT_EQ(ParseDecimalNanos("1588205199.82437"), 1588205199'824370000U);
  EXPECT_EQ(ParseDecimalNanos("1.9999999999"), 1'999999999U);
  EXPECT_EQ(ParseDecimalNanos("5."), 5'000000000U);
  EXPECT_EQ(ParseDecimalNanos(".5"), 500000000U);
  EXPECT_EQ(ParseDecimalNanos("0.00000000000000000000000000000001"), 0U);
}

TEST(ParseDecimalNanos, ReadsExponents) {
  EXPECT_EQ(ParseDecimalNanos("9.5367431640625e-07"), 953U);
  EXPECT_EQ(ParseDecimalNanos("1.5E+3"), 1500'000000000U);
  EXPECT_EQ(ParseDecimalNanos("0e999999999999"), 0U);
  EXPECT_EQ(ParseDecimalNanos("123e-999999999999"), 0U);
}

TEST(ParseDecimalNanos, LargestValueFitsAndTheNextDoesNot) {
  EXPECT_EQ(ParseDecimalNanos("18446744073.709551615"), ~u64{0});
  EXPECT_EQ(ParseDecimalNanos("18446744073.709551616"), std::nullopt);
  EXPECT_EQ(ParseDecimalNanos("1e11"), std::nullopt);
  EXPECT_EQ(ParseDecimalNanos("99999999999999999999999999"), std::nullopt);
}

TEST(ParseDecimalNanos, EverythingElseIsNoNumber) {
  for (const char* text : {"", ".", "-1", "+1", "1e", "1e+", "1.2.3", "1 ", "0x10", "nan", "inf", "1,5"}) {
    EXPECT_EQ(ParseDecimalNanos(text), std::nullopt) << text;
  }
}

}  // namespace
