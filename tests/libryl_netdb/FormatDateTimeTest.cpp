#include "common/libryl_netdb/FormatDateTime.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/LogCapture.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;

// Empty when it fails.
std::string Format(u64 seconds) {
  Velmar::Utils::String text;
  return FormatDateTime(seconds, text) ? text.text : "";
}

TEST(FormatDateTime, PartsHaveTwoDigitsAndTheYearComesAsItIs) {
  EXPECT_EQ(Format(0), "1970-01-01 00:00:00");
  EXPECT_EQ(Format(981173106), "2001-02-03 04:05:06");
  EXPECT_EQ(Format(1700000000), "2023-11-14 22:13:20");
  EXPECT_EQ(Format(253402300799), "9999-12-31 23:59:59");
  EXPECT_EQ(Format(253402300800), "10000-01-01 00:00:00");
}

TEST(FormatDateTime, WhatTheTextHeldIsReplaced) {
  Velmar::Utils::String text("an older and longer text than any date", true);
  EXPECT_TRUE(FormatDateTime(1700000000, text));
  EXPECT_STREQ(text.text, "2023-11-14 22:13:20");
}

TEST(FormatDateTime, HighestBitIsRefused) {
  for (const u64 seconds : {~u64{0}, u64{1} << 63}) {
    LogCapture log;
    EXPECT_EQ(Format(seconds), "");
    EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.NoSuchTime"});
    EXPECT_EQ(log.Arguments("ryl_netdb.NoSuchTime"), Lines{std::to_string(seconds)});
  }
}

TEST(FormatDateTime, CalendarEndsWithTheLargestYear) {
  LogCapture log;
  EXPECT_EQ(Format(67767976233532799), "2147483647-12-31 23:59:59");
  EXPECT_TRUE(log.Entries().empty());
  EXPECT_EQ(Format(67767976233532800), "");
  EXPECT_EQ(Format(~u64{0} >> 1), "");
  EXPECT_EQ(log.Lines(1), (Lines{"5 ryl_netdb.NoSuchTime", "5 ryl_netdb.NoSuchTime"}));
}

TEST(FormatDateTime, TextWithoutRoomIsFalse) {
  char area[8];
  Velmar::Utils::String text;
  ASSERT_TRUE(text.Create(area, sizeof(area), true, false));
  EXPECT_FALSE(FormatDateTime(1700000000, text));
}

}  // namespace
}  // namespace RYL::Module
