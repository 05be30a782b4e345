#include "common/netdb_storage/RecordText.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/support/LogCapture.h"

namespace RYL::NetDB {
namespace {

TEST(AddressToString, HasTheFormOfItsFamily) {
  QueryRecord record{};
  const u8 octets[] = {203, 0, 113, 7};
  std::memcpy(record.address, octets, sizeof(octets));
  char text[kAddressTextSize] = "old";
  EXPECT_TRUE(AddressToString(record, text));
  EXPECT_STREQ(text, "203.0.113.7");
  record = QueryRecord{};
  record.is_ipv6 = 1;
  record.address[15] = 1;
  EXPECT_TRUE(AddressToString(record, text));
  EXPECT_STREQ(text, "::1");
}

TEST(AddressToString, LongestAddressHasRoom) {
  QueryRecord record{};
  record.is_ipv6 = 1;
  std::memset(record.address, 0xFE, sizeof(record.address));
  char text[kAddressTextSize] = "old";
  EXPECT_TRUE(AddressToString(record, text));
  EXPECT_STREQ(text, "fefe:fefe:fefe:fefe:fefe:fefe:fefe:fefe");
}

TEST(ProtocolsToString, NamesTheTwelveBitsInOrder) {
  Velmar::Utils::String text("old", true);
  EXPECT_TRUE(ProtocolsToString(0xFFFFFFFF, text));
  EXPECT_STREQ(text.text, "HTTP,SMB,FTP,Telnet,RDP,SSH,SSL,WMI,RPC,ICMP,UDP,TCP");
  EXPECT_TRUE(ProtocolsToString(0x0801, text));
  EXPECT_STREQ(text.text, "HTTP,TCP");
  EXPECT_TRUE(ProtocolsToString(0x0200, text));
  EXPECT_STREQ(text.text, "ICMP");
}

TEST(ProtocolsToString, NoDefinedBitGivesEmptyText) {
  Velmar::Utils::String text("old", true);
  EXPECT_TRUE(ProtocolsToString(0xFFFFF000, text));
  EXPECT_STREQ(text.text, "");
}

TEST(ProtocolsToString, FailedAppendIsLogged) {
  LogCapture log;
  char area[6];
  Velmar::Utils::String text;
  ASSERT_TRUE(text.Create(area, sizeof(area), true, false));
  EXPECT_FALSE(ProtocolsToString(0x3, text));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 netdb_storage.ProtocolsNotWritten"});
}

}  // namespace
}  // namespace RYL::NetDB
