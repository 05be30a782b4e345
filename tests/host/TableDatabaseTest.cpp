#include "host/table/Database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/host/DayFileBytes.h"
#include "tests/host/TableTest.h"

namespace {

using namespace Host;
using Host::Table::Database;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Outcome = Database::Outcome;

constexpr u64 kDay = 1699920000;
constexpr u64 kNextDay = kDay + 86400;
constexpr u64 kThirdDay = kNextDay + 86400;

using TableDatabaseTest = TableTest;

TEST_F(TableDatabaseTest, ColumnsAreThoseOfARow) {
  PutRows(folder_.Path(), {{kDay + 5, "203.0.113.9", ProcessRow{"/bin/a", 0x11, 0x22, ~u64{0}, -1}}});
  Open();
  KeptRows kept;
  std::string error;
  ASSERT_EQ(database_->Run("SELECT * FROM edr_netdb", {}, kept, error), Outcome::kDone) << error;
  EXPECT_THAT(kept.names,
              ElementsAre("ip", "first_seen", "last_seen", "port", "protos", "conns_total", "conns_in", "conns_out",
                          "bytes_in", "bytes_out", "proc_fpath", "proc_md5", "proc_qid", "proc_puid", "proc_pid"));
  EXPECT_EQ(kept.origins, kept.names);
  std::string qid;
  for (int i = 0; i < 32; ++i) {
    qid += "22";
  }
  EXPECT_THAT(kept.rows, ElementsAre("203.0.113.9|1699920005000|1699920005000|443|SSL,TCP|1|0|1|1000|2000|/bin/a|"
                                     "11111111111111111111111111111111|" +
                                     qid + "|18446744073709551615|-1"));
}

TEST_F(TableDatabaseTest, TypesAreThoseOfTheColumns) {
  PutRows(folder_.Path(), {{kDay + 5}});
  EXPECT_THAT(Rows("SELECT typeof(ip), typeof(first_seen), typeof(port), typeof(bytes_in), typeof(proc_fpath), "
                   "typeof(proc_puid), typeof(proc_pid) FROM edr_netdb"),
              ElementsAre("text|integer|integer|integer|text|text|integer"));
  EXPECT_THAT(Rows("SELECT proc_fpath, proc_md5, proc_puid, proc_pid FROM edr_netdb"),
              ElementsAre("|00000000000000000000000000000000|0|-1"))
      << "a row without a process";
}

TEST_F(TableDatabaseTest, CountersAboveAWholeNumberAreReal) {
  PutRows(folder_.Path(), {{kDay + 5, "203.0.113.1", {}, 443, ~u64{0}, (u64{1} << 63) - 1}});
  EXPECT_THAT(Rows("SELECT typeof(bytes_in), bytes_in = 18446744073709551616.0, bytes_out FROM edr_netdb"),
              ElementsAre("real|1|9223372036854775807"));
}

TEST_F(TableDatabaseTest, StatementWithoutColumnsCountsAll) {
  PutRows(folder_.Path(), {{kDay + 5}, {kDay + 6, "203.0.113.2"}, {kNextDay + 5, "203.0.113.1", {}, 0}});
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("3"));
  EXPECT_THAT(Rows("SELECT 'row' FROM edr_netdb"), ElementsAre("row", "row", "row"));
}

TEST_F(TableDatabaseTest, DaysComeInOrder) {
  PutRows(
      folder_.Path(),
      {{kThirdDay, "203.0.113.1"}, {kDay, "203.0.113.3"}, {kDay, "203.0.113.2"}, {kNextDay + 86399, "203.0.113.4"}});
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb"),
              ElementsAre("203.0.113.2", "203.0.113.3", "203.0.113.4", "203.0.113.1"));
}

TEST_F(TableDatabaseTest, FirstAndLastSecondOfADayAreRead) {
  PutRows(folder_.Path(), {{kDay, "203.0.113.1"}, {kDay + 86399, "203.0.113.2"}, {kNextDay, "203.0.113.3"}});
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE first_seen >= 1699920000000 AND first_seen < 1700006400000"),
              ElementsAre("203.0.113.1", "203.0.113.2"));
}

TEST_F(TableDatabaseTest, BothFilesOfADayAreReadOnce) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.1"}, {kNextDay, "203.0.113.7"}});
  std::filesystem::rename(DayFile(kDay), DayFile(kDay) + ".f");
  PutRows(folder_.Path() + "/other", {{kDay + 2, "203.0.113.2"}});
  std::filesystem::rename(folder_.Path("other/netdb/" + std::to_string(kDay) + ".db"), DayFile(kDay));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb ORDER BY ip"), ElementsAre("203.0.113.1", "203.0.113.2", "203.0.113.7"));
}

TEST_F(TableDatabaseTest, EmptyFolderHasNoRows) {
  std::filesystem::create_directories(folder_.Path("netdb"));
  EXPECT_THAT(Rows("SELECT * FROM edr_netdb"), IsEmpty());
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("0"));
  EXPECT_THAT(Rows("SELECT * FROM processes"), IsEmpty());
  EXPECT_THAT(Rows("SELECT * FROM days"), IsEmpty());
  EXPECT_THAT(database_->TakeProblems(), IsEmpty());
}

TEST_F(TableDatabaseTest, MissingFolderIsAnErrorAndIsNotMade) {
  Database database(folder_.Path());
  std::string error;
  EXPECT_FALSE(database.Open(error));
  EXPECT_EQ(error, "there is no history: the folder " + folder_.Path("netdb") + " does not exist");
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("netdb")));
}

TEST_F(TableDatabaseTest, FolderThatVanishesIsAProblem) {
  PutRows(folder_.Path(), {{kDay + 1}});
  Open();
  std::filesystem::remove_all(folder_.Path("netdb"));
  EXPECT_THAT(Rows("SELECT * FROM edr_netdb"), IsEmpty());
  EXPECT_THAT(database_->TakeProblems(), ElementsAre("cannot list the folder " + folder_.Path("netdb")));
}

TEST_F(TableDatabaseTest, EachStatementReadsTheFolderAnew) {
  PutRows(folder_.Path(), {{kDay + 1}});
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("1"));
  PutRows(folder_.Path(), {{kNextDay + 1}});
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("2"));
}

TEST_F(TableDatabaseTest, DamagedFileIsNamedOnceAndTheOthersAreRead) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1, "203.0.113.2"}});
  folder_.Put("netdb/" + std::to_string(kDay) + ".db", "damaged");
  EXPECT_THAT(Rows("SELECT a.ip FROM edr_netdb a JOIN edr_netdb b"), ElementsAre("203.0.113.2"));
  EXPECT_THAT(database_->TakeProblems(), ElementsAre(Damaged(DayFile(kDay))));
  EXPECT_THAT(database_->TakeProblems(), IsEmpty()) << "taken";
}

TEST_F(TableDatabaseTest, FileUnderAnotherDaysNameIsDamaged) {
  PutRows(folder_.Path(), {{kDay + 1}});
  std::filesystem::copy(DayFile(kDay), DayFile(kNextDay));
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("1"));
  EXPECT_THAT(database_->TakeProblems(), ElementsAre(Damaged(DayFile(kNextDay))));
}

TEST_F(TableDatabaseTest, FileNamedAfterNoDayIsAProblem) {
  DayFileBytes bytes;
  bytes.day = kDay + 1;
  std::filesystem::create_directories(folder_.Path("netdb"));
  folder_.Put("netdb/" + std::to_string(kDay + 1) + ".db", bytes.Bytes());
  EXPECT_THAT(Rows("SELECT * FROM edr_netdb"), IsEmpty());
  EXPECT_THAT(database_->TakeProblems(),
              ElementsAre(DayFile(kDay + 1) + " is not named after a day; its rows are missing"));
}

TEST_F(TableDatabaseTest, RowOfAMissingProcessEndsItsDayAlone) {
  PutRows(folder_.Path(), {{kNextDay + 1, "203.0.113.200"}});
  DayFileBytes bytes;
  bytes.addresses = {{1, 0}, {2, 77}, {3, 0}};
  folder_.Put("netdb/" + std::to_string(kDay) + ".db", bytes.Bytes());
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb"), ElementsAre("203.0.113.1", "203.0.113.200"));
  EXPECT_THAT(database_->TakeProblems(),
              ElementsAre("the rows of 2023-11-14 are damaged or cannot be read; some are missing"));
}

TEST_F(TableDatabaseTest, OtherFilesAreLeftAlone) {
  PutRows(folder_.Path(), {{kDay + 1}});
  folder_.Put("netdb/" + std::to_string(kDay) + ".temp", "a save under way");
  folder_.Put("netdb/cache.4.db", "x");
  folder_.Put("netdb/" + std::to_string(kDay) + ".db.damaged", "x");
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("1"));
  EXPECT_THAT(database_->TakeProblems(), IsEmpty());
}

TEST_F(TableDatabaseTest, OnlyDaysThatCanHoldAnAnswerAreRead) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1, "203.0.113.2"}});
  folder_.Put("netdb/" + std::to_string(kDay) + ".db", "damaged");
  const std::string next = std::to_string(kNextDay * 1000);
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE first_seen >= " + next), ElementsAre("203.0.113.2"));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE last_seen > " + next + " - 0.5"), ElementsAre("203.0.113.2"));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE first_seen = " + next + " + 1000"), ElementsAre("203.0.113.2"));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE first_seen BETWEEN ? AND ?",
                   {Cell{static_cast<i64>(kNextDay * 1000)}, Cell{static_cast<i64>(kThirdDay * 1000)}}),
              ElementsAre("203.0.113.2"));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE first_seen IN (1, 2, " + next + " + 1000)"),
              ElementsAre("203.0.113.2"));
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE ip = 'nowhere'"), IsEmpty());
  EXPECT_THAT(database_->TakeProblems(), IsEmpty()) << "the damaged day was not asked";
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb WHERE first_seen < " + next), IsEmpty());
  EXPECT_THAT(database_->TakeProblems(), testing::SizeIs(1));
}

TEST_F(TableDatabaseTest, LimitEndsTheReadingOfDays) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  folder_.Put("netdb/" + std::to_string(kNextDay) + ".db", "damaged");
  EXPECT_THAT(Rows("SELECT ip FROM edr_netdb LIMIT 1"), ElementsAre("203.0.113.1"));
  EXPECT_THAT(database_->TakeProblems(), IsEmpty());
}

TEST_F(TableDatabaseTest, RowsHaveNoNumber) {
  PutRows(folder_.Path(), {{kDay + 1}});
  EXPECT_THAT(ErrorOf("SELECT rowid FROM edr_netdb"), HasSubstr("edr_netdb has no rowid"));
  EXPECT_THAT(ErrorOf("SELECT * FROM (VALUES ('x')) v RIGHT JOIN edr_netdb e ON v.column1 = e.ip"),
              HasSubstr("edr_netdb has no rowid"));
  EXPECT_THAT(Rows("WITH e AS MATERIALIZED (SELECT * FROM edr_netdb) SELECT e.ip, v.column1 FROM (VALUES ('x')) v "
                   "RIGHT JOIN e ON v.column1 = e.ip"),
              ElementsAre("203.0.113.1|NULL"));
}

TEST_F(TableDatabaseTest, JoinsGroupsAndWindowsWork) {
  PutRows(folder_.Path(),
          {{kDay + 1, "203.0.113.1", {}, 1}, {kDay + 2, "203.0.113.2", {}, 2}, {kNextDay, "203.0.113.1", {}, 3}});
  EXPECT_THAT(Rows("SELECT a.port, b.port FROM edr_netdb a JOIN edr_netdb b ON a.ip = b.ip AND a.port < b.port"),
              ElementsAre("1|3"));
  EXPECT_THAT(Rows("SELECT ip, count(*), sum(bytes_in) FROM edr_netdb GROUP BY ip ORDER BY 2 DESC"),
              ElementsAre("203.0.113.1|2|2000", "203.0.113.2|1|1000"));
  EXPECT_THAT(Rows("SELECT port, sum(port) OVER (ORDER BY port DESC) FROM edr_netdb"),
              ElementsAre("3|3", "2|5", "1|6"));
  EXPECT_THAT(Rows("WITH x AS MATERIALIZED (SELECT ip FROM edr_netdb WHERE port = 3) SELECT port FROM edr_netdb "
                   "WHERE ip IN x ORDER BY port DESC"),
              ElementsAre("3", "1"));
}

TEST_F(TableDatabaseTest, ProcessesHaveOneRowAPath) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.1", ProcessRow{"/bin/a", 1}},
                           {kDay + 2, "203.0.113.2", ProcessRow{"/bin/a", 2}},
                           {kNextDay + 3, "203.0.113.1", ProcessRow{"/bin/a", 1}},
                           {kDay + 4, "203.0.113.1", {}}});
  EXPECT_THAT(Rows("SELECT proc_fpath, first_seen, last_seen, days, addresses, conns_total, bytes_in, bytes_out FROM "
                   "processes ORDER BY proc_fpath"),
              ElementsAre("|1699920004000|1699920004000|1|1|1|1000|2000",
                          "/bin/a|1699920001000|1700006403000|2|2|3|3000|6000"));
  EXPECT_THAT(Rows("SELECT conns_total FROM processes WHERE proc_fpath = '/bin/a'"), ElementsAre("3"));
}

TEST_F(TableDatabaseTest, DaysHaveOneRowADay) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.1", ProcessRow{"/bin/a"}},
                           {kDay + 86399, "203.0.113.2", ProcessRow{"/bin/a"}},
                           {kDay + 5, "203.0.113.2", {}},
                           {kNextDay, "203.0.113.1", {}}});
  EXPECT_THAT(Rows("SELECT * FROM days ORDER BY day"),
              ElementsAre("2023-11-14|3|2|1|3|3000|6000", "2023-11-15|1|1|0|1|1000|2000"));
}

TEST_F(TableDatabaseTest, SumsOfViewsDoNotOverflow) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.1", ProcessRow{}, 443, u64{1} << 62},
                           {kDay + 1, "203.0.113.2", ProcessRow{}, 443, u64{1} << 62},
                           {kDay + 1, "203.0.113.3", ProcessRow{}, 443, ~u64{0}}});
  EXPECT_THAT(Rows("SELECT typeof(bytes_in), bytes_out FROM processes"), ElementsAre("real|6000"));
  EXPECT_THAT(Rows("SELECT typeof(bytes_in), bytes_out FROM days"), ElementsAre("real|6000"));
}

TEST_F(TableDatabaseTest, OriginIsGivenForColumnsAsTheyAre) {
  PutRows(folder_.Path(), {{kDay + 1}});
  Open();
  KeptRows kept;
  std::string error;
  ASSERT_EQ(database_->Run("SELECT first_seen AS f, e.ip, first_seen + 0, ts(first_seen), max(last_seen), x.l, 1 "
                           "FROM edr_netdb e, (SELECT last_seen AS l FROM edr_netdb) x",
                           {}, kept, error),
            Outcome::kDone)
      << error;
  EXPECT_THAT(kept.origins, ElementsAre("first_seen", "ip", "", "", "", "last_seen", ""));
  EXPECT_EQ(kept.names[0], "f");
  Rows("CREATE TABLE other(ip TEXT)");
  ASSERT_EQ(database_->Run("SELECT ip FROM other", {}, kept, error), Outcome::kDone);
  EXPECT_THAT(kept.origins, ElementsAre(""));
}

TEST_F(TableDatabaseTest, StatementsRunOneAfterAnother) {
  PutRows(folder_.Path(), {{kDay + 1}});
  Open();
  KeptRows kept;
  std::string error;
  EXPECT_EQ(database_->Run("SELECT 1; -- no more\n CREATE TABLE t(a); INSERT INTO t VALUES (2);; SELECT a FROM t;  ",
                           {}, kept, error),
            Outcome::kDone)
      << error;
  EXPECT_THAT(kept.rows, ElementsAre("1", "2"));
  EXPECT_EQ(kept.begun, 2) << "a statement without columns gives none";
  EXPECT_EQ(kept.ended, 2);
  EXPECT_EQ(database_->Run("", {}, kept, error), Outcome::kDone);
  EXPECT_EQ(database_->Run(" -- nothing", {}, kept, error), Outcome::kDone);
}

TEST_F(TableDatabaseTest, ParametersAreBoundInOrder) {
  PutRows(folder_.Path(), {{kDay + 1}});
  EXPECT_THAT(Rows("SELECT ?, ?, ?, ?; SELECT 5; SELECT ? + 1",
                   {Cell{i64{1}}, Cell{2.5}, Cell{std::string("a\0b", 3)}, Cell{}}),
              ElementsAre("1|real 2.500000|" + std::string("a\0b", 3) + "|NULL", "5", "2"));
  EXPECT_EQ(ErrorOf("SELECT ?, ?", {Cell{i64{1}}}), "a statement has 2 parameters, and 1 values were given");
}

TEST_F(TableDatabaseTest, CellsKeepTheirTypes) {
  PutRows(folder_.Path(), {{kDay + 1}});
  EXPECT_THAT(Rows("SELECT NULL, -9223372036854775808, 0.5, 'text', X'00FF', X'', ''"),
              ElementsAre("NULL|-9223372036854775808|real 0.500000|text|x'00ff'|x''|"));
}

TEST_F(TableDatabaseTest, ErrorsAreSqlites) {
  PutRows(folder_.Path(), {{kDay + 1}});
  EXPECT_EQ(ErrorOf("SELECT other FROM edr_netdb"), "no such column: other");
  EXPECT_EQ(ErrorOf("SELEC"), "near \"SELEC\": syntax error");
  EXPECT_THAT(ErrorOf("SELECT in_cidr(ip, 'x') FROM edr_netdb"), HasSubstr("no block of addresses"));
  EXPECT_EQ(ErrorOf(std::string("SELECT 1\0 2", 11)), "the statement is too long, or has a NUL character in it");
}

TEST_F(TableDatabaseTest, WantOfMemoryIsAnError) {
  PutRows(folder_.Path(), {{kDay + 1}});
  Open();
  const sqlite3_int64 before = sqlite3_hard_heap_limit64(sqlite3_memory_used() + 200'000);
  const std::string error = ErrorOf("SELECT ip || printf('%.1000000c', 'x') FROM edr_netdb");
  sqlite3_hard_heap_limit64(before);
  EXPECT_THAT(error, HasSubstr("out of memory"));
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("1"));
}

TEST_F(TableDatabaseTest, SinkEndsTheRun) {
  PutRows(folder_.Path(), {{kDay + 1}, {kDay + 1, "203.0.113.2"}, {kNextDay + 1}});
  folder_.Put("netdb/" + std::to_string(kNextDay) + ".db", "damaged");
  Open();
  std::string error;
  KeptRows one;
  one.allowedRows = 1;
  EXPECT_EQ(database_->Run("SELECT ip FROM edr_netdb; SELECT 2", {}, one, error), Outcome::kStopped);
  EXPECT_THAT(one.rows, ElementsAre("203.0.113.1"));
  EXPECT_EQ(one.ended, 0);
  EXPECT_THAT(database_->TakeProblems(), IsEmpty()) << "the next day was not read";
  KeptRows none;
  none.allowedResults = 0;
  EXPECT_EQ(database_->Run("SELECT 1", {}, none, error), Outcome::kStopped);
  EXPECT_THAT(none.rows, IsEmpty());
  KeptRows first;
  first.stopsAtEnd = true;
  EXPECT_EQ(database_->Run("SELECT 1; SELECT 2", {}, first, error), Outcome::kStopped);
  EXPECT_THAT(first.rows, ElementsAre("1"));
  EXPECT_EQ(error, "");
}

TEST_F(TableDatabaseTest, InterruptEndsTheRunAndNotTheNext) {
  PutRows(folder_.Path(), {{kDay + 1}, {kDay + 1, "203.0.113.2"}, {kNextDay + 1}});
  Open();
  std::string error;
  KeptRows kept;
  kept.onRow = [this] { database_->Interrupt(); };
  EXPECT_EQ(database_->Run("SELECT ip FROM edr_netdb; SELECT 1", {}, kept, error), Outcome::kInterrupted);
  EXPECT_THAT(kept.rows, ElementsAre("203.0.113.1"));
  EXPECT_EQ(error, "");
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("3"));
  database_->Interrupt();
  EXPECT_THAT(Rows("SELECT count(*) FROM edr_netdb"), ElementsAre("3")) << "nothing ran";
}

TEST_F(TableDatabaseTest, NothingIsReachedOutsideOfTheDatabase) {
  PutRows(folder_.Path(), {{kDay + 1}});
  const std::string file = "'" + folder_.Path("out") + "'";
  for (const std::string& sql :
       {"ATTACH " + file + " AS o", "VACUUM INTO " + file, "SELECT load_extension(" + file + ")",
        std::string("PRAGMA temp_store_directory = '/'"), std::string("PRAGMA data_store_directory = '/'"),
        std::string("PRAGMA writable_schema = 1"), std::string("PRAGMA trusted_schema = 1"),
        std::string("PRAGMA journal_mode = WAL"), std::string("DETACH main"), std::string("SELECT writefile('x', 'y')"),
        std::string("SELECT fts3_tokenizer('mine', x'4141414141414141')")}) {
    EXPECT_NE(ErrorOf(sql), "") << sql;
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.Path("out")));
  EXPECT_NE(ErrorOf("DELETE FROM edr_netdb"), "");
  EXPECT_NE(ErrorOf("INSERT INTO edr_netdb(ip) VALUES ('x')"), "");
  EXPECT_THAT(Rows("SELECT name FROM pragma_table_info('edr_netdb') LIMIT 2"), ElementsAre("ip", "first_seen"));
  EXPECT_THAT(Rows("SELECT type || ' ' || name FROM sqlite_schema ORDER BY name"),
              ElementsAre("view days", "table edr_netdb", "view processes"));
}

TEST_F(TableDatabaseTest, ReadingChangesNothingInTheFolder) {
  PutRows(folder_.Path(), {{kDay + 1}});
  const std::string before = TemporaryFolder::Get(DayFile(kDay));
  Rows("SELECT * FROM edr_netdb ORDER BY ip; SELECT * FROM days");
  EXPECT_EQ(TemporaryFolder::Get(DayFile(kDay)), before);
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Path())) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  EXPECT_EQ(files, 1U);
}

TEST(Database, IsCompleteAfterASemicolon) {
  EXPECT_TRUE(Database::IsComplete("SELECT 1;"));
  EXPECT_TRUE(Database::IsComplete("SELECT ';'; -- done\n"));
  EXPECT_FALSE(Database::IsComplete("SELECT 1"));
  EXPECT_FALSE(Database::IsComplete("SELECT ';"));
  EXPECT_FALSE(Database::IsComplete(""));
}

}  // namespace
