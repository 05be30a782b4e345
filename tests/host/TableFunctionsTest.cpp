#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

#include "host/table/Functions.h"

namespace {

class TableFunctionsTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sqlite3_open(":memory:", &db_), SQLITE_OK);
    ASSERT_EQ(Host::Table::RegisterFunctions(db_), SQLITE_OK);
  }
  void TearDown() override { sqlite3_close(db_); }

  // The value of an expression as text; "NULL", or "error: ..." .
  std::string Value(const std::string& expression) {
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db_, ("SELECT " + expression).c_str(), -1, &statement, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db_);
    std::string result = "NULL";
    if (sqlite3_step(statement) != SQLITE_ROW) {
      result = std::string("error: ") + sqlite3_errmsg(db_);
    } else if (sqlite3_column_type(statement, 0) != SQLITE_NULL) {
      result = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    }
    sqlite3_finalize(statement);
    return result;
  }

  sqlite3* db_ = nullptr;
};

TEST_F(TableFunctionsTest, AddressInABlockIsFound) {
  EXPECT_EQ(Value("in_cidr('10.0.0.0', '10.0.0.0/8')"), "1");
  EXPECT_EQ(Value("in_cidr('10.255.255.255', '10.0.0.0/8')"), "1");
  EXPECT_EQ(Value("in_cidr('11.0.0.0', '10.0.0.0/8')"), "0");
  EXPECT_EQ(Value("in_cidr('9.255.255.255', '10.0.0.0/8')"), "0");
  EXPECT_EQ(Value("in_cidr('255.255.255.255', '0.0.0.0/0')"), "1");
  EXPECT_EQ(Value("in_cidr('192.0.2.1', '192.0.2.1/32')"), "1");
  EXPECT_EQ(Value("in_cidr('192.0.2.2', '192.0.2.1/32')"), "0");
  EXPECT_EQ(Value("in_cidr('192.0.2.1', '192.0.2.1')"), "1") << "a block of one";
  EXPECT_EQ(Value("in_cidr('10.9.9.9', '10.1.2.3/8')"), "1") << "bits behind the prefix do not count";
}

TEST_F(TableFunctionsTest, LongAddressesHaveBlocksToo) {
  EXPECT_EQ(Value("in_cidr('2001:db8::1', '2001:db8::/32')"), "1");
  EXPECT_EQ(Value("in_cidr('2001:db9::1', '2001:db8::/32')"), "0");
  EXPECT_EQ(Value("in_cidr('::1', '::/0')"), "1");
  EXPECT_EQ(Value("in_cidr('2001:db8::ff', '2001:db8::/121')"), "0");
  EXPECT_EQ(Value("in_cidr('10.0.0.1', '::/0')"), "0") << "of the other family";
  EXPECT_EQ(Value("in_cidr('::1', '0.0.0.0/0')"), "0");
}

TEST_F(TableFunctionsTest, WhatIsNoAddressIsInNoBlockAndNotOutside) {
  for (const char* ip : {"NULL", "''", "'10.0.0'", "'10.0.0.256'", "'host'", "5", "x'31'", "'10.0.0.1 '"}) {
    EXPECT_EQ(Value("in_cidr(" + std::string(ip) + ", '10.0.0.0/8')"), "NULL") << ip;
  }
  EXPECT_EQ(Value("in_cidr('10.0.0.1', NULL)"), "NULL");
}

TEST_F(TableFunctionsTest, BadBlockIsAnError) {
  for (const char* block : {"''", "'10.0.0.0/33'", "'10.0.0.0/'", "'10.0.0/8'", "'10.0.0.0/-1'", "'::/129'", "8",
                            "x'31'", "'10.0.0.0/8 '"}) {
    EXPECT_EQ(Value("in_cidr('10.0.0.1', " + std::string(block) + ")"),
              "error: in_cidr: the second argument is no block of addresses such as 10.0.0.0/8")
        << block;
  }
  EXPECT_NE(Value("in_cidr(NULL, 'x')").find("error: "), std::string::npos) << "also where there is no address";
}

TEST_F(TableFunctionsTest, TimesAreTexts) {
  EXPECT_EQ(Value("ts(0)"), "1970-01-01 00:00:00");
  EXPECT_EQ(Value("ts(1699920000000)"), "2023-11-14 00:00:00");
  EXPECT_EQ(Value("ts(1699920000999)"), "2023-11-14 00:00:00");
  EXPECT_EQ(Value("ts(1709210096000)"), "2024-02-29 12:34:56");
  EXPECT_EQ(Value("ts(1699920000999.75)"), "2023-11-14 00:00:00");
  EXPECT_EQ(Value("ts('1699920000000')"), "2023-11-14 00:00:00");
  EXPECT_EQ(Value("ts(253402300799999)"), "9999-12-31 23:59:59");
}

TEST_F(TableFunctionsTest, WhatIsNoTimeIsNull) {
  for (const char* value : {"NULL", "-1", "253402300800000", "9223372036854775807", "-9223372036854775808", "1e300",
                            "9e999", "-9e999", "'x'", "''", "x'31'", "-0.5"}) {
    EXPECT_EQ(Value("ts(" + std::string(value) + ")"), "NULL") << value;
  }
}

TEST_F(TableFunctionsTest, AddressHasANumber) {
  EXPECT_EQ(Value("ip_number('0.0.0.0')"), "0");
  EXPECT_EQ(Value("ip_number('10.0.0.1')"), "167772161");
  EXPECT_EQ(Value("ip_number('255.255.255.255')"), "4294967295");
  EXPECT_EQ(Value("ip_number('9.9.9.9') < ip_number('10.0.0.1')"), "1");
  for (const char* ip : {"NULL", "''", "'10.0.0'", "'::1'", "'2001:db8::1'", "5", "x'31'"}) {
    EXPECT_EQ(Value("ip_number(" + std::string(ip) + ")"), "NULL") << ip;
  }
}

TEST_F(TableFunctionsTest, FunctionsMayStandInAnIndex) {
  EXPECT_EQ(sqlite3_exec(db_, "CREATE TABLE t(a, b); CREATE INDEX i ON t(ts(a), in_cidr(b, '10.0.0.0/8'))", nullptr,
                         nullptr, nullptr),
            SQLITE_OK)
      << sqlite3_errmsg(db_);
}

}  // namespace
