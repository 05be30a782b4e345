#include "host/sql/DotCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Sql;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class DotCommandsTest : public testing::Test {
 protected:
  DotCommandsTest() : database_(folder_.Path()), commands_(database_, printer_) {
    std::filesystem::create_directory(folder_.Path("netdb"));
    std::string error;
    EXPECT_TRUE(database_.Open(error)) << error;
  }

  Outcome Run(const std::string& line) {
    out_.str("");
    errors_.clear();
    return commands_.Run(line);
  }

  TemporaryFolder folder_;
  Table::Database database_;
  std::ostringstream out_;
  std::vector<std::string> errors_;
  Printer printer_{out_, {}, [this](const std::string& text) { errors_.push_back(text); }, nullptr};
  DotCommands commands_;
};

TEST_F(DotCommandsTest, TablesListsTablesAndViews) {
  EXPECT_EQ(Run(".tables"), Outcome::kDone);
  EXPECT_EQ(out_.str(), "days\nedr_netdb\nprocesses\n");
  StatementRunner runner(database_, printer_);
  EXPECT_EQ(runner.Run("CREATE TEMP TABLE mine(a)"), Outcome::kDone);
  EXPECT_EQ(Run(".tables"), Outcome::kDone);
  EXPECT_EQ(out_.str(), "days\nedr_netdb\nmine\nprocesses\n");
}

TEST_F(DotCommandsTest, SchemaOfTheTableNamesItsColumns) {
  EXPECT_EQ(Run(".schema EDR_netdb"), Outcome::kDone);
  EXPECT_THAT(out_.str(), StartsWith("CREATE TABLE edr_netdb(\n  ip TEXT,\n  first_seen BIGINT,\n"));
  EXPECT_THAT(out_.str(), testing::EndsWith("  proc_puid TEXT,\n  proc_pid BIGINT\n);\n"));
}

TEST_F(DotCommandsTest, SchemaWithoutANameShowsAll) {
  EXPECT_EQ(Run(".schema"), Outcome::kDone);
  for (const char* start : {"CREATE TABLE edr_netdb(", "CREATE VIEW processes AS", "CREATE VIEW days AS"}) {
    EXPECT_THAT(out_.str(), HasSubstr(start));
  }
}

TEST_F(DotCommandsTest, SchemaOfNothingIsAFailure) {
  EXPECT_EQ(Run(".schema connections"), Outcome::kFailed);
  EXPECT_EQ(out_.str(), "");
  EXPECT_THAT(errors_, ElementsAre("there is no table \"connections\"; .tables lists them"));
}

TEST_F(DotCommandsTest, ModeSetsTheFormatAndTellsIt) {
  for (const char* name : {"json", "jsonl", "csv", "line", "table"}) {
    EXPECT_EQ(Run(std::string(".mode ") + name), Outcome::kDone);
    EXPECT_EQ(Run(".mode"), Outcome::kDone);
    EXPECT_EQ(out_.str(), std::string(name) + "\n");
    EXPECT_EQ(printer_.options.format, Render::FormatOf(name));
  }
}

TEST_F(DotCommandsTest, UnknownModeLeavesTheFormat) {
  Run(".mode csv");
  EXPECT_EQ(Run(".mode xml"), Outcome::kFailed);
  EXPECT_THAT(errors_, ElementsAre("there is no format \"xml\"; there are table, json, jsonl, csv and line"));
  EXPECT_EQ(printer_.options.format, Render::Format::kCsv);
}

TEST_F(DotCommandsTest, HelpNamesEachCommand) {
  EXPECT_EQ(Run(".help"), Outcome::kDone);
  for (const char* command : {".tables", ".schema", ".mode", ".help", ".quit", ".exit"}) {
    EXPECT_THAT(out_.str(), HasSubstr(command));
  }
}

TEST_F(DotCommandsTest, QuitAndExitLeave) {
  EXPECT_EQ(Run(".quit"), Outcome::kQuit);
  EXPECT_EQ(Run(".exit"), Outcome::kQuit);
  EXPECT_EQ(Run(".quit;"), Outcome::kQuit);
  EXPECT_THAT(errors_, IsEmpty());
}

TEST_F(DotCommandsTest, UnknownCommandListsThoseThatAre) {
  for (const char* line : {".tabels", ".TABLES", ".", ".dump edr_netdb"}) {
    EXPECT_EQ(Run(line), Outcome::kFailed);
    ASSERT_EQ(errors_.size(), 1U);
    EXPECT_THAT(errors_[0], StartsWith("there is no command \"."));
    EXPECT_THAT(errors_[0], HasSubstr(".tables, .schema, .mode, .help and .quit"));
  }
}

TEST_F(DotCommandsTest, WordsTooManyAreAFailure) {
  EXPECT_EQ(Run(".tables now"), Outcome::kFailed);
  EXPECT_THAT(errors_, ElementsAre(".tables takes nothing after it"));
  EXPECT_EQ(Run(".mode csv json"), Outcome::kFailed);
  EXPECT_THAT(errors_, ElementsAre(".mode takes one word after it"));
  EXPECT_EQ(Run(".quit now"), Outcome::kFailed);
  EXPECT_THAT(errors_, ElementsAre(".quit takes nothing after it"));
}

TEST_F(DotCommandsTest, LostOutputIsTold) {
  out_.setstate(std::ios::badbit);
  for (const char* line : {".tables", ".schema", ".mode", ".help"}) {
    EXPECT_EQ(Run(line), Outcome::kOutputLost) << line;
  }
}

}  // namespace
