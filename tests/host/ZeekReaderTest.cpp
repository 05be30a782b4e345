#include "host/import/ZeekReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Import;

constexpr char kFields[] =
    "#fields\tts\tuid\tid.orig_h\tid.orig_p\tid.resp_h\tid.resp_p\tproto\tservice\tduration"
    "\torig_bytes\tresp_bytes";

class ZeekReaderTest : public testing::Test {
 protected:
  ZeekReaderTest() { reader_.StartFile(); }

  Finding Read(std::string_view line) { return reader_.Read(line, connection_); }
  // A row of tab-separated values behind kFields.
  Finding ReadRow(const std::string& row) {
    EXPECT_EQ(Read(kFields), Finding::kNothing);
    return Read(row);
  }

  LocalNetworks local_ = LocalNetworks::Usual();
  ZeekReader reader_{local_};
  RecordedConnection connection_;
};

TEST_F(ZeekReaderTest, OutboundRowIsRead) {
  ASSERT_EQ(ReadRow("1588205199.824370\tC1\t10.0.1.6\t54243\t203.0.113.4\t443\ttcp\tssl\t1.5\t39\t55"),
            Finding::kConnection);
  EXPECT_EQ(connection_.startMs, 1588205199824U);
  EXPECT_EQ(connection_.endMs, 1588205201324U);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 4}));
  EXPECT_EQ(connection_.port, 443);
  EXPECT_EQ(connection_.connsOut, 1U);
  EXPECT_EQ(connection_.connsIn, 0U);
  EXPECT_EQ(connection_.connsUnknown, 0U);
  EXPECT_EQ(connection_.protocol, "tcp");
  EXPECT_THAT(connection_.services, testing::ElementsAre("ssl"));
  EXPECT_EQ(connection_.bytesOut, 39U);
  EXPECT_EQ(connection_.bytesIn, 55U);
  EXPECT_EQ(connection_.puid, 0U);
}

TEST_F(ZeekReaderTest, InboundRowHasTheLocalPortAndItsBytesTurned) {
  ASSERT_EQ(ReadRow("1588205199.8\tC1\t203.0.113.4\t54243\t10.0.1.6\t22\ttcp\tssh\t1.5\t39\t55"), Finding::kConnection);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 4}));
  EXPECT_EQ(connection_.port, 22);
  EXPECT_EQ(connection_.connsIn, 1U);
  EXPECT_EQ(connection_.connsOut, 0U);
  EXPECT_EQ(connection_.bytesIn, 39U);
  EXPECT_EQ(connection_.bytesOut, 55U);
}

TEST_F(ZeekReaderTest, OnlyTcpHasAProtocolName) {
  ASSERT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t5\t203.0.113.4\t53\tudp\tdns\t-\t-\t-"), Finding::kConnection);
  EXPECT_EQ(connection_.protocol, "");
  EXPECT_THAT(connection_.services, testing::IsEmpty());
}

TEST_F(ZeekReaderTest, IcmpKeepsTheRespondersNumber) {
  ASSERT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t3\ticmp\t-\t-\t-\t-"), Finding::kConnection);
  EXPECT_EQ(connection_.port, 3);
  EXPECT_EQ(connection_.protocol, "");
}

TEST_F(ZeekReaderTest, EachServiceOfAListIsNamed) {
  ASSERT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\tgssapi,smb,dce_rpc,krb\t-\t-\t-"),
            Finding::kConnection);
  EXPECT_THAT(connection_.services, testing::ElementsAre("smb", "rpc"));
}

TEST_F(ZeekReaderTest, NothingKnownOfTheEndGivesNone) {
  ASSERT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-"), Finding::kConnection);
  EXPECT_EQ(connection_.endMs, std::nullopt);
}

TEST_F(ZeekReaderTest, BytesWithoutADurationEndAtTheStart) {
  ASSERT_EQ(ReadRow("1588205199.5\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t12"), Finding::kConnection);
  EXPECT_EQ(connection_.endMs, 1588205199500U);
  EXPECT_EQ(connection_.bytesIn, 12U);
  EXPECT_EQ(connection_.bytesOut, 0U);
}

TEST_F(ZeekReaderTest, DurationWithoutBytesHasAnEnd) {
  ASSERT_EQ(ReadRow("1588205199.5\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t2\t-\t-"), Finding::kConnection);
  EXPECT_EQ(connection_.endMs, 1588205201500U);
  EXPECT_EQ(connection_.bytesIn + connection_.bytesOut, 0U);
}

TEST_F(ZeekReaderTest, EndCrossesASecondExactlyWhereItShould) {
  ASSERT_EQ(ReadRow("1588205199.999999\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t0.000001\t-\t-"),
            Finding::kConnection);
  EXPECT_EQ(connection_.endMs, 1588205200000U);
}

TEST_F(ZeekReaderTest, ColumnsAreFoundByTheirNames) {
  EXPECT_EQ(Read("#fields\t_node_name\tproto\tid.resp_p\tid.resp_h\tid.orig_p\tid.orig_h\tts\tlabel"),
            Finding::kNothing);
  ASSERT_EQ(Read("worker-1\ttcp\t80\t203.0.113.4\t1234\t192.168.1.1\t1588205199\tbenign"), Finding::kConnection);
  EXPECT_EQ(connection_.port, 80);
  EXPECT_EQ(connection_.connsOut, 1U);
  EXPECT_EQ(connection_.endMs, std::nullopt);
}

TEST_F(ZeekReaderTest, SeparatorAndMarksAreThoseOfTheHeader) {
  for (const char* line : {"#separator \\x3b", "#set_separator;|", "#empty_field;EMPTY", "#unset_field;?", "#path;conn",
                           "#fields;ts;id.orig_h;id.resp_h;id.resp_p;proto;service;duration"}) {
    EXPECT_EQ(Read(line), Finding::kNothing);
  }
  ASSERT_EQ(Read("1588205199;10.0.0.1;203.0.113.4;80;tcp;http|ssl;?"), Finding::kConnection);
  EXPECT_THAT(connection_.services, testing::ElementsAre("http", "ssl"));
  EXPECT_EQ(connection_.endMs, std::nullopt);
  ASSERT_EQ(Read("1588205199;10.0.0.1;203.0.113.4;80;tcp;EMPTY;?"), Finding::kConnection);
  EXPECT_THAT(connection_.services, testing::IsEmpty());
}

TEST_F(ZeekReaderTest, LaterHeaderCounts) {
  EXPECT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-"), Finding::kConnection);
  EXPECT_EQ(Read("#fields\tts\tid.resp_h\tid.orig_h\tid.resp_p\tproto"), Finding::kNothing);
  EXPECT_EQ(Read("1588205199\t203.0.113.4\t10.0.0.1\t81\ttcp"), Finding::kConnection);
  EXPECT_EQ(connection_.port, 81);
}

TEST_F(ZeekReaderTest, HeaderEndsWithItsFile) {
  EXPECT_EQ(Read(kFields), Finding::kNothing);
  reader_.StartFile();
  EXPECT_EQ(Read("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-"), Finding::kMalformed);
}

TEST_F(ZeekReaderTest, RowWithAnotherNumberOfColumnsIsMalformed) {
  EXPECT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-"), Finding::kMalformed);
  EXPECT_EQ(Read("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-\t-"), Finding::kMalformed);
}

TEST_F(ZeekReaderTest, LogOfAnotherKindIsMalformed) {
  EXPECT_EQ(Read("#path\tdns"), Finding::kNothing);
  EXPECT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-"), Finding::kMalformed);
}

TEST_F(ZeekReaderTest, BadValuesAreMalformed) {
  const char* const rows[] = {
      "x\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-",
      "-\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-",
      "-5\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-",
      "1588205199\tC1\tten\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.400\t445\ttcp\t-\t-\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t65536\ttcp\t-\t-\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t-1\ttcp\t-\t-\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t-\ttcp\t-\t-\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\t-\t-\t-\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t-1.0\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t1e30\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t18446744072\t-\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t1\t-5\t-",
      "1588205199\tC1\t10.0.1.6\t8\t203.0.113.4\t445\ttcp\t-\t1\t99999999999999999999\t-",
  };
  for (const char* row : rows) {
    EXPECT_EQ(ReadRow(row), Finding::kMalformed) << row;
  }
}

TEST_F(ZeekReaderTest, BinaryGarbageIsMalformed) {
  EXPECT_EQ(ReadRow(std::string("\0\xFF\x1B\t\t\t\x80{", 8)), Finding::kMalformed);
  EXPECT_EQ(Read(std::string(1000, '\t')), Finding::kMalformed);
  EXPECT_EQ(Read("{"), Finding::kMalformed);
  EXPECT_EQ(Read("garbage"), Finding::kMalformed);
}

TEST_F(ZeekReaderTest, SidesDecideWhatIsSkipped) {
  EXPECT_EQ(ReadRow("1588205199\tC1\t10.0.1.6\t8\t192.168.1.1\t445\ttcp\t-\t-\t-\t-"), Finding::kNotOneLocalSide);
  EXPECT_EQ(Read("1588205199\tC1\t203.0.113.1\t8\t203.0.113.4\t445\ttcp\t-\t-\t-\t-"), Finding::kNotOneLocalSide);
  EXPECT_EQ(Read("1588205199\tC1\tfe80::1\t8\tff02::1\t445\ttcp\t-\t-\t-\t-"), Finding::kIPv6);
  EXPECT_EQ(Read("1588205199\tC1\t10.0.0.1\t8\t2001:db8::1\t445\ttcp\t-\t-\t-\t-"), Finding::kIPv6);
}

TEST_F(ZeekReaderTest, CommentsAndBlankLinesAreNothing) {
  EXPECT_EQ(Read(""), Finding::kNothing);
  EXPECT_EQ(Read("#close\t2014-04-03-10-08-28"), Finding::kNothing);
  EXPECT_EQ(Read("#"), Finding::kNothing);
  EXPECT_EQ(Read("#fields"), Finding::kNothing);
  EXPECT_EQ(Read("#separator \\xZZ"), Finding::kNothing);
}

TEST_F(ZeekReaderTest, JsonIsReadWithDotsUnderscoresAndNested) {
  for (
      const char* line :
      {R"({"ts":1588205199.82437,"id.orig_h":"10.0.1.6","id.resp_h":"203.0.113.4","id.resp_p":443,"proto":"tcp","service":"ssl","duration":1.5,"orig_bytes":39,"resp_bytes":55})",
       R"({"@stream":"conn","ts":1588205199.82437,"id_orig_h":"10.0.1.6","id_resp_h":"203.0.113.4","id_resp_p":443,"proto":"tcp","service":["ssl"],"duration":1.5e0,"orig_bytes":39,"resp_bytes":55})",
       R"({"ts":"2020-04-30T00:06:39.824370Z","id":{"orig_h":"10.0.1.6","resp_h":"203.0.113.4","resp_p":443},"proto":"TCP","service":"SSL","duration":1.5,"orig_bytes":39,"resp_bytes":55})"}) {
    ASSERT_EQ(Read(line), Finding::kConnection) << line;
    EXPECT_EQ(connection_.startMs, 1588205199824U);
    EXPECT_EQ(connection_.endMs, 1588205201324U);
    EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 4}));
    EXPECT_EQ(connection_.port, 443);
    EXPECT_EQ(connection_.protocol, "tcp");
    EXPECT_THAT(connection_.services, testing::ElementsAre("ssl"));
    EXPECT_EQ(connection_.bytesOut, 39U);
    EXPECT_EQ(connection_.bytesIn, 55U);
  }
}

TEST_F(ZeekReaderTest, JsonWithoutOptionalMembersIsRead) {
  ASSERT_EQ(Read(R"({"ts":1588205199,"id.orig_h":"10.0.1.6","id.resp_h":"203.0.113.4","id.resp_p":1,"proto":"icmp"})"),
            Finding::kConnection);
  EXPECT_EQ(connection_.endMs, std::nullopt);
  ASSERT_EQ(Read(R"({"ts":1,"id.orig_h":"10.0.1.6","id.resp_h":"203.0.113.4","id.resp_p":1,"proto":"tcp",)"
                 R"("duration":null,"orig_bytes":null})"),
            Finding::kConnection);
  EXPECT_EQ(connection_.endMs, std::nullopt);
  EXPECT_EQ(connection_.startMs, 1000U);
}

TEST_F(ZeekReaderTest, JsonOfAnotherKindIsMalformed) {
  EXPECT_EQ(Read(R"({"ts":1588205199})"), Finding::kMalformed);
  EXPECT_EQ(Read(R"({"ts":true,"id.orig_h":"10.0.1.6","id.resp_h":"203.0.113.4","id.resp_p":1,"proto":"tcp"})"),
            Finding::kMalformed);
  EXPECT_EQ(Read(R"({"ts":1,"id.orig_h":10,"id.resp_h":"203.0.113.4","id.resp_p":1,"proto":"tcp"})"),
            Finding::kMalformed);
}

}  // namespace
