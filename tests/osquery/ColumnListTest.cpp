#include "osquery/osquery/ColumnList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace RYL::NetDB::OSQuery {
namespace {

using Names = std::vector<std::string>;

Names NamesOf(const std::string& text) {
  ColumnList list(text.c_str());
  Names names;
  char name[ColumnList::kNameSize];
  while (list.Next(name)) {
    names.emplace_back(name);
  }
  EXPECT_STREQ(name, "");
  return names;
}

bool AsksForAll(const char* text) {
  return ColumnList(text).AsksForAll();
}

TEST(ColumnList, StarOrNothingAsksForAll) {
  for (const char* text : {"", "*", " ", "\t\n\v\f\r ", " * ", "\n*"}) {
    EXPECT_TRUE(AsksForAll(text)) << text;
  }
  for (const char* text : {"ip", "**", "*,", ",*", "*,ip", ",", "* *", "ip*", "a"}) {
    EXPECT_FALSE(AsksForAll(text)) << text;
  }
}

TEST(ColumnList, NamesComeInTheirOrder) {
  EXPECT_EQ(NamesOf("ip"), Names{"ip"});
  EXPECT_EQ(NamesOf("port,ip,port"), (Names{"port", "ip", "port"}));
  EXPECT_EQ(NamesOf("IP,Proc_Md5"), (Names{"IP", "Proc_Md5"}));
  EXPECT_EQ(NamesOf("*,ip"), (Names{"*", "ip"}));
}

TEST(ColumnList, WhiteSpaceCountsForNothing) {
  EXPECT_EQ(NamesOf(" ip , port "), (Names{"ip", "port"}));
  EXPECT_EQ(NamesOf("\tproc _\n md 5\v,\fp\ro rt"), (Names{"proc_md5", "port"}));
  EXPECT_EQ(NamesOf("ip\xA0"), Names{"ip\xA0"});
}

TEST(ColumnList, EmptyNamesAreSkipped) {
  EXPECT_EQ(NamesOf(",ip,,port,"), (Names{"ip", "port"}));
  EXPECT_EQ(NamesOf(" , ,ip, \t,"), Names{"ip"});
  EXPECT_EQ(NamesOf(","), Names{});
  EXPECT_EQ(NamesOf(" , ,, "), Names{});
  EXPECT_EQ(NamesOf(""), Names{});
}

TEST(ColumnList, LongNameIsCutAndTheNextIsWhole) {
  const std::string longest(ColumnList::kNameSize - 1, 'x');
  EXPECT_EQ(NamesOf(longest + ",ip"), (Names{longest, "ip"}));
  EXPECT_EQ(NamesOf(longest + "y,ip"), (Names{longest, "ip"}));
  EXPECT_EQ(NamesOf(std::string(100000, 'x') + ",ip"), (Names{longest, "ip"}));
  EXPECT_EQ(NamesOf(std::string(100000, ' ') + "ip"), Names{"ip"});
}

TEST(ColumnList, BehindTheLastNameThereIsNone) {
  ColumnList list("ip");
  char name[ColumnList::kNameSize];
  EXPECT_TRUE(list.Next(name));
  EXPECT_FALSE(list.Next(name));
  EXPECT_FALSE(list.Next(name));
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
