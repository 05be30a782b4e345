#include "Velmar/OS/Path.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/base/FailingAllocations.h"

using Velmar::OS::Path;
using Velmar::Utils::String;

namespace {

// Variables last as long as the process: each of these tests needs one of its own.

std::string Appended(const char* path, const char* element, bool expand = false) {
  String out(path, true);
  EXPECT_TRUE(Path::Join(out, element, expand));
  return out.text;
}

std::string WithoutLast(const char* path, bool keepSeparator) {
  String out(path, true);
  EXPECT_TRUE(Path::RemoveLast(out, keepSeparator));
  return out.text;
}

std::string Normalized(const char* path) {
  String out(path, true);
  EXPECT_TRUE(Path::Normalize(out));
  return out.text;
}

TEST(Path, JoinPutsOneSeparatorBetween) {
  EXPECT_EQ(Appended("a", "b"), "a/b");
  EXPECT_EQ(Appended("a/", "b"), "a/b");
  EXPECT_EQ(Appended("a", "/b"), "a/b");
  EXPECT_EQ(Appended("a//", "//b"), "a/b");
  EXPECT_EQ(Appended("/", "b"), "/b");
  EXPECT_EQ(Appended("/a", "b/c"), "/a/b/c");
}

TEST(Path, JoinToNothingIsTheElement) {
  EXPECT_EQ(Appended("", "b"), "b");
  EXPECT_EQ(Appended("", "/b"), "/b");
}

TEST(Path, JoinOfNothingChangesNothing) {
  EXPECT_EQ(Appended("a", ""), "a");
  EXPECT_EQ(Appended("a/", ""), "a/");
  EXPECT_EQ(Appended("a", "/"), "a");
  EXPECT_EQ(Appended("", ""), "");
}

TEST(Path, JoinOfTwoReplacesTheContent) {
  String out("old", true);
  ASSERT_TRUE(Path::Join(out, "/data", "file", false));
  EXPECT_STREQ(out.text, "/data/file");
  ASSERT_TRUE(Path::Join(out, String("x/", true), String("y", true), false));
  EXPECT_STREQ(out.text, "x/y");
  ASSERT_TRUE(Path::Join(out, String("z", true), false));
  EXPECT_STREQ(out.text, "x/y/z");
}

TEST(Path, JoinTakesItsOwnOutput) {
  String out("a", true);
  ASSERT_TRUE(Path::Join(out, out, false));
  EXPECT_STREQ(out.text, "a/a");
  ASSERT_TRUE(Path::Join(out, out, out, false));
  EXPECT_STREQ(out.text, "a/a/a/a");
}

TEST(Path, JoinOfNullFails) {
  String out("kept", true);
  EXPECT_FALSE(Path::Join(out, static_cast<const char*>(nullptr), false));
  EXPECT_FALSE(Path::Join(out, static_cast<const char*>(nullptr), "b", true));
  EXPECT_FALSE(Path::Join(out, "a", static_cast<const char*>(nullptr), true));
  EXPECT_STREQ(out.text, "kept");
}

TEST(Path, VariablesAreExpandedOnRequest) {
  ASSERT_TRUE(Path::SetVariable("P", "/var/lib/x"));
  String out;
  ASSERT_TRUE(Path::Join(out, "${P}", "netdb", true));
  EXPECT_STREQ(out.text, "/var/lib/x/netdb");
  ASSERT_TRUE(Path::Join(out, "${P}", "netdb", false));
  EXPECT_STREQ(out.text, "${P}/netdb");
}

TEST(Path, VariablesStandAnywhereInAnElement) {
  ASSERT_TRUE(Path::SetVariable("P", "p") && Path::SetVariable("Long", "l"));
  EXPECT_EQ(Appended("a", "x${P}y${Long}${P}z", true), "a/xpylpz");
  EXPECT_EQ(Appended("a", "$P ${ } {P}", false), "a/$P ${ } {P}");
  EXPECT_EQ(Appended("a", "$P {P} ${P", true), "a/$P {P} ${P");
}

TEST(Path, ValueOfAVariableIsNotExpandedAgain) {
  ASSERT_TRUE(Path::SetVariable("P", "<${Q}>") && Path::SetVariable("Q", "q"));
  EXPECT_EQ(Appended("", "${P}", true), "<${Q}>");
}

TEST(Path, UnknownVariableFails) {
  ASSERT_TRUE(Path::SetVariable("P", "p"));
  for (const char* element : {"${Q}", "${}", "${p}", "${PP}", "${P}${Q}", "x${ P}"}) {
    String out("kept", true);
    EXPECT_FALSE(Path::Join(out, element, true)) << element;
    EXPECT_FALSE(Path::Join(out, element, "b", true)) << element;
    EXPECT_FALSE(Path::Join(out, "a", element, true)) << element;
    EXPECT_STREQ(out.text, "kept");
  }
}

TEST(Path, VariableTakesItsLatestValue) {
  ASSERT_TRUE(Path::SetVariable("P", "old") && Path::SetVariable("P", "new"));
  EXPECT_EQ(Appended("", "${P}", true), "new");
}

TEST(Path, SixteenVariablesAreTheMost) {
  for (int i = 0; i < 16; ++i) {
    ASSERT_TRUE(Path::SetVariable(std::to_string(i).c_str(), "v"));
  }
  EXPECT_FALSE(Path::SetVariable("more", "v"));
  EXPECT_TRUE(Path::SetVariable("7", "seven"));
  EXPECT_EQ(Appended("", "${7}${15}", true), "sevenv");
  EXPECT_FALSE(Path::SetVariable("", "v"));
  EXPECT_FALSE(Path::SetVariable(nullptr, "v"));
  EXPECT_FALSE(Path::SetVariable("7", nullptr));
}

TEST(Path, FileNameStandsBehindTheLastSeparator) {
  EXPECT_STREQ(Path::GetFileName("/a/b/1700000000.db"), "1700000000.db");
  EXPECT_STREQ(Path::GetFileName("file"), "file");
  EXPECT_STREQ(Path::GetFileName("a/"), "");
  EXPECT_STREQ(Path::GetFileName(""), "");
  EXPECT_EQ(Path::GetFileName(nullptr), nullptr);
}

TEST(Path, NormalizeMakesDoubledSeparatorsOne) {
  EXPECT_EQ(Normalized("//a///b//c//"), "/a/b/c/");
  EXPECT_EQ(Normalized("a/b"), "a/b");
  EXPECT_EQ(Normalized("////"), "/");
  EXPECT_EQ(Normalized("a\\\\b"), "a\\\\b");
  EXPECT_EQ(Normalized(""), "");
}

TEST(Path, RemoveLastDropsTheLastElement) {
  EXPECT_EQ(WithoutLast("a/b", false), "a");
  EXPECT_EQ(WithoutLast("a/b", true), "a/");
  EXPECT_EQ(WithoutLast("/a/b/c.db", false), "/a/b");
  EXPECT_EQ(WithoutLast("a/b/", false), "a");
  EXPECT_EQ(WithoutLast("a//b", false), "a");
  EXPECT_EQ(WithoutLast("a//b", true), "a/");
  EXPECT_EQ(WithoutLast("a", false), "");
  EXPECT_EQ(WithoutLast("a", true), "");
}

TEST(Path, RemoveLastKeepsTheRoot) {
  EXPECT_EQ(WithoutLast("/a", false), "/");
  EXPECT_EQ(WithoutLast("/a", true), "/");
  for (const char* path : {"", "/", "//"}) {
    String out(path, true);
    EXPECT_FALSE(Path::RemoveLast(out, false));
    EXPECT_STREQ(out.text, path);
  }
}

TEST(Path, RemoveLastUndoesJoin) {
  for (const char* folder : {"/", "/data", "data/x"}) {
    String path(folder, true);
    ASSERT_TRUE(Path::Join(path, "file", false) && Path::RemoveLast(path, false));
    EXPECT_STREQ(path.text, folder);
  }
}

TEST(Path, OnlyTheSlashIsASeparatorHere) {
  EXPECT_TRUE(Path::IsPathSeparator('/'));
  EXPECT_FALSE(Path::IsPathSeparator('\\'));
  EXPECT_FALSE(Path::IsPathSeparator('\0'));
}

TEST(Path, JoinKeepsItsOutputWhenMemoryFails) {
  const std::string folder(700, 'f');
  ASSERT_TRUE(Path::SetVariable("P", folder.c_str()));
  EXPECT_GT(ForEachFailingAllocation([] {
              char area[5];
              String out;
              out.Create(area, sizeof(area), true, true);
              out.Set("kept");
              const bool done = Path::Join(out, "${P}", "netdb", true) && Path::Join(out, "${P}", true);
              if (!done && out.length < 700) {
                EXPECT_STREQ(out.text, "kept");
              }
              return done;
            }),
            2);
}

TEST(Path, NormalizeKeepsThePathWhenMemoryFails) {
  const std::string before = std::string(700, 'f') + "//x";
  EXPECT_GT(ForEachFailingAllocation([&] {
              String path;
              if (!path.Set(before.c_str())) {
                return false;
              }
              const bool done = Path::Normalize(path);
              EXPECT_EQ(path.length, done ? 702 : 703);
              return done;
            }),
            1);
}

TEST(Path, VariableKeepsItsValueWhenMemoryFails) {
  ASSERT_TRUE(Path::SetVariable("P", "old"));
  const std::string value(300, 'v');
  EXPECT_EQ(ForEachFailingAllocation([&] {
              const bool done = Path::SetVariable("P", value.c_str());
              char area[512];
              String out;
              out.Create(area, sizeof(area), true, true);
              EXPECT_TRUE(Path::Join(out, "${P}", true));
              EXPECT_EQ(std::string(out.text), done ? value : "old");
              return done;
            }),
            1);
}

TEST(Path, VariableThatCannotHaveMemoryIsNotThere) {
  EXPECT_EQ(ForEachFailingAllocation([] {
              const bool done = Path::SetVariable("Name", "value");
              String out;
              out.Create(100);
              EXPECT_EQ(Path::Join(out, "${Name}", true), done);
              return done;
            }),
            2);
}

}  // namespace
