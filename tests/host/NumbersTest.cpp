#include "host/text/Numbers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace Host;
using namespace Host::Text;

TEST(ReadCount, ReadsDigitsUpToTheLimit) {
  EXPECT_EQ(ReadCount("0", 0), 0U);
  EXPECT_EQ(ReadCount("65535", 65535), 65535U);
  EXPECT_EQ(ReadCount("65536", 65535), std::nullopt);
  EXPECT_EQ(ReadCount("000007", 9), 7U);
  EXPECT_EQ(ReadCount("5", 3), std::nullopt);
}

TEST(ReadCount, WholeRangeOf64BitsIsRead) {
  constexpr u64 kMax = std::numeric_limits<u64>::max();
  EXPECT_EQ(ReadCount("18446744073709551615", kMax), kMax);
  EXPECT_EQ(ReadCount("18446744073709551616", kMax), std::nullopt);
  EXPECT_EQ(ReadCount("99999999999999999999999", kMax), std::nullopt);
}

TEST(ReadCount, EverythingElseIsNoCount) {
  for (const char* text : {"", "-1", "+1", " 1", "1 ", "1.0", "0x1", "one", "\xB1"}) {
    EXPECT_EQ(ReadCount(text, 1000), std::nullopt) << text;
  }
}

TEST(ReadSigned, ReadsBothSigns) {
  EXPECT_EQ(ReadSigned("-1"), -1);
  EXPECT_EQ(ReadSigned("12"), 12);
  EXPECT_EQ(ReadSigned("--1"), std::nullopt);
  EXPECT_EQ(ReadSigned("-"), std::nullopt);
  EXPECT_EQ(ReadSigned("9223372036854775808"), std::nullopt);
}

TEST(ReadHex, ReadsBothCases) {
  u8 bytes[3] = {};
  ASSERT_TRUE(ReadHex("0aFf80", bytes, 3));
  EXPECT_EQ(bytes[0], 0x0A);
  EXPECT_EQ(bytes[1], 0xFF);
  EXPECT_EQ(bytes[2], 0x80);
  EXPECT_EQ(ToHex(bytes, 3), "0aff80");
}

TEST(ReadHex, WrongLengthOrDigitLeavesTheBytes) {
  u8 bytes[2] = {7, 7};
  for (const char* text : {"", "0aF", "0aff0", "0aff00", "0g00", "0a\xE1\xE1"}) {
    EXPECT_FALSE(ReadHex(text, bytes, 2)) << text;
  }
  EXPECT_EQ(bytes[0], 7);
  EXPECT_EQ(bytes[1], 7);
}

TEST(SplitList, KeepsEmptyParts) {
  EXPECT_THAT(SplitList("", ','), testing::ElementsAre(""));
  EXPECT_THAT(SplitList("a", ','), testing::ElementsAre("a"));
  EXPECT_THAT(SplitList(",a,,b,", ','), testing::ElementsAre("", "a", "", "b", ""));
}

TEST(Lowered, FoldsAsciiOnly) {
  EXPECT_EQ(Lowered("AbZ[\xC3\x84"), "abz[\xC3\x84");
}

}  // namespace
