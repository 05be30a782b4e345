#include "Velmar/Utils/String.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>

#include "tests/base/FailingAllocations.h"

using Velmar::Utils::String;

namespace {

constexpr const char* kLongText = "a text that is longer than any small area, so that it has to move to the heap";

TEST(String, StartsEmptyAndTerminated) {
  const String s;
  EXPECT_EQ(s.length, 0);
  EXPECT_STREQ(s.text, "");
}

TEST(String, NullGivesEmptyText) {
  const String s(nullptr, true);
  EXPECT_STREQ(s.text, "");
  String t("abc", true);
  EXPECT_TRUE(t.Set(static_cast<const char*>(nullptr)));
  EXPECT_EQ(t.length, 0);
  EXPECT_TRUE(t.Set("abc") && t.Set(static_cast<const String*>(nullptr)));
  EXPECT_EQ(t.length, 0);
}

TEST(String, CopyIsIndependent) {
  String a("abc", true);
  String b(a);
  ASSERT_TRUE(a.Add("def"));
  EXPECT_STREQ(b.text, "abc");
  b = a;
  ASSERT_TRUE(a.Set("x"));
  EXPECT_STREQ(b.text, "abcdef");
}

TEST(String, AssigningItselfChangesNothing) {
  String a(kLongText, true);
  String& same = a;
  a = same;
  EXPECT_STREQ(a.text, kLongText);
  a = std::move(same);
  EXPECT_STREQ(a.text, kLongText);
}

TEST(String, MoveTakesTheHeapStorage) {
  String a(kLongText, true);
  const char* storage = a.text;
  String b(std::move(a));
  EXPECT_EQ(b.text, storage);
  EXPECT_STREQ(a.text, "");
  EXPECT_EQ(a.length, 0);
  // A string that was moved from is empty and usable.
  ASSERT_TRUE(a.Set("usable"));  // NOLINT(clang-analyzer-cplusplus.Move)
  EXPECT_STREQ(a.text, "usable");
  String c("old", true);
  c = std::move(b);
  EXPECT_EQ(c.text, storage);
}

TEST(String, MoveOutOfAnAreaCopies) {
  String outliving;
  {
    char area[64];
    String a;
    ASSERT_TRUE(a.Create(area, sizeof(area), true, true));
    ASSERT_TRUE(a.Set("short"));
    outliving = std::move(a);
    EXPECT_EQ(a.length, 0);
    std::memset(area, 'x', sizeof(area));
  }
  EXPECT_STREQ(outliving.text, "short");
}

TEST(String, CreateReservesRoom) {
  String s("abc", true);
  ASSERT_TRUE(s.Create(100));
  EXPECT_EQ(s.length, 0);
  const char* storage = s.text;
  ASSERT_TRUE(s.Set(std::string(100, 'x').c_str()));
  EXPECT_EQ(s.text, storage);
}

TEST(String, CreateRefusesWhatItCannotHold) {
  String s("abc", true);
  EXPECT_FALSE(s.Create(-1));
  EXPECT_FALSE(s.Create(INT_MAX));
  EXPECT_STREQ(s.text, "abc");
}

TEST(String, AreaIsUsedUntilItIsFull) {
  char area[8];
  String s;
  ASSERT_TRUE(s.Create(area, sizeof(area), true, true));
  ASSERT_TRUE(s.Set("1234567"));
  EXPECT_EQ(s.text, area);
  ASSERT_TRUE(s.AddChar('8'));
  EXPECT_NE(s.text, area);
  EXPECT_STREQ(s.text, "12345678");
}

TEST(String, AreaThatMayNotBeLeftRefusesMore) {
  char area[8];
  String s;
  ASSERT_TRUE(s.Create(area, sizeof(area), true, false));
  ASSERT_TRUE(s.Set("1234567"));
  EXPECT_FALSE(s.AddChar('8'));
  EXPECT_FALSE(s.AddFormat("%d", 8));
  EXPECT_FALSE(s.Set("12345678"));
  EXPECT_STREQ(s.text, "1234567");
}

TEST(String, AreaMayHoldTheFirstText) {
  char area[8] = "abc";
  String s;
  ASSERT_TRUE(s.Create(area, sizeof(area), false, true));
  EXPECT_EQ(s.length, 3);
  ASSERT_TRUE(s.Add("def"));
  EXPECT_STREQ(area, "abcdef");
}

TEST(String, AreaWithoutTerminatorIsRefused) {
  char area[4] = {'a', 'b', 'c', 'd'};
  String s("kept", true);
  EXPECT_FALSE(s.Create(area, sizeof(area), false, true));
  EXPECT_FALSE(s.Create(nullptr, 4, true, true));
  EXPECT_FALSE(s.Create(area, 0, true, true));
  EXPECT_STREQ(s.text, "kept");
}

TEST(String, SetTakesTheGivenLength) {
  String s;
  ASSERT_TRUE(s.Set("abcdef", 3));
  EXPECT_STREQ(s.text, "abc");
  ASSERT_TRUE(s.Set("abcdef", 0));
  EXPECT_EQ(s.length, 0);
  EXPECT_FALSE(s.Set("abcdef", -2));
  const String other("abcdef", true);
  ASSERT_TRUE(s.Set(&other, 2));
  EXPECT_STREQ(s.text, "ab");
  EXPECT_FALSE(s.Set(&other, 7));
  EXPECT_STREQ(s.text, "ab");
}

TEST(String, SetAndAddTakeTheirOwnText) {
  String s("abcdef", true);
  ASSERT_TRUE(s.Set(s.text + 2));
  EXPECT_STREQ(s.text, "cdef");
  for (int i = 0; i < 6; ++i) {
    ASSERT_TRUE(s.Add(s.text, s.length));
  }
  EXPECT_EQ(s.length, 4 * 64);
  EXPECT_EQ(std::string(s.text).substr(252), "cdef");
}

TEST(String, AddOfNullOrNothingChangesNothing) {
  String s("abc", true);
  EXPECT_TRUE(s.Add(nullptr));
  EXPECT_TRUE(s.Add(""));
  EXPECT_TRUE(s.Add("x", 0));
  EXPECT_FALSE(s.Add("x", -2));
  EXPECT_STREQ(s.text, "abc");
}

TEST(String, LengthBeyondTheLimitIsRefusedBeforeAnythingIsRead) {
  String s("abc", true);
  EXPECT_FALSE(s.Add("x", INT_MAX));
  EXPECT_FALSE(s.Add("x", INT_MAX - 2));
  EXPECT_FALSE(s.Set("x", INT_MAX));
  EXPECT_STREQ(s.text, "abc");
}

TEST(String, FormatsEveryConversionInUse) {
  String s;
  ASSERT_TRUE(s.SetFormat("%s %u %d %02d %llu", "x", 4000000000U, -5, 7, 18446744073709551615ULL));
  EXPECT_STREQ(s.text, "x 4000000000 -5 07 18446744073709551615");
  ASSERT_TRUE(s.AddFormat("/%d", 1));
  EXPECT_STREQ(s.text, "x 4000000000 -5 07 18446744073709551615/1");
  ASSERT_TRUE(s.SetFormat("%d", 3));
  EXPECT_STREQ(s.text, "3");
}

TEST(String, FormatsTextOfAnyLength) {
  for (const std::size_t length : {510U, 511U, 512U, 513U, 5000U}) {
    const std::string text(length, 'x');
    String s("<", true);
    ASSERT_TRUE(s.AddFormat("%s>", text.c_str()));
    EXPECT_EQ(std::string(s.text), "<" + text + ">");
    EXPECT_EQ(static_cast<std::size_t>(s.length), length + 2);
  }
}

TEST(String, TruncateShortensOnly) {
  String s("abcdef", true);
  EXPECT_TRUE(s.Truncate(6));
  EXPECT_TRUE(s.Truncate(2));
  EXPECT_STREQ(s.text, "ab");
  EXPECT_FALSE(s.Truncate(3));
  EXPECT_FALSE(s.Truncate(-1));
  s.Clear();
  EXPECT_STREQ(s.text, "");
}

TEST(String, GetCharCountsFromEitherEnd) {
  const String s("abc", true);
  EXPECT_EQ(s.GetChar(0), 'a');
  EXPECT_EQ(s.GetChar(-1), 'c');
  EXPECT_EQ(s.GetChar(3), '\0');
  EXPECT_EQ(s.GetChar(-2), '\0');
  EXPECT_EQ(String().GetChar(-1), '\0');
}

TEST(String, LowerCaseTouchesAsciiOnly) {
  String s("AZ[\xC3\x84]09az", true);
  s.ConvertToLower();
  EXPECT_STREQ(s.text, "az[\xC3\x84]09az");
}

TEST(String, CompareOrdersBytesAsUnsigned) {
  EXPECT_LT(String::Compare("abc", "abd", false), 0);
  EXPECT_GT(String::Compare("b", "abc", false), 0);
  EXPECT_LT(String::Compare("ab", "abc", false), 0);
  EXPECT_GT(String::Compare("\xC3", "z", false), 0);
  EXPECT_GT(String::Compare("\xC3", "z", true), 0);
  EXPECT_EQ(String::Compare("", nullptr, false), 0);
  EXPECT_LT(String::Compare(nullptr, "a", true), 0);
}

TEST(String, CompareIgnoresCaseOnRequest) {
  EXPECT_NE(String::Compare("ABC", "abc", false), 0);
  EXPECT_EQ(String::Compare("ABC", "abc", true), 0);
  // In the folded order '_' (0x5F) stands before the letters.
  EXPECT_LT(String::Compare("_", "A", true), 0);
  EXPECT_GT(String::Compare("_", "A", false), 0);
  const String s("Path", true);
  EXPECT_EQ(s.Compare("pATH", true), 0);
  EXPECT_EQ(s.Compare(String("PATH", true), true), 0);
  EXPECT_TRUE(String::Equals("a", "A", true));
  EXPECT_FALSE(String::Equals("a", "A", false));
}

TEST(String, OperatorsCompareWholeContent) {
  const String a("a", true);
  const String b("b", true);
  EXPECT_TRUE(a == String("a", true));
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a != b);
  EXPECT_FALSE(a != a);
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(b > a);
  EXPECT_FALSE(a > a);
  String withNul;
  ASSERT_TRUE(withNul.Set("a\0x", 3));
  EXPECT_TRUE(withNul != a);
  EXPECT_TRUE(withNul > a);
}

TEST(String, EndsWithTestsTheTail) {
  const String s("file.DB", true);
  EXPECT_TRUE(s.EndsWith(".DB", false));
  EXPECT_FALSE(s.EndsWith(".db", false));
  EXPECT_TRUE(s.EndsWith(".db", true));
  EXPECT_TRUE(s.EndsWith("", false));
  EXPECT_FALSE(s.EndsWith("a file.DB", false));
  EXPECT_TRUE(s.EndsWith('B', false));
  EXPECT_FALSE(s.EndsWith('b', false));
  EXPECT_TRUE(s.EndsWith('b', true));
  EXPECT_FALSE(String().EndsWith('b', true));
  EXPECT_TRUE(String::EndsWith("abcdef", "cdxx", false, 4, 2));
  EXPECT_FALSE(String::EndsWith("abcdef", "ef", false, 4, -1));
  EXPECT_FALSE(String::EndsWith("abc", "c", false, -2, -1));
  EXPECT_TRUE(String::EndsWith(nullptr, nullptr, false, -1, -1));
  EXPECT_FALSE(String::EndsWith(nullptr, "c", false, 4, -1)) << "a null text has no bytes";
  EXPECT_TRUE(String::EndsWith("abc", nullptr, false, -1, 2));
}

TEST(String, FindGivesTheFirstMatch) {
  EXPECT_EQ(String::Find("abcabc", "bc", false, 0, false, -1, -1), 1);
  EXPECT_EQ(String::Find("abcabc", "bc", false, 2, false, -1, -1), 4);
  EXPECT_EQ(String::Find("abcabc", "bc", false, 5, false, -1, -1), -1);
  EXPECT_EQ(String::Find("abcABC", "ABC", true, 1, false, -1, -1), 3);
  EXPECT_EQ(String::Find("abcABC", "ABC", false, 0, false, -1, -1), 3);
  EXPECT_EQ(String::Find("abc", "abcd", false, 0, false, -1, -1), -1);
}

TEST(String, FindBackwardsGivesTheLastMatch) {
  EXPECT_EQ(String::Find("abcabc", "bc", false, 0, true, -1, -1), 4);
  EXPECT_EQ(String::Find("abcabc", "bc", false, 5, true, -1, -1), -1);
  EXPECT_EQ(String::Find("abc", "x", false, 0, true, -1, -1), -1);
}

TEST(String, FindKeepsToTheGivenLengths) {
  EXPECT_EQ(String::Find("abcabc", "bcx", false, 2, false, -1, 2), 4);
  EXPECT_EQ(String::Find("abcabc", "bc", false, 2, false, 5, -1), -1);
  EXPECT_EQ(String::Find("abc", "", false, 2, false, -1, -1), 2);
  EXPECT_EQ(String::Find("abc", "", false, 3, false, -1, -1), 3);
  EXPECT_EQ(String::Find("abc", "", false, 4, false, -1, -1), -1);
  EXPECT_EQ(String::Find("abc", "c", false, -1, false, -1, -1), -1);
  EXPECT_EQ(String::Find("abc", "c", false, 0, false, -2, -1), -1);
  EXPECT_EQ(String::Find(nullptr, "c", false, 0, false, -1, -1), -1);
  EXPECT_EQ(String::Find(nullptr, "c", false, 0, false, 100000, -1), -1) << "a null text has no bytes";
  EXPECT_EQ(String::Find("abc", nullptr, false, 1, false, -1, 100), 1);
}

TEST(String, SpaceIsAsciiWhiteSpace) {
  std::string spaces;
  for (int c = 1; c < 256; ++c) {
    if (String::IsSpace(static_cast<char>(c))) {
      spaces.push_back(static_cast<char>(c));
    }
  }
  EXPECT_EQ(spaces, "\t\n\v\f\r ");
  EXPECT_FALSE(String::IsSpace('\0'));
}

TEST(String, BufferToHexWritesDigits) {
  const Velmar::u8 bytes[] = {0x00, 0xAB, 0x0F};
  char out[16];
  ASSERT_TRUE(String::BufferToHex(bytes, 3, out, 7, false, false));
  EXPECT_STREQ(out, "00ab0f");
  ASSERT_TRUE(String::BufferToHex(bytes, 3, out, 9, true, true));
  EXPECT_STREQ(out, "00 AB 0F");
  ASSERT_TRUE(String::BufferToHex(nullptr, 0, out, 1, false, true));
  EXPECT_STREQ(out, "");
}

TEST(String, BufferToHexThatDoesNotFitLeavesTheOutput) {
  const Velmar::u8 bytes[] = {0x00, 0xAB, 0x0F};
  char out[16] = "kept";
  EXPECT_FALSE(String::BufferToHex(bytes, 3, out, 6, false, false));
  EXPECT_FALSE(String::BufferToHex(bytes, 3, out, 8, false, true));
  EXPECT_FALSE(String::BufferToHex(bytes, 0, out, 0, false, false));
  EXPECT_FALSE(String::BufferToHex(bytes, 0x80000000U, out, 16, false, false));
  EXPECT_FALSE(String::BufferToHex(nullptr, 1, out, 16, false, false));
  EXPECT_STREQ(out, "kept");
}

struct NumberText {
  const char* text;
  Velmar::u32 length;
  int base;
  char stop;
  bool good;
  Velmar::u64 value;
};

TEST(String, ConvertToUInt64TakesWholeNumbersOnly) {
  constexpr char kNoStop = static_cast<char>(0xFF);
  const NumberText rows[] = {
      {"0", 0, 10, kNoStop, true, 0},
      {"18446744073709551615", 0, 10, kNoStop, true, ~0ULL},
      {"18446744073709551616", 0, 10, kNoStop, false, 0},
      {"99999999999999999999", 0, 10, kNoStop, false, 0},
      {"0018", Velmar::kNone, 10, kNoStop, true, 18},
      {"", 0, 10, kNoStop, false, 0},
      {"-1", 0, 10, kNoStop, false, 0},
      {"+1", 0, 10, kNoStop, false, 0},
      {" 1", 0, 10, kNoStop, false, 0},
      {"1 ", 0, 10, kNoStop, false, 0},
      {"12a", 0, 10, kNoStop, false, 0},
      {"12a", 2, 10, kNoStop, true, 12},
      {"12", 3, 10, kNoStop, false, 0},
      {"0x1F", 0, -1, kNoStop, true, 31},
      {"0Xff", 0, -1, kNoStop, true, 255},
      {"ffffffffffffffff", 0, 16, kNoStop, true, ~0ULL},
      {"10000000000000000", 0, 16, kNoStop, false, 0},
      {"010", 0, -1, kNoStop, true, 10},
      {"1F", 0, -1, kNoStop, false, 0},
      {"0x", 0, -1, kNoStop, false, 0},
      {"0x1F", 0, 10, kNoStop, false, 0},
      {"0x1F", 0, 16, kNoStop, false, 0},
      {"1g", 0, 16, kNoStop, false, 0},
      {"101", 0, 2, kNoStop, true, 5},
      {"102", 0, 2, kNoStop, false, 0},
      {"zz", 0, 36, kNoStop, true, 1295},
      {"12,34", 0, 10, ',', true, 12},
      {",34", 0, 10, ',', false, 0},
      {"12", 0, 10, ',', true, 12},
      {"12", 0, 1, kNoStop, false, 0},
      {"12", 0, 37, kNoStop, false, 0},
      {"12\xFF", 0, 10, kNoStop, false, 0},
  };
  for (const NumberText& row : rows) {
    Velmar::u64 value = 77;
    EXPECT_EQ(String::ConvertToUInt64(row.text, value, row.length, row.base, row.stop), row.good) << row.text;
    EXPECT_EQ(value, row.good ? row.value : 77U) << row.text;
  }
  Velmar::u64 value = 77;
  EXPECT_FALSE(String::ConvertToUInt64(nullptr, value, 0, 10, kNoStop));
}

TEST(String, ConvertToUInt16RefusesWhatDoesNotFit) {
  Velmar::u16 value = 77;
  EXPECT_FALSE(String::ConvertToUInt16("65536", value, 0, 10));
  EXPECT_FALSE(String::ConvertToUInt16("", value, 0, 10));
  EXPECT_FALSE(String::ConvertToUInt16("44x", value, 0, 10));
  EXPECT_EQ(value, 77);
  EXPECT_TRUE(String::ConvertToUInt16("65535", value, 0, 10));
  EXPECT_EQ(value, 65535);
  EXPECT_TRUE(String::ConvertToUInt16("443/tcp", value, 3, 10));
  EXPECT_EQ(value, 443);
}

TEST(String, EveryGrowingCallKeepsTheContentWhenMemoryFails) {
  const std::string longText(600, 'y');
  const String source(longText.c_str(), true);
  const std::function<bool(String&)> calls[] = {
      [&](String& s) { return s.Set(longText.c_str()); },
      [&](String& s) { return s.Set(&source); },
      [&](String& s) { return s.Add(longText.c_str()); },
      [&](String& s) { return s.Create(600); },
      [&](String& s) { return s.SetFormat("%s", longText.c_str()); },
      [&](String& s) { return s.AddFormat("%s", longText.c_str()); },
      [&](String& s) { return s.AddFormat("%d", 1234567); },
      [&](String& s) { return s.AddChar('x'); },
  };
  for (const auto& call : calls) {
    const int failed = ForEachFailingAllocation([&] {
      char area[5];
      String s;
      s.Create(area, sizeof(area), true, true);
      s.Set("keep");
      const bool done = call(s);
      if (!done) {
        EXPECT_STREQ(s.text, "keep");
        EXPECT_EQ(s.length, 4);
      }
      return done;
    });
    EXPECT_EQ(failed, 1);
  }
}

TEST(String, CopiesThatCannotHaveMemoryAreEmpty) {
  const String source(kLongText, true);
  String assigned("old", true);
  Velmar::Sim::FailAllocation(0, 3);
  const String copy(source);
  const String fromText(kLongText, true);
  assigned = source;
  Velmar::Sim::FailAllocation(~0ULL);
  EXPECT_STREQ(copy.text, "");
  EXPECT_STREQ(fromText.text, "");
  EXPECT_STREQ(assigned.text, "");
}

TEST(String, MoveOutOfAnAreaThatCannotHaveMemoryIsEmpty) {
  char area[64];
  String source;
  ASSERT_TRUE(source.Create(area, sizeof(area), true, true) && source.Set("text"));
  String target;
  Velmar::Sim::FailAllocation(0);
  target = std::move(source);
  Velmar::Sim::FailAllocation(~0ULL);
  EXPECT_STREQ(target.text, "");
}

}  // namespace
