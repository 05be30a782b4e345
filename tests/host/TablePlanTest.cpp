#include "host/table/TablePlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

namespace {

using namespace Host;
using namespace Host::Table;

constexpr char kBinary[] = "BINARY";

TEST(TablePlan, TimesGoDownWithEveryComparison) {
  for (const int column : {kFirstSeen, kLastSeen}) {
    EXPECT_EQ(TermOf(column, SQLITE_INDEX_CONSTRAINT_EQ, kBinary), (Term{column, Operation::kEquals}));
    EXPECT_EQ(TermOf(column, SQLITE_INDEX_CONSTRAINT_GT, kBinary), (Term{column, Operation::kGreater}));
    EXPECT_EQ(TermOf(column, SQLITE_INDEX_CONSTRAINT_GE, kBinary), (Term{column, Operation::kGreaterOrEquals}));
    EXPECT_EQ(TermOf(column, SQLITE_INDEX_CONSTRAINT_LT, kBinary), (Term{column, Operation::kLess}));
    EXPECT_EQ(TermOf(column, SQLITE_INDEX_CONSTRAINT_LE, kBinary), (Term{column, Operation::kLessOrEquals}));
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_LIKE, kBinary));
  }
}

TEST(TablePlan, TextsGoDownWithEqualityOfBytesAlone) {
  for (const int column : {kIp, kProcFpath, kProcMd5, kProcQid, kProcPuid}) {
    EXPECT_EQ(TermOf(column, SQLITE_INDEX_CONSTRAINT_EQ, kBinary), (Term{column, Operation::kEquals}));
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_EQ, "NOCASE"));
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_EQ, "RTRIM"));
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_EQ, nullptr));
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_GT, kBinary));
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_LE, kBinary));
  }
}

TEST(TablePlan, OnlyThePathGoesDownWithLike) {
  EXPECT_EQ(TermOf(kProcFpath, SQLITE_INDEX_CONSTRAINT_LIKE, kBinary), (Term{kProcFpath, Operation::kLike}));
  EXPECT_FALSE(TermOf(kIp, SQLITE_INDEX_CONSTRAINT_LIKE, kBinary));
  EXPECT_FALSE(TermOf(kProcMd5, SQLITE_INDEX_CONSTRAINT_LIKE, kBinary));
}

TEST(TablePlan, OtherOperatorsStayWithSqlite) {
  for (const int code : {SQLITE_INDEX_CONSTRAINT_MATCH, SQLITE_INDEX_CONSTRAINT_GLOB, SQLITE_INDEX_CONSTRAINT_REGEXP,
                         SQLITE_INDEX_CONSTRAINT_NE, SQLITE_INDEX_CONSTRAINT_ISNOT, SQLITE_INDEX_CONSTRAINT_ISNOTNULL,
                         SQLITE_INDEX_CONSTRAINT_ISNULL, SQLITE_INDEX_CONSTRAINT_IS, SQLITE_INDEX_CONSTRAINT_LIMIT,
                         SQLITE_INDEX_CONSTRAINT_OFFSET, SQLITE_INDEX_CONSTRAINT_FUNCTION}) {
    for (int column = -1; column < static_cast<int>(kColumnCount); ++column) {
      EXPECT_FALSE(TermOf(column, code, kBinary)) << column << " " << code;
    }
  }
}

TEST(TablePlan, OtherColumnsStayWithSqlite) {
  for (const int column : {-1, 3, 4, 5, 6, 7, 8, 9, 14, 15}) {
    EXPECT_FALSE(TermOf(column, SQLITE_INDEX_CONSTRAINT_EQ, kBinary)) << column;
  }
}

TEST(TablePlan, TextOfAPlanComesBack) {
  const std::vector<Term> terms = {
      {kIp, Operation::kEquals},     {kFirstSeen, Operation::kGreater},     {kFirstSeen, Operation::kGreaterOrEquals},
      {kLastSeen, Operation::kLess}, {kLastSeen, Operation::kLessOrEquals}, {kProcFpath, Operation::kLike}};
  EXPECT_EQ(ReadPlan(PlanText(terms).c_str()), terms);
  EXPECT_EQ(ReadPlan(""), std::vector<Term>());
  EXPECT_EQ(ReadPlan(nullptr), std::vector<Term>());
}

TEST(TablePlan, TextThatIsNoPlanIsRefused) {
  EXPECT_FALSE(ReadPlan("a"));
  EXPECT_FALSE(ReadPlan("ax"));
  EXPECT_FALSE(ReadPlan("pe"));
  EXPECT_FALSE(ReadPlan("Ae"));
  EXPECT_FALSE(ReadPlan("aeb"));
}

TEST(TablePlan, TwoScansCostMoreThanOneThatTakesAll) {
  const Term day{kFirstSeen, Operation::kGreater};
  const Term address{kIp, Operation::kEquals};
  const Term pattern{kProcFpath, Operation::kLike};
  EXPECT_EQ(ScanCost({}), kFullScanCost);
  for (const auto& terms : std::vector<std::vector<Term>>{
           {day}, {address}, {pattern}, {day, day}, {day, address}, {day, address, pattern, pattern}}) {
    EXPECT_LT(ScanCost(terms), kFullScanCost);
    EXPECT_GT(2 * ScanCost(terms), 1.1 * kFullScanCost);
  }
  EXPECT_LT(ScanCost({day, address}), ScanCost({day}));
  EXPECT_LT(ScanCost({day, address}), ScanCost({address}));
}

TEST(TablePlan, ColumnsAreNamedInTheirOrder) {
  EXPECT_EQ(ColumnList(0b11), "ip,first_seen");
  EXPECT_EQ(ColumnList(u64{1} << 14 | 1), "ip,proc_pid");
  EXPECT_EQ(ColumnList(~u64{0}),
            "ip,first_seen,last_seen,port,protos,conns_total,conns_in,conns_out,bytes_in,bytes_out,proc_fpath,proc_md5,"
            "proc_qid,proc_puid,proc_pid");
}

TEST(TablePlan, AStatementWithoutColumnsAsksForTheCheapestOne) {
  EXPECT_EQ(ColumnList(0), "port");
  EXPECT_EQ(ListedColumns(0), u64{1} << kPort);
  EXPECT_EQ(ListedColumns(5), 5U);
  EXPECT_EQ(ColumnList(u64{1} << 63), "port") << "stands for columns behind the sixty-second, of which there are none";
}

TEST(TablePlan, PlacesAreThoseOfTheColumns) {
  EXPECT_STREQ(kColumns[kIp].name, "ip");
  EXPECT_STREQ(kColumns[kFirstSeen].name, "first_seen");
  EXPECT_STREQ(kColumns[kLastSeen].name, "last_seen");
  EXPECT_STREQ(kColumns[kPort].name, "port");
  EXPECT_STREQ(kColumns[kProcFpath].name, "proc_fpath");
  EXPECT_STREQ(kColumns[kProcMd5].name, "proc_md5");
  EXPECT_STREQ(kColumns[kProcQid].name, "proc_qid");
  EXPECT_STREQ(kColumns[kProcPuid].name, "proc_puid");
}

}  // namespace
