// The JSON form of OSQueryOutput.
#include <gtest/gtest.h>

#include "Velmar/Utils/TreeContainer.h"
#include "osquery/osquery/OSQueryOutput.h"
#include "osquery/osquery/RowLibrary.h"
#include "platform/sim/Sim.h"
#include "tests/osquery/Records.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

using Velmar::Utils::String;
using Velmar::Utils::TreeContainer;

class OSQueryJsonTest : public ::testing::Test {
 protected:
  OSQueryJsonTest() {
    Velmar::Sim::Reset();
    EXPECT_TRUE(CreateSelectors(selectors));
  }

  // The reply without its white space, whose amount is libprotobuf's affair.
  static std::string Reply(OSQueryOutput& output) {
    String text;
    EXPECT_TRUE(output.ToJson(text));
    TreeContainer tree;
    String compact;
    EXPECT_TRUE(tree.CreateFromJsonString(text.text, text.length, true, true)) << text.text;
    EXPECT_TRUE(tree.AppendJson(compact));
    return compact.text;
  }
  std::string ReplyTo(const QueryRecord& record) {
    OSQueryOutput output(nullptr, &selectors, 7);
    EXPECT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
    EXPECT_TRUE(output.WriteRow(record));
    return Reply(output);
  }

  LogCapture log;
  SelectorArray selectors;
};

TEST_F(OSQueryJsonTest, NoBufferIsNoText) {
  OSQueryOutput output(nullptr, &selectors, 7);
  String text("before", true);
  EXPECT_TRUE(output.ToJson(text));
  EXPECT_EQ(text.length, 0);
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{});
}

TEST_F(OSQueryJsonTest, EmptyResultHasTheHeaderAndAnEmptyList) {
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  String text;
  ASSERT_TRUE(output.ToJson(text));
  EXPECT_STREQ(text.text, R"({"osquery_msg":{"version":1,"error":0,"message_count":0,"messages":[]}})");
}

TEST_F(OSQueryJsonTest, RowIsAnObjectWithItsFieldsInOrder) {
  ASSERT_TRUE(AddAllSelectors(selectors));
  EXPECT_EQ(ReplyTo(FullRecord()),
            R"({"osquery_msg":{"version":1,"error":0,"message_count":1,"messages":[{"ip":"203.0.113.9",)"
            R"("first_seen":"1700000000000","last_seen":"1700000060000","port":443,"protos":"HTTP,SSL,TCP",)"
            R"("conns_total":7,"conns_in":3,"conns_out":4,"bytes_in":"5120","bytes_out":"8589934592",)"
            R"("proc_fpath":"/usr/bin/curl","proc_md5":"000102030405060708090a0b0c0d0e0f",)"
            R"("proc_qid":"fffefdfcfbfaf9f8f7f6f5f4f3f2f1f0efeeedecebeae9e8e7e6e5e4e3e2e1e0",)"
            R"("proc_puid":"18446744073709551615","proc_pid":"4321"}]}})");
}

TEST_F(OSQueryJsonTest, RowsHaveWhiteSpaceAndCommasBetween) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  String text;
  ASSERT_TRUE(output.ToJson(text));
  EXPECT_STREQ(text.text,
               "{\"osquery_msg\":{\"version\":1,\"error\":0,\"message_count\":2,\"messages\":["
               "{\n \"port\": 443\n}\n,{\n \"port\": 443\n}\n]}}");
}

TEST_F(OSQueryJsonTest, FieldsOfNoValueAreLeftOut) {
  ASSERT_TRUE(AddSelector("port", selectors));
  ASSERT_TRUE(AddSelector("proc_fpath", selectors));
  ASSERT_TRUE(AddSelector("bytes_in", selectors));
  QueryRecord record = {};
  EXPECT_EQ(ReplyTo(record), R"({"osquery_msg":{"version":1,"error":0,"message_count":1,"messages":[{}]}})");
  record.port = 1;
  EXPECT_EQ(ReplyTo(record), R"({"osquery_msg":{"version":1,"error":0,"message_count":1,"messages":[{"port":1}]}})");
}

TEST_F(OSQueryJsonTest, EachErrorKeepsTheCompleteRows) {
  ASSERT_TRUE(AddSelector("port", selectors));
  for (const u32 code : {kRowLimit, kBufferFull, kRowNotEncoded, kBadQuery, kInternalFailure}) {
    OSQueryOutput output(nullptr, &selectors, 7);
    ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
    ASSERT_TRUE(output.WriteRow(FullRecord()));
    output.error = code;
    EXPECT_EQ(Reply(output), R"({"osquery_msg":{"version":1,"error":)" + std::to_string(code) +
                                 R"(,"message_count":1,"messages":[{"port":443}]}})");
  }
}

TEST_F(OSQueryJsonTest, RowLimitKeepsTheRowsUpToIt) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(nullptr, &selectors, 2);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_FALSE(output.WriteRow(FullRecord()));
  EXPECT_EQ(Reply(output),
            R"({"osquery_msg":{"version":1,"error":1,"message_count":2,"messages":[{"port":443},{"port":443}]}})");
}

TEST_F(OSQueryJsonTest, BadBytesOfAPathAreReplaced) {
  ASSERT_TRUE(AddSelector("proc_fpath", selectors));
  QueryRecord record = {};
  SetPath(record, "/tmp/\xFF\xC3\xA4\xE2\x82");
  EXPECT_EQ(ReplyTo(record),
            "{\"osquery_msg\":{\"version\":1,\"error\":0,\"message_count\":1,\"messages\":["
            "{\"proc_fpath\":\"/tmp/\xEF\xBF\xBD\xC3\xA4\xEF\xBF\xBD\xEF\xBF\xBD\"}]}}");
}

TEST_F(OSQueryJsonTest, QuotesAndControlBytesOfAPathComeBack) {
  ASSERT_TRUE(AddSelector("proc_fpath", selectors));
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  QueryRecord record = {};
  const std::string path = "/a\"b\\c\n\x01\x7F<&>/\xE2\x80\xA8";
  SetPath(record, path);
  ASSERT_TRUE(output.WriteRow(record));
  String text;
  ASSERT_TRUE(output.ToJson(text));
  TreeContainer tree;
  ASSERT_TRUE(tree.CreateFromJsonString(text.text, text.length, true, true));
  const u32 messages = tree.GetNodeChild(tree.GetNodeChild(TreeContainer::kRoot, "osquery_msg"), "messages");
  EXPECT_EQ(tree.GetNodeValueString(tree.GetNodeChild(messages, 0U), "proc_fpath", "", nullptr).text, path);
}

// The library speaks up about such a text when it is written, and refuses to read it.
TEST_F(OSQueryJsonTest, MessageThatDoesNotParseIsLeftOutAndNothingIsPrinted) {
  ASSERT_TRUE(AddSelector("port", selectors));
  testing::internal::CaptureStderr();
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  ASSERT_TRUE(selectors.Add(Selector([](const QueryRecord&, edr_netdb& row) { row.set_proc_md5("\xFF"); })));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  selectors.PopBack();
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  log.Clear();
  EXPECT_EQ(Reply(output),
            R"({"osquery_msg":{"version":1,"error":0,"message_count":3,"messages":[{"port":443},{"port":443}]}})");
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.MessageNotParsed"});
  EXPECT_EQ(log.Arguments("osquery.MessageNotParsed"), std::vector<std::string>{"20"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(OSQueryJsonTest, RowsAreNotRenderedWhenTheLibraryHasEnded) {
  ASSERT_TRUE(AddSelector("port", selectors));
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  EndRowLibrary();
  String text;
  EXPECT_FALSE(output.ToJson(text));
  EXPECT_EQ(text.length, 0);
  EXPECT_EQ(log.Lines(1),
            (std::vector<std::string>{"5 osquery.NoDescriptor", "5 osquery.NoRenderer", "5 osquery.JsonNotWritten"}));
  OSQueryOutput empty(nullptr, &selectors, 7);
  ASSERT_TRUE(empty.Init(OSQueryOutput::kMinQueryBytes));
  EXPECT_EQ(Reply(empty), R"({"osquery_msg":{"version":1,"error":0,"message_count":0,"messages":[]}})");
}

TEST_F(OSQueryJsonTest, TextIsTheSameWhenAskedAgain) {
  ASSERT_TRUE(AddAllSelectors(selectors));
  OSQueryOutput output(nullptr, &selectors, 7);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  ASSERT_TRUE(output.WriteRow(FullRecord()));
  EXPECT_EQ(Reply(output), Reply(output));
}

TEST_F(OSQueryJsonTest, EachFailedAllocationOfTheTextIsAFailure) {
  ASSERT_TRUE(AddAllSelectors(selectors));
  OSQueryOutput output(nullptr, &selectors, 100);
  ASSERT_TRUE(output.Init(OSQueryOutput::kMinQueryBytes));
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(output.WriteRow(FullRecord()));
  }
  u64 failures = 0;
  for (u64 n = 0;; ++n) {
    String text;
    log.Clear();
    Velmar::Sim::FailAllocation(n);
    const bool written = output.ToJson(text);
    Velmar::Sim::FailAllocation(~u64{0});
    if (written) {
      break;
    }
    ++failures;
    EXPECT_EQ(text.length, 0);
    EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.JsonNotWritten"});
    EXPECT_EQ(log.Arguments("osquery.JsonNotWritten"), std::vector<std::string>{"100"});
  }
  EXPECT_GT(failures, 2U);
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
