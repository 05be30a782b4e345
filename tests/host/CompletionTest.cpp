#include "host/sql/Completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace Host::Sql;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Completion, WordIsWhatANameOrADotCommandIsMadeOf) {
  EXPECT_EQ(WordAtEnd("SELECT max(proc_fp"), "proc_fp");
  EXPECT_EQ(WordAtEnd(".ta"), ".ta");
  EXPECT_EQ(WordAtEnd("SELECT "), "");
  EXPECT_EQ(WordAtEnd(""), "");
}

TEST(Completion, CaseOfTheStartDoesNotMatter) {
  const std::vector<std::string> words = {"proc_pid", "proc_fpath", "port", "proc_pid"};
  EXPECT_THAT(Completions(words, "proc_"), ElementsAre("proc_fpath", "proc_pid"));
  EXPECT_THAT(Completions(words, "PO"), ElementsAre("port"));
  EXPECT_THAT(Completions(words, "x"), IsEmpty());
  EXPECT_THAT(Completions(words, ""), IsEmpty());
}

TEST(Completion, KeywordFollowsTheCaseThatIsTyped) {
  EXPECT_THAT(Completions({"SELECT"}, "sel"), ElementsAre("select"));
  EXPECT_THAT(Completions({"SELECT"}, "SEL"), ElementsAre("SELECT"));
  EXPECT_THAT(Completions({"Mine"}, "mi"), ElementsAre("Mine"));
  EXPECT_THAT(Completions({".tables"}, "."), ElementsAre(".tables"));
}

TEST(Completion, CommonStartIsWhatAllHave) {
  EXPECT_EQ(CommonStart({"proc_md5", "proc_pid"}), "proc_");
  EXPECT_EQ(CommonStart({"a", "ab"}), "a");
  EXPECT_EQ(CommonStart({"one"}), "one");
  EXPECT_EQ(CommonStart({"a", "b"}), "");
}

TEST(Completion, KnownWordsAreSortedAndOnce) {
  const std::vector<std::string> words = KnownWords();
  EXPECT_TRUE(std::is_sorted(words.begin(), words.end()));
  EXPECT_EQ(std::adjacent_find(words.begin(), words.end()), words.end());
}

}  // namespace
