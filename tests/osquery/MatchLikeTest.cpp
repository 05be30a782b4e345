#include "osquery/osquery/MatchLike.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <random>
#include <string>
#include <vector>

#include "osquery/osquery/MatchLike.ipp"

namespace RYL::NetDB::OSQuery {
namespace {

using Velmar::u64;

TEST(MatchLike, PlainPatternMatchesItselfOnly) {
  EXPECT_TRUE(MatchLike("/bin/sh", "/bin/sh"));
  EXPECT_FALSE(MatchLike("/bin/sh", "/bin/s"));
  EXPECT_FALSE(MatchLike("/bin/s", "/bin/sh"));
  EXPECT_TRUE(MatchLike("", ""));
  EXPECT_FALSE(MatchLike("a", ""));
  EXPECT_FALSE(MatchLike("", "a"));
}

TEST(MatchLike, LettersMatchInAnyCase) {
  EXPECT_TRUE(MatchLike("/USR/Bin/cURL", "/usr/bIN/Curl"));
  EXPECT_TRUE(MatchLike("/opt/FireFox/firefox", "%FIREFOX/%"));
  EXPECT_FALSE(MatchLike("/opt/FireFox/firefox", "%chrome%"));
}

// The letters are next to other characters, whose bytes differ from theirs by the same bit.
TEST(MatchLike, OnlyLettersFold) {
  for (int text = 1; text < 256; ++text) {
    for (int pattern = 1; pattern < 256; ++pattern) {
      const char texts[] = {static_cast<char>(text), '\0'};
      const char patterns[] = {static_cast<char>(pattern), '\0'};
      const bool sameLetter = (text | 32) == (pattern | 32) && (text | 32) >= 'a' && (text | 32) <= 'z';
      const bool matches = text == pattern || pattern == '%' || pattern == '_' || sameLetter;
      EXPECT_EQ(MatchLike(texts, patterns), matches) << text << " " << pattern;
    }
  }
}

TEST(MatchLike, UnderscoreIsOneByte) {
  EXPECT_TRUE(MatchLike("abc", "a_c"));
  EXPECT_TRUE(MatchLike("abc", "___"));
  EXPECT_FALSE(MatchLike("abc", "__"));
  EXPECT_FALSE(MatchLike("abc", "____"));
  EXPECT_FALSE(MatchLike("", "_"));
  EXPECT_FALSE(MatchLike("\xC3\xA4", "_"));
  EXPECT_TRUE(MatchLike("\xC3\xA4", "__"));
  EXPECT_TRUE(MatchLike("a_c", "a_c"));
}

TEST(MatchLike, PercentIsAnyRun) {
  EXPECT_TRUE(MatchLike("", "%"));
  EXPECT_TRUE(MatchLike("abc", "%"));
  EXPECT_TRUE(MatchLike("abc", "abc%"));
  EXPECT_TRUE(MatchLike("abc", "%abc"));
  EXPECT_TRUE(MatchLike("abc", "a%c"));
  EXPECT_TRUE(MatchLike("ac", "a%c"));
  EXPECT_TRUE(MatchLike("abcbc", "a%bc"));
  EXPECT_FALSE(MatchLike("abcb", "a%bc"));
  EXPECT_FALSE(MatchLike("ab", "%ab_"));
  EXPECT_TRUE(MatchLike("aXbXc", "a%x%c"));
  EXPECT_FALSE(MatchLike("", "%a"));
  EXPECT_FALSE(MatchLike("", "a%"));
}

TEST(MatchLike, RunOfPercentsIsOne) {
  EXPECT_TRUE(MatchLike("", "%%%"));
  EXPECT_TRUE(MatchLike("abc", "%%%"));
  EXPECT_TRUE(MatchLike("abc", "a%%%%c"));
  EXPECT_TRUE(MatchLike("abc", "abc%%"));
  EXPECT_FALSE(MatchLike("abc", "%%d%%"));
  EXPECT_TRUE(MatchLike("abc", "%%_%%_%%_%%"));
  EXPECT_FALSE(MatchLike("abc", "%_%_%_%_%"));
}

// A pattern has no way to escape.
TEST(MatchLike, BackslashIsItself) {
  EXPECT_TRUE(MatchLike("C:\\a\\b.exe", "c:\\A\\%.exe"));
  EXPECT_FALSE(MatchLike("100%", "100\\%"));
  EXPECT_TRUE(MatchLike("100\\", "100\\%"));
}

// What LIKE means, a character at a time.
bool Defined(const char* text, const char* pattern) {
  if (*pattern == '\0') {
    return *text == '\0';
  }
  if (*pattern == '%') {
    return Defined(text, pattern + 1) || (*text != '\0' && Defined(text + 1, pattern));
  }
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return *text != '\0' && (*pattern == '_' || lower(*pattern) == lower(*text)) && Defined(text + 1, pattern + 1);
}

// All texts of up to `length` characters of the alphabet.
std::vector<std::string> AllTexts(const std::string& alphabet, std::size_t length) {
  std::vector<std::string> texts = {""};
  for (std::size_t at = 0; at < texts.size(); ++at) {
    for (const char c : texts[at].size() < length ? alphabet : "") {
      texts.push_back(texts[at] + c);
    }
  }
  return texts;
}

TEST(MatchLike, ShortPatternsMatchWhatTheDefinitionDoes) {
  const std::vector<std::string> texts = AllTexts("aB", 6);
  for (const std::string& pattern : AllTexts("%_ab", 5)) {
    for (const std::string& text : texts) {
      ASSERT_EQ(MatchLike(text.c_str(), pattern.c_str()), Defined(text.c_str(), pattern.c_str()))
          << text << " LIKE " << pattern;
    }
  }
}

std::string RandomText(std::mt19937& random, const std::string& alphabet, u32 longest) {
  std::string text(random() % (longest + 1), ' ');
  for (char& c : text) {
    c = alphabet[random() % alphabet.size()];
  }
  return text;
}

TEST(MatchLike, RandomPatternsMatchWhatTheDefinitionDoes) {
  std::mt19937 random(1);
  u32 matches = 0;
  for (u32 i = 0; i < 100000; ++i) {
    const std::string text = RandomText(random, "abAB/\xC3\xA4", 14);
    const std::string pattern = RandomText(random, "%%_aB/\xC3", 9);
    const bool matched = MatchLike(text.c_str(), pattern.c_str());
    ASSERT_EQ(matched, Defined(text.c_str(), pattern.c_str())) << text << " LIKE " << pattern;
    matches += matched ? 1 : 0;
  }
  EXPECT_GT(matches, 10000U);
}

TEST(MatchLike, AsciiPatternsMatchWhatSQLiteMatches) {
  std::mt19937 random(2);
  std::string ascii = "%%%%____aaaaAAAAbbbb";
  for (char c = 1; c < 127; ++c) {
    ascii += c;
  }
  u32 matches = 0;
  for (u32 i = 0; i < 100000; ++i) {
    const std::string alphabet = i % 2 == 0 ? ascii : "%_aAbB";
    const std::string text = RandomText(random, alphabet, 14);
    const std::string pattern = RandomText(random, alphabet, 9);
    const bool matched = MatchLike(text.c_str(), pattern.c_str());
    ASSERT_EQ(matched, sqlite3_strlike(pattern.c_str(), text.c_str(), 0) == 0) << text << " LIKE " << pattern;
    matches += matched ? 1 : 0;
  }
  EXPECT_GT(matches, 1000U);
}

// Walks a text and counts the looks at it.
class Counting {
 public:
  Counting(const std::string& text, u64& looks) : at_(text.c_str()), looks_(&looks) {}
  char operator*() const {
    ++*looks_;
    return *at_;
  }
  Counting& operator++() {
    ++at_;
    return *this;
  }

 private:
  const char* at_;
  u64* looks_;
};

std::string Repeated(const std::string& text, u32 times) {
  std::string repeated;
  for (u32 i = 0; i < times; ++i) {
    repeated += text;
  }
  return repeated;
}

// Recursion would try as many ways as there are to put 20 letters among 511.
TEST(MatchLike, HardPatternTakesNoMoreStepsThanTheProductOfTheLengths) {
  struct {
    std::string text;
    std::string pattern;
    bool matches;
  } const cases[] = {
      {std::string(511, 'a'), Repeated("%a", 20) + "b", false},
      {std::string(511, 'a'), Repeated("%a", 20) + "%b", false},
      {std::string(511, 'a'), Repeated("%a", 20), true},
      {std::string(511, 'a') + "b", Repeated("%a", 20) + "b", true},
      {std::string(5000, 'a'), "%" + std::string(100, 'a') + "b%", false},
      {std::string(5000, 'a'), Repeated("%_", 2000) + "%b", false},
      {Repeated("ab", 2500), Repeated("%ab", 1000) + "%c", false},
      {Repeated("ab", 2500), Repeated("%%%%", 500) + "c", false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.pattern.substr(0, 60));
    u64 looks = 0;
    EXPECT_EQ(LikeMatcher::Match(Counting(test.text, looks), Counting(test.pattern, looks)), test.matches);
    // An iteration looks at both up to seven times.
    EXPECT_LE(looks, 7 * (test.text.size() + 1) * (test.pattern.size() + 1));
    EXPECT_EQ(MatchLike(test.text.c_str(), test.pattern.c_str()), test.matches);
  }
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
