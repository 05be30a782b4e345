#include "host/commands/Summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/commands/SummaryReport.h"

namespace {

using namespace Host;
using namespace Host::Commands;
using testing::HasSubstr;
using testing::Not;

constexpr i64 kDayMs = 1699920000000;  // 2023-11-14
constexpr i64 kMsPerDay = 86'400'000;

struct RowOf {
  const char* ip = "203.0.113.9";
  i64 firstSeen = kDayMs;
  i64 lastSeen = kDayMs;
  i64 port = 443;
  const char* protos = "SSL,TCP";
  i64 connsIn = 0;
  i64 connsOut = 1;
  Cell bytesIn = Cell(i64{0});
  Cell bytesOut = Cell(i64{0});
  const char* path = "/usr/bin/curl";
};

std::vector<Cell> CellsOf(const RowOf& row) {
  return {Cell(std::string(row.ip)),
          Cell(row.firstSeen),
          Cell(row.lastSeen),
          Cell(row.port),
          Cell(std::string(row.protos)),
          Cell(row.connsIn + row.connsOut),
          Cell(row.connsIn),
          Cell(row.connsOut),
          row.bytesIn,
          row.bytesOut,
          Cell(std::string(row.path))};
}

Summary SummaryOf(const std::vector<RowOf>& rows) {
  Summary summary;
  for (const RowOf& row : rows) {
    summary.Add(CellsOf(row));
  }
  return summary;
}

std::vector<std::string> NamesOf(const Ranking& ranking) {
  std::vector<std::string> names;
  for (const Ranking::Entry& entry : ranking.Top(10)) {
    names.push_back(entry.name);
  }
  return names;
}

TEST(Summary, NothingIsEmpty) {
  EXPECT_TRUE(Summary().IsEmpty());
  EXPECT_EQ(SummaryJson({"203.0.113.9", true, true}, Summary()), "{}");
  EXPECT_EQ(SummaryTable({"203.0.113.9", true, true}, Summary(), {}), "");
}

TEST(Summary, RowsAreAddedUp) {
  const Summary summary =
      SummaryOf({{.firstSeen = kDayMs + 5000, .lastSeen = kDayMs + 9000, .connsIn = 2, .bytesIn = Cell(i64{7})},
                 {.firstSeen = kDayMs + 1000, .lastSeen = kDayMs + 2000, .connsOut = 4, .bytesOut = Cell(i64{8})},
                 {.firstSeen = kDayMs + kMsPerDay, .lastSeen = kDayMs + kMsPerDay}});
  EXPECT_EQ(summary.firstSeenMs, static_cast<u64>(kDayMs) + 1000);
  EXPECT_EQ(summary.lastSeenMs, static_cast<u64>(kDayMs + kMsPerDay));
  EXPECT_EQ(summary.days.size(), 2U);
  EXPECT_EQ(summary.connsTotal, 8U);
  EXPECT_EQ(summary.connsIn, 2U);
  EXPECT_EQ(summary.connsOut, 6U);
  EXPECT_EQ(summary.bytesIn, 7U);
  EXPECT_EQ(summary.bytesOut, 8U);
}

TEST(Summary, SumsStayAtTheMost) {
  const Cell most(std::string("18446744073709551615"));
  const Summary summary = SummaryOf({{.bytesIn = most}, {.bytesIn = Cell(i64{5}), .bytesOut = most}});
  EXPECT_EQ(summary.bytesIn, ~u64{0});
  EXPECT_EQ(summary.bytesOut, ~u64{0});
  EXPECT_EQ(summary.ports.Top(1)[0].tally.bytes, ~u64{0});
}

TEST(Summary, ARowCountsForEachOfItsProtocols) {
  const Summary summary = SummaryOf({{.protos = "SSL,TCP"}, {.protos = "TCP"}, {.protos = ""}});
  EXPECT_EQ(summary.protocols.Count(), 2U);
  EXPECT_THAT(NamesOf(summary.protocols), testing::ElementsAre("TCP", "SSL"));
  EXPECT_EQ(summary.protocols.Top(1)[0].tally.conns, 2U);
}

TEST(Ranking, MostConnectionsComeFirstThenMostBytes) {
  Ranking ranking;
  ranking.Add("c", {1, 5});
  ranking.Add("a", {1, 5});
  ranking.Add("b", {1, 9});
  ranking.Add("d", {2, 0});
  ranking.Add("d", {1, 0});
  EXPECT_THAT(NamesOf(ranking), testing::ElementsAre("d", "b", "a", "c"));
  EXPECT_EQ(ranking.Top(1)[0].tally.conns, 3U);
  EXPECT_EQ(ranking.Top(2).size(), 2U);
  EXPECT_EQ(ranking.Count(), 4U);
}

TEST(NumberOf, TakesNumbersAndDigits) {
  EXPECT_EQ(NumberOf(Cell(i64{5})), 5U);
  EXPECT_EQ(NumberOf(Cell(i64{-5})), 0U);
  EXPECT_EQ(NumberOf(Cell(std::string("18446744073709551615"))), ~u64{0});
  EXPECT_EQ(NumberOf(Cell(std::string("x"))), 0U);
  EXPECT_EQ(NumberOf(Cell(18446744073709551615.0)), ~u64{0});
  EXPECT_EQ(NumberOf(Cell(9223372036854775808.0)), u64{1} << 63);
  EXPECT_EQ(NumberOf(Cell(-1.0)), 0U);
  EXPECT_EQ(NumberOf(Cell()), 0U);
}

TEST(SummaryJson, AddressHasProcessesAndAPathHasPeers) {
  const Summary summary = SummaryOf({{.connsIn = 1, .bytesIn = Cell(i64{5})}, {.port = 80, .protos = "", .path = ""}});
  const std::string start =
      R"("first_seen":1699920000000,"last_seen":1699920000000,"days":1,"conns_total":3,"conns_in":1,"conns_out":2,)"
      R"("bytes_in":5,"bytes_out":0,"ports":{"count":2,"top":[{"port":443,"conns":2,"bytes":5},)"
      R"({"port":80,"conns":1,"bytes":0}]},"protocols":{"count":2,"top":[{"protocol":"SSL","conns":2,"bytes":5},)"
      R"({"protocol":"TCP","conns":2,"bytes":5}]},)";
  const std::string processes =
      R"("processes":{"count":2,"top":[{"process":"/usr/bin/curl","conns":2,"bytes":5},{"process":"","conns":1,"bytes":0}]})";
  const std::string peers = R"("peers":{"count":1,"top":[{"ip":"203.0.113.9","conns":3,"bytes":5}]})";
  EXPECT_EQ(SummaryJson({"203.0.113.9", true, true}, summary), "{\"ip\":\"203.0.113.9\"," + start + processes + "}");
  EXPECT_EQ(SummaryJson({"/usr/bin/curl", false, true}, summary),
            "{\"process\":\"/usr/bin/curl\"," + start + peers + "}");
  EXPECT_EQ(SummaryJson({"%c", false, false}, summary), "{\"process\":\"%c\"," + start + processes + "," + peers + "}");
}

TEST(SummaryTable, HasSectionsForPeople) {
  const Summary summary = SummaryOf(
      {{.lastSeen = kDayMs + 60000, .connsIn = 1, .bytesIn = Cell(i64{1536})}, {.port = 80, .protos = "", .path = ""}});
  EXPECT_EQ(SummaryTable({"203.0.113.9", true, true}, summary, {}),
            "203.0.113.9\n"
            "  first seen   2023-11-14T00:00:00Z\n"
            "  last seen    2023-11-14T00:01:00Z\n"
            "  days         1\n"
            "  connections  3 (1 in, 2 out)\n"
            "  bytes in     1.5 KiB\n"
            "  bytes out    0 bytes\n"
            "\n"
            "Ports  conns    bytes\n"
            "  443      2  1.5 KiB\n"
            "  80       1  0 bytes\n"
            "\n"
            "Protocols  conns    bytes\n"
            "  SSL          2  1.5 KiB\n"
            "  TCP          2  1.5 KiB\n"
            "\n"
            "Processes        conns    bytes\n"
            "  /usr/bin/curl      2  1.5 KiB\n"
            "  -                  1  0 bytes\n");
}

TEST(SummaryTable, MoreThanTenAreCounted) {
  std::vector<RowOf> rows;
  for (i64 port = 1; port <= 13; ++port) {
    rows.push_back({.port = port});
  }
  const std::string text = SummaryTable({"203.0.113.9", true, true}, SummaryOf(rows), {});
  EXPECT_THAT(text, HasSubstr("\n  and 3 more\n\nProtocols"));
  EXPECT_THAT(SummaryJson({"203.0.113.9", true, true}, SummaryOf(rows)),
              HasSubstr("\"ports\":{\"count\":13,\"top\":["));
  rows.resize(10);
  EXPECT_THAT(SummaryTable({"203.0.113.9", true, true}, SummaryOf(rows), {}), Not(HasSubstr("more")));
}

TEST(SummaryTable, NarrowTerminalCutsPathsAtTheirStart) {
  const Summary summary = SummaryOf({{.path = "/opt/some/very/long/way/to/the/program"}});
  const std::string wide = SummaryTable({"203.0.113.9", true, true}, summary, {200, false});
  EXPECT_EQ(wide, SummaryTable({"203.0.113.9", true, true}, summary, {}));
  EXPECT_THAT(SummaryTable({"203.0.113.9", true, true}, summary, {40, false}),
              HasSubstr("\n  \xE2\x80\xA6ng/way/to/the/program      1  0 bytes\n"));
  EXPECT_THAT(SummaryTable({"203.0.113.9", true, true}, summary, {5, false}), HasSubstr("\xE2\x80\xA6o/the/program  "));
}

TEST(SummaryTable, PathCannotSteerTheTerminal) {
  const Summary summary = SummaryOf({{.path = "/a\x1B[2J"}});
  EXPECT_THAT(SummaryTable({"/a\x1B[2J%", false, false}, summary, {}), Not(HasSubstr("\x1B")));
}

TEST(SummaryTable, ColourIsInTheHeadings) {
  const std::string text = SummaryTable({"203.0.113.9", true, true}, SummaryOf({{}}), {0, true});
  EXPECT_THAT(text, testing::StartsWith("\x1B[1m203.0.113.9\x1B[0m\n"));
  EXPECT_THAT(text, HasSubstr("\x1B[1mPorts  conns    bytes\x1B[0m\n  443"));
}

}  // namespace
