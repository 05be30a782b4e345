#include "host/render/ResultTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "host/text/Utf8.h"
#include "tests/host/HistoryCells.h"

namespace {

using namespace Host;
using namespace Host::Render;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Lines(const RenderOptions& options, const std::vector<Column>& columns,
                               const std::vector<std::vector<Cell>>& rows) {
  std::ostringstream out;
  ResultTable table(options, columns, out);
  for (const std::vector<Cell>& row : rows) {
    table.Write(row);
  }
  table.Finish();
  std::vector<std::string> lines;
  std::istringstream in(out.str());
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

RenderOptions Terminal(std::size_t width) {
  RenderOptions options;
  options.width = width;
  return options;
}

std::vector<Cell> RowWithPath(const std::string& path) {
  std::vector<Cell> row = EmptyRow();
  row[Table::kIp] = std::string("203.0.0.0");
  row[Table::kFirstSeen] = i64{1700000001000};
  row[Table::kLastSeen] = i64{1700000099000};
  row[Table::kPort] = i64{443};
  row[Table::kProcFpath] = path;
  row[Table::kProcMd5] = std::string(32, 'a');
  row[Table::kProcQid] = std::string(64, 'c');
  row[Table::kProcPid] = i64{0};
  return row;
}

TEST(ResultTable, ColumnsAreAligned) {
  EXPECT_THAT(
      Lines({}, HistoryColumns(), {RowWithPath("/usr/bin/curl"), EmptyRow()}),
      ElementsAre(
          "ip                   first_seen             last_seen  port  protos  conns_total  conns_in  conns_out"
          "  bytes_in  bytes_out  proc_fpath     proc_md5                          "
          "proc_qid                                                          proc_puid  proc_pid",
          "203.0.0.0  2023-11-14T22:13:21Z  2023-11-14T22:14:59Z   443  -                 0         0          0"
          "         0          0  /usr/bin/curl  aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa  "
          "cccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc          0         0",
          "0.0.0.0    1970-01-01T00:00:00Z  1970-01-01T00:00:00Z     0  -                 0         0          0"
          "         0          0  -              -                                 "
          "-                                                                         0        -1"));
}

TEST(ResultTable, ResultWithoutRowsIsItsHeader) {
  EXPECT_THAT(Lines({}, {{"a"}, {"n", ColumnKind::kNumber}}, {}), ElementsAre("a  n"));
}

TEST(ResultTable, PlainColumnOfNumbersStandsRight) {
  EXPECT_THAT(Lines({}, {{"total"}, {"x"}}, {{i64{1}, i64{1}}, {Cell{}, 2.5}, {i64{100}, i64{-7}}}),
              ElementsAre("total    x", "    1    1", "    -  2.5", "  100   -7"));
}

TEST(ResultTable, PlainColumnWithATextOrNothingStandsLeft) {
  EXPECT_THAT(Lines({}, {{"mixed"}, {"nothing"}}, {{i64{1}, Cell{}}, {std::string("a"), Cell{}}}),
              ElementsAre("mixed  nothing", "1      -", "a      -"));
}

TEST(ResultTable, NumberColumnStandsRightAlsoAsText) {
  EXPECT_THAT(Lines({}, {{"id", ColumnKind::kNumber}}, {{std::string("18446744073709551615")}, {std::string("7")}}),
              ElementsAre("                  id", "18446744073709551615", "                   7"));
}

TEST(ResultTable, NullAndNothingAndAnUnknownDigestAreADash) {
  EXPECT_THAT(Lines({}, {{"a"}, {"b"}, {"d", ColumnKind::kDigest}}, {{Cell{}, std::string(), std::string("0000")}}),
              ElementsAre("a  b  d", "-  -  -"));
}

TEST(ResultTable, NothingIsCutWithoutATerminal) {
  const std::string path(500, 'p');
  EXPECT_THAT(Lines({}, HistoryColumns(), {RowWithPath(path)})[1], HasSubstr(path));
}

TEST(ResultTable, TerminalCutsDigestsFirstAndThePathAtItsStart) {
  const auto rows = {RowWithPath("/opt/a/very/long/path/to/some/program")};
  const auto lines = Lines(Terminal(220), HistoryColumns(), rows);
  for (const std::string& line : lines) {
    EXPECT_LE(Text::CountCharacters(line), 220U);
  }
  EXPECT_THAT(lines[1], HasSubstr("ccccccc\xE2\x80\xA6"));
  EXPECT_THAT(lines[1], testing::Not(HasSubstr("cccccccc")));
  EXPECT_THAT(lines[1], HasSubstr("/opt/a/very"));
  EXPECT_THAT(Lines(Terminal(150), HistoryColumns(), rows)[1], HasSubstr("\xE2\x80\xA6"
                                                                         "to/some/program"));
}

TEST(ResultTable, TextsAreCutLastTheWidestFirst) {
  const std::vector<Column> columns = {{"a"}, {"b"}, {"p", ColumnKind::kPath}};
  const std::vector<std::vector<Cell>> rows = {{std::string(50, 'a'), std::string(30, 'b'), std::string(20, 'p')}};
  const std::string dots = "\xE2\x80\xA6";
  EXPECT_EQ(Lines(Terminal(80), columns, rows)[1],
            std::string(29, 'a') + dots + "  " + std::string(30, 'b') + "  " + dots + std::string(15, 'p'));
  EXPECT_EQ(Lines(Terminal(100), columns, rows)[1],
            std::string(50, 'a') + "  " + std::string(30, 'b') + "  " + dots + std::string(15, 'p'));
  EXPECT_EQ(Lines(Terminal(10), columns, rows)[1],
            std::string(19, 'a') + dots + "  " + std::string(19, 'b') + dots + "  " + dots + std::string(15, 'p'));
}

TEST(ResultTable, NumbersAreNeverCut) {
  const std::vector<Column> columns = {{"sum"}, {"n", ColumnKind::kNumber}, {"t"}};
  const auto lines = Lines(Terminal(10), columns,
                           {{i64{1234567890123456789}, std::string("18446744073709551615"), std::string(40, 't')}});
  EXPECT_THAT(lines[1],
              testing::StartsWith("1234567890123456789  18446744073709551615  ttttttttttttttttttt\xE2\x80\xA6"));
}

TEST(ResultTable, LongNameIsCutWithItsColumn) {
  const std::string name = "replace(proc_fpath, '/usr/bin/', '')";
  EXPECT_THAT(Lines(Terminal(25), {{name}}, {{std::string("curl")}}),
              ElementsAre("replace(proc_fpath, '/us\xE2\x80\xA6", "curl"));
}

TEST(ResultTable, WideTerminalCutsNothing) {
  const auto rows = {RowWithPath("/usr/bin/curl")};
  EXPECT_EQ(Lines(Terminal(1000), HistoryColumns(), rows), Lines({}, HistoryColumns(), rows));
}

TEST(ResultTable, ColourIsInTheHeaderOnly) {
  RenderOptions options;
  options.colour = true;
  EXPECT_THAT(Lines(options, {{"a"}}, {{i64{1}}, {i64{2}}}), ElementsAre("\x1B[1ma", "\x1B[0m1", "2"));
}

TEST(ResultTable, TextsAndNamesCannotSteerTheTerminal) {
  EXPECT_THAT(Lines({}, {{"x\ny"}}, {{std::string("/a\x1B[2J\nb\xFF")}}),
              ElementsAre("x\\x0Ay", "/a\\x1B[2J\\x0Ab\xEF\xBF\xBD"));
}

TEST(ResultTable, LaterWideCellsPushOnlyTheirOwnLine) {
  std::vector<std::vector<Cell>> rows(ResultTable::kMeasuredRows + 2, {std::string("/a"), i64{1}});
  rows[ResultTable::kMeasuredRows] = {std::string("/a/much/longer/path"), i64{1}};
  const auto lines = Lines(Terminal(20), {{"p", ColumnKind::kPath}, {"n"}}, rows);
  ASSERT_EQ(lines.size(), rows.size() + 1);
  EXPECT_EQ(lines[ResultTable::kMeasuredRows], "/a  1");
  EXPECT_EQ(lines[ResultTable::kMeasuredRows + 1], "/a/much/longer/path  1");
  EXPECT_EQ(lines[ResultTable::kMeasuredRows + 2], "/a  1");
}

}  // namespace
