// WHERE clauses over edr_netdb: what goes down loses no row.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/table/Columns.h"
#include "tests/host/TableTest.h"

namespace {

using namespace Host;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr u64 kDay = 1699920000;
constexpr u64 kNextDay = kDay + 86400;
constexpr u64 kThirdDay = kNextDay + 86400;

using TableClausesTest = TableTest;

// Rows that every way of narrowing could lose, and clauses that would lose them.
std::vector<TableRow> TrickyRows() {
  const std::string longPath = "/" + std::string(599, 'p');
  const std::string cutCharacter = "/" + std::string(508, 'p') + "\xE2\x82\xAC";  // 512 bytes
  return {{kDay, "203.0.113.1", {}},
          {kDay + 86399, "203.0.113.2", ProcessRow{"", 0, 0, 0, 7}},
          {kNextDay, "203.0.113.1", ProcessRow{"/usr/bin/curl", 0x11, 0x22, 77}},
          {kNextDay + 1, "203.0.113.3", ProcessRow{"/USR/bin/CURL", 0x11, 0, ~u64{0}}},
          {kNextDay + 2, "203.0.113.4", ProcessRow{"/tmp/\xFF\xFEwrong", 0, 0x22, 1}},
          {kNextDay + 3, "203.0.113.5", ProcessRow{"/tmp/\xEF\xBF\xBD", 1, 1, 2}},
          {kThirdDay, "203.0.113.6", ProcessRow{longPath, 1, 1, 3}},
          {kThirdDay, "203.0.113.7", ProcessRow{longPath.substr(0, 511), 1, 1, 4}},
          {kThirdDay, "203.0.113.8", ProcessRow{cutCharacter, 1, 1, 5}},
          {kThirdDay, "203.0.113.9", ProcessRow{"/opt/na\xC3\xAFve_x", 1, 1, 6}},
          {kThirdDay, "203.0.113.10", ProcessRow{"/opt/na\xC3\x8Fve_x", 1, 1, 7}, 80, ~u64{0}},
          {kThirdDay, "198.51.100.1", ProcessRow{"77", 1, 1, 8}},
          {kThirdDay + 5, "0.0.0.0", ProcessRow{"/tmp/\xEF\xBF\xBF", 1, 1, 9}}};
}

const char* const kTrickyClauses[] = {
    "ip = '203.0.113.1'",
    "ip IN ('203.0.113.1', '203.0.113.3', 'x', '::1', NULL, 5)",
    "ip IN ('x', NULL)",
    "ip = '203.0.113.1' AND ip = '203.0.113.3'",
    "ip = '203.0.113.1' OR ip = '203.0.113.3'",
    "ip = '203.0.113.1' OR proc_fpath = '/USR/bin/CURL'",
    "ip = '203.0.113.1' OR proc_fpath = '/USR/bin/CURL' OR proc_puid = '77' OR first_seen = 1699920000000",
    "(ip = '203.0.113.1' OR proc_md5 = '11111111111111111111111111111111') AND first_seen > 1699920000000",
    "ip = '203.0.113.01'",
    "ip = X'3230332E302E3131332E31'",
    "ip <> '203.0.113.1'",
    "ip IS '203.0.113.1'",
    "ip IS NOT '203.0.113.1'",
    "ip > '203.0.113.4'",
    "NOT ip = '203.0.113.1'",
    "ip = '203.0.113.1' COLLATE NOCASE",
    "ip LIKE '203.0.113.1%'",
    "ip GLOB '203*'",
    "ip || '' = '203.0.113.1'",
    "ip IN (SELECT p.ip FROM plain p WHERE p.port = 80)",
    "(ip, port) = ('203.0.113.10', 80)",
    "(ip, port) IN (SELECT '203.0.113.10', 80 UNION SELECT '203.0.113.1', 443)",
    "(first_seen, port) > (1700006400000, 80)",
    "(first_seen, port) > (1700092800000, 80)",
    "proc_fpath = ''",
    "proc_fpath IN ('', '/usr/bin/curl')",
    "proc_fpath = '/usr/bin/curl'",
    "proc_fpath = '/usr/bin/CURL' COLLATE NOCASE",
    "proc_fpath = '/usr/bin/curl' AND proc_fpath = '/USR/bin/CURL'",
    "proc_fpath = 77",
    "proc_fpath = 77.0",
    "proc_fpath = '/tmp/' || char(65533)",
    "proc_fpath = '/tmp/' || char(65533) || char(65533) || 'wrong'",
    "proc_fpath = '/' || replace(hex(zeroblob(255)), '0', 'p')",
    "proc_fpath = '/' || replace(hex(zeroblob(254)), '0', 'p')",
    "length(proc_fpath) > 500",
    "proc_fpath IS NULL",
    "proc_fpath IS NOT NULL",
    "proc_fpath LIKE ''",
    "proc_fpath LIKE '%'",
    "proc_fpath LIKE '%%'",
    "proc_fpath LIKE '%curl'",
    "proc_fpath LIKE '/usr/%' AND proc_fpath LIKE '%BIN%'",
    "proc_fpath LIKE '/usr/bin/curl'",
    "proc_fpath LIKE '/usr/bin/cur_'",
    "proc_fpath LIKE '%ppp'",
    "proc_fpath LIKE '%wrong'",
    "proc_fpath LIKE '/tmp/%'",
    "proc_fpath LIKE '%' || char(65533) || '%'",
    "proc_fpath LIKE '%' || char(65535)",
    "proc_fpath LIKE '%' || char(65534)",
    "proc_fpath LIKE '/tmp/__wrong'",
    "proc_fpath LIKE '%na\xC3\xAFve%'",
    "proc_fpath LIKE '%na\xC3\x8Fve%'",
    "proc_fpath LIKE '%na_ve%'",
    "proc_fpath LIKE '%ve!_x' ESCAPE '!'",
    "proc_fpath LIKE '%!%' ESCAPE '!'",
    "proc_fpath LIKE NULL",
    "proc_fpath LIKE 77",
    "proc_fpath LIKE X'25'",
    "proc_fpath LIKE '/usr/bin/curl' || char(0) || 'x'",
    "proc_fpath NOT LIKE '%curl'",
    "proc_fpath GLOB '/usr/*'",
    "'/usr/bin/curl' LIKE proc_fpath",
    "proc_md5 = '11111111111111111111111111111111'",
    "proc_md5 = '00000000000000000000000000000000'",
    "proc_md5 = '0000000000000000000000000000000'",
    "proc_md5 IN ('11111111111111111111111111111111', '00000000000000000000000000000000')",
    "proc_qid = '2222222222222222222222222222222222222222222222222222222222222222'",
    "proc_qid = '0000000000000000000000000000000000000000000000000000000000000000'",
    "proc_md5 = '11111111111111111111111111111111' AND proc_qid LIKE '22%'",
    "proc_puid = 77",
    "proc_puid = '77'",
    "proc_puid = 77.0",
    "proc_puid = '077'",
    "proc_puid = 0",
    "proc_puid = '0'",
    "proc_puid = '18446744073709551615'",
    "proc_puid = 18446744073709551615",
    "proc_puid IN (77, 1, 0)",
    "proc_puid = CAST('77' AS NUMERIC)",
    "proc_puid + 0 = 77",
    "proc_puid BETWEEN '1' AND '77'",
    "first_seen = 1700006400000",
    "first_seen = '1700006400000'",
    "first_seen = 1700006400000.0",
    "first_seen = 1700006400000.5",
    "first_seen >= 1700006399999.5",
    "first_seen > '1700006400000'",
    "first_seen < 'x'",
    "first_seen > 'x'",
    "first_seen < X'00'",
    "first_seen > NULL",
    "first_seen = NULL",
    "first_seen IS NULL",
    "first_seen < 9e999",
    "first_seen > -9e999",
    "first_seen > 9223372036854775807",
    "first_seen >= -9223372036854775808",
    "first_seen IN (1700006400000, 1700092800000)",
    "first_seen IN (1700006400000, '1700092800000', 'x')",
    "first_seen BETWEEN 1699920000000 AND 1700006400000",
    "first_seen > last_seen",
    "first_seen = last_seen",
    "last_seen <= 1700006399000",
    "last_seen < 1700006400000",
    "first_seen / 86400000 = 19676",
    "port = 80",
    "bytes_in > 9223372036854775807",
    "proc_pid = -1",
    "protos LIKE '%SSL%' AND ip = '203.0.113.4'",
    "in_cidr(ip, '203.0.113.0/30')",
    "ts(first_seen) LIKE '2023-11-15%'",
    "EXISTS (SELECT 1 FROM plain p WHERE p.ip = t.ip AND p.proc_fpath <> t.proc_fpath)",
    "EXISTS (SELECT 1 FROM edr_netdb p WHERE p.ip = t.ip AND p.first_seen < t.first_seen)",
};

class TrickyClauses : public TableClausesTest, public testing::WithParamInterface<const char*> {};

TEST_P(TrickyClauses, GiveTheRowsOfAPlainTable) {
  PutRows(folder_.Path(), TrickyRows());
  std::string columns;
  for (const auto& column : Table::kColumns) {
    columns += std::string(columns.empty() ? "" : ", ") + column.name + " " + column.type;
  }
  Rows("CREATE TABLE plain(" + columns + "); INSERT INTO plain SELECT * FROM edr_netdb");
  ASSERT_THAT(Rows("SELECT count(*) FROM plain"), ElementsAre("13"));
  const std::string clause = GetParam();
  const auto from = [this, &clause](const std::string& table) {
    return Rows("SELECT * FROM " + table + " t WHERE " + clause + " ORDER BY ip, first_seen");
  };
  EXPECT_EQ(from("edr_netdb"), from("plain"));
  const auto joined = [this, &clause](const std::string& table) {
    return Rows("SELECT o.i, t.* FROM (SELECT ip AS i, first_seen AS f FROM plain) o LEFT JOIN " + table +
                " t ON o.i = t.ip AND (" + clause + ") ORDER BY o.i, o.f, t.ip, t.first_seen");
  };
  EXPECT_EQ(joined("edr_netdb"), joined("plain"));
  EXPECT_THAT(database_->TakeProblems(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, TrickyClauses, testing::ValuesIn(kTrickyClauses));

// Not among the clauses above: this SQLite's own index of a plain table, made for a join, does not find it.
TEST_F(TableClausesTest, TrailingBlanksDoNotCountWhereTheCollationSaysSo) {
  PutRows(folder_.Path(), TrickyRows());
  EXPECT_THAT(Rows("SELECT proc_fpath FROM edr_netdb WHERE proc_fpath = '/usr/bin/curl ' COLLATE RTRIM"),
              ElementsAre("/usr/bin/curl"));
}

TEST_F(TableClausesTest, ListOfMoreAddressesThanGoDownIsReadInOneScan) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.7"}, {kDay + 1, "203.0.113.150"}, {kDay + 1, "198.51.100.1"}});
  for (const int count : {100, 101, 200}) {
    const std::string list = "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                             std::to_string(count - 1) + ") SELECT '203.0.113.' || i FROM n";
    const auto rows = Rows("SELECT ip FROM edr_netdb WHERE ip IN (" + list + ") ORDER BY ip");
    EXPECT_EQ(rows.size(), count > 150 ? 2U : 1U) << count;
    EXPECT_EQ(rows.back(), "203.0.113.7");
  }
}

TEST_F(TableClausesTest, ManyPathsAndAddressesTogetherLoseNothing) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.7", ProcessRow{"/bin/42"}}, {kDay + 1, "203.0.113.8"}});
  std::string addresses;
  std::string paths;
  for (int i = 0; i < 100; ++i) {
    addresses += (i == 0 ? "'203.0.113." : ",'203.0.113.") + std::to_string(i) + "'";
    paths += (i == 0 ? "'/bin/" : ",'/bin/") + std::to_string(i) + "'";
  }
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE ip IN (" + addresses + ") AND proc_fpath IN (" + paths + ")"),
              ElementsAre("203.0.113.7"));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE ip IN (" + addresses + ")"),
              ElementsAre("203.0.113.7", "203.0.113.8"));
}

TEST_F(TableClausesTest, NoPlanPutsAnOrTogetherFromSeveralScans) {
  PutRows(folder_.Path(), TrickyRows());
  for (const char* sql :
       {"SELECT * FROM edr_netdb WHERE ip = 'a' OR proc_fpath = 'b'",
        "SELECT * FROM edr_netdb WHERE ip = 'a' OR proc_fpath = 'b' OR proc_md5 = 'c' OR proc_puid = 5",
        "SELECT * FROM edr_netdb WHERE (ip = 'a' AND first_seen > 5) OR (proc_fpath = 'b' AND first_seen > 5)",
        "SELECT * FROM edr_netdb WHERE (ip = 'a' AND first_seen > 5 AND proc_fpath = 'x') OR (proc_fpath = 'b' AND "
        "first_seen > 5 AND ip = 'x')",
        "SELECT * FROM edr_netdb WHERE (ip = 'a' OR proc_fpath = 'b') AND first_seen > 5 AND last_seen < 7",
        "WITH o(x, y) AS (VALUES (1, 2), (3, 4)) SELECT * FROM o JOIN edr_netdb e ON e.ip = o.x OR e.proc_fpath = o.y",
        "WITH o(x, y) AS (VALUES (1, 2), (3, 4)) SELECT * FROM o LEFT JOIN edr_netdb e ON e.ip = o.x OR "
        "e.proc_fpath = o.y OR (e.proc_puid = o.x AND e.ip = o.y)",
        "SELECT * FROM edr_netdb a JOIN edr_netdb b ON (a.ip = b.ip OR a.proc_fpath = b.proc_fpath) JOIN edr_netdb c "
        "ON (c.proc_md5 = b.proc_md5 OR c.ip = a.ip) AND c.first_seen > a.first_seen"}) {
    for (const std::string& line : Rows(std::string("EXPLAIN QUERY PLAN ") + sql)) {
      EXPECT_THAT(line, testing::Not(HasSubstr("OR"))) << sql;
    }
    Rows(sql);
  }
}

}  // namespace
