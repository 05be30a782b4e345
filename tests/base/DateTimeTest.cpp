#include "Velmar/OS/DateTime.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "Velmar/Utils/String.h"

using Velmar::i64;
using Velmar::OS::DateTime;

namespace {

std::string TextOf(i64 seconds) {
  DateTime time;
  time.utc = true;
  EXPECT_TRUE(time.SetDateTime(seconds)) << seconds;
  Velmar::Utils::String text;
  EXPECT_TRUE(text.SetFormat("%d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour, time.minute,
                             time.second));
  return text.text;
}

TEST(DateTime, GivesKnownMoments) {
  EXPECT_EQ(TextOf(0), "1970-01-01 00:00:00");
  EXPECT_EQ(TextOf(1700000000), "2023-11-14 22:13:20");
  EXPECT_EQ(TextOf(1234567890), "2009-02-13 23:31:30");
  EXPECT_EQ(TextOf(0x7FFFFFFF), "2038-01-19 03:14:07");
  EXPECT_EQ(TextOf(0x80000000LL), "2038-01-19 03:14:08");
  EXPECT_EQ(TextOf(0x100000000LL), "2106-02-07 06:28:16");
}

TEST(DateTime, GoesBehindTheEpoch) {
  EXPECT_EQ(TextOf(-1), "1969-12-31 23:59:59");
  EXPECT_EQ(TextOf(-86400), "1969-12-31 00:00:00");
  EXPECT_EQ(TextOf(-86401), "1969-12-30 23:59:59");
  EXPECT_EQ(TextOf(-2208988800), "1900-01-01 00:00:00");
  EXPECT_EQ(TextOf(-62135596800), "1-01-01 00:00:00");
  EXPECT_EQ(TextOf(-62135596801), "0-12-31 23:59:59");
  EXPECT_EQ(TextOf(-62167219201), "-1-12-31 23:59:59");
}

TEST(DateTime, KnowsLeapDays) {
  EXPECT_EQ(TextOf(951782400), "2000-02-29 00:00:00");
  EXPECT_EQ(TextOf(951868799), "2000-02-29 23:59:59");
  EXPECT_EQ(TextOf(951868800), "2000-03-01 00:00:00");
  EXPECT_EQ(TextOf(1709164800), "2024-02-29 00:00:00");
  EXPECT_EQ(TextOf(1677628799), "2023-02-28 23:59:59");
  EXPECT_EQ(TextOf(1677628800), "2023-03-01 00:00:00");
  EXPECT_EQ(TextOf(4107542399), "2100-02-28 23:59:59");
  EXPECT_EQ(TextOf(4107542400), "2100-03-01 00:00:00");
  EXPECT_EQ(TextOf(1735603199), "2024-12-30 23:59:59");
  EXPECT_EQ(TextOf(1735689599), "2024-12-31 23:59:59");
}

TEST(DateTime, GoesBeyondFourDigits) {
  EXPECT_EQ(TextOf(253402300799), "9999-12-31 23:59:59");
  EXPECT_EQ(TextOf(253402300800), "10000-01-01 00:00:00");
}

// The calendar counted forward day by day, as a second opinion.
TEST(DateTime, AgreesWithADayByDayCountOverEightHundredYears) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  int year = 1600;
  int month = 1;
  int day = 1;
  for (i64 seconds = -11676096000; year < 2400; seconds += 86400) {
    DateTime time;
    ASSERT_TRUE(time.SetDateTime(seconds + 86399));
    ASSERT_TRUE(time.year == year && time.month == month && time.day == day && time.hour == 23) << seconds;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (++day > kDays[month - 1] + (month == 2 && leap ? 1 : 0)) {
      day = 1;
      if (++month == 13) {
        month = 1;
        ++year;
      }
    }
  }
}

TEST(DateTime, LastYearsThatFitAreGood) {
  EXPECT_EQ(TextOf(67767976233532799), "2147483647-12-31 23:59:59");
  EXPECT_EQ(TextOf(-67768100567971200), "-2147483648-01-01 00:00:00");
}

TEST(DateTime, YearThatDoesNotFitFailsAndChangesNothing) {
  for (const i64 seconds : {i64{67767976233532800}, i64{-67768100567971201}, std::numeric_limits<i64>::max(),
                            std::numeric_limits<i64>::min()}) {
    DateTime time;
    ASSERT_TRUE(time.SetDateTime(0));
    EXPECT_FALSE(time.SetDateTime(seconds)) << seconds;
    EXPECT_EQ(time.year, 1970);
    EXPECT_EQ(time.day, 1);
  }
}

}  // namespace
