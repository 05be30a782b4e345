#include "common/libryl_netdb/ProtocolTable.h"

#include <gtest/gtest.h>

#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB {
namespace {

using Velmar::Collections::GrowType;

class ProtocolTableTest : public ::testing::Test {
 protected:
  ProtocolTableTest() { Velmar::Sim::Reset(); }

  void Fill() {
    table.SetCaseFold(true);
    ASSERT_TRUE(table.Create(13, 13, 1, true, GrowType::kFixedStep));
    ASSERT_TRUE(table.InsertKnownNames());
  }
  // 0xFFFF when the name is not found.
  u16 MaskOf(const char* name) {
    u16 mask = 0xFFFF;
    return table.LookupProtocol(name, mask) ? mask : u16{0xFFFF};
  }

  LogCapture log;
  ProtocolTable table;
};

TEST_F(ProtocolTableTest, EachEventNameHasItsMask) {
  Fill();
  EXPECT_EQ(MaskOf("tcp"), 0x0800);
  EXPECT_EQ(MaskOf("ssl"), 0x0040);
  EXPECT_EQ(MaskOf("https"), 0x0001);
  EXPECT_EQ(MaskOf("http(s)"), 0x0001);
  EXPECT_EQ(MaskOf("http"), 0x0001);
  EXPECT_EQ(MaskOf("ftp"), 0x0004);
  EXPECT_EQ(MaskOf("ftps"), 0x0004);
  EXPECT_EQ(MaskOf("smb"), 0x0002);
  EXPECT_EQ(MaskOf("ssh"), 0x0020);
  EXPECT_EQ(MaskOf("rdp"), 0x0010);
  EXPECT_EQ(MaskOf("telnet"), 0x0008);
  EXPECT_EQ(MaskOf("wmi"), 0x0080);
  EXPECT_EQ(MaskOf("rpc"), 0x0100);
}

TEST_F(ProtocolTableTest, UpperCaseFindsTheSameMask) {
  Fill();
  EXPECT_EQ(MaskOf("TCP"), 0x0800);
  EXPECT_EQ(MaskOf("Http(S)"), 0x0001);
}

TEST_F(ProtocolTableTest, NoNameLeadsToIcmpOrUdp) {
  Fill();
  EXPECT_EQ(MaskOf("icmp"), 0xFFFF);
  EXPECT_EQ(MaskOf("udp"), 0xFFFF);
}

TEST_F(ProtocolTableTest, UnknownNameLeavesTheMaskAndLogsNothing) {
  Fill();
  u16 mask = 0x1234;
  EXPECT_FALSE(table.LookupProtocol("quic", mask));
  EXPECT_FALSE(table.LookupProtocol("", mask));
  EXPECT_EQ(mask, 0x1234);
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(ProtocolTableTest, NullNameIsLogged) {
  Fill();
  u16 mask = 7;
  EXPECT_FALSE(table.LookupProtocol(nullptr, mask));
  EXPECT_EQ(mask, 7);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.NoProtocolName"});
}

TEST_F(ProtocolTableTest, SecondCreateIsRefused) {
  Fill();
  EXPECT_FALSE(table.Create(13, 13, 1, true, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.ProtocolTableExists"});
  EXPECT_EQ(MaskOf("tcp"), 0x0800);
}

TEST_F(ProtocolTableTest, NameOfTheSameHashIsRefused) {
  table.SetCaseFold(true);
  ASSERT_TRUE(table.Create(4, 4, 1, true, GrowType::kFixedStep));
  ASSERT_TRUE(table.Insert("tcp", 1));
  EXPECT_FALSE(table.Insert("Tcp", 2));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.ProtocolNameTwice"});
  EXPECT_EQ(MaskOf("tcp"), 1);
}

TEST_F(ProtocolTableTest, FullTableRefuses) {
  Fill();
  EXPECT_FALSE(table.Insert("dns", 1));
  EXPECT_EQ(log.CountLevel(3), 1);
  EXPECT_EQ(MaskOf("dns"), 0xFFFF);
}

TEST_F(ProtocolTableTest, TableWithoutLockFails) {
  Velmar::Sim::FailMutexCreate(1);
  EXPECT_FALSE(table.Create(13, 13, 1, true, GrowType::kFixedStep));
  EXPECT_EQ(log.CountLevel(5), 1);
}

// Expected values computed by a separate script from the definition of the RS hash.
TEST_F(ProtocolTableTest, HashFoldsCase) {
  table.SetCaseFold(true);
  EXPECT_EQ(table.HashProtocolName(""), 0U);
  EXPECT_EQ(table.HashProtocolName("a"), 0x61U);
  EXPECT_EQ(table.HashProtocolName("tcp"), 0x9C6B8A87U);
  EXPECT_EQ(table.HashProtocolName("TCP"), 0x9C6B8A87U);
  EXPECT_EQ(table.HashProtocolName("http(s)"), 0x4444298CU);
  EXPECT_EQ(table.HashProtocolName("telnet"), 0xA820A12EU);
}

TEST_F(ProtocolTableTest, HashWithoutFoldTellsCasesApart) {
  EXPECT_EQ(table.HashProtocolName("tcp"), 0x9C6B8A87U);
  EXPECT_EQ(table.HashProtocolName("TCP"), 0xAB8CC467U);
}

TEST_F(ProtocolTableTest, HashTakesBytesAsSigned) {
  EXPECT_EQ(table.HashProtocolName("\xFF\x80"), 0x62F5B1D1U);
}

}  // namespace
}  // namespace RYL::NetDB
