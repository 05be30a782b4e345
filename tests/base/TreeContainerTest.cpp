#include "Velmar/Utils/TreeContainer.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "Velmar/Collections/Array.h"
#include "platform/sim/Sim.h"
#include "tests/base/FailingAllocations.h"

namespace Velmar::Utils {
namespace {

constexpr u32 kRoot = TreeContainer::kRoot;
constexpr u32 kError = TreeContainer::kError;

std::string Text(StringView view) {
  return std::string(view.text == nullptr ? "" : view.text, view.length);
}

std::string Json(const TreeContainer& tree) {
  String out;
  EXPECT_TRUE(tree.AppendJson(out));
  return out.text;
}

TEST(TreeContainer, BeforeCreateNothingCanBeAddedOrFound) {
  TreeContainer tree;
  EXPECT_EQ(tree.AddBool(kRoot, "a", true, false), kError);
  EXPECT_EQ(tree.AddString(kRoot, "a", "b", 1, false), kError);
  EXPECT_EQ(tree.AddDictionary(kRoot, "a", 8, false), kError);
  EXPECT_EQ(tree.GetNodeType(kRoot), TreeNodeType::kNone);
  EXPECT_EQ(tree.GetNodeChildrenCount(kRoot), 0U);
  EXPECT_EQ(tree.GetNodeValueUInt32(kRoot, "a", 7, nullptr), 7U);
  EXPECT_FALSE(tree.Reset(true, 8));
  String out;
  EXPECT_FALSE(tree.AppendJson(out));
}

TEST(TreeContainer, CreateChoosesTheRoot) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(256, 32, true, 8));
  EXPECT_EQ(tree.GetNodeType(kRoot), TreeNodeType::kDictionary);
  EXPECT_EQ(Json(tree), "{}");
  ASSERT_TRUE(tree.Create(256, 32, false, 8));
  EXPECT_EQ(tree.GetNodeType(kRoot), TreeNodeType::kList);
  EXPECT_EQ(static_cast<u32>(tree.GetNodeType(kRoot)), 14U);
  EXPECT_EQ(Json(tree), "[]");
}

TEST(TreeContainer, AddedValuesAreFoundByNameWithTheirTypes) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(1, 1, true, 0));
  const u32 inner = tree.AddDictionary(kRoot, "inner", 0, false);
  ASSERT_NE(inner, kError);
  EXPECT_NE(tree.AddBool(inner, "bool", true, false), kError);
  EXPECT_NE(tree.AddUInt16(inner, "u16", 65535, false), kError);
  EXPECT_NE(tree.AddUInt32(inner, "u32", 4294967295U, false), kError);
  EXPECT_NE(tree.AddUInt64(inner, "u64", ~u64{0}, false), kError);
  EXPECT_NE(tree.AddInt64(inner, "i64", std::numeric_limits<i64>::min(), false), kError);
  EXPECT_NE(tree.AddFloat64(inner, "f64", 0.1, false), kError);
  EXPECT_NE(tree.AddString(inner, "text", "hello", kNone, false), kError);
  const u32 list = tree.AddList(inner, "list", 0, false);
  EXPECT_NE(tree.AddUInt32(list, "ignored", 1, false), kError);
  EXPECT_EQ(Json(tree),
            "{\"inner\":{\"bool\":true,\"u16\":65535,\"u32\":4294967295,\"u64\":18446744073709551615,"
            "\"i64\":-9223372036854775808,\"f64\":0.1,\"text\":\"hello\",\"list\":[1]}}");
  EXPECT_EQ(tree.GetNodeChild(kRoot, "inner"), inner);
  EXPECT_EQ(tree.GetNodeChildrenCount(inner), 8U);
  EXPECT_EQ(Text(tree.GetNodeName(tree.GetNodeChild(inner, 6U))), "text");
  EXPECT_EQ(tree.GetNodeChild(inner, 8U), kError);
  EXPECT_EQ(tree.GetNodeChild(inner, "none"), kError);
  EXPECT_EQ(static_cast<u32>(tree.GetNodeType(tree.GetNodeChild(inner, "text"))), 11U);
  EXPECT_EQ(static_cast<u32>(tree.GetNodeType(inner)), 15U);
  EXPECT_EQ(tree.GetNodeType(tree.GetNodeChild(inner, "u16")), TreeNodeType::kUInt16);
  EXPECT_EQ(tree.GetNodeType(tree.GetNodeChild(inner, "f64")), TreeNodeType::kFloat64);
  EXPECT_EQ(Text(tree.GetNodeName(tree.GetNodeChild(list, 0U))), "");
  bool found = false;
  EXPECT_TRUE(tree.GetNodeValueBool(inner, "bool", false, &found));
  EXPECT_TRUE(found);
  EXPECT_EQ(Text(tree.GetNodeValueString(inner, "text", "", &found)), "hello");
  EXPECT_EQ(tree.GetCurrentNodeValueFloat64(tree.GetNodeChild(inner, "f64"), 0, &found), 0.1);
}

TEST(TreeContainer, LeavesTakeNoChildren) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  const u32 leaf = tree.AddUInt32(kRoot, "leaf", 1, false);
  EXPECT_EQ(tree.AddUInt32(leaf, "a", 1, false), kError);
  EXPECT_EQ(tree.AddString(leaf, "a", "b", 1, false), kError);
  EXPECT_EQ(tree.AddList(99, "a", 0, false), kError);
  EXPECT_EQ(Json(tree), "{\"leaf\":1}");
}

TEST(TreeContainer, IntegersConvertWhereTheValueFits) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  tree.AddUInt64(kRoot, "big", u64{1} << 32, false);
  tree.AddInt64(kRoot, "minus", -1, false);
  tree.AddUInt16(kRoot, "small", 300, false);
  tree.AddUInt32(kRoot, "edge", 0x80000000, false);
  bool found = true;
  EXPECT_EQ(tree.GetNodeValueUInt32(kRoot, "big", 7, &found), 7U);
  EXPECT_FALSE(found);
  EXPECT_EQ(tree.GetNodeValueUInt64(kRoot, "big", 7, &found), u64{1} << 32);
  EXPECT_TRUE(found);
  EXPECT_EQ(tree.GetNodeValueUInt64(kRoot, "minus", 7, &found), 7U);
  EXPECT_FALSE(found);
  EXPECT_EQ(tree.GetNodeValueInt32(kRoot, "minus", 7, &found), -1);
  EXPECT_TRUE(found);
  EXPECT_EQ(tree.GetNodeValueInt32(kRoot, "small", 7, &found), 300);
  EXPECT_EQ(tree.GetNodeValueInt32(kRoot, "edge", 7, &found), 7);
  EXPECT_FALSE(found);
  const u32 edge = tree.GetNodeChild(kRoot, "edge");
  EXPECT_EQ(tree.GetCurrentNodeValueInt64(edge, 7, &found), 0x80000000);
  EXPECT_EQ(tree.GetCurrentNodeValueUInt32(edge, 7, &found), 0x80000000U);
  EXPECT_EQ(tree.GetCurrentNodeValueUInt64(edge, 7, &found), 0x80000000U);
  EXPECT_EQ(tree.GetCurrentNodeValueInt32(tree.GetNodeChild(kRoot, "small"), 7, &found), 300);
}

TEST(TreeContainer, ABoolOrATextIsNeverAnInteger) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  tree.AddBool(kRoot, "bool", true, false);
  tree.AddString(kRoot, "text", "5", 1, false);
  tree.AddFloat64(kRoot, "real", 5.0, false);
  tree.AddUInt32(kRoot, "number", 1, false);
  for (const char* name : {"bool", "text", "real"}) {
    bool found = true;
    EXPECT_EQ(tree.GetNodeValueUInt32(kRoot, name, 7, &found), 7U) << name;
    EXPECT_FALSE(found) << name;
  }
  EXPECT_FALSE(tree.GetNodeValueBool(kRoot, "number", false, nullptr));
  EXPECT_EQ(Text(tree.GetNodeValueString(kRoot, "number", "none", nullptr)), "none");
}

TEST(TreeContainer, OfEqualNamesTheFirstIsFound) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  tree.AddUInt32(kRoot, "a", 1, false);
  tree.AddUInt32(kRoot, "a", 2, false);
  EXPECT_EQ(tree.GetNodeValueUInt32(kRoot, "a", 0, nullptr), 1U);
  EXPECT_EQ(tree.GetNodeChildrenCount(kRoot), 2U);
}

TEST(TreeContainer, ResetEmptiesAndReusesTheMemory) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(8, 8, true, 4));
  for (int i = 0; i < 3; ++i) {
    tree.AddString(kRoot, "name", "some text", kNone, false);
  }
  const u64 before = Sim::CountAllocations();
  for (int round = 0; round < 10; ++round) {
    ASSERT_TRUE(tree.Reset(round % 2 == 0, 4));
    EXPECT_EQ(Json(tree), round % 2 == 0 ? "{}" : "[]");
    ASSERT_NE(tree.AddString(kRoot, "name", "some text", kNone, false), kError);
  }
  // The texts of Json are all that was allocated: at most a few for each.
  EXPECT_LE(Sim::CountAllocations() - before, 20U);
}

TEST(TreeContainer, TextsAreCopiedAndTerminated) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  char area[] = "abcdef";
  tree.AddString(kRoot, StringView(area, 2), area, 3, false);
  tree.AddString(kRoot, "null", nullptr, 0, false);
  tree.AddString(kRoot, "empty", "ignored", 0, false);
  area[0] = 'X';
  const StringView text = tree.GetNodeValueString(kRoot, "ab", "", nullptr);
  EXPECT_STREQ(text.text, "abc");
  EXPECT_EQ(Json(tree), "{\"ab\":\"abc\",\"null\":\"\",\"empty\":\"\"}");
}

TEST(TreeContainer, LongTextsAndManyChildrenKeepTheirPlace) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(1, 1, false, 0));
  const std::string large(100000, 'x');
  for (u32 i = 0; i < 3000; ++i) {
    ASSERT_EQ(tree.AddUInt32(kRoot, {}, i, false), i + 1);
  }
  ASSERT_NE(tree.AddString(kRoot, {}, large.c_str(), kNone, false), kError);
  for (u32 i = 0; i < 3000; ++i) {
    ASSERT_EQ(tree.GetCurrentNodeValueUInt32(tree.GetNodeChild(kRoot, i), 0, nullptr), i);
  }
  EXPECT_EQ(Text(tree.GetCurrentNodeValueString(tree.GetNodeChild(kRoot, 3000U), "", nullptr)), large);
}

TEST(TreeContainer, JsonRoundTrip) {
  const std::string json =
      "{\"a\":[1,-2,0.5,true,false,null,\"x\\n\\\"\\\\\\u0000\"],\"\":{},\"b\":[[],[{}]],\"c\":18446744073709551615}";
  TreeContainer tree;
  ASSERT_TRUE(tree.CreateFromJsonString(json.c_str(), -1, false, true));
  EXPECT_EQ(Json(tree),
            "{\"a\":[1,-2,0.5,true,false,null,\"x\\u000a\\\"\\\\\\u0000\"],\"\":{},\"b\":[[],[{}]],"
            "\"c\":18446744073709551615}");
  const u32 list = tree.GetNodeChild(kRoot, "a");
  EXPECT_EQ(tree.GetNodeType(tree.GetNodeChild(list, 0U)), TreeNodeType::kUInt64);
  EXPECT_EQ(tree.GetNodeType(tree.GetNodeChild(list, 1U)), TreeNodeType::kInt64);
  EXPECT_EQ(tree.GetNodeType(tree.GetNodeChild(list, 5U)), TreeNodeType::kNull);
  EXPECT_EQ(tree.GetCurrentNodeValueString(tree.GetNodeChild(list, 6U), "", nullptr).length, 5U);
}

TEST(TreeContainer, JsonLengthIsHonoured) {
  TreeContainer tree;
  EXPECT_TRUE(tree.CreateFromJsonString("[1,2]garbage", 5, false, true));
  EXPECT_FALSE(tree.CreateFromJsonString("[1,2]garbage", -1, false, true));
}

TEST(TreeContainer, JsonWithoutCreateNeedsACreatedTree) {
  TreeContainer tree;
  EXPECT_FALSE(tree.CreateFromJsonString("[]", -1, false, false));
  EXPECT_EQ(tree.GetNodeType(kRoot), TreeNodeType::kNone);
  ASSERT_TRUE(tree.Create(256, 32, false, 8));
  tree.AddUInt32(kRoot, {}, 1, false);
  EXPECT_TRUE(tree.CreateFromJsonString("{\"a\":2}", -1, false, false));
  EXPECT_EQ(Json(tree), "{\"a\":2}");
}

TEST(TreeContainer, WhatIsNoDocumentLeavesAnEmptyTree) {
  for (const char* json : {"", " ", "7", "\"text\"", "null", "[", "[1,", "{\"a\"}", "{\"a\":}", "[1]]", "[\"\xFF\"]",
                           "[1e400]", "{a:1}", "['a']", "[01]", "[1] [2]", "[\"\\ud800\"]", "nul"}) {
    TreeContainer tree;
    ASSERT_TRUE(tree.Create(4, 4, true, 0));
    tree.AddUInt32(kRoot, "old", 1, false);
    EXPECT_FALSE(tree.CreateFromJsonString(json, -1, false, false)) << json;
    EXPECT_EQ(tree.GetNodeChildrenCount(kRoot), 0U) << json;
    EXPECT_FALSE(tree.CreateFromJsonString(json, -1, false, true)) << json;
  }
  TreeContainer tree;
  EXPECT_FALSE(tree.CreateFromJsonString(nullptr, -1, false, true));
}

TEST(TreeContainer, NestingHasALimit) {
  const auto nested = [](u32 depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  TreeContainer tree;
  EXPECT_TRUE(tree.CreateFromJsonString(nested(TreeContainer::kMaxJsonDepth).c_str(), -1, false, true));
  EXPECT_FALSE(tree.CreateFromJsonString(nested(TreeContainer::kMaxJsonDepth + 1).c_str(), -1, false, true));
  EXPECT_FALSE(tree.CreateFromJsonString(std::string(1000000, '[').c_str(), -1, false, true));
}

TEST(TreeContainer, BadUtf8AndUnusualNumbersAreWrittenAsJson) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, false, 0));
  tree.AddString(kRoot, {}, "a\xFF\xC3\xA4\xED\xA0\x80z\x7F", kNone, false);
  tree.AddFloat64(kRoot, {}, std::numeric_limits<double>::infinity(), false);
  tree.AddFloat64(kRoot, {}, 3.0, false);
  tree.AddFloat64(kRoot, {}, 1e300, false);
  tree.AddFloat64(kRoot, {}, -0.0, false);
  EXPECT_EQ(Json(tree), "[\"a\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz\x7F\",null,3.0,1e+300,-0.0]");
}

TEST(TreeContainer, DeepTreesThatWereBuiltAreWritten) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, false, 0));
  u32 node = kRoot;
  for (int i = 0; i < 10000; ++i) {
    node = tree.AddList(node, {}, 0, false);
  }
  EXPECT_EQ(Json(tree), std::string(10001, '[') + std::string(10001, ']'));
}

TEST(TreeContainer, CopyIsIndependentAndKeepsIds) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  const u32 inner = tree.AddDictionary(kRoot, "in", 4, false);
  tree.AddString(inner, "text", "value", kNone, false);
  tree.AddInt64(inner, "minus", -5, false);
  tree.AddFloat64(inner, "real", 2.5, false);
  TreeContainer copy;
  ASSERT_TRUE(copy.CopyFrom(tree));
  EXPECT_EQ(Json(copy), Json(tree));
  tree.AddBool(inner, "more", true, false);
  EXPECT_EQ(copy.GetNodeChildrenCount(inner), 3U);
  EXPECT_TRUE(copy.CopyFrom(copy));
  EXPECT_EQ(copy.GetNodeChildrenCount(inner), 3U);
  const TreeContainer never;
  ASSERT_TRUE(copy.CopyFrom(never));
  EXPECT_EQ(copy.GetNodeType(kRoot), TreeNodeType::kNone);
}

TEST(TreeContainer, ArraysHoldTrees) {
  Collections::Array<TreeContainer> trees;
  ASSERT_TRUE(trees.Create(0, 8, 1, false, Collections::GrowType::kFixedStep));
  for (u32 i = 0; i < 5; ++i) {
    TreeContainer tree;
    ASSERT_TRUE(tree.Create(4, 4, true, 0));
    tree.AddUInt32(kRoot, "i", i, false);
    ASSERT_TRUE(trees.Add(tree));
  }
  for (u32 i = 0; i < 5; ++i) {
    EXPECT_EQ(trees.data[i].GetNodeValueUInt32(kRoot, "i", 99, nullptr), i);
  }
}

TEST(TreeContainer, EveryAllocationOfAnAddMayFail) {
  EXPECT_GE(ForEachFailingAllocation([] {
              TreeContainer tree;
              u32 inner = kError;
              const bool done = tree.Create(1, 1, true, 1) &&
                                (inner = tree.AddDictionary(kRoot, "inner", 8, false)) != kError &&
                                tree.AddString(inner, "text", std::string(5000, 'x').c_str(), kNone, false) != kError &&
                                tree.AddList(inner, "list", 9000, false) != kError;
              // After a failure what stands is whole.
              if (!done && tree.GetNodeType(kRoot) == TreeNodeType::kDictionary) {
                String out;
                Sim::FailAllocation(~u64{0});
                EXPECT_TRUE(tree.AppendJson(out));
                TreeContainer again;
                EXPECT_TRUE(again.CreateFromJsonString(out.text, -1, false, true));
              }
              return done;
            }),
            6);
}

TEST(TreeContainer, EveryAllocationOfACopyMayFail) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 0));
  const u32 list = tree.AddList(kRoot, "list", 0, false);
  for (int i = 0; i < 20; ++i) {
    tree.AddString(list, {}, std::string(500, 'x').c_str(), kNone, false);
  }
  EXPECT_GE(ForEachFailingAllocation([&tree] {
              TreeContainer copy;
              const bool copied = copy.CopyFrom(tree);
              EXPECT_EQ(copy.GetNodeChildrenCount(kRoot), copied ? 1U : 0U);
              return copied;
            }),
            3);
}

TEST(TreeContainer, EveryAllocationOfAParseMayFail) {
  EXPECT_GE(ForEachFailingAllocation([] {
              TreeContainer tree;
              const std::string json = "{\"text\":\"" + std::string(6000, 'x') + "\",\"list\":[1,2,3,4,5,6,7,8,9]}";
              const bool parsed = tree.CreateFromJsonString(json.c_str(), -1, false, true);
              EXPECT_EQ(tree.GetNodeChildrenCount(kRoot), parsed ? 2U : 0U);
              return parsed;
            }),
            2);
}

TEST(TreeContainer, FailedWritingLeavesTheTextAsItWas) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, false, 0));
  tree.AddString(kRoot, {}, std::string(5000, '\n').c_str(), kNone, false);
  EXPECT_GE(ForEachFailingAllocation([&tree] {
              char area[16];
              String out;
              out.Create(area, sizeof(area), true, true);
              out.Set("before");
              const bool written = tree.AppendJson(out);
              EXPECT_EQ(written, std::string(out.text) != "before");
              return written;
            }),
            2);
}

}  // namespace
}  // namespace Velmar::Utils
