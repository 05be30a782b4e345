// What a row says where a field cannot be converted. In a program of its own, whose conversions fail.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "osquery/osquery/Selectors.h"
#include "tests/osquery/Records.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB::OSQuery {
namespace {

class SelectorFailureTest : public ::testing::Test {
 protected:
  // The row that the selector of `column` makes over one that has each text.
  static edr_netdb Written(const char* column, const QueryRecord& record) {
    SelectorArray selectors;
    EXPECT_TRUE(CreateSelectors(selectors));
    EXPECT_TRUE(AddSelector(column, selectors));
    edr_netdb row;
    row.set_ip("old");
    row.set_protos("old");
    row.set_proc_md5("old");
    row.set_proc_qid("old");
    selectors.data[0](record, row);
    return row;
  }

  LogCapture log;
};

TEST_F(SelectorFailureTest, AddressIsEmpty) {
  for (const u8 family : {u8{0}, u8{1}}) {
    QueryRecord record = FullRecord();
    record.is_ipv6 = family;
    log.Clear();
    EXPECT_EQ(Written("ip", record).ip(), "");
    EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.AddressNotWritten"});
  }
}

TEST_F(SelectorFailureTest, ProtocolsAreEmpty) {
  EXPECT_EQ(Written("protos", FullRecord()).protos(), "");
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 netdb_storage.ProtocolsNotWritten"});
}

TEST_F(SelectorFailureTest, DigestsAreEmpty) {
  EXPECT_EQ(Written("proc_md5", FullRecord()).proc_md5(), "");
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.DigestNotWritten"});
  log.Clear();
  EXPECT_EQ(Written("proc_qid", FullRecord()).proc_qid(), "");
  EXPECT_EQ(log.Lines(1), std::vector<std::string>{"5 osquery.DigestNotWritten"});
}

}  // namespace
}  // namespace RYL::NetDB::OSQuery
