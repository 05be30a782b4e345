#include "host/import/FlatJson.h"

#include <gtest/gtest.h>

namespace {

using Host::Import::FlatJson;

// The value, or "(none)".
std::string Value(const FlatJson& json, const std::string& name) {
  const std::string* found = json.Find(name);
  return found == nullptr ? "(none)" : *found;
}

std::string Nested(const std::string& open, const std::string& close, int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) {
    text += open;
  }
  text += "1";
  for (int i = 0; i < depth; ++i) {
    text += close;
  }
  return text;
}

TEST(FlatJson, ScalarsBecomeTexts) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"s":"x\u00e4","i":-5,"u":18446744073709551615,"t":true,"f":false,"n":null})"));
  EXPECT_EQ(Value(json, "s"), "x\xC3\xA4");
  EXPECT_EQ(Value(json, "i"), "-5");
  EXPECT_EQ(Value(json, "u"), "18446744073709551615");
  EXPECT_EQ(Value(json, "t"), "true");
  EXPECT_EQ(Value(json, "f"), "false");
  EXPECT_EQ(Value(json, "n"), "(none)");
}

TEST(FlatJson, FractionsKeepTheirDigits) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"a":1588205199.82437,"b":1.50,"c":9.5367431640625e-07})"));
  EXPECT_EQ(Value(json, "a"), "1588205199.82437");
  EXPECT_EQ(Value(json, "b"), "1.50");
  EXPECT_EQ(Value(json, "c"), "9.5367431640625e-07");
}

TEST(FlatJson, NestedNamesAreJoined) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"id":{"orig_h":"a","deep":{"x":1}},"after":2})"));
  EXPECT_EQ(Value(json, "id.orig_h"), "a");
  EXPECT_EQ(Value(json, "id.deep.x"), "1");
  EXPECT_EQ(Value(json, "after"), "2");
}

TEST(FlatJson, ArraysAreJoined) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"service":["http","ssl"],"empty":[],"mixed":[1,{"k":"v"},null,2],"z":3})"));
  EXPECT_EQ(Value(json, "service"), "http,ssl");
  EXPECT_EQ(Value(json, "empty"), "(none)");
  EXPECT_EQ(Value(json, "mixed"), "1,2");
  EXPECT_EQ(Value(json, "mixed.k"), "v");
  EXPECT_EQ(Value(json, "z"), "3");
}

TEST(FlatJson, LastOfANameCounts) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"a":1,"a":2,"b":[1,2],"b":["x"]})"));
  EXPECT_EQ(Value(json, "a"), "2");
  EXPECT_EQ(Value(json, "b"), "x");
}

TEST(FlatJson, AnythingButOneObjectIsRefused) {
  FlatJson json;
  for (const char* text : {"",
                           " ",
                           "1",
                           "\"a\"",
                           "null",
                           "true",
                           "[]",
                           "[1]",
                           "[{\"a\":1}]",
                           "{",
                           "{\"a\"}",
                           "{\"a\":}",
                           "{\"a\":1,}",
                           "{} {}",
                           "{\"a\":1}x",
                           "{'a':1}",
                           "{\"a\":01}",
                           "{\"a\":1e999}",
                           "{\"a\":\"\\x\"}",
                           "{\"a\":\"\xFF\"}",
                           "{\"a\":nan}"}) {
    EXPECT_FALSE(json.Parse(text)) << text;
    EXPECT_EQ(json.Find("a"), nullptr) << text;
  }
}

TEST(FlatJson, DepthIsBounded) {
  FlatJson json;
  EXPECT_TRUE(json.Parse(Nested("{\"a\":", "}", FlatJson::kMaxDepth)));
  EXPECT_FALSE(json.Parse(Nested("{\"a\":", "}", FlatJson::kMaxDepth + 1)));
  EXPECT_FALSE(json.Parse("{\"a\":" + Nested("[", "]", 100000) + "}"));
}

TEST(FlatJson, NumberOfMembersIsBounded) {
  const auto object = [](std::size_t members) {
    std::string text = "{";
    for (std::size_t i = 0; i < members; ++i) {
      text += (i == 0 ? "\"m" : ",\"m") + std::to_string(i) + "\":1";
    }
    return text + "}";
  };
  FlatJson json;
  EXPECT_TRUE(json.Parse(object(FlatJson::kMaxMembers)));
  EXPECT_FALSE(json.Parse(object(FlatJson::kMaxMembers + 1)));
}

TEST(FlatJson, ParseForgetsTheObjectBefore) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"a":1})"));
  ASSERT_TRUE(json.Parse(R"({"b":1})"));
  EXPECT_EQ(json.Find("a"), nullptr);
}

TEST(FlatJson, FindAnyTakesTheFirstThatIsThere) {
  FlatJson json;
  ASSERT_TRUE(json.Parse(R"({"b":"2","c":"3"})"));
  EXPECT_EQ(*json.FindAny({"a", "b", "c"}), "2");
  EXPECT_EQ(json.FindAny({"x", "y"}), nullptr);
}

}  // namespace
