#include "host/commands/Console.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using Host::Commands::TerminalTakesUtf8;

class ConsoleTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
      unsetenv(name);
    }
  }
};

TEST_F(ConsoleTest, NoLocaleIsNotUtf8) {
  EXPECT_FALSE(TerminalTakesUtf8());
  setenv("LANG", "C", 1);
  EXPECT_FALSE(TerminalTakesUtf8());
}

TEST_F(ConsoleTest, LocaleOfUtf8IsKnownByItsName) {
  for (const char* locale : {"en_GB.UTF-8", "de_DE.utf8", "C.UTF-8", "en_US.UTF-8@x"}) {
    setenv("LANG", locale, 1);
    EXPECT_TRUE(TerminalTakesUtf8()) << locale;
  }
  setenv("LANG", "de_DE.ISO-8859-1", 1);
  EXPECT_FALSE(TerminalTakesUtf8());
}

TEST_F(ConsoleTest, StrongerVariablesDecideUnlessEmpty) {
  setenv("LANG", "C.UTF-8", 1);
  setenv("LC_CTYPE", "", 1);
  EXPECT_TRUE(TerminalTakesUtf8());
  setenv("LC_CTYPE", "C", 1);
  EXPECT_FALSE(TerminalTakesUtf8());
  setenv("LC_ALL", "C.UTF-8", 1);
  EXPECT_TRUE(TerminalTakesUtf8());
}

}  // namespace
