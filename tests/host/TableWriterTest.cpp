#include "host/render/TableWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "host/text/Utf8.h"

namespace {

using namespace Host;
using namespace Host::Render;

Row RowWithPath(const char* path) {
  Row row{};
  row.address[0] = 203;
  row.first_seen = 1700000001;
  row.last_seen = 1700000099;
  row.port = 443;
  std::memset(row.proc_md5, 0xAB, sizeof(row.proc_md5));
  std::memset(row.proc_qid, 0xCD, sizeof(row.proc_qid));
  std::strcpy(row.proc_fpath, path);
  return row;
}

std::vector<std::string> Lines(const RenderOptions& options, const std::vector<Row>& rows) {
  std::ostringstream out;
  TableWriter writer(options, out);
  for (const Row& row : rows) {
    writer.Write(row);
  }
  writer.Finish();
  std::vector<std::string> lines;
  std::istringstream in(out.str());
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST(TableWriter, ColumnsAreAligned) {
  Row unknown{};
  unknown.proc_pid = -1;
  EXPECT_THAT(
      Lines({}, {RowWithPath("/usr/bin/curl"), unknown}),
      testing::ElementsAre(
          "ip                   first_seen             last_seen  port  protos  conns_total  conns_in  conns_out"
          "  bytes_in  bytes_out  proc_fpath     proc_md5                          "
          "proc_qid                                                          proc_puid  proc_pid",
          "203.0.0.0  2023-11-14T22:13:21Z  2023-11-14T22:14:59Z   443  -                 0         0          0"
          "         0          0  /usr/bin/curl  abababababababababababababababab  "
          "cdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd          0         0",
          "0.0.0.0    1970-01-01T00:00:00Z  1970-01-01T00:00:00Z     0  -                 0         0          0"
          "         0          0  -              -                                 "
          "-                                                                         0        -1"));
}

TEST(TableWriter, ResultWithoutRowsIsItsHeader) {
  const auto lines = Lines({}, {});
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].substr(0, 2), "ip");
}

TEST(TableWriter, NothingIsCutWithoutATerminal) {
  const std::string path(500, 'p');
  EXPECT_NE(Lines({}, {RowWithPath(path.c_str())})[1].find(path), std::string::npos);
}

TEST(TableWriter, TerminalCutsDigestsFirstAndThePathAtItsStart) {
  RenderOptions options;
  options.width = 220;
  const auto lines = Lines(options, {RowWithPath("/opt/a/very/long/path/to/some/program")});
  for (const std::string& line : lines) {
    EXPECT_LE(Text::CountCharacters(line), 220U);
  }
  EXPECT_NE(lines[1].find("cdcdcdc\xE2\x80\xA6"), std::string::npos);
  EXPECT_EQ(lines[1].find("cdcdcdcd"), std::string::npos);
  options.width = 150;
  EXPECT_NE(Lines(options, {RowWithPath("/opt/a/very/long/path/to/some/program")})[1].find("\xE2\x80\xA6"
                                                                                           "to/some/program"),
            std::string::npos);
}

TEST(TableWriter, WideTerminalCutsNothing) {
  RenderOptions options;
  options.width = 1000;
  EXPECT_EQ(Lines(options, {RowWithPath("/usr/bin/curl")}), Lines({}, {RowWithPath("/usr/bin/curl")}));
}

TEST(TableWriter, ColourIsInTheHeaderOnly) {
  RenderOptions options;
  options.colour = true;
  const auto lines = Lines(options, {RowWithPath("/usr/bin/curl")});
  EXPECT_EQ(lines[0].substr(0, 4), "\x1B[1m");
  EXPECT_EQ(lines[1].substr(0, 4), "\x1B[0m");
}

TEST(TableWriter, PathCannotSteerTheTerminal) {
  const auto lines = Lines({}, {RowWithPath("/a\x1B[2J\nb\xFF")});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[1].find("/a\\x1B[2J\\x0Ab\xEF\xBF\xBD"), std::string::npos);
}

TEST(TableWriter, LaterWideRowsPushOnlyTheirOwnLine) {
  std::vector<Row> rows(TableWriter::kMeasuredRows + 2, RowWithPath("/a"));
  rows[TableWriter::kMeasuredRows] = RowWithPath("/a/much/longer/path");
  const auto lines = Lines({}, rows);
  ASSERT_EQ(lines.size(), rows.size() + 1);
  EXPECT_GT(lines[TableWriter::kMeasuredRows + 1].size(), lines[1].size());
  EXPECT_EQ(lines[TableWriter::kMeasuredRows + 2], lines[1]);
}

}  // namespace
