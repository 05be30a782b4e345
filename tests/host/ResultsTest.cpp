#include "host/render/Results.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "tests/host/HistoryCells.h"

namespace {

using namespace Host;
using namespace Host::Render;

std::vector<Cell> ExampleRow() {
  return {std::string("203.0.113.9"),
          i64{1700000001000},
          i64{1700000099000},
          i64{443},
          std::string("HTTP,SSL,TCP"),
          i64{3},
          i64{1},
          i64{2},
          std::string("18446744073709551615"),
          i64{12},
          std::string("/usr/bin/curl"),
          std::string(32, 'a'),
          std::string(64, 'b'),
          std::string("18446744073709551614"),
          i64{4321}};
}

std::string Rendered(Format format, const std::vector<Column>& columns, const std::vector<std::vector<Cell>>& rows) {
  std::ostringstream out;
  RenderOptions options;
  options.format = format;
  const auto writer = MakeResultWriter(options, columns, out);
  for (const std::vector<Cell>& row : rows) {
    writer->Write(row);
  }
  writer->Finish();
  return out.str();
}

// One row of one column.
std::string Rendered(Format format, const Cell& cell, ColumnKind kind = ColumnKind::kPlain) {
  return Rendered(format, {{"c", kind}}, {{cell}});
}

std::string JsonOf(const Cell& cell, ColumnKind kind = ColumnKind::kPlain) {
  const std::string line = Rendered(Format::kJsonl, cell, kind);
  return line.substr(5, line.size() - 7);
}

constexpr char kExampleJson[] =
    R"({"ip":"203.0.113.9","first_seen":1700000001000,"last_seen":1700000099000,"port":443,"protos":"HTTP,SSL,TCP",)"
    R"("conns_total":3,"conns_in":1,"conns_out":2,"bytes_in":18446744073709551615,"bytes_out":12,)"
    R"("proc_fpath":"/usr/bin/curl","proc_md5":"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",)"
    R"("proc_qid":"bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb",)"
    R"("proc_puid":18446744073709551614,"proc_pid":4321})";
constexpr char kEmptyJson[] =
    R"({"ip":"0.0.0.0","first_seen":0,"last_seen":0,"port":0,"protos":"","conns_total":0,"conns_in":0,"conns_out":0,)"
    R"("bytes_in":0,"bytes_out":0,"proc_fpath":"","proc_md5":"00000000000000000000000000000000",)"
    R"("proc_qid":"0000000000000000000000000000000000000000000000000000000000000000","proc_puid":0,"proc_pid":-1})";

TEST(Results, JsonlIsAnObjectALineWithEveryField) {
  EXPECT_EQ(Rendered(Format::kJsonl, HistoryColumns(), {ExampleRow(), EmptyRow()}),
            std::string(kExampleJson) + "\n" + kEmptyJson + "\n");
  EXPECT_EQ(Rendered(Format::kJsonl, HistoryColumns(), {}), "");
}

TEST(Results, JsonIsOneArray) {
  EXPECT_EQ(Rendered(Format::kJson, HistoryColumns(), {ExampleRow(), EmptyRow()}),
            std::string("[\n") + kExampleJson + ",\n" + kEmptyJson + "\n]\n");
  EXPECT_EQ(Rendered(Format::kJson, HistoryColumns(), {}), "[]\n");
}

TEST(Results, CsvHasAHeaderAndQuotesWhatNeedsIt) {
  std::vector<Cell> row = ExampleRow();
  row[10] = std::string("C:\\a, \"b\"\nc");
  EXPECT_EQ(Rendered(Format::kCsv, HistoryColumns(), {row}),
            "ip,first_seen,last_seen,port,protos,conns_total,conns_in,conns_out,bytes_in,bytes_out,proc_fpath,proc_md5,"
            "proc_qid,proc_puid,proc_pid\r\n"
            "203.0.113.9,1700000001000,1700000099000,443,\"HTTP,SSL,TCP\",3,1,2,18446744073709551615,12,"
            "\"C:\\a, \"\"b\"\"\nc\",aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa,"
            "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb,18446744073709551614,4321\r\n");
}

TEST(Results, CsvWithoutRowsIsItsHeader) {
  EXPECT_EQ(Rendered(Format::kCsv, {{"a"}, {"b, c"}}, {}), "a,\"b, c\"\r\n");
}

TEST(Results, LineHasAFieldALine) {
  EXPECT_EQ(Rendered(Format::kLine, HistoryColumns(), {ExampleRow(), EmptyRow()}),
            "         ip = 203.0.113.9\n"
            " first_seen = 2023-11-14T22:13:21Z\n"
            "  last_seen = 2023-11-14T22:14:59Z\n"
            "       port = 443\n"
            "     protos = HTTP,SSL,TCP\n"
            "conns_total = 3\n"
            "   conns_in = 1\n"
            "  conns_out = 2\n"
            "   bytes_in = 18446744073709551615\n"
            "  bytes_out = 12\n"
            " proc_fpath = /usr/bin/curl\n"
            "   proc_md5 = aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\n"
            "   proc_qid = bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb\n"
            "  proc_puid = 18446744073709551614\n"
            "   proc_pid = 4321\n"
            "\n"
            "         ip = 0.0.0.0\n"
            " first_seen = 1970-01-01T00:00:00Z\n"
            "  last_seen = 1970-01-01T00:00:00Z\n"
            "       port = 0\n"
            "     protos = \n"
            "conns_total = 0\n"
            "   conns_in = 0\n"
            "  conns_out = 0\n"
            "   bytes_in = 0\n"
            "  bytes_out = 0\n"
            " proc_fpath = \n"
            "   proc_md5 = 00000000000000000000000000000000\n"
            "   proc_qid = 0000000000000000000000000000000000000000000000000000000000000000\n"
            "  proc_puid = 0\n"
            "   proc_pid = -1\n");
}

TEST(Results, LineNamesFollowTheLongestAndStayOnTheirLine) {
  EXPECT_EQ(Rendered(Format::kLine, {{"n"}, {"count(*)\n+ 1"}}, {{i64{1}, i64{2}}}),
            "              n = 1\n"
            "count(*)\\x0A+ 1 = 2\n");
  EXPECT_EQ(Rendered(Format::kLine,
                     {{"gr\xC3\xBC\xC3\x9F"
                       "e"},
                      {"abcdef"}},
                     {{i64{1}, i64{2}}}),
            " gr\xC3\xBC\xC3\x9F"
            "e = 1\nabcdef = 2\n");
}

TEST(Results, TextThatIsNoUtf8IsReplacedInJsonAndKeptInCsv) {
  const Cell cell = std::string("/\xFF/\x1B[2J");
  EXPECT_EQ(JsonOf(cell), "\"/\xEF\xBF\xBD/\\u001b[2J\"");
  EXPECT_EQ(Rendered(Format::kCsv, cell), "c\r\n/\xFF/\x1B[2J\r\n");
  EXPECT_EQ(Rendered(Format::kLine, cell), "c = /\xEF\xBF\xBD/\\x1B[2J\n");
}

TEST(Results, TextKeepsItsNulBytes) {
  const Cell cell = std::string("a\0b", 3);
  EXPECT_EQ(JsonOf(cell), "\"a\\u0000b\"");
  EXPECT_EQ(Rendered(Format::kLine, cell), "c = a\\x00b\n");
}

TEST(Results, NullIsNullInJsonAndNothingInCsvAndLine) {
  EXPECT_EQ(JsonOf(Cell{}), "null");
  EXPECT_EQ(JsonOf(Cell{}, ColumnKind::kNumber), "null");
  EXPECT_EQ(JsonOf(Cell{}, ColumnKind::kTimeMs), "null");
  EXPECT_EQ(Rendered(Format::kCsv, {{"a"}, {"b"}}, {{Cell{}, Cell{}}}), "a,b\r\n,\r\n");
  EXPECT_EQ(Rendered(Format::kLine, Cell{}, ColumnKind::kTimeMs), "c = \n");
}

TEST(Results, RealNumbersHaveTheFewestDigitsThatGiveThemAgain) {
  EXPECT_EQ(JsonOf(0.1), "0.1");
  EXPECT_EQ(JsonOf(0.1 + 0.2), "0.30000000000000004");
  EXPECT_EQ(JsonOf(3.0), "3.0");
  EXPECT_EQ(JsonOf(-0.0), "-0.0");
  EXPECT_EQ(JsonOf(1e300), "1e+300");
  EXPECT_EQ(JsonOf(-2.5), "-2.5");
  EXPECT_EQ(JsonOf(std::numeric_limits<double>::denorm_min()), "5e-324");
  EXPECT_EQ(JsonOf(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
}

TEST(Results, RealNumbersWithoutDigitsAreNullInJsonAndNamedElsewhere) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(JsonOf(infinity), "null");
  EXPECT_EQ(JsonOf(-infinity, ColumnKind::kNumber), "null");
  EXPECT_EQ(JsonOf(std::nan("")), "null");
  EXPECT_EQ(Rendered(Format::kCsv, infinity), "c\r\nInf\r\n");
  EXPECT_EQ(Rendered(Format::kLine, -infinity), "c = -Inf\n");
  EXPECT_EQ(Rendered(Format::kTable, std::nan("")), "  c\nNaN\n");
}

TEST(Results, WholeNumbersAreExact) {
  EXPECT_EQ(JsonOf(std::numeric_limits<i64>::min()), "-9223372036854775808");
  EXPECT_EQ(JsonOf(std::numeric_limits<i64>::max()), "9223372036854775807");
}

TEST(Results, TextOfANumberColumnIsANumberOnlyWhereJsonHasOne) {
  for (const char* number : {"0", "7", "-7", "18446744073709551615"}) {
    EXPECT_EQ(JsonOf(std::string(number), ColumnKind::kNumber), number);
    EXPECT_EQ(JsonOf(std::string(number), ColumnKind::kPlain), "\"" + std::string(number) + "\"");
  }
  for (const char* text : {"", "-", "007", "-01", "+1", "1.5", "1e5", "1 ", "x", "--1"}) {
    EXPECT_EQ(JsonOf(std::string(text), ColumnKind::kNumber), "\"" + std::string(text) + "\"");
  }
}

TEST(Results, ColumnsOfOneNameAreKept) {
  EXPECT_EQ(Rendered(Format::kJsonl, {{"a"}, {"a"}}, {{i64{1}, i64{2}}}), "{\"a\":1,\"a\":2}\n");
  EXPECT_EQ(Rendered(Format::kCsv, {{"a"}, {"a"}}, {{i64{1}, i64{2}}}), "a,a\r\n1,2\r\n");
}

TEST(Results, NamesAreQuotedAsTextsAre) {
  EXPECT_EQ(Rendered(Format::kJsonl, {{"\"x\"\n\xFF"}}, {{i64{1}}}), "{\"\\\"x\\\"\\u000a\xEF\xBF\xBD\":1}\n");
  EXPECT_EQ(Rendered(Format::kCsv, {{"\"x\"\n"}}, {{i64{1}}}), "\"\"\"x\"\"\n\"\r\n1\r\n");
}

TEST(Results, TimesAreForPeopleOnly) {
  EXPECT_EQ(JsonOf(i64{1700000001000}, ColumnKind::kTimeMs), "1700000001000");
  EXPECT_EQ(Rendered(Format::kCsv, i64{1700000001000}, ColumnKind::kTimeMs), "c\r\n1700000001000\r\n");
  EXPECT_EQ(Rendered(Format::kLine, i64{1700000001000}, ColumnKind::kTimeMs), "c = 2023-11-14T22:13:21Z\n");
  EXPECT_EQ(Rendered(Format::kLine, i64{1700000001005}, ColumnKind::kTimeMs), "c = 2023-11-14T22:13:21.005Z\n");
  EXPECT_EQ(Rendered(Format::kLine, i64{1700000001000}), "c = 1700000001000\n");
}

TEST(Results, WhatIsNoTimeStaysAsItIs) {
  EXPECT_EQ(Rendered(Format::kLine, i64{-1}, ColumnKind::kTimeMs), "c = -1\n");
  EXPECT_EQ(Rendered(Format::kLine, 0.5, ColumnKind::kTimeMs), "c = 0.5\n");
  EXPECT_EQ(Rendered(Format::kLine, std::string("soon"), ColumnKind::kTimeMs), "c = soon\n");
}

TEST(Results, FormatsAreFoundByName) {
  EXPECT_EQ(FormatOf("table"), Format::kTable);
  EXPECT_EQ(FormatOf("json"), Format::kJson);
  EXPECT_EQ(FormatOf("jsonl"), Format::kJsonl);
  EXPECT_EQ(FormatOf("csv"), Format::kCsv);
  EXPECT_EQ(FormatOf("line"), Format::kLine);
  EXPECT_EQ(FormatOf("xml"), std::nullopt);
}

}  // namespace
