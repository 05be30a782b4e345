#include "host/sql/StatementRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <sstream>

#include "host/sql/InterruptGuard.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Sql;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// An error in the second row.
constexpr char kFailsLate[] = "SELECT 1 AS n UNION ALL SELECT abs(-9223372036854775807 - 1)";

class StatementRunnerTest : public testing::Test {
 protected:
  StatementRunnerTest() : database_(folder_.Path()), runner_(database_, printer_) {
    std::filesystem::create_directory(folder_.Path("netdb"));
    std::string error;
    EXPECT_TRUE(database_.Open(error)) << error;
  }

  Outcome Run(Render::Format format, const std::string& sql) {
    printer_.options.format = format;
    return runner_.Run(sql);
  }
  void WantFootnotes() {
    printer_.footnote = [this](const std::string& text) { footnotes_.push_back(text); };
  }

  TemporaryFolder folder_;
  Table::Database database_;
  std::ostringstream out_;
  std::vector<std::string> errors_;
  std::vector<std::string> footnotes_;
  Printer printer_{out_, {}, [this](const std::string& text) { errors_.push_back(text); }, nullptr};
  StatementRunner runner_;
};

TEST_F(StatementRunnerTest, ResultsForPeopleStandApart) {
  EXPECT_EQ(Run(Render::Format::kTable, "SELECT 1 AS a; SELECT 2 AS b"), Outcome::kDone);
  EXPECT_EQ(Run(Render::Format::kLine, "SELECT 3 AS c"), Outcome::kDone);
  EXPECT_EQ(out_.str(), "a\n1\n\nb\n2\n\nc = 3\n");
}

TEST_F(StatementRunnerTest, ResultsForProgramsFollowEachOther) {
  EXPECT_EQ(Run(Render::Format::kJsonl, "SELECT 1 AS a; SELECT 2 AS b"), Outcome::kDone);
  EXPECT_EQ(out_.str(), "{\"a\":1}\n{\"b\":2}\n");
}

TEST_F(StatementRunnerTest, FootnoteTellsRowsAndTimeOfATable) {
  WantFootnotes();
  EXPECT_EQ(Run(Render::Format::kTable, "SELECT 1 AS a; SELECT 2 AS b WHERE 0; VALUES (1), (2)"), Outcome::kDone);
  EXPECT_THAT(footnotes_, ElementsAre(MatchesRegex("\\(1 row, [0-9]+\\.[0-9][0-9] s\\)"),
                                      MatchesRegex("\\(0 rows, [0-9]+\\.[0-9][0-9] s\\)"),
                                      MatchesRegex("\\(2 rows, [0-9]+\\.[0-9][0-9] s\\)")));
  EXPECT_EQ(out_.str().substr(0, 6), "a\n1\nb\n");
}

TEST_F(StatementRunnerTest, FootnoteOfATableThatIsTooWideNamesTheOtherFormat) {
  WantFootnotes();
  printer_.options.width = 12;
  EXPECT_EQ(Run(Render::Format::kTable, "SELECT 123456 AS a, 1234 AS b; SELECT 123456 AS a, 12345 AS b"),
            Outcome::kDone);
  EXPECT_THAT(footnotes_,
              ElementsAre(EndsWith(" s)"), EndsWith("Too wide for this terminal; the format line has a line "
                                                    "for each column.")));
}

TEST_F(StatementRunnerTest, OtherFormatsHaveNoFootnote) {
  WantFootnotes();
  for (const auto format :
       {Render::Format::kJson, Render::Format::kJsonl, Render::Format::kCsv, Render::Format::kLine}) {
    EXPECT_EQ(Run(format, "SELECT 1 AS a"), Outcome::kDone);
  }
  EXPECT_THAT(footnotes_, IsEmpty());
}

TEST_F(StatementRunnerTest, StatementWithoutAResultPrintsNothing) {
  WantFootnotes();
  EXPECT_EQ(Run(Render::Format::kTable, "CREATE TEMP VIEW v AS SELECT 1; -- a comment"), Outcome::kDone);
  EXPECT_EQ(Run(Render::Format::kTable, ""), Outcome::kDone);
  EXPECT_EQ(out_.str(), "");
  EXPECT_THAT(footnotes_, IsEmpty());
}

TEST_F(StatementRunnerTest, FailureIsToldBehindWhatCameBefore) {
  EXPECT_EQ(Run(Render::Format::kJsonl, "SELECT 1 AS a; SELEC 2; SELECT 3"), Outcome::kFailed);
  EXPECT_EQ(out_.str(), "{\"a\":1}\n");
  EXPECT_THAT(errors_, ElementsAre("near \"SELEC\": syntax error"));
}

TEST_F(StatementRunnerTest, TableThatFailsKeepsItsRows) {
  WantFootnotes();
  EXPECT_EQ(Run(Render::Format::kTable, kFailsLate), Outcome::kFailed);
  EXPECT_EQ(out_.str(), "n\n1\n");
  EXPECT_THAT(errors_, ElementsAre("integer overflow"));
  EXPECT_THAT(footnotes_, IsEmpty());
}

TEST_F(StatementRunnerTest, JsonThatFailsStaysOpen) {
  EXPECT_EQ(Run(Render::Format::kJson, kFailsLate), Outcome::kFailed);
  EXPECT_EQ(out_.str(), "[\n{\"n\":1}");
}

TEST_F(StatementRunnerTest, LostOutputEndsTheStatement) {
  out_.setstate(std::ios::badbit);
  EXPECT_EQ(Run(Render::Format::kTable, "SELECT 1"), Outcome::kOutputLost);
  EXPECT_THAT(errors_, IsEmpty());
}

// A stream that interrupts when it gets its first byte.
class Interrupting final : public std::stringbuf {
 public:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    if (!raised_) {
      raised_ = true;
      raise(SIGINT);
    }
    return std::stringbuf::xsputn(text, size);
  }

 private:
  bool raised_ = false;
};

TEST(StatementRunner, SignalInterruptsTheStatementThatRuns) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.Path("netdb"));
  Table::Database database(folder.Path());
  std::string error;
  ASSERT_TRUE(database.Open(error)) << error;
  Interrupting buffer;
  std::ostream out(&buffer);
  std::vector<std::string> errors;
  Printer printer{
      out, {.format = Render::Format::kCsv}, [&errors](const std::string& text) { errors.push_back(text); }, nullptr};
  const InterruptGuard ignored(nullptr);
  EXPECT_EQ(StatementRunner(database, printer)
                .Run("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT x FROM c WHERE x = 1"),
            Outcome::kInterrupted);
  EXPECT_THAT(errors, ElementsAre("interrupted"));
  raise(SIGINT);  // does nothing while nothing runs
  EXPECT_EQ(StatementRunner(database, printer).Run("CREATE TEMP VIEW v AS SELECT 1"), Outcome::kDone);
}

TEST(InterruptGuard, ThirdSignalEndsTheProgram) {
  Table::Database database("/nowhere");
  const auto interrupt = [&database](int times) {
    const InterruptGuard guard(&database);
    for (int i = 0; i < times; ++i) {
      raise(SIGINT);
    }
    exit(0);
  };
  EXPECT_EXIT(interrupt(2), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(interrupt(3), testing::KilledBySignal(SIGINT), "");
}

TEST(InterruptGuard, PutsBackWhatItFound) {
  EXPECT_EXIT(
      {
        { const InterruptGuard guard(nullptr); }
        raise(SIGINT);
      },
      testing::KilledBySignal(SIGINT), "");
}

}  // namespace
