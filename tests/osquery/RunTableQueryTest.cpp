#include <gtest/gtest.h>

#include <algorithm>

#include "osquery/osquery/TableQuery.h"
#include "tests/netdb_storage/Folder.h"
#include "tests/osquery/ParsedConstraints.h"
#include "tests/osquery/Records.h"
#include "tests/osquery/SimMemory.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

using namespace StorageTest;
using Lines = std::vector<std::string>;
using PortList = std::vector<u32>;

constexpr char kAll[] = "*";
constexpr char kNoConditions[] = "{}";
constexpr u32 kManyRows = 1000;

std::string Milliseconds(u64 seconds) {
  return std::to_string(seconds * 1000);
}

// Two days; the port tells the rows apart, and a row's time is as many seconds into its day.
class RunTableQueryTest : public FolderTest {
 protected:
  void SetUp() override {
    {
      DBManager manager;
      ASSERT_TRUE(manager.SetFolder(kFolder));
      Process curl = MakeProcess("/usr/bin/Curl", 1);
      Process shell = MakeProcess("/bin/sh", 2);
      Add(manager, kDay, Address(10, 0, 0, 1), 100, &curl);
      Add(manager, kDay, Address(10, 0, 0, 2), 200, &shell);
      Add(manager, kDay, Address(203, 0, 113, 9), 300, nullptr);
      Add(manager, kNextDay, Address(10, 0, 0, 1), 400, &curl);
    }
    ASSERT_EQ(Files().size(), 2U);
    log.Clear();
  }
  static void Add(DBManager& manager, u64 day, IPv4 address, u16 port, const Process* process) {
    ASSERT_TRUE(manager.Add(MakeMessage(day + port, address, port), process));
  }

  void Run(const char* columns, const char* constraints, u32 maxRows = kManyRows) {
    external.results.clear();
    SelectorArray selectors;
    OSQueryOutput output(&external, &selectors, maxRows);
    ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
    log.Clear();
    RunTableQuery(kFolder, columns, constraints, selectors, output);
    error = output.error;
    collected = output.message_count;
    lines = log.Lines(2);
    ASSERT_TRUE(output.Finish());
    rows = RowsOf(external.results.at(0).second);
  }
  PortList PortsOf(const char* constraints) {
    Run(kAll, constraints);
    EXPECT_EQ(error, kNoError) << constraints;
    PortList ports;
    for (const edr_netdb& row : rows) {
      ports.push_back(row.port());
    }
    std::sort(ports.begin(), ports.end());
    return ports;
  }
  PortList PortsOf(const std::string& constraints) { return PortsOf(constraints.c_str()); }
  void ExpectRefused(const char* columns, const char* constraints, QueryError wanted, const Lines& wantedLines) {
    Run(columns, constraints);
    EXPECT_EQ(error, wanted);
    EXPECT_EQ(rows.size(), 0U);
    EXPECT_EQ(lines, wantedLines);
  }

  SimMemory memory;
  LogCapture log;
  FakeExternalData external;
  u32 error = 0;
  u32 collected = 0;
  Lines lines;
  std::vector<edr_netdb> rows;
};

TEST_F(RunTableQueryTest, NoConditionGivesAllRows) {
  EXPECT_EQ(PortsOf(kNoConditions), (PortList{100, 200, 300, 400}));
  EXPECT_EQ(lines, Lines{});
  for (const edr_netdb& row : rows) {
    EXPECT_NE(row.ip(), "");
    EXPECT_EQ(row.first_seen() % 86400000, row.port() * 1000);
    EXPECT_EQ(row.conns_total(), 1U);
    EXPECT_EQ(row.proc_pid(), row.port() == 300 ? -1 : (row.port() == 200 ? 2 : 1));
    EXPECT_EQ(row.proc_md5().size(), 32U);
    EXPECT_EQ(row.proc_qid().size(), 64U);
  }
}

TEST_F(RunTableQueryTest, EmptyListOfColumnsAsksForAll) {
  for (const char* columns : {"", "*", " * ", " \t"}) {
    Run(columns, kNoConditions);
    ASSERT_EQ(rows.size(), 4U) << columns;
    EXPECT_NE(rows[0].proc_md5(), "") << columns;
  }
}

TEST_F(RunTableQueryTest, OnlyTheColumnsOfTheListAreFilled) {
  Run(" POR T ,, Ip\n,", kNoConditions);
  EXPECT_EQ(error, kNoError);
  ASSERT_EQ(rows.size(), 4U);
  for (const edr_netdb& row : rows) {
    edr_netdb filled;
    filled.set_port(row.port());
    filled.set_ip(row.ip());
    EXPECT_NE(row.ip(), "");
    EXPECT_EQ(row.SerializeAsString(), filled.SerializeAsString());
  }
}

TEST_F(RunTableQueryTest, ListOfCommasGivesRowsWithoutColumns) {
  Run(" , ", kNoConditions);
  EXPECT_EQ(error, kNoError);
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[0].ByteSizeLong(), 0U);
}

TEST_F(RunTableQueryTest, UnknownColumnIsABadQuery) {
  for (const char* columns : {"port,remote_ip", "remote_ip,port", "*,port", "port,*", "ip6"}) {
    ExpectRefused(columns, kNoConditions, kBadQuery, {"5 osquery.ColumnNotSelected"});
  }
  Run("ip, remote_ ip ,port", kNoConditions);
  EXPECT_EQ(log.Arguments("osquery.ColumnNotSelected"), Lines{"remote_ip"});
}

TEST_F(RunTableQueryTest, MoreColumnsThanThereAreAreABadQuery) {
  std::string columns = "port";
  for (int i = 1; i < 15; ++i) {
    columns += ",port";
  }
  Run(columns.c_str(), kNoConditions);
  EXPECT_EQ(error, kNoError);
  EXPECT_EQ(rows.size(), 4U);
  ExpectRefused((columns + ",port").c_str(), kNoConditions, kBadQuery,
                {"3 velmar.ArrayCeilingReached", "5 osquery.ColumnNotSelected"});
}

TEST_F(RunTableQueryTest, TenThousandColumnsAreABadQuery) {
  std::string columns = "ip";
  std::string nothing;
  for (int i = 0; i < 10000; ++i) {
    columns += ",ip";
    nothing += " , ";
  }
  ExpectRefused(columns.c_str(), kNoConditions, kBadQuery,
                {"3 velmar.ArrayCeilingReached", "5 osquery.ColumnNotSelected"});
  Run((nothing + "port").c_str(), kNoConditions);
  EXPECT_EQ(error, kNoError);
  EXPECT_EQ(rows.size(), 4U);
}

TEST_F(RunTableQueryTest, NoMemoryForTheColumnsIsAnInternalFailure) {
  SelectorArray selectors;
  OSQueryOutput output(&external, &selectors, kManyRows);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  log.Clear();
  Sim::FailAllocation(0);
  RunTableQuery(kFolder, kAll, kNoConditions, selectors, output);
  EXPECT_EQ(output.error, kInternalFailure);
  EXPECT_EQ(output.message_count, 0U);
  EXPECT_EQ(log.Lines(1), Lines{"5 velmar.ArrayNoMemory"});
}

TEST_F(RunTableQueryTest, MissingTextsAreABadQuery) {
  ExpectRefused(nullptr, kNoConditions, kBadQuery, {"5 osquery.NoColumnList"});
  ExpectRefused(kAll, nullptr, kBadQuery, {"5 osquery.ConstraintsNotParsed"});
}

TEST_F(RunTableQueryTest, TextThatIsNoJsonIsABadQuery) {
  const std::string deep = std::string(100, '[') + std::string(100, ']');
  for (const std::string& text : {std::string(), std::string(" "), std::string("{"), std::string("null"),
                                  std::string("{}}"), std::string("{'ip':1}"), deep}) {
    ExpectRefused(kAll, text.c_str(), kBadQuery, {"5 osquery.ConstraintsNotParsed"});
  }
}

TEST_F(RunTableQueryTest, WrongShapesAndValuesAreABadQuery) {
  ExpectRefused(kAll, "[]", kBadQuery, {"5 osquery.ConstraintsNoDictionary"});
  ExpectRefused(kAll, R"({"port":{"affinity":"TEXT"}})", kBadQuery, {"5 osquery.ConstraintListMissing"});
  ExpectRefused(kAll, R"({"port":{"affinity":"UNKNOWN","list":[]}})", kBadQuery, {"5 osquery.AffinityUnknown"});
  ExpectRefused(kAll, One("remote_ip", 2, "1").c_str(), kBadQuery, {"5 osquery.ConstraintColumnUnknown"});
  ExpectRefused(kAll, One("ip", 2, "\"1.2.3\"").c_str(), kBadQuery, {"5 osquery.AddressNotRead"});
  ExpectRefused(kAll, One("last_seen", 2, "-5").c_str(), kBadQuery, {"5 osquery.NumberNegative"});
}

TEST_F(RunTableQueryTest, TooManyConditionsAreABadQuery) {
  std::string conditions = Condition(2, "1");
  for (int i = 1; i < 128; ++i) {
    conditions += "," + Condition(2, "1");
  }
  EXPECT_EQ(PortsOf("{" + On("port", conditions) + "}").size(), 4U);
  conditions += "," + Condition(2, "1");
  ExpectRefused(kAll, ("{" + On("port", conditions) + "}").c_str(), kBadQuery,
                {"3 velmar.ArrayCeilingReached", "5 osquery.ConstraintNotKept"});
}

// Documents of megabytes, by what can be many or long in them.
TEST_F(RunTableQueryTest, LargeDocumentsAreReadLikeSmallOnes) {
  constexpr u32 kMany = 100000;
  const std::string longText(5000000, 'x');
  std::string skipped = Condition(2, "\"10.0.0.2\"");
  std::string columns = On("ip", Condition(2, "\"10.0.0.2\""));
  std::string members;
  for (u32 i = 0; i < kMany; ++i) {
    skipped += ",{\"op\":0}";
    columns += "," + On("port", "");
    members += "\"m\":[],";
  }
  EXPECT_EQ(PortsOf("{" + On("ip", skipped) + "}"), PortList{200});
  EXPECT_EQ(log.Count("osquery.OperatorUnknown"), static_cast<int>(kMany));
  EXPECT_EQ(PortsOf("{" + columns + "}"), PortList{200});
  EXPECT_EQ(
      PortsOf("{\"ip\":{" + members + R"("affinity":"TEXT","list":[{)" + members + R"("op":2,"expr":"10.0.0.2"}]}})"),
      PortList{200});
  EXPECT_EQ(PortsOf(One("proc_fpath", 2, Quoted(longText))), PortList{});
  EXPECT_EQ(PortsOf(One("proc_fpath", 65, Quoted(longText))), PortList{});
  EXPECT_EQ(PortsOf(One("proc_fpath", 65, Quoted(std::string(5000000, '%') + "sh"))), PortList{200});
  ExpectRefused(kAll, One("ip", 2, Quoted(longText)).c_str(), kBadQuery, {"5 osquery.AddressNotRead"});
  ExpectRefused(kAll, One("first_seen", 2, std::string(5000000, '9')).c_str(), kBadQuery,
                {"5 osquery.ConstraintsNotParsed"});
  ExpectRefused(kAll, One("first_seen", 2, Quoted(std::string(5000000, '9'))).c_str(), kBadQuery,
                {"5 osquery.NumberNotRead"});
  ExpectRefused(kAll, One(longText, 2, "1").c_str(), kBadQuery, {"5 osquery.ConstraintColumnUnknown"});
}

TEST_F(RunTableQueryTest, AddressesNarrow) {
  EXPECT_EQ(PortsOf(One("ip", 2, "\"10.0.0.1\"")), (PortList{100, 400}));
  EXPECT_EQ(PortsOf(One("ip", 2, "\"10.0.0.3\"")), PortList{});
  EXPECT_EQ(PortsOf("{" + On("ip", Condition(2, "\"203.0.113.9\"") + "," + Condition(2, "\"10.0.0.2\"")) + "}"),
            (PortList{200, 300}));
}

TEST_F(RunTableQueryTest, IPv6AddressHasNoRowsAndNoError) {
  EXPECT_EQ(PortsOf(One("ip", 2, "\"::1\"")), PortList{});
  EXPECT_EQ(lines, Lines{"3 osquery.AddressIsIPv6"});
  EXPECT_EQ(log.Count("netdb_storage.QueryTimed"), 0) << "there is nothing to search";
}

TEST_F(RunTableQueryTest, TimesNarrow) {
  EXPECT_EQ(PortsOf(One("first_seen", 4, Milliseconds(kDay + 200))), (PortList{200, 300, 400}));
  EXPECT_EQ(PortsOf(One("last_seen", 16, Milliseconds(kDay + 200))), (PortList{100, 200}));
  EXPECT_EQ(PortsOf(One("first_seen", 2, Quoted(Milliseconds(kDay + 300)))), PortList{300});
  EXPECT_EQ(PortsOf("{" + On("first_seen", Condition(32, Milliseconds(kDay + 200))) + "," +
                    On("last_seen", Condition(8, Milliseconds(kDay + 300))) + "}"),
            (PortList{200, 300}));
  EXPECT_EQ(lines, Lines{});
}

TEST_F(RunTableQueryTest, TimesAtTheEdgesOfNumbers) {
  const PortList all = {100, 200, 300, 400};
  for (const char* column : {"first_seen", "last_seen"}) {
    for (const char* most : {"18446744073709551615", "\"18446744073709551615\"", "\"0xFFFFFFFFFFFFFFFF\""}) {
      EXPECT_EQ(PortsOf(One(column, 2, most)), PortList{});
      EXPECT_EQ(PortsOf(One(column, 4, most)), PortList{});
      EXPECT_EQ(PortsOf(One(column, 8, most)), all);
    }
    for (const char* least : {"0", "-0", "999", "\"0\"", "\"0x10\""}) {
      EXPECT_EQ(PortsOf(One(column, 2, least)), PortList{});
      EXPECT_EQ(PortsOf(One(column, 16, least)), PortList{});
      EXPECT_EQ(PortsOf(One(column, 32, least)), all);
    }
    EXPECT_EQ(PortsOf("{" + On(column, Condition(32, "0") + "," + Condition(8, "18446744073709551615")) + "}"), all);
    for (const char* none : {"1e3", "1.5", "18446744073709551616"}) {
      ExpectRefused(kAll, One(column, 2, none).c_str(), kBadQuery, {"3 osquery.NumberOfOtherType"});
      ExpectRefused(kAll, One(column, 2, Quoted(none)).c_str(), kBadQuery, {"5 osquery.NumberNotRead"});
    }
  }
}

TEST_F(RunTableQueryTest, ReversedRangeHasNoRowsAndNoError) {
  EXPECT_EQ(PortsOf("{" + On("first_seen", Condition(4, Milliseconds(kNextDay))) + "," +
                    On("last_seen", Condition(16, Milliseconds(kDay + 300))) + "}"),
            PortList{});
  EXPECT_EQ(
      PortsOf("{" +
              On("first_seen", Condition(4, Milliseconds(kDay + 300)) + "," + Condition(16, Milliseconds(kDay + 100))) +
              "}"),
      PortList{});
}

TEST_F(RunTableQueryTest, ProcessesNarrow) {
  EXPECT_EQ(PortsOf(One("proc_fpath", 2, "\"/usr/bin/Curl\"")), (PortList{100, 400}));
  EXPECT_EQ(PortsOf(One("proc_fpath", 2, "\"/usr/bin/curl\"")), PortList{});
  EXPECT_EQ(PortsOf(One("proc_fpath", 65, "\"%BIN/C%\"")), (PortList{100, 400}));
  EXPECT_EQ(PortsOf(One("proc_fpath", 65, "\"%\"")), (PortList{100, 200, 400}))
      << "the row without a process has no path";
  EXPECT_EQ(PortsOf("{" + On("proc_fpath", Condition(65, "\"/%\"") + "," + Condition(65, "\"%sh\"")) + "}"),
            PortList{200});
  EXPECT_EQ(PortsOf(One("proc_puid", 2, "1002")), PortList{200});
  // MakeProcess puts the path's length into the first byte, and the pid into the last.
  EXPECT_EQ(PortsOf(One("proc_md5", 2, Quoted("07" + std::string(30, '0')))), PortList{200});
  EXPECT_EQ(PortsOf(One("proc_qid", 2, Quoted(std::string(62, '0') + "01"))), (PortList{100, 400}));
  EXPECT_EQ(lines, Lines{});
}

TEST_F(RunTableQueryTest, ConditionsNarrowTogether) {
  EXPECT_EQ(PortsOf("{" + On("proc_fpath", Condition(65, "\"%curl\"")) + "," + On("ip", Condition(2, "\"10.0.0.1\"")) +
                    "," + On("last_seen", Condition(16, Milliseconds(kDay + 86399))) + "}"),
            PortList{100});
}

TEST_F(RunTableQueryTest, ConditionThatIsNotUsedIsLeftToTheAsker) {
  EXPECT_EQ(PortsOf(One("port", 2, "100")), (PortList{100, 200, 300, 400}));
  EXPECT_EQ(lines, Lines{"3 osquery.ColumnNotNarrowing"});
  EXPECT_EQ(PortsOf(One("proc_fpath", 67, "\"^/bin\"")), (PortList{100, 200, 300, 400}));
  EXPECT_EQ(lines, Lines{"3 osquery.OperatorNotUsed"});
  EXPECT_EQ(PortsOf(One("ip", 0, "\"::1\"")), (PortList{100, 200, 300, 400}));
  EXPECT_EQ(lines, Lines{"3 osquery.OperatorUnknown"});
}

TEST_F(RunTableQueryTest, FullResultIsItsOwnError) {
  Run(kAll, kNoConditions, 3);
  EXPECT_EQ(error, kRowLimit);
  EXPECT_EQ(collected, 3U);
  EXPECT_EQ(rows.size(), 0U);
  EXPECT_EQ(lines.back(), "5 osquery.TableQueryFailed");
  EXPECT_EQ(log.Arguments("osquery.TableQueryFailed"), Lines{"1"});
  Run(kAll, kNoConditions, 4);
  EXPECT_EQ(error, kNoError);
  EXPECT_EQ(rows.size(), 4U);
}

TEST_F(RunTableQueryTest, MissingFolderIsAnInternalFailure) {
  for (const char* folder : {static_cast<const char*>(nullptr), "/data/nothing"}) {
    SelectorArray selectors;
    OSQueryOutput output(&external, &selectors, kManyRows);
    ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
    log.Clear();
    RunTableQuery(folder, kAll, kNoConditions, selectors, output);
    EXPECT_EQ(output.error, kInternalFailure);
    EXPECT_EQ(log.Lines().back(), "5 osquery.TableQueryFailed");
    EXPECT_EQ(log.Arguments("osquery.TableQueryFailed"), Lines{"0"});
  }
}

TEST_F(RunTableQueryTest, EmptyFolderHasNoRowsAndNoError) {
  for (const std::string& path : Sim::ListFiles()) {
    ASSERT_TRUE(Sim::RemoveFile(path));
  }
  EXPECT_EQ(PortsOf(kNoConditions), PortList{});
}

TEST_F(RunTableQueryTest, DamagedDayIsPassedOver) {
  Sim::PutFile(DayPath(kDay), "no day");
  EXPECT_EQ(PortsOf(kNoConditions), PortList{400});
}

// Wherever memory ends, the query ends well, and what it gives is part of the answer.
TEST_F(RunTableQueryTest, EachFailedAllocationEndsWell) {
  const std::string constraints =
      "{" + On("proc_fpath", Condition(65, "\"%Curl%\"") + "," + Condition(2, "\"/usr/bin/Curl\"")) + "," +
      On("ip", Condition(2, "\"10.0.0.1\"")) + "," + On("first_seen", Condition(4, "1000")) + "}";
  bool failed = true;
  u32 failures = 0;
  for (u64 number = 0; failed; ++number) {
    SCOPED_TRACE(number);
    SelectorArray selectors;
    OSQueryOutput output(&external, &selectors, kManyRows);
    ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
    log.Clear();
    const u64 start = Sim::CountAllocations();
    Sim::FailAllocation(number);
    RunTableQuery(kFolder, kAll, constraints.c_str(), selectors, output);
    failed = Sim::CountAllocations() - start > number;
    Sim::FailAllocation(kAllOnes64);
    ASSERT_LE(output.error, kInternalFailure);
    ASSERT_LE(output.message_count, 2U);
    if (output.error != kNoError || output.message_count != 2) {
      ASSERT_TRUE(failed);
      ASSERT_GT(log.CountLevel(5), 0);
      ++failures;
    }
  }
  EXPECT_GT(failures, 10U);
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
