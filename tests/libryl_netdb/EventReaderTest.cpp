#include "common/libryl_netdb/EventReader.h"

#include <gtest/gtest.h>

#include "tests/support/EventBuilder.h"
#include "tests/support/LogCapture.h"

namespace RYL::Module {
namespace {

class EventReaderTest : public ::testing::Test {
 protected:
  EventReaderTest() {
    protocols.SetCaseFold(true);
    protocols.Create(13, 13, 1, true, Velmar::Collections::GrowType::kFixedStep);
    protocols.InsertKnownNames();
  }
  bool Read(const EventBuilder& event) {
    const auto bytes = event.Build();
    message = {};
    return EventReader(bytes.data()).ReadCommonFields(protocols, message);
  }
  static bool HasAddress(const EventBuilder& event) {
    const auto bytes = event.Build();
    return EventReader(bytes.data()).HasAddress();
  }

  LogCapture log;
  NetDB::ProtocolTable protocols;
  NetDB::BacklogMessage message;
};

TEST_F(EventReaderTest, NullEventIsRefused) {
  EXPECT_FALSE(EventReader(nullptr).ReadCommonFields(protocols, message));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.ReadNullEvent"});
}

TEST_F(EventReaderTest, MissingAddressIsRefused) {
  EXPECT_FALSE(Read(EventBuilder(185).Address("0.0.0.0")));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.ReadWithoutAddress"});
}

TEST_F(EventReaderTest, IPv6AddressIsRefused) {
  EXPECT_FALSE(Read(EventBuilder(185).Address("2001:db8::1")));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.ReadIPv6Address"});
}

TEST_F(EventReaderTest, AddressIsThereWhenAnyOfItsBytesIs) {
  EXPECT_TRUE(HasAddress(EventBuilder(185).Address("0.0.0.1")));
  EXPECT_FALSE(HasAddress(EventBuilder(185).Address("0.0.0.0")));
  EXPECT_TRUE(HasAddress(EventBuilder(185).Address("::1")));
  EXPECT_TRUE(HasAddress(EventBuilder(185).Address("1::")));
  EXPECT_FALSE(HasAddress(EventBuilder(185).Address("::")));
}

// Offset 0 is the record's own header word, never an address.
TEST_F(EventReaderTest, NoAddressOffsetMeansNoAddress) {
  EXPECT_FALSE(HasAddress(EventBuilder(185).NoAddressBlock()));
  EXPECT_FALSE(HasAddress(EventBuilder(70).NoAddressBlock()));
}

TEST_F(EventReaderTest, FieldsAreCopiedAsTheyStand) {
  EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").Port(0xFFFE).Protocol("SSH").Direction(1)));
  EXPECT_EQ(message.address, 0x04030201U);
  EXPECT_EQ(message.port, 0xFFFE);
  EXPECT_EQ(message.protocols, 0x0020);
  EXPECT_EQ(message.direction, NetDB::Direction::kOutbound);
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(EventReaderTest, EmptyProtocolNameIsLoggedAndKept) {
  EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").Protocol("")));
  EXPECT_EQ(message.protocols, 0);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.ProtocolUnknown"});
  EXPECT_EQ(log.Arguments("ryl_netdb.ProtocolUnknown"), std::vector<std::string>{""});
}

TEST_F(EventReaderTest, ProtocolOffsetOfZeroMeansNoText) {
  EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").NoProtocolText()));
  EXPECT_EQ(message.protocols, 0);
  EXPECT_EQ(log.Arguments("ryl_netdb.ProtocolUnknown"), std::vector<std::string>{""});
}

TEST_F(EventReaderTest, UnknownProtocolNameIsLoggedAndKept) {
  EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").Protocol("quic")));
  EXPECT_EQ(message.protocols, 0);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.ProtocolUnknown"});
  EXPECT_EQ(log.Arguments("ryl_netdb.ProtocolUnknown"), std::vector<std::string>{"quic"});
}

TEST_F(EventReaderTest, DirectionCodesMapToDirections) {
  EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").Protocol("tcp").Direction(0)));
  EXPECT_EQ(message.direction, NetDB::Direction::kInbound);
  EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").Protocol("tcp").Direction(1)));
  EXPECT_EQ(message.direction, NetDB::Direction::kOutbound);
  EXPECT_TRUE(log.Entries().empty());
  for (const u8 code : {u8{2}, u8{3}, u8{4}, u8{5}, u8{0x80}, u8{0xFF}}) {
    log.Clear();
    EXPECT_TRUE(Read(EventBuilder(185).Address("1.2.3.4").Protocol("tcp").Direction(code)));
    EXPECT_EQ(message.direction, NetDB::Direction::kUnknown);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.DirectionUnknown"});
    EXPECT_EQ(log.Arguments("ryl_netdb.DirectionUnknown"), std::vector<std::string>{std::to_string(code)});
  }
}

}  // namespace
}  // namespace RYL::Module
