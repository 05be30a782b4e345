#include "host/table/TableModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/TableRows.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using Host::u64;

constexpr u64 kDay = 1699920000;
constexpr u64 kNextDay = kDay + 86400;

class TableModuleTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sqlite3_open(":memory:", &db_), SQLITE_OK);
    ASSERT_EQ(Host::Table::RegisterTable(db_, context_), SQLITE_OK);
  }
  void TearDown() override { EXPECT_EQ(sqlite3_close(db_), SQLITE_OK); }

  [[nodiscard]] std::string DayFile(u64 day) const { return folder_.Path("netdb/" + std::to_string(day) + ".db"); }

  // The code that ends the statement; `rows_` counts what it gave.
  int Run(const std::string& sql) {
    rows_ = 0;
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr), SQLITE_OK) << sqlite3_errmsg(db_);
    int code = sqlite3_step(statement);
    for (; code == SQLITE_ROW; code = sqlite3_step(statement)) {
      ++rows_;
      onRow_();
    }
    sqlite3_finalize(statement);
    return code;
  }

  TemporaryFolder folder_;
  Host::Table::TableContext context_{folder_.Path("netdb")};
  sqlite3* db_ = nullptr;
  int rows_ = 0;
  std::function<void()> onRow_ = [] {};
};

TEST_F(TableModuleTest, TableIsThereWithoutACreate) {
  PutRows(folder_.Path(), {{kDay + 1}});
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_EQ(rows_, 1);
}

TEST_F(TableModuleTest, InterruptEndsAScanThatFindsNoRow) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  context_.interrupted = true;
  EXPECT_EQ(Run("SELECT * FROM edr_netdb WHERE ip = '198.51.100.99'"), SQLITE_INTERRUPT);
  context_.interrupted = false;
  EXPECT_EQ(Run("SELECT * FROM edr_netdb WHERE ip = '198.51.100.99'"), SQLITE_DONE);
}

TEST_F(TableModuleTest, InterruptEndsAScanBetweenDays) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  onRow_ = [this] { context_.interrupted = true; };
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_INTERRUPT);
  EXPECT_EQ(rows_, 1);
}

TEST_F(TableModuleTest, FileThatIsGoneMeanwhileIsNoProblem) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  int pauses = 0;
  context_.pause = [&pauses] { ++pauses; };
  onRow_ = [this] { std::filesystem::remove(DayFile(kNextDay)); };
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_EQ(rows_, 1);
  EXPECT_EQ(pauses, Host::Table::kLooks);
  EXPECT_THAT(context_.problems.Take(), testing::IsEmpty());
}

TEST_F(TableModuleTest, FileThatIsBeingReplacedIsWaitedFor) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  const std::string file = DayFile(kNextDay);
  onRow_ = [&file] {
    if (std::filesystem::exists(file)) {
      std::filesystem::rename(file, file + ".temp");
    }
  };
  context_.pause = [&file] { std::filesystem::rename(file + ".temp", file); };
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_EQ(rows_, 2);
  EXPECT_THAT(context_.problems.Take(), testing::IsEmpty());
}

TEST_F(TableModuleTest, DayThatIsBeingSavedIsListed) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  const std::string file = DayFile(kNextDay);
  std::filesystem::rename(file, file + ".temp");
  context_.pause = [&file] { std::filesystem::rename(file + ".temp", file); };
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_EQ(rows_, 2);
  EXPECT_THAT(context_.problems.Take(), testing::IsEmpty());
}

TEST_F(TableModuleTest, CompleteSaveWithoutItsDayIsAProblem) {
  PutRows(folder_.Path(), {{kDay + 1}, {kNextDay + 1}});
  const std::string save = DayFile(kNextDay) + ".temp";
  std::filesystem::rename(DayFile(kNextDay), save);
  int pauses = 0;
  context_.pause = [&pauses] { ++pauses; };
  const auto problem =
      testing::ElementsAre(save + " is a complete save of a day whose file is missing; its rows are missing");
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_EQ(rows_, 1);
  EXPECT_THAT(context_.problems.Take(), problem);
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_THAT(context_.problems.Take(), problem) << "of each answer";
  EXPECT_EQ(pauses, Host::Table::kLooks) << "waited for once";
}

TEST_F(TableModuleTest, RestOfACutSaveIsNoProblem) {
  PutRows(folder_.Path(), {{kDay + 1}});
  folder_.Put("netdb/" + std::to_string(kNextDay) + ".db.temp", "half");
  folder_.Put("netdb/" + std::to_string(kDay) + ".db.temp", "half");
  folder_.Put("netdb/cache.4.db.temp", "half");
  int pauses = 0;
  context_.pause = [&pauses] { ++pauses; };
  EXPECT_EQ(Run("SELECT * FROM edr_netdb"), SQLITE_DONE);
  EXPECT_EQ(rows_, 1);
  EXPECT_EQ(pauses, Host::Table::kLooks);
  EXPECT_THAT(context_.problems.Take(), testing::IsEmpty());
}

TEST_F(TableModuleTest, ManyConditionsInOneStatementLoseNothing) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.1", ProcessRow{"/bin/abc"}}});
  std::string sql = "SELECT * FROM edr_netdb WHERE ip IN ('203.0.113.1', '203.0.113.2')";
  for (int i = 0; i < 200; ++i) {
    sql += " AND proc_fpath LIKE '%" + std::string(1, "abc"[i % 3]) + "%' AND first_seen > " + std::to_string(i);
  }
  EXPECT_EQ(Run(sql + " AND ip IN ('203.0.113.1', '203.0.113.3') AND proc_fpath IN ('/bin/abc', '/bin/x')"),
            SQLITE_DONE);
  EXPECT_EQ(rows_, 1);
}

TEST_F(TableModuleTest, EachCursorOfAStatementHasItsOwnPlace) {
  PutRows(folder_.Path(), {{kDay + 1, "203.0.113.1"}, {kDay + 1, "203.0.113.2"}, {kNextDay + 1, "203.0.113.3"}});
  EXPECT_EQ(Run("SELECT * FROM edr_netdb a, edr_netdb b"), SQLITE_DONE);
  EXPECT_EQ(rows_, 9);
}

TEST_F(TableModuleTest, TableIsReadOnly) {
  sqlite3_stmt* statement = nullptr;
  EXPECT_NE(sqlite3_prepare_v2(db_, "UPDATE edr_netdb SET ip = 'x'", -1, &statement, nullptr), SQLITE_OK);
  EXPECT_STREQ(sqlite3_errmsg(db_), "table edr_netdb may not be modified");
}

}  // namespace
