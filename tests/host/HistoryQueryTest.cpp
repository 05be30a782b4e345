#include "host/commands/HistoryQuery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Commands;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kAllColumns =
    "SELECT ip, first_seen, last_seen, port, protos, conns_total, conns_in, conns_out, bytes_in, bytes_out, "
    "proc_fpath, proc_md5, proc_qid, proc_puid, proc_pid FROM edr_netdb";

Cell Text(const char* text) {
  return Cell(std::string(text));
}

RowQuery AllColumns(HistoryFilter filter = {}) {
  std::string error;
  return {std::move(filter), ReadColumns("", error).value(), {}, {}};
}

// What stands behind the columns.
std::string ConditionOf(const HistoryFilter& filter) {
  const std::string text = RowsStatement(AllColumns(filter)).text;
  EXPECT_EQ(text.rfind(kAllColumns, 0), 0U) << text;
  return text.substr(kAllColumns.size());
}

TEST(RowsStatement, NothingAskedIsTheWholeTable) {
  const Statement statement = RowsStatement(AllColumns());
  EXPECT_EQ(statement.text, kAllColumns);
  EXPECT_THAT(statement.parameters, IsEmpty());
}

TEST(RowsStatement, RangeIsAnOverlapInMilliseconds) {
  const Statement statement = RowsStatement(AllColumns({.range = {100, 200}}));
  EXPECT_EQ(statement.text, kAllColumns + " WHERE (last_seen >= ?) AND (first_seen <= ?)");
  EXPECT_THAT(statement.parameters, ElementsAre(Cell(i64{100000}), Cell(i64{200000})));
  EXPECT_EQ(ConditionOf({.range = {100, ~u64{0}}}), " WHERE (last_seen >= ?)");
  EXPECT_EQ(ConditionOf({.range = {0, 200}}), " WHERE (first_seen <= ?)");
}

TEST(RowsStatement, TimesPastTheFormStayInIt) {
  const i64 latest = 9223372036854775000;
  EXPECT_THAT(RowsStatement(AllColumns({.range = {~u64{0} - 1, ~u64{0}}})).parameters, ElementsAre(Cell(latest)));
  EXPECT_THAT(RowsStatement(AllColumns({.range = {0, 9223372036854775}})).parameters, ElementsAre(Cell(latest)));
  EXPECT_THAT(RowsStatement(AllColumns({.range = {0, 9223372036854776}})).parameters, ElementsAre(Cell(latest)));
}

TEST(RowsStatement, OnePartIsOneSearchOfTheTable) {
  EXPECT_EQ(ConditionOf({.addresses = {"192.0.2.1"}}), " WHERE (ip = ?)");
  EXPECT_EQ(ConditionOf({.addresses = {"192.0.2.1", "192.0.2.2"}}), " WHERE (ip IN (?, ?))");
  EXPECT_EQ(ConditionOf({.blocks = {"10.0.0.0/8"}}), " WHERE (in_cidr(ip, ?))");
  EXPECT_EQ(ConditionOf({.addresses = {"192.0.2.1"}, .blocks = {"10.0.0.0/8", "192.168.0.0/16"}}),
            " WHERE (+ip = ? OR in_cidr(ip, ?) OR in_cidr(ip, ?))");
  EXPECT_EQ(ConditionOf({.paths = {"/a"}}), " WHERE (proc_fpath = ?)");
  EXPECT_EQ(ConditionOf({.paths = {"/a", "/b"}}), " WHERE (proc_fpath IN (?, ?))");
  EXPECT_EQ(ConditionOf({.pathPatterns = {"%a"}}), " WHERE (proc_fpath LIKE ?)");
  EXPECT_EQ(ConditionOf({.pathPatterns = {"%a", "b%"}}), " WHERE (+proc_fpath LIKE ? OR +proc_fpath LIKE ?)");
  EXPECT_EQ(ConditionOf({.paths = {"/a"}, .pathPatterns = {"%a"}}), " WHERE (+proc_fpath = ? OR +proc_fpath LIKE ?)");
  EXPECT_EQ(ConditionOf({.md5s = {"0"}, .qids = {"1", "2"}}), " WHERE (proc_md5 = ?) AND (proc_qid IN (?, ?))");
}

TEST(RowsStatement, ParametersStandInTheOrderOfTheText) {
  const Statement statement = RowsStatement({.filter = {.range = {1, 2},
                                                        .addresses = {"a1", "a2"},
                                                        .blocks = {"b"},
                                                        .paths = {"p"},
                                                        .pathPatterns = {"l%"},
                                                        .ports = {443},
                                                        .protocols = {"TCP", "SSL"},
                                                        .md5s = {"m"},
                                                        .qids = {"q"}},
                                             .columns = {3},
                                             .order = {},
                                             .limit = 5});
  EXPECT_EQ(statement.text,
            "SELECT port FROM edr_netdb WHERE (last_seen >= ?) AND (first_seen <= ?) AND "
            "(+ip IN (?, ?) OR in_cidr(ip, ?)) AND (+proc_fpath = ? OR +proc_fpath LIKE ?) AND (port = ?) AND "
            "(instr(',' || protos || ',', ?) > 0 OR instr(',' || protos || ',', ?) > 0) AND (proc_md5 = ?) AND "
            "(proc_qid = ?) LIMIT ?");
  EXPECT_THAT(statement.parameters,
              ElementsAre(Cell(i64{1000}), Cell(i64{2000}), Text("a1"), Text("a2"), Text("b"), Text("p"), Text("l%"),
                          Cell(i64{443}), Text(",TCP,"), Text(",SSL,"), Text("m"), Text("q"), Cell(i64{5})));
}

TEST(RowsStatement, ValuesNeverEnterTheText) {
  const std::string evil = "'; DROP TABLE edr_netdb; --";
  HistoryFilter filter = {.addresses = {evil}, .blocks = {evil}, .paths = {evil}, .pathPatterns = {evil}};
  filter.protocols = filter.md5s = filter.qids = {evil};
  EXPECT_THAT(RowsStatement(AllColumns(filter)).text, testing::Not(HasSubstr("DROP")));
}

TEST(RowsStatement, OrderNamesColumnsAndNumbersThatAreTextsSortAsNumbers) {
  std::string error;
  RowQuery query = AllColumns();
  query.order = ReadOrder({"bytes_out:desc,port", "-proc_puid", "proc_md5:ASC", "ip:desc"}, error).value();
  EXPECT_EQ(RowsStatement(query).text,
            kAllColumns +
                " ORDER BY bytes_out DESC, port, length(proc_puid) DESC, proc_puid DESC, proc_md5, ip_number(ip) DESC");
}

TEST(ReadColumns, TakesAnyOrderAndCase) {
  std::string error;
  EXPECT_THAT(ReadColumns("PORT,ip,Proc_Pid", error).value(), ElementsAre(3, 0, 14));
  EXPECT_THAT(ReadColumns(" port , ip", error).value(), ElementsAre(3, 0));
  EXPECT_FALSE(ReadColumns("port, ,ip", error).has_value());
  EXPECT_EQ(ReadColumns("", error)->size(), 15U);
}

TEST(ReadColumns, UnknownNameIsAnsweredWithTheNames) {
  std::string error;
  EXPECT_FALSE(ReadColumns("ip,bytes", error));
  EXPECT_EQ(error,
            "\"bytes\" is no column; the columns are ip, first_seen, last_seen, port, protos, conns_total, conns_in, "
            "conns_out, bytes_in, bytes_out, proc_fpath, proc_md5, proc_qid, proc_puid, proc_pid");
  for (const char* text : {"ip,", ",ip", "i p", "*"}) {
    EXPECT_FALSE(ReadColumns(text, error)) << text;
  }
}

TEST(ReadColumns, NameGivenTwiceIsRefused) {
  std::string error;
  EXPECT_FALSE(ReadColumns("ip,port,IP", error));
  EXPECT_EQ(error, "the column ip is named twice");
}

TEST(ReadOrder, AnythingElseIsRefused) {
  std::string error;
  for (const char* text : {"ip:up", "ip:", "-ip:desc", "ip:desc:desc"}) {
    EXPECT_FALSE(ReadOrder({text}, error)) << text;
    EXPECT_EQ(error, "\"" + std::string(text) + "\" is no order; give a column, COLUMN:asc, COLUMN:desc or -COLUMN");
  }
  for (const char* text : {"", "bytes", "-", "--ip", ":desc", "1", "ip desc"}) {
    EXPECT_FALSE(ReadOrder({text}, error)) << text;
    EXPECT_THAT(error, HasSubstr("is no column; the columns are ip, ")) << text;
  }
}

TEST(ReadLimit, TakesNumbersAboveZero) {
  std::string error;
  EXPECT_EQ(ReadLimit("1", error), 1);
  EXPECT_EQ(ReadLimit("9223372036854775807", error), 9223372036854775807);
  for (const char* text : {"", "0", "-1", "ten", "9223372036854775808", "1.5"}) {
    EXPECT_FALSE(ReadLimit(text, error)) << text;
    EXPECT_EQ(error, "\"" + std::string(text) + "\" is no limit; give a number above 0");
  }
}

constexpr char kSums[] = "sum(conns_total), total(bytes_in), total(bytes_out)";
constexpr char kBoth[] = ", total(bytes_in) + total(bytes_out) FROM edr_netdb";

TEST(TopStatement, SumsUpByTheGroup) {
  const Statement statement = TopStatement(GroupBy::kIp, Measure::kBytes, 10, {});
  EXPECT_EQ(statement.text, std::string("SELECT ip, ") + kSums + kBoth + " GROUP BY 1 ORDER BY 5 DESC, 1 LIMIT ?");
  EXPECT_THAT(statement.parameters, ElementsAre(Cell(i64{10})));
}

TEST(TopStatement, RangeStandsBeforeTheLimit) {
  const Statement statement = TopStatement(GroupBy::kProcess, Measure::kConns, 3, {1, 2});
  EXPECT_EQ(statement.text, std::string("SELECT proc_fpath, ") + kSums + kBoth +
                                " WHERE (last_seen >= ?) AND (first_seen <= ?) AND proc_fpath <> '' GROUP BY 1 "
                                "ORDER BY 2 DESC, 1 LIMIT ?");
  EXPECT_THAT(statement.parameters, ElementsAre(Cell(i64{1000}), Cell(i64{2000}), Cell(i64{3})));
}

TEST(TopStatement, EachMeasureIsOfItsColumn) {
  EXPECT_THAT(TopStatement(GroupBy::kPort, Measure::kBytesIn, 1, {}).text, HasSubstr("ORDER BY 3 DESC"));
  EXPECT_THAT(TopStatement(GroupBy::kPort, Measure::kBytesOut, 1, {}).text, HasSubstr("ORDER BY 4 DESC"));
  EXPECT_THAT(TopStatement(GroupBy::kProcess, Measure::kBytes, 1, {}).text, HasSubstr(" WHERE proc_fpath <> '' "));
}

TEST(TopStatement, NamesAreFound) {
  EXPECT_EQ(GroupByOf("ip"), GroupBy::kIp);
  EXPECT_EQ(GroupByOf("process"), GroupBy::kProcess);
  EXPECT_EQ(GroupByOf("port"), GroupBy::kPort);
  EXPECT_EQ(GroupByOf("day"), GroupBy::kDay);
  EXPECT_EQ(GroupByOf("year"), std::nullopt);
  EXPECT_EQ(MeasureOf("bytes"), Measure::kBytes);
  EXPECT_EQ(MeasureOf("conns"), Measure::kConns);
  EXPECT_EQ(MeasureOf("bytes_in"), Measure::kBytesIn);
  EXPECT_EQ(MeasureOf("bytes_out"), Measure::kBytesOut);
  EXPECT_EQ(MeasureOf("ports"), std::nullopt);
}

TEST(NewStatement, BothAreOneStatement) {
  const Statement both = NewStatement(true, true, 7);
  EXPECT_THAT(both.text, HasSubstr(" GROUP BY ip HAVING min(first_seen) >= ? UNION ALL SELECT 'process' AS kind, "));
  EXPECT_THAT(both.text,
              HasSubstr(" WHERE proc_fpath <> '' GROUP BY proc_fpath HAVING min(first_seen) >= ? ORDER BY "));
  EXPECT_THAT(both.parameters, ElementsAre(Cell(i64{7000}), Cell(i64{7000})));
}

TEST(NewStatement, OneIsAskedAlone) {
  EXPECT_THAT(NewStatement(true, false, 7).text, testing::Not(HasSubstr("'process'")));
  EXPECT_THAT(NewStatement(false, true, 7).text, testing::StartsWith("SELECT 'process'"));
  EXPECT_THAT(NewStatement(false, true, 7).parameters, ElementsAre(Cell(i64{7000})));
}

}  // namespace
