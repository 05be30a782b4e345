#include "Velmar/Log.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/BaseLog.h"

using Velmar::Log;
using Velmar::u32;
using Velmar::u64;

namespace {

std::vector<Log::Record> records;
std::string texts;
u64 number;

void KeepNumberAndText(const Log::Record& record, std::va_list arguments) {
  records.push_back(record);
  number = va_arg(arguments, u64);
  texts += va_arg(arguments, const char*);
}

void KeepText(const Log::Record& record, std::va_list arguments) {
  records.push_back(record);
  texts += va_arg(arguments, const char*);
}

class LogTest : public testing::Test {
 protected:
  LogTest() {
    records.clear();
    texts.clear();
  }
  ~LogTest() override { Log::fnLogCallback = nullptr; }
};

TEST_F(LogTest, RecordReachesTheCallbackWhole) {
  Log::fnLogCallback = &KeepNumberAndText;
  Log::WriteRelease(5, 41, 1, 2, 3, 4, 6, u64{0xFFFFFFFFFFFF}, "text");
  ASSERT_EQ(records.size(), 1U);
  const Log::Record& record = records[0];
  EXPECT_EQ(record.level, 5U);
  EXPECT_EQ(record.moduleId, 41U);
  EXPECT_EQ(record.fileId, 1U);
  EXPECT_EQ(record.functionId, 2U);
  EXPECT_EQ(record.conditionId, 3U);
  EXPECT_EQ(record.line, 4U);
  EXPECT_EQ(record.messageId, 6U);
  EXPECT_EQ(number, 0xFFFFFFFFFFFFU);
  EXPECT_EQ(texts, "text");
}

TEST_F(LogTest, NobodyListensByDefault) {
  EXPECT_EQ(Log::fnLogCallback, nullptr);
  Log::WriteRelease(5, 41, 0, 0, 0, 0, 0);
  EXPECT_TRUE(records.empty());
}

TEST_F(LogTest, SiteGivesItsRow) {
  Log::fnLogCallback = &KeepText;
  RYL_LOG(base, FolderSyncFailed, "/a/folder");
  const u32 line = __LINE__ - 1;
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].level, 3U);
  EXPECT_EQ(records[0].moduleId, Velmar::kModuleNumber);
  EXPECT_EQ(records[0].messageId, Velmar::HashIdentifier("base.FolderSyncFailed"));
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[0].fileId, Velmar::HashIdentifier(__FILE__));
  EXPECT_EQ(records[0].conditionId, 0U);
  EXPECT_EQ(texts, "/a/folder");
}

TEST_F(LogTest, SiteEvaluatesNothingWhenNobodyListens) {
  int evaluated = 0;
  const auto path = [&evaluated] {
    ++evaluated;
    return "/a/folder";
  };
  RYL_LOG(base, FolderSyncFailed, path());
  EXPECT_EQ(evaluated, 0);
  Log::fnLogCallback = &KeepText;
  RYL_LOG(base, FolderSyncFailed, path());
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LogTest, IdentifiersAreThePublishedHash) {
  static_assert(Velmar::HashIdentifier("") == 0x811C9DC5U);
  static_assert(Velmar::HashIdentifier("a") == 0xE40C292CU);
  static_assert(Velmar::HashIdentifier("foobar") == 0xBF9CF968U);
  EXPECT_NE(Velmar::HashIdentifier("ab"), Velmar::HashIdentifier("ba"));
}

}  // namespace
