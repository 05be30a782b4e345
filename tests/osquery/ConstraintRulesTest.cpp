#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "Velmar/OS/Network.h"
#include "platform/sim/Sim.h"
#include "tests/osquery/ParsedConstraints.h"
#include "tests/osquery/SimMemory.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

using Lines = std::vector<std::string>;

constexpr u64 kAllOnes = ~0ULL;
constexpr u32 kOperators[] = {1, 2, 4, 8, 16, 32, 64, 65, 66, 67};
const std::string kMD5 = "000102030405060708090a0b0c0d0eff";
const std::string kQID = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1eff";

struct Applied {
  explicit Applied(const std::string& json) : parsed(json) {
    EXPECT_TRUE(parsed.isParsed) << json;
    error = ApplyConstraints(parsed.tree, parsed.list, query, impossible);
  }
  bool NarrowsNothing() const {
    return query.ips_wanted.count == 0 && query.paths_wanted.count == 0 && query.process_filters.count == 0 &&
           query.ip_filters.count == 0 && query.start_time == 0 && query.end_time == kAllOnes;
  }
  // The filters of the conditions on processes, all together.
  bool Passes(const Process& process) const {
    for (u32 i = 0; i < query.process_filters.count; ++i) {
      if (!query.process_filters.data[i](process)) {
        return false;
      }
    }
    return true;
  }

  ParsedConstraints parsed;
  QueryConstraints query{0, kAllOnes};
  bool impossible = true;
  QueryError error = kNoError;
};

class ConstraintRulesTest : public ::testing::Test {
 protected:
  ConstraintRulesTest() { Velmar::Sim::Reset(); }

  void ExpectError(const std::string& json, QueryError error, const Lines& lines) {
    log.Clear();
    const Applied applied(json);
    EXPECT_EQ(applied.error, error) << json;
    EXPECT_FALSE(applied.impossible) << json;
    EXPECT_EQ(log.Lines(1), lines) << json;
  }
  void ExpectRange(const std::string& json, u64 from, u64 to) {
    log.Clear();
    const Applied applied(json);
    EXPECT_EQ(applied.error, kNoError) << json;
    EXPECT_EQ(applied.query.start_time, from) << json;
    EXPECT_EQ(applied.query.end_time, to) << json;
    EXPECT_EQ(applied.query.ip_filters.count + applied.query.process_filters.count, 0U) << json;
    EXPECT_EQ(log.Lines(1), Lines{}) << json;
  }

  SimMemory memory;
  LogCapture log;
};

TEST_F(ConstraintRulesTest, NoConditionNarrowsNothing) {
  const Applied applied("{}");
  EXPECT_EQ(applied.error, kNoError);
  EXPECT_FALSE(applied.impossible);
  EXPECT_TRUE(applied.NarrowsNothing());
}

// Every operator on every column: used, or recorded and skipped.
TEST_F(ConstraintRulesTest, OperatorsThatAColumnHasNoUseForAreSkipped) {
  struct {
    std::string column;
    std::set<u32> used;
    std::string value;
  } const cases[] = {
      {"ip", {2}, "\"1.2.3.4\""},
      {"first_seen", {2, 4, 8, 16, 32}, "5000"},
      {"last_seen", {2, 4, 8, 16, 32}, "5000"},
      {"proc_fpath", {2, 65}, "\"/bin/sh\""},
      {"proc_md5", {2}, Quoted(kMD5)},
      {"proc_qid", {2}, Quoted(kQID)},
      {"proc_puid", {2}, "7"},
  };
  for (const auto& test : cases) {
    for (const u32 op : kOperators) {
      SCOPED_TRACE(test.column + " " + std::to_string(op));
      log.Clear();
      const Applied applied(One(test.column, op, test.value));
      EXPECT_EQ(applied.error, kNoError);
      EXPECT_FALSE(applied.impossible);
      EXPECT_EQ(applied.NarrowsNothing(), test.used.count(op) == 0);
      if (test.used.count(op) != 0) {
        EXPECT_EQ(log.Lines(1), Lines{});
      } else {
        EXPECT_EQ(log.Lines(1), Lines{"3 osquery.OperatorNotUsed"});
        EXPECT_EQ(log.Arguments("osquery.OperatorNotUsed"),
                  (Lines{test.column, ConstraintOperatorName(static_cast<u8>(op))}));
        // Its value is not looked at.
        EXPECT_EQ(Applied(One(test.column, op, "[]")).error, kNoError);
      }
    }
  }
}

TEST_F(ConstraintRulesTest, ColumnsThatNarrowNothingAreSkipped) {
  for (const char* column :
       {"port", "protos", "conns_total", "conns_in", "conns_out", "bytes_in", "bytes_out", "proc_pid", "PORT"}) {
    for (const u32 op : kOperators) {
      log.Clear();
      const Applied applied(One(column, op, "[\"no value\"]"));
      EXPECT_EQ(applied.error, kNoError) << column;
      EXPECT_TRUE(applied.NarrowsNothing()) << column;
      EXPECT_EQ(log.Lines(1), Lines{"3 osquery.ColumnNotNarrowing"}) << column;
      EXPECT_EQ(log.Arguments("osquery.ColumnNotNarrowing"), Lines{column});
    }
  }
}

TEST_F(ConstraintRulesTest, UnknownColumnIsABadQuery) {
  for (const char* column : {"", "ip6", "proc_path", " ip", "ip ", "*", "edr_netdb"}) {
    for (const u32 op : kOperators) {
      ExpectError(One(column, op, "1"), kBadQuery, {"5 osquery.ConstraintColumnUnknown"});
      EXPECT_EQ(log.Arguments("osquery.ConstraintColumnUnknown"), Lines{column});
    }
  }
}

TEST_F(ConstraintRulesTest, ColumnsAreFoundInAnyCase) {
  EXPECT_EQ(Applied(One("IP", 2, "\"1.2.3.4\"")).query.ips_wanted.count, 1U);
  EXPECT_EQ(Applied(One("Proc_FPath", 2, "\"a\"")).query.paths_wanted.count, 1U);
  EXPECT_EQ(Applied(One("FIRST_SEEN", 4, "1000")).query.start_time, 1U);
}

TEST_F(ConstraintRulesTest, ConditionWithoutAValueFailsWhereItIsRead) {
  struct {
    const char* column;
    const char* line;
  } const cases[] = {{"ip", "5 osquery.ValueNoText"},
                     {"proc_fpath", "5 osquery.ValueNoText"},
                     {"proc_md5", "5 osquery.ValueNoText"},
                     {"proc_qid", "5 osquery.ValueNoText"},
                     {"first_seen", "3 osquery.NumberOfOtherType"},
                     {"last_seen", "3 osquery.NumberOfOtherType"},
                     {"proc_puid", "3 osquery.NumberOfOtherType"}};
  for (const auto& test : cases) {
    ExpectError("{" + On(test.column, "{\"op\":2}") + "}", kBadQuery, {test.line});
    ExpectError("{" + On(test.column, "{\"op\":67}") + "}", kNoError, {"3 osquery.OperatorNotUsed"});
  }
  ExpectError("{" + On("port", "{\"op\":2}") + "}", kNoError, {"3 osquery.ColumnNotNarrowing"});
}

TEST_F(ConstraintRulesTest, AddressesAreCollected) {
  const Applied applied("{" + On("ip", Condition(2, "\"203.0.113.9\"") + "," + Condition(2, "\"10.0.0.1\"")) + "}");
  EXPECT_EQ(applied.error, kNoError);
  ASSERT_EQ(applied.query.ips_wanted.count, 2U);
  EXPECT_EQ(applied.query.ips_wanted.data[0], (IPv4{{203, 0, 113, 9}}));
  EXPECT_EQ(applied.query.ips_wanted.data[1], (IPv4{{10, 0, 0, 1}}));
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(ConstraintRulesTest, ValueThatIsNoAddressIsABadQuery) {
  for (const char* text : {"", "localhost", "1.2.3", "1.2.3.4.5", "256.1.1.1", " 1.2.3.4", "1.2.3.4/24", "1.2.3.4%",
                           "1.2.3.4\\u0000", "1.2.3.4\\u0000:"}) {
    ExpectError(One("ip", 2, Quoted(text)), kBadQuery, {"5 osquery.AddressNotRead"});
  }
  for (const char* value : {"1", "null", "true", "[\"1.2.3.4\"]", "{}", "-1", "1.5"}) {
    ExpectError(One("ip", 2, value), kBadQuery, {"5 osquery.ValueNoText"});
    EXPECT_EQ(log.Arguments("osquery.ValueNoText"), Lines{"ip"});
  }
}

TEST_F(ConstraintRulesTest, IPv6AddressMakesAnyAnswerImpossible) {
  for (const char* text : {"::1", "2001:db8::1", ":", "1.2.3.4:80", "no:address"}) {
    log.Clear();
    const Applied applied(One("ip", 2, Quoted(text)));
    EXPECT_EQ(applied.error, kNoError) << text;
    EXPECT_TRUE(applied.impossible) << text;
    EXPECT_EQ(applied.query.ips_wanted.count, 0U) << text;
    EXPECT_EQ(log.Lines(1), Lines{"3 osquery.AddressIsIPv6"}) << text;
    EXPECT_EQ(log.Arguments("osquery.AddressIsIPv6"), Lines{text});
  }
}

// What follows is not looked at; what stands before has been.
TEST_F(ConstraintRulesTest, WalkEndsAtAnIPv6Address) {
  const std::string impossible = On("ip", Condition(2, "\"::1\""));
  const Applied before("{" + impossible + "," + On("no_column", Condition(2, "1")) + "}");
  EXPECT_EQ(before.error, kNoError);
  EXPECT_TRUE(before.impossible);
  const Applied behind("{" + On("no_column", Condition(2, "1")) + "," + impossible + "}");
  EXPECT_EQ(behind.error, kBadQuery);
  EXPECT_FALSE(behind.impossible);
}

TEST_F(ConstraintRulesTest, WalkEndsAtTheFirstFailure) {
  const Applied applied("{" + On("proc_puid", Condition(2, "1") + "," + Condition(2, "-1") + "," + Condition(2, "2")) +
                        "}");
  EXPECT_EQ(applied.error, kBadQuery);
  EXPECT_EQ(applied.query.process_filters.count, 1U);
  EXPECT_EQ(log.Lines(1), Lines{"5 osquery.NumberNegative"});
}

TEST_F(ConstraintRulesTest, TimesNarrowOneRangeInSeconds) {
  for (const char* column : {"first_seen", "last_seen"}) {
    ExpectRange(One(column, 2, "1700000000999"), 1700000000, 1700000000);
    ExpectRange(One(column, 4, "1000"), 1, kAllOnes);
    ExpectRange(One(column, 32, "1999"), 1, kAllOnes);
    ExpectRange(One(column, 16, "1000"), 0, 1);
    ExpectRange(One(column, 8, "999"), 0, 0);
    ExpectRange(One(column, 8, "\"1700000000000\""), 0, 1700000000);
    ExpectRange(One(column, 4, "0"), 0, kAllOnes);
    ExpectRange(One(column, 16, "18446744073709551615"), 0, kAllOnes / 1000);
  }
}

TEST_F(ConstraintRulesTest, TimesOnlyEverNarrowButForEquality) {
  const auto both = [](u32 op, const char* first, const char* second) {
    return "{" + On("first_seen", Condition(op, first)) + "," + On("last_seen", Condition(op, second)) + "}";
  };
  for (const u32 op : {4U, 32U}) {
    ExpectRange(both(op, "2000", "5000"), 5, kAllOnes);
    ExpectRange(both(op, "5000", "2000"), 5, kAllOnes);
  }
  for (const u32 op : {8U, 16U}) {
    ExpectRange(both(op, "2000", "5000"), 0, 2);
    ExpectRange(both(op, "5000", "2000"), 0, 2);
  }
  ExpectRange(both(2, "5000", "2000"), 2, 2);
  ExpectRange(both(2, "2000", "5000"), 5, 5);
  ExpectRange("{" + On("first_seen", Condition(4, "1000")) + "," + On("last_seen", Condition(16, "9000")) + "}", 1, 9);
  ExpectRange("{" + On("first_seen", Condition(2, "5000") + "," + Condition(4, "7000")) + "}", 7, 5);
}

TEST_F(ConstraintRulesTest, TimeThatIsNoNumberIsABadQuery) {
  for (const char* column : {"first_seen", "last_seen", "proc_puid"}) {
    ExpectError(One(column, 2, "-1"), kBadQuery, {"5 osquery.NumberNegative"});
    ExpectError(One(column, 2, "\"2023-11-14\""), kBadQuery, {"5 osquery.NumberNotRead"});
    for (const char* value : {"1.5", "1e3", "true", "null", "[1]", "{}", "18446744073709551616"}) {
      ExpectError(One(column, 2, value), kBadQuery, {"3 osquery.NumberOfOtherType"});
    }
  }
}

TEST_F(ConstraintRulesTest, PathsAreCollectedAsTheyAre) {
  const std::string longPath(3000, 'x');
  const Applied applied("{" +
                        On("proc_fpath", Condition(2, "\"/Bin/%sh\"") + "," + Condition(2, Quoted(longPath)) + "," +
                                             Condition(2, "\"\"")) +
                        "}");
  EXPECT_EQ(applied.error, kNoError);
  ASSERT_EQ(applied.query.paths_wanted.count, 3U);
  EXPECT_STREQ(applied.query.paths_wanted.data[0].text, "/Bin/%sh");
  EXPECT_EQ(applied.query.paths_wanted.data[1].text, longPath);
  EXPECT_STREQ(applied.query.paths_wanted.data[2].text, "");
  EXPECT_EQ(applied.query.process_filters.count, 0U);
}

TEST_F(ConstraintRulesTest, PatternIsAFilterOnThePath) {
  const Applied applied("{" + On("proc_fpath", Condition(65, "\"%BIN/c_rl%\"") + "," + Condition(65, "\"/usr%\"")) +
                        "}");
  EXPECT_EQ(applied.query.paths_wanted.count, 0U);
  ASSERT_EQ(applied.query.process_filters.count, 2U);
  Process process;
  for (const auto& [path, passes] : std::initializer_list<std::pair<const char*, bool>>{{"/usr/bin/curl", true},
                                                                                        {"/USR/Bin/CURL.old", true},
                                                                                        {"/opt/bin/curl", false},
                                                                                        {"/usr/bin/crl", false},
                                                                                        {"", false}}) {
    ASSERT_TRUE(process.proc_fpath.Set(path));
    EXPECT_EQ(applied.Passes(process), passes) << path;
  }
}

TEST_F(ConstraintRulesTest, PathThatIsNoTextIsABadQuery) {
  for (const u32 op : {2U, 65U}) {
    for (const char* value : {"null", "1", "[\"a\"]", "{}", "false"}) {
      ExpectError(One("proc_fpath", op, value), kBadQuery, {"5 osquery.ValueNoText"});
      EXPECT_EQ(log.Arguments("osquery.ValueNoText"), Lines{"proc_fpath"});
    }
  }
}

// Each byte counts, so that no quarter goes unseen.
template <u32 kSize>
void ExpectDigestFilter(const Applied& applied, u8 (Process::*digest)[kSize]) {
  ASSERT_EQ(applied.query.process_filters.count, 1U);
  Process process;
  for (u32 i = 0; i < kSize; ++i) {
    (process.*digest)[i] = static_cast<u8>(i == kSize - 1 ? 0xFF : i);
  }
  EXPECT_TRUE(applied.Passes(process));
  for (u32 i = 0; i < kSize; ++i) {
    (process.*digest)[i] ^= 1;
    EXPECT_FALSE(applied.Passes(process)) << i;
    (process.*digest)[i] ^= 1;
  }
  EXPECT_FALSE(applied.Passes(Process()));
}

TEST_F(ConstraintRulesTest, DigestsAreFiltersOnAllTheirBytes) {
  ExpectDigestFilter(Applied(One("proc_md5", 2, Quoted(kMD5))), &Process::proc_md5);
  ExpectDigestFilter(Applied(One("proc_md5", 2, "\"000102030405060708090A0B0c0D0EfF\"")), &Process::proc_md5);
  ExpectDigestFilter(Applied(One("proc_qid", 2, Quoted(kQID))), &Process::proc_qid);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(ConstraintRulesTest, TextThatIsNoDigestIsABadQuery) {
  for (const auto& [column, good] : {std::pair("proc_md5", kMD5), std::pair("proc_qid", kQID)}) {
    const std::string shorter = good.substr(1);
    for (const std::string& text :
         {std::string(), shorter, good.substr(2), shorter + "g", "g" + shorter, good + "0", good + " ", " " + shorter,
          good + "\\u0000", "0x" + good.substr(2), std::string(column == std::string("proc_md5") ? kQID : kMD5)}) {
      ExpectError(One(column, 2, Quoted(text)), kBadQuery, {"5 osquery.DigestNotRead"});
      EXPECT_EQ(log.Arguments("osquery.DigestNotRead")[0], column);
    }
    for (const char* value : {"null", "1", "[]", "true"}) {
      ExpectError(One(column, 2, value), kBadQuery, {"5 osquery.ValueNoText"});
    }
  }
}

TEST_F(ConstraintRulesTest, UniqueIdIsAFilter) {
  for (const char* value : {"18446744073709551615", "\"18446744073709551615\"", "\"0xFFFFFFFFFFFFFFFF\""}) {
    const Applied applied(One("proc_puid", 2, value));
    ASSERT_EQ(applied.query.process_filters.count, 1U);
    Process process;
    process.proc_puid = kAllOnes;
    EXPECT_TRUE(applied.Passes(process));
    process.proc_puid = kAllOnes - 1;
    EXPECT_FALSE(applied.Passes(process));
  }
}

std::string Times(u32 count, const std::string& condition) {
  std::string conditions = condition;
  for (u32 i = 1; i < count; ++i) {
    conditions += "," + condition;
  }
  return conditions;
}

TEST_F(ConstraintRulesTest, AsManyValuesAsConditionsFindRoom) {
  EXPECT_EQ(Applied("{" + On("ip", Times(128, Condition(2, "\"1.2.3.4\""))) + "}").query.ips_wanted.count, 128U);
  EXPECT_EQ(Applied("{" + On("proc_fpath", Times(128, Condition(2, "\"a\""))) + "}").query.paths_wanted.count, 128U);
  EXPECT_EQ(Applied("{" + On("proc_fpath", Times(128, Condition(65, "\"a\""))) + "}").query.process_filters.count,
            128U);
  EXPECT_EQ(log.Lines(1), Lines{});
}

// What is full already takes no more.
TEST_F(ConstraintRulesTest, ConditionWithoutRoomIsAnInternalFailure) {
  struct {
    std::string json;
    const char* line;
  } const cases[] = {
      {One("ip", 2, "\"1.2.3.4\""), "5 osquery.ValueNotKept"},
      {One("proc_fpath", 2, "\"a\""), "5 osquery.ValueNotKept"},
      {One("proc_fpath", 65, "\"a\""), "5 osquery.FilterNotKept"},
      {One("proc_md5", 2, Quoted(kMD5)), "5 osquery.FilterNotKept"},
      {One("proc_qid", 2, Quoted(kQID)), "5 osquery.FilterNotKept"},
      {One("proc_puid", 2, "1"), "5 osquery.FilterNotKept"},
  };
  for (const auto& test : cases) {
    QueryConstraints full(0, kAllOnes);
    for (u32 i = 0; i < 128; ++i) {
      ASSERT_TRUE(full.ips_wanted.Add(IPv4()));
      ASSERT_TRUE(full.paths_wanted.Add(Velmar::Utils::String()));
      ASSERT_TRUE(full.process_filters.Add([](const Process&) { return true; }));
    }
    ParsedConstraints parsed(test.json);
    ASSERT_TRUE(parsed.isParsed);
    log.Clear();
    bool impossible = true;
    EXPECT_EQ(ApplyConstraints(parsed.tree, parsed.list, full, impossible), kInternalFailure) << test.json;
    EXPECT_FALSE(impossible);
    EXPECT_EQ(log.Lines(1), (Lines{"3 velmar.ArrayCeilingReached", test.line})) << test.json;
  }
}

// With more of each than the places that need no memory.
std::string Everything() {
  const std::string longPath = Quoted(std::string(600, 'p'));
  return "{" + On("ip", Times(9, Condition(2, "\"1.2.3.4\""))) + "," +
         On("proc_fpath", Times(9, Condition(2, longPath)) + "," + Times(9, Condition(65, "\"%a%\""))) + "," +
         On("proc_md5", Condition(2, Quoted(kMD5))) + "," + On("proc_qid", Condition(2, Quoted(kQID))) + "," +
         On("proc_puid", Condition(2, "\"1\"")) + "," + On("first_seen", Condition(4, "1000")) + "}";
}

TEST_F(ConstraintRulesTest, EachFailedAllocationIsARefusalOrAFailure) {
  const std::string json = Everything();
  std::set<std::string> outcomes;
  bool failed = true;
  for (u64 number = 0; failed; ++number) {
    SCOPED_TRACE(number);
    const u64 start = Velmar::Sim::CountAllocations();
    Velmar::Sim::FailAllocation(number);
    log.Clear();
    ParsedConstraints parsed(json);
    QueryConstraints query(0, kAllOnes);
    bool impossible = true;
    const QueryError error =
        parsed.isParsed ? ApplyConstraints(parsed.tree, parsed.list, query, impossible) : kBadQuery;
    failed = Velmar::Sim::CountAllocations() - start > number;
    Velmar::Sim::FailAllocation(kAllOnes);
    ASSERT_EQ(error == kNoError, !failed);
    ASSERT_TRUE(!parsed.isParsed || !impossible);
    // The tree keeps its own failures to itself.
    ASSERT_EQ(log.CountLevel(5) > 0, failed && parsed.isJson);
    outcomes.insert(!parsed.isJson ? "json" : !parsed.isParsed ? "parse" : error == kNoError ? "all" : "apply");
    if (parsed.isParsed && failed) {
      ASSERT_EQ(error, kInternalFailure);
    }
  }
  EXPECT_EQ(outcomes, (std::set<std::string>{"json", "parse", "apply", "all"}));
}

// Filters keep what they compare with inside themselves, and the first four stand in the query.
TEST_F(ConstraintRulesTest, FewConditionsTakeNoMemory) {
  ParsedConstraints parsed("{" + On("ip", Times(4, Condition(2, "\"1.2.3.4\""))) + "," +
                           On("proc_fpath", Condition(65, "\"%a%\"")) + "," +
                           On("proc_md5", Condition(2, Quoted(kMD5))) + "," +
                           On("proc_qid", Condition(2, Quoted(kQID))) + "," + On("proc_puid", Condition(2, "1")) + "}");
  QueryConstraints query(0, kAllOnes);
  bool impossible = true;
  const u64 before = Velmar::Sim::CountAllocations();
  EXPECT_EQ(ApplyConstraints(parsed.tree, parsed.list, query, impossible), kNoError);
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
  EXPECT_EQ(query.process_filters.count, 4U);
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
