#include "host/import/EventBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Import;

RecordedConnection Outbound() {
  RecordedConnection connection;
  connection.startMs = 1000;
  connection.puid = 5;
  connection.remote = {203, 0, 113, 4};
  connection.port = 443;
  connection.connsOut = 1;
  connection.protocol = "tcp";
  return connection;
}

std::vector<ConnectionRecord> Events(const RecordedConnection& connection) {
  std::vector<ConnectionRecord> events;
  EXPECT_TRUE(EmitEvents(connection, [&events](const ConnectionRecord& event) {
    events.push_back(event);
    return true;
  }));
  return events;
}

// "TYPE@TIME direction protocol in/out" of each event.
std::vector<std::string> Described(const std::vector<ConnectionRecord>& events) {
  std::vector<std::string> texts;
  for (const ConnectionRecord& event : events) {
    texts.push_back(std::to_string(event.type) + "@" + std::to_string(event.timeMs) + " " +
                    std::to_string(event.directionCode) + " " + event.protocol + " " + std::to_string(event.bytesIn) +
                    "/" + std::to_string(event.bytesOut));
  }
  return texts;
}

TEST(EmitEvents, ConnectionAloneIsOneEvent) {
  const auto events = Events(Outbound());
  EXPECT_THAT(Described(events), testing::ElementsAre("185@1000 1 tcp 0/0"));
  EXPECT_EQ(events[0].processPuid, 5U);
  EXPECT_EQ(events[0].port, 443);
  EXPECT_FALSE(events[0].ipv6);
  EXPECT_EQ(events[0].address[0], 203);
  EXPECT_EQ(events[0].address[3], 4);
}

TEST(EmitEvents, ServicesFollowAtTheStartAndTrafficAtTheEnd) {
  RecordedConnection connection = Outbound();
  connection.services = {"smb", "rpc"};
  connection.endMs = 2500;
  connection.bytesIn = 7;
  connection.bytesOut = 9;
  EXPECT_THAT(Described(Events(connection)),
              testing::ElementsAre("185@1000 1 tcp 0/0", "71@1000 1 smb 0/0", "71@1000 1 rpc 0/0", "70@2500 1  7/9"));
}

TEST(EmitEvents, InboundConnectionHasItsCode) {
  RecordedConnection connection = Outbound();
  connection.connsOut = 0;
  connection.connsIn = 1;
  connection.protocol.clear();
  EXPECT_THAT(Described(Events(connection)), testing::ElementsAre("185@1000 0  0/0"));
}

TEST(EmitEvents, EveryCountedConnectionIsAnEvent) {
  RecordedConnection connection = Outbound();
  connection.connsOut = 2;
  connection.connsIn = 1;
  connection.connsUnknown = 1;
  EXPECT_THAT(Described(Events(connection)), testing::ElementsAre("185@1000 1 tcp 0/0", "185@1000 1 tcp 0/0",
                                                                  "185@1000 0 tcp 0/0", "185@1000 255 tcp 0/0"));
}

TEST(EmitEvents, EndWithoutBytesIsStillTraffic) {
  RecordedConnection connection = Outbound();
  connection.endMs = 1000;
  EXPECT_THAT(Described(Events(connection)), testing::ElementsAre("185@1000 1 tcp 0/0", "70@1000 1  0/0"));
}

TEST(EmitEvents, CountOf32BitsIsOneEvent) {
  RecordedConnection connection = Outbound();
  connection.endMs = 1000;
  connection.bytesIn = 0xFFFFFFFF;
  connection.bytesOut = 0xFFFFFFFF;
  EXPECT_THAT(Described(Events(connection)),
              testing::ElementsAre("185@1000 1 tcp 0/0", "70@1000 1  4294967295/4294967295"));
}

TEST(EmitEvents, CountBeyond32BitsIsSplit) {
  RecordedConnection connection = Outbound();
  connection.endMs = 1000;
  connection.bytesIn = 0x1'0000'0000;
  connection.bytesOut = 2 * u64{0xFFFFFFFF} + 5;
  EXPECT_THAT(Described(Events(connection)),
              testing::ElementsAre("185@1000 1 tcp 0/0", "70@1000 1  4294967295/4294967295", "70@1000 1  1/4294967295",
                                   "70@1000 1  0/5"));
}

TEST(EmitEvents, LargestCountAddsUp) {
  RecordedConnection connection = Outbound();
  connection.endMs = 1000;
  connection.bytesIn = u64{1} << 40;
  u64 sum = 0;
  for (const ConnectionRecord& event : Events(connection)) {
    sum += event.bytesIn;
  }
  EXPECT_EQ(sum, u64{1} << 40);
}

TEST(EmitEvents, SinkEndsTheDelivery) {
  RecordedConnection connection = Outbound();
  connection.services = {"smb"};
  connection.endMs = 2500;
  for (int allowed = 0; allowed < 3; ++allowed) {
    int left = allowed;
    EXPECT_FALSE(EmitEvents(connection, [&left](const ConnectionRecord& /*event*/) { return left-- > 0; }));
    EXPECT_EQ(left, -1);
  }
}

}  // namespace
