#include "host/sql/Shell.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <sstream>

#include "host/sql/SqlText.h"

namespace {

using namespace Host::Sql;
using testing::ElementsAre;
using testing::IsEmpty;

// Lines as somebody types them; "^C" drops one.
class TypedLines final : public LineSource {
 public:
  explicit TypedLines(std::deque<std::string> lines) : lines_(std::move(lines)) {}
  Got Read(const std::string& prompt, std::string& line) override {
    prompts.push_back(prompt);
    if (lines_.empty()) {
      return Got::kEnd;
    }
    line = lines_.front();
    lines_.pop_front();
    return line == "^C" ? Got::kDropped : Got::kLine;
  }
  void Remember(const std::string& entry) override { remembered.push_back(entry); }

  std::vector<std::string> prompts;
  std::vector<std::string> remembered;

 private:
  std::deque<std::string> lines_;
};

// Keeps what it is to run, and gives the outcomes that were asked for.
class Recorded final : public Shell::Actions {
 public:
  Outcome RunStatements(const std::string& sql) override { return Keep(sql); }
  Outcome RunCommand(const std::string& line) override { return Keep(line); }

  std::vector<std::string> ran;
  std::map<std::string, Outcome> outcomes;

 private:
  Outcome Keep(const std::string& text) {
    ran.push_back(text);
    return outcomes[text];
  }
};

Outcome RunShell(TypedLines& lines, Recorded& actions, Shell::Manner manner) {
  return Shell(lines, actions, manner).Run();
}

std::vector<std::string> Ran(std::deque<std::string> lines, Shell::Manner manner = Shell::Manner::kInteractive) {
  TypedLines typed(std::move(lines));
  Recorded actions;
  EXPECT_EQ(RunShell(typed, actions, manner), Outcome::kDone);
  return actions.ran;
}

TEST(Shell, StatementIsGatheredUntilItsSemicolon) {
  EXPECT_THAT(Ran({"SELECT 1;", "SELECT", " 2", ";"}), ElementsAre("SELECT 1;", "SELECT\n 2\n;"));
}

TEST(Shell, SemicolonInATextOrACommentEndsNothing) {
  EXPECT_THAT(Ran({"SELECT ';", "';"}), ElementsAre("SELECT ';\n';"));
  EXPECT_THAT(Ran({"SELECT 1 -- one;", ";"}), ElementsAre("SELECT 1 -- one;\n;"));
  EXPECT_THAT(Ran({"SELECT 1 /* ;", "; */ ;"}), ElementsAre("SELECT 1 /* ;\n; */ ;"));
}

TEST(Shell, CommentBehindTheSemicolonBelongsToTheStatement) {
  EXPECT_THAT(Ran({"SELECT 1; -- one", "SELECT 2; /* two", "is more */", "SELECT 3;"}),
              ElementsAre("SELECT 1; -- one", "SELECT 2; /* two\nis more */", "SELECT 3;"));
}

TEST(Shell, SeveralStatementsOfALineRunTogether) {
  EXPECT_THAT(Ran({"SELECT 1; SELECT 2;"}), ElementsAre("SELECT 1; SELECT 2;"));
  EXPECT_THAT(Ran({"SELECT 1; SELECT", "2;"}), ElementsAre("SELECT 1; SELECT\n2;"));
}

TEST(Shell, BlankLinesAndCommentsRunNothing) {
  EXPECT_THAT(Ran({"", "   ", "-- nothing;", "/* nothing */", "/* no", "thing; */", "\t;"}), ElementsAre(";"));
}

TEST(Shell, DotCommandIsALineOfItsOwn) {
  EXPECT_THAT(Ran({".tables", "  .mode csv \r", "SELECT 1", ".5;"}),
              ElementsAre(".tables", ".mode csv", "SELECT 1\n.5;"));
}

TEST(Shell, PromptSaysWhetherAStatementIsUnderWay) {
  TypedLines lines({"SELECT", "1;", ".tables", "SELECT", "^C"});
  Recorded actions;
  RunShell(lines, actions, Shell::Manner::kInteractive);
  EXPECT_THAT(lines.prompts, ElementsAre("netdb> ", "  ...> ", "netdb> ", "netdb> ", "  ...> ", "netdb> "));
}

TEST(Shell, DroppedLineTakesTheStatementAlong) {
  EXPECT_THAT(Ran({"SELECT no", "^C", "SELECT 1;"}), ElementsAre("SELECT 1;"));
}

TEST(Shell, StatementIsOneEntryOfTheHistory) {
  TypedLines lines({"", "SELECT", "  1;", "  .tables", "SELECT\n2;"});
  Recorded actions;
  RunShell(lines, actions, Shell::Manner::kInteractive);
  EXPECT_THAT(lines.remembered, ElementsAre("SELECT\n  1;", ".tables", "SELECT\n2;"));
  EXPECT_THAT(actions.ran, ElementsAre("SELECT\n  1;", ".tables", "SELECT\n2;"));
}

TEST(Shell, QuitEndsBothManners) {
  for (const auto manner : {Shell::Manner::kInteractive, Shell::Manner::kScript}) {
    TypedLines lines({".quit", "SELECT 1;"});
    Recorded actions;
    actions.outcomes[".quit"] = Outcome::kQuit;
    EXPECT_EQ(RunShell(lines, actions, manner), Outcome::kDone);
    EXPECT_THAT(actions.ran, ElementsAre(".quit"));
  }
}

TEST(Shell, EndOfTheInputRunsWhatIsLeftOfAScriptOnly) {
  EXPECT_THAT(Ran({"SELECT 1"}, Shell::Manner::kScript), ElementsAre("SELECT 1"));
  EXPECT_THAT(Ran({"SELECT 1"}), IsEmpty());
  EXPECT_THAT(Ran({"SELECT 1;", "-- the end"}, Shell::Manner::kScript), ElementsAre("SELECT 1;"));
}

TEST(Shell, FailureEndsAScript) {
  for (const Outcome outcome : {Outcome::kFailed, Outcome::kInterrupted}) {
    for (const char* failing : {"SELECT 2;", ".mode xml"}) {
      TypedLines lines({"SELECT 1;", failing, "SELECT 3;"});
      Recorded actions;
      actions.outcomes["SELECT 1;"] = Outcome::kPartial;
      actions.outcomes[failing] = outcome;
      EXPECT_EQ(RunShell(lines, actions, Shell::Manner::kScript), outcome);
      EXPECT_THAT(actions.ran, ElementsAre("SELECT 1;", failing));
    }
  }
}

TEST(Shell, FailureOfTheRestOfAScriptIsItsOutcome) {
  TypedLines lines({"SELECT"});
  Recorded actions;
  actions.outcomes["SELECT"] = Outcome::kFailed;
  EXPECT_EQ(RunShell(lines, actions, Shell::Manner::kScript), Outcome::kFailed);
}

TEST(Shell, FailureDoesNotEndAShell) {
  for (const Outcome outcome : {Outcome::kFailed, Outcome::kInterrupted, Outcome::kPartial}) {
    TypedLines lines({"SELECT 1;", "SELECT 2;"});
    Recorded actions;
    actions.outcomes["SELECT 1;"] = outcome;
    EXPECT_EQ(RunShell(lines, actions, Shell::Manner::kInteractive), Outcome::kDone);
    EXPECT_THAT(actions.ran, ElementsAre("SELECT 1;", "SELECT 2;"));
  }
}

TEST(Shell, RowsMissingOnceMakeAScriptPartial) {
  TypedLines lines({"SELECT 1;", "SELECT 2;", "SELECT 3;"});
  Recorded actions;
  actions.outcomes["SELECT 2;"] = Outcome::kPartial;
  EXPECT_EQ(RunShell(lines, actions, Shell::Manner::kScript), Outcome::kPartial);
  EXPECT_EQ(actions.ran.size(), 3U);
}

TEST(Shell, LostOutputEndsBothManners) {
  for (const auto manner : {Shell::Manner::kInteractive, Shell::Manner::kScript}) {
    TypedLines lines({"SELECT 1;", "SELECT 2;"});
    Recorded actions;
    actions.outcomes["SELECT 1;"] = Outcome::kOutputLost;
    EXPECT_EQ(RunShell(lines, actions, manner), Outcome::kOutputLost);
    EXPECT_THAT(actions.ran, ElementsAre("SELECT 1;"));
  }
}

TEST(StreamLines, GivesTheLinesOfAStream) {
  std::istringstream in("a\n\nb");
  StreamLines lines(in);
  std::vector<std::string> got;
  for (std::string line; lines.Read("netdb> ", line) == LineSource::Got::kLine;) {
    got.push_back(line);
  }
  EXPECT_THAT(got, ElementsAre("a", "", "b"));
}

TEST(SqlText, BlanksAndCommentsAreBlank) {
  for (const char* blank : {"", " \t\r\n", "-- c", "-- c\n", "/**/", " /* a\n; */ -- b\n/* c */\n"}) {
    EXPECT_TRUE(IsBlank(blank)) << blank;
  }
  for (const char* text : {";", "-", "- -", "/", "/*", "/*/", "/* a", "-- a\nb", "/* a */ b"}) {
    EXPECT_FALSE(IsBlank(text)) << text;
  }
}

TEST(SqlText, TrimmedHasNoBlanksAroundIt) {
  EXPECT_EQ(Trimmed(" \n a b\t\r\n"), "a b");
  EXPECT_EQ(Trimmed(" \n"), "");
}

}  // namespace
