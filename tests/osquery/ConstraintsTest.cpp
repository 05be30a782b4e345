#include "osquery/osquery/Constraints.h"

#include <gtest/gtest.h>

#include "platform/sim/Sim.h"
#include "tests/osquery/ParsedConstraints.h"
#include "tests/osquery/SimMemory.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

using Velmar::Utils::TreeContainer;
using Lines = std::vector<std::string>;

class ConstraintsTest : public ::testing::Test {
 protected:
  ConstraintsTest() { Velmar::Sim::Reset(); }

  // Refused, with just this record.
  void ExpectRefused(const std::string& json, const std::string& line) {
    log.Clear();
    const ParsedConstraints parsed(json);
    EXPECT_TRUE(parsed.isJson) << json;
    EXPECT_FALSE(parsed.isParsed) << json;
    EXPECT_EQ(log.Lines(1), Lines{line}) << json;
  }
  // Taken, without a condition.
  void ExpectSkipped(const std::string& entry, const std::string& code) {
    log.Clear();
    const ParsedConstraints parsed("{" + On("ip", entry) + "}");
    EXPECT_TRUE(parsed.isParsed) << entry;
    EXPECT_EQ(parsed.list.count, 0U) << entry;
    EXPECT_EQ(log.Lines(1), Lines{"3 osquery.OperatorUnknown"}) << entry;
    EXPECT_EQ(log.Arguments("osquery.OperatorUnknown"), (Lines{"ip", code})) << entry;
  }

  SimMemory memory;
  LogCapture log;
};

TEST_F(ConstraintsTest, OperatorsHaveTheirNames) {
  struct {
    u8 code;
    const char* name;
  } const cases[] = {{0, "UNKNOWN"},
                     {1, "UNIQUE"},
                     {2, "EQUALS"},
                     {4, "GREATER_THAN"},
                     {8, "LESS_THAN_OR_EQUALS"},
                     {16, "LESS_THAN"},
                     {32, "GREATER_THAN_OR_EQUALS"},
                     {64, "MATCH"},
                     {65, "LIKE"},
                     {66, "GLOB"},
                     {67, "REGEXP"}};
  u32 named = 0;
  for (u32 code = 0; code < 256; ++code) {
    named += ConstraintOperatorName(static_cast<u8>(code)) != nullptr ? 1 : 0;
  }
  EXPECT_EQ(named, std::size(cases));
  for (const auto& test : cases) {
    EXPECT_STREQ(ConstraintOperatorName(test.code), test.name);
  }
}

TEST_F(ConstraintsTest, EachConditionIsAnElementInItsOrder) {
  ParsedConstraints parsed("{" + On("port", Condition(4, "80") + "," + Condition(16, "90")) + "," +
                           On("proc_fpath", Condition(65, "\"%curl\"")) + "}");
  ASSERT_TRUE(parsed.isParsed);
  ASSERT_EQ(parsed.list.count, 3U);
  EXPECT_STREQ(parsed.list.data[0].column, "port");
  EXPECT_EQ(parsed.list.data[0].op, kGreaterThan);
  EXPECT_EQ(parsed.tree.GetCurrentNodeValueUInt64(parsed.list.data[0].expr, 0, nullptr), 80U);
  EXPECT_STREQ(parsed.list.data[1].column, "port");
  EXPECT_EQ(parsed.list.data[1].op, kLessThan);
  EXPECT_EQ(parsed.tree.GetCurrentNodeValueUInt64(parsed.list.data[1].expr, 0, nullptr), 90U);
  EXPECT_STREQ(parsed.list.data[2].column, "proc_fpath");
  EXPECT_EQ(parsed.list.data[2].op, kLike);
  EXPECT_STREQ(parsed.tree.GetCurrentNodeValueString(parsed.list.data[2].expr, "", nullptr).text, "%curl");
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(ConstraintsTest, NothingAskedGivesNoCondition) {
  for (const std::string& json : {std::string("{}"), "{" + On("ip", "") + "}", "{" + On("no_column", "") + "}"}) {
    const ParsedConstraints parsed(json);
    EXPECT_TRUE(parsed.isParsed) << json;
    EXPECT_EQ(parsed.list.count, 0U) << json;
  }
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(ConstraintsTest, AffinityIsOneOfSixNamesInAnyCase) {
  for (const char* affinity : {"TEXT", "INTEGER", "BIGINT", "UNSIGNED BIGINT", "DOUBLE", "BLOB", "text", "Integer",
                               "bigInt", "unsigned BIGINT", "double", "bLoB"}) {
    const ParsedConstraints parsed(std::string(R"({"ip":{"affinity":")") + affinity + R"(","list":[]}})");
    EXPECT_TRUE(parsed.isParsed) << affinity;
  }
  EXPECT_EQ(log.Lines(1), Lines{});
  for (const char* affinity : {"\"\"", "\"TEX\"", "\"TEXTS\"", "\" TEXT\"", "\"UNSIGNED_BIGINT\"", "\"UNSIGNED\"",
                               "\"UNKNOWN\"", "\"TEXT\\u0000\"", "1", "null", "true", "[\"TEXT\"]", "{}"}) {
    ExpectRefused(std::string(R"({"ip":{"list":[],"affinity":)") + affinity + "}}", "5 osquery.AffinityUnknown");
  }
  ExpectRefused(R"({"ip":{"list":[]}})", "5 osquery.AffinityUnknown");
  ExpectRefused(R"({"ip":{"affinity":"x","list":[]}})", "5 osquery.AffinityUnknown");
  EXPECT_EQ(log.Arguments("osquery.AffinityUnknown"), (Lines{"ip", "x"}));
}

TEST_F(ConstraintsTest, ListThatIsMissingOrNoListIsRefused) {
  for (const char* list : {"", ",\"list\":{}", ",\"list\":null", ",\"list\":\"\"", ",\"list\":1", ",\"LIST\":[]"}) {
    ExpectRefused(std::string(R"({"ip":{"affinity":"TEXT")") + list + "}}", "5 osquery.ConstraintListMissing");
    EXPECT_EQ(log.Arguments("osquery.ConstraintListMissing"), Lines{"ip"});
  }
}

TEST_F(ConstraintsTest, OtherShapesAreRefused) {
  ExpectRefused("[]", "5 osquery.ConstraintsNoDictionary");
  ExpectRefused("[" + One("ip", 2, "\"1.2.3.4\"") + "]", "5 osquery.ConstraintsNoDictionary");
  for (const char* column : {"null", "1", "\"TEXT\"", "[]", "[{\"affinity\":\"TEXT\",\"list\":[]}]", "true", "{}"}) {
    ExpectRefused(std::string("{\"ip\":") + column + "}", "5 osquery.AffinityUnknown");
  }
}

TEST_F(ConstraintsTest, OneBadColumnRefusesAll) {
  const std::string good = On("port", Condition(2, "80"));
  ExpectRefused("{" + good + R"(,"ip":{"affinity":"TEXT"}})", "5 osquery.ConstraintListMissing");
  ExpectRefused(R"({"ip":{"affinity":"TEXT"},)" + good + "}", "5 osquery.ConstraintListMissing");
}

TEST_F(ConstraintsTest, TreeWithoutAnythingIsRefused) {
  TreeContainer tree;
  ParsedConstraints room("{}");
  EXPECT_FALSE(ParseConstraints(tree, room.list));
  EXPECT_EQ(log.Lines(1), Lines{"5 osquery.ConstraintsNoDictionary"});
}

// Else the name would pass for that of a column.
TEST_F(ConstraintsTest, NameWithANulIsRefused) {
  ExpectRefused("{" + On("ip\\u0000x", Condition(2, "\"1.2.3.4\"")) + "}", "5 osquery.ConstraintColumnCut");
  EXPECT_EQ(log.Arguments("osquery.ConstraintColumnCut"), Lines{"ip"});
  ExpectRefused("{" + On("\\u0000", "") + "}", "5 osquery.ConstraintColumnCut");
}

TEST_F(ConstraintsTest, EntryWithAnotherOperatorIsSkipped) {
  for (const char* code :
       {"0", "3", "5", "63", "68", "128", "255", "256", "258", "4294967298", "18446744073709551615"}) {
    ExpectSkipped(std::string("{\"op\":") + code + ",\"expr\":1}", code);
  }
}

TEST_F(ConstraintsTest, OperatorOfAnotherTypeIsNone) {
  for (const char* code : {"\"2\"", "null", "true", "-2", "2.0", "2.5", "18446744073709551618", "[2]", "{\"op\":2}"}) {
    ExpectSkipped(std::string("{\"op\":") + code + ",\"expr\":1}", "0");
  }
  ExpectSkipped("{\"expr\":1}", "0");
  ExpectSkipped("{\"OP\":2,\"expr\":1}", "0");
}

TEST_F(ConstraintsTest, EntryThatIsNoDictionaryHasNoOperator) {
  for (const char* entry : {"null", "2", "\"2\"", "[]", "[{\"op\":2,\"expr\":1}]", "{}", "false"}) {
    ExpectSkipped(entry, "0");
  }
}

TEST_F(ConstraintsTest, SkippedEntryLeavesItsNeighbours) {
  const ParsedConstraints parsed("{" + On("port", Condition(2, "1") + ",{\"op\":99}," + Condition(4, "2")) + "}");
  EXPECT_TRUE(parsed.isParsed);
  ASSERT_EQ(parsed.list.count, 2U);
  EXPECT_EQ(parsed.list.data[0].op, kEquals);
  EXPECT_EQ(parsed.list.data[1].op, kGreaterThan);
  EXPECT_EQ(log.Lines(1), Lines{"3 osquery.OperatorUnknown"});
}

TEST_F(ConstraintsTest, EachKnownOperatorIsRead) {
  for (const u32 op : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 65U, 66U, 67U}) {
    const ParsedConstraints parsed(One("port", op, "1"));
    ASSERT_EQ(parsed.list.count, 1U) << op;
    EXPECT_EQ(parsed.list.data[0].op, op);
  }
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST_F(ConstraintsTest, ConditionWithoutValueHasNoNode) {
  ParsedConstraints parsed("{" + On("port", "{\"op\":2}") + "}");
  ASSERT_EQ(parsed.list.count, 1U);
  EXPECT_EQ(parsed.list.data[0].expr, TreeContainer::kError);
  EXPECT_EQ(parsed.list.data[0].expr, ~0U);
}

TEST_F(ConstraintsTest, ColumnNamedTwiceCountsTwice) {
  const ParsedConstraints parsed("{" + On("port", Condition(2, "1")) + "," + On("port", Condition(4, "2")) + "}");
  EXPECT_EQ(parsed.list.count, 2U);
}

std::string Conditions(u32 count) {
  std::string conditions;
  for (u32 i = 0; i < count; ++i) {
    conditions += (i == 0 ? "" : ",") + Condition(2, std::to_string(i));
  }
  return conditions;
}

// 8, then 64 more, then up to 128.
TEST_F(ConstraintsTest, RoomGrowsInStepsUpToTheMost) {
  struct {
    u32 count;
    u32 capacity;
  } const cases[] = {{8, 8}, {9, 72}, {72, 72}, {73, 128}, {128, 128}};
  for (const auto& test : cases) {
    ParsedConstraints parsed("{" + On("port", Conditions(test.count)) + "}");
    EXPECT_TRUE(parsed.isParsed) << test.count;
    ASSERT_EQ(parsed.list.count, test.count);
    EXPECT_EQ(parsed.list.capacity, test.capacity);
    for (u32 i = 0; i < test.count; ++i) {
      EXPECT_EQ(parsed.tree.GetCurrentNodeValueUInt64(parsed.list.data[i].expr, 999, nullptr), i);
    }
  }
  EXPECT_EQ(log.Lines(1), Lines{});
  const ParsedConstraints tooMany("{" + On("port", Conditions(100)) + "," + On("protos", Conditions(29)) + "}");
  EXPECT_FALSE(tooMany.isParsed);
  EXPECT_EQ(log.Lines(1), (Lines{"3 velmar.ArrayCeilingReached", "5 osquery.ConstraintNotKept"}));
  EXPECT_EQ(log.Arguments("osquery.ConstraintNotKept"), (Lines{"protos", "128"}));
}

TEST_F(ConstraintsTest, SkippedEntriesTakeNoRoom) {
  std::string entries = Conditions(128);
  for (u32 i = 0; i < 100; ++i) {
    entries += ",{\"op\":0}";
  }
  const ParsedConstraints parsed("{" + On("port", entries) + "}");
  EXPECT_TRUE(parsed.isParsed);
  EXPECT_EQ(parsed.list.count, 128U);
}

TEST_F(ConstraintsTest, NoMemoryForConditionsIsRefused) {
  ParsedConstraints parsed("{" + On("port", Conditions(9)) + "}");
  ASSERT_TRUE(parsed.isParsed);
  Constraint area[kInlineConstraints];
  Velmar::Collections::Array<Constraint> list;
  ASSERT_TRUE(list.Create(area, kInlineConstraints, true, true, kMaxConstraints, kConstraintGrowth, false,
                          Velmar::Collections::GrowType::kFixedStep, Velmar::kNone));
  Velmar::Sim::FailAllocation(0);
  EXPECT_FALSE(ParseConstraints(parsed.tree, list));
  EXPECT_EQ(list.count, 8U);
  EXPECT_EQ(log.Lines(1), (Lines{"5 velmar.ArrayNoMemory", "5 osquery.ConstraintNotKept"}));
}

// Up to eight conditions take no memory beyond the tree's.
TEST_F(ConstraintsTest, FewConditionsTakeNoMemory) {
  ParsedConstraints parsed("{" + On("port", Conditions(8)) + "}");
  parsed.list.Empty();
  const u64 before = Velmar::Sim::CountAllocations();
  EXPECT_TRUE(ParseConstraints(parsed.tree, parsed.list));
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
}

class ConstraintNumberTest : public ConstraintsTest {
 protected:
  ConstraintNumberTest() { EXPECT_TRUE(tree.Create(16, 16, true, 4)); }

  void ExpectNumber(u32 node, u64 wanted) {
    u64 number = kUntouched;
    EXPECT_TRUE(ConstraintNumber(tree, node, &number));
    EXPECT_EQ(number, wanted);
    EXPECT_EQ(log.Lines(1), Lines{});
  }
  void ExpectNone(u32 node, const std::string& line) {
    log.Clear();
    u64 number = kUntouched;
    EXPECT_FALSE(ConstraintNumber(tree, node, &number));
    EXPECT_EQ(number, kUntouched);
    EXPECT_EQ(log.Lines(1), Lines{line});
  }
  u32 Text(const char* text) { return tree.AddString(TreeContainer::kRoot, "text", text, ~0U, false); }

  static constexpr u64 kUntouched = 0xABCDEF;
  TreeContainer tree;
};

TEST_F(ConstraintNumberTest, WholeNumbersAreTakenAsTheyAre) {
  ExpectNumber(tree.AddUInt32(0, "n", 0, false), 0);
  ExpectNumber(tree.AddUInt32(0, "n", ~0U, false), 0xFFFFFFFF);
  ExpectNumber(tree.AddUInt64(0, "n", ~0ULL, false), ~0ULL);
  ExpectNumber(tree.AddInt64(0, "n", 0, false), 0);
  ExpectNumber(tree.AddInt64(0, "n", 0x7FFFFFFFFFFFFFFF, false), 0x7FFFFFFFFFFFFFFF);
}

TEST_F(ConstraintNumberTest, NegativeNumberIsNone) {
  ExpectNone(tree.AddInt64(0, "n", -1, false), "5 osquery.NumberNegative");
  EXPECT_EQ(log.Arguments("osquery.NumberNegative"), Lines{"-1"});
  ExpectNone(tree.AddInt64(0, "n", static_cast<i64>(1ULL << 63), false), "5 osquery.NumberNegative");
}

TEST_F(ConstraintNumberTest, TextIsReadWhole) {
  ExpectNumber(Text("0"), 0);
  ExpectNumber(Text("1700000000000"), 1700000000000);
  ExpectNumber(Text("007"), 7);
  ExpectNumber(Text("0x1F"), 31);
  ExpectNumber(Text("0X10"), 16);
  ExpectNumber(Text("18446744073709551615"), ~0ULL);
  for (const char* text : {"", " 1", "1 ", "-1", "1.0", "12a", "1e3", "x", "18446744073709551616", "0x", "1\xFF"}) {
    ExpectNone(Text(text), "5 osquery.NumberNotRead");
    EXPECT_EQ(log.Arguments("osquery.NumberNotRead"), Lines{text});
  }
}

TEST_F(ConstraintNumberTest, OtherTypesAreNone) {
  ExpectNone(tree.AddBool(0, "n", true, false), "3 osquery.NumberOfOtherType");
  EXPECT_EQ(log.Arguments("osquery.NumberOfOtherType"), Lines{"2"});
  ExpectNone(tree.AddUInt16(0, "n", 1, false), "3 osquery.NumberOfOtherType");
  ExpectNone(tree.AddFloat64(0, "n", 1.0, false), "3 osquery.NumberOfOtherType");
  ExpectNone(tree.AddList(0, "n", 0, false), "3 osquery.NumberOfOtherType");
  ExpectNone(tree.AddDictionary(0, "n", 0, false), "3 osquery.NumberOfOtherType");
  ExpectNone(TreeContainer::kError, "3 osquery.NumberOfOtherType");
  EXPECT_EQ(log.Arguments("osquery.NumberOfOtherType"), Lines{"0"});
  ASSERT_TRUE(tree.CreateFromJsonString("[null,18446744073709551616]", -1, true, true));
  ExpectNone(tree.GetNodeChild(TreeContainer::kRoot, 0U), "3 osquery.NumberOfOtherType");
  ExpectNone(tree.GetNodeChild(TreeContainer::kRoot, 1U), "3 osquery.NumberOfOtherType");
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
