#include "host/text/Utf8.h"

#include <gtest/gtest.h>

namespace {

using namespace Host::Text;

constexpr char kReplaced[] = "\xEF\xBF\xBD";

TEST(Utf8Length, KnowsWellFormedCharacters) {
  EXPECT_EQ(Utf8Length("a"), 1U);
  EXPECT_EQ(Utf8Length("\xC3\xA4"), 2U);
  EXPECT_EQ(Utf8Length("\xE2\x82\xAC"), 3U);
  EXPECT_EQ(Utf8Length("\xF0\x9F\x98\x80"), 4U);
  EXPECT_EQ(Utf8Length("\xED\x9F\xBF"), 3U);
  EXPECT_EQ(Utf8Length("\xF4\x8F\xBF\xBF"), 4U);
}

TEST(Utf8Length, RefusesIllFormedOnes) {
  for (const char* text :
       {"", "\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x80\x80", "\xE2\x82", "\xE2(\xA1", "\xED\xA0\x80",
        "\xF0\x80\x80\x80", "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
    EXPECT_EQ(Utf8Length(text), 0U) << testing::PrintToString(text);
  }
}

TEST(ToValidUtf8, ReplacesEachBadByte) {
  EXPECT_EQ(ToValidUtf8("a\xFF\xC3\xA4\xE2\x82"), std::string("a") + kReplaced + "\xC3\xA4" + kReplaced + kReplaced);
  EXPECT_EQ(ToValidUtf8(""), "");
}

TEST(ToPrintable, EscapesControlCharacters) {
  EXPECT_EQ(ToPrintable("a\x1B[2J\n\x7F"), "a\\x1B[2J\\x0A\\x7F");
  EXPECT_EQ(ToPrintable("\xC2\x9B\xC2\xA0"), "\\x9B\xC2\xA0");
  EXPECT_EQ(ToPrintable(std::string_view("\0", 1)), "\\x00");
}

TEST(ToPrintable, EscapesWhatTurnsTheOrderOfWriting) {
  EXPECT_EQ(ToPrintable("/tmp/annex\xE2\x80\xAEgpj.exe"), "/tmp/annex\\u202Egpj.exe");
  EXPECT_EQ(ToPrintable("\xD8\x9C\xE2\x80\x8E\xE2\x80\x8F"), "\\u061C\\u200E\\u200F");
  EXPECT_EQ(ToPrintable("\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xAA"), "\\u2028\\u2029\\u202A");
  EXPECT_EQ(ToPrintable("\xE2\x81\xA6\xE2\x81\xA9"), "\\u2066\\u2069");
  for (const char* text : {"\xD8\x9B", "\xE2\x80\x8D", "\xE2\x80\x90", "\xE2\x80\xA7", "\xE2\x80\xAF", "\xE2\x81\xA5",
                           "\xE2\x81\xAA", "\xE1\x80\xAE"}) {
    EXPECT_EQ(ToPrintable(text), text);
  }
}

TEST(ToJsonString, EscapesWhatJsonAsksFor) {
  EXPECT_EQ(ToJsonString("C:\\a \"b\"\n"), "\"C:\\\\a \\\"b\\\"\\u000a\"");
  EXPECT_EQ(ToJsonString("\xFF"), std::string("\"") + kReplaced + "\"");
  EXPECT_EQ(ToJsonString(""), "\"\"");
}

TEST(Characters, AreCountedAndCutWhole) {
  const std::string text = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
  EXPECT_EQ(CountCharacters(text), 4U);
  EXPECT_EQ(FirstCharacters(text, 2), "a\xC3\xA4");
  EXPECT_EQ(FirstCharacters(text, 9), text);
  EXPECT_EQ(FirstCharacters(text, 0), "");
  EXPECT_EQ(LastCharacters(text, 1), "\xF0\x9F\x98\x80");
  EXPECT_EQ(LastCharacters(text, 3), "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(LastCharacters(text, 9), text);
}

}  // namespace
