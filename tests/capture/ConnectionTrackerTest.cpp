// Moments of the kernel's socket list, and the events that they must give.
#include "host/capture/ConnectionTracker.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using Host::ConnectionRecord;
using Host::Capture::ConnectionTracker;
using Host::Capture::TcpSocket;
using Host::Capture::TcpState;
using Velmar::u16;
using Velmar::u32;
using Velmar::u64;

constexpr u64 kStart = 1700000000000;
constexpr u64 kBrowser = 77;
constexpr u64 kServer = 88;

TcpSocket Socket(u64 cookie, TcpState state, u16 localPort, u16 remotePort, u32 inode, u64 received, u64 sent) {
  TcpSocket socket;
  socket.cookie = cookie;
  socket.state = state;
  socket.local = {198, 51, 100, 1};
  socket.remote = {203, 0, 113, 9};
  socket.localPort = localPort;
  socket.remotePort = remotePort;
  socket.inode = inode;
  socket.hasInfo = true;
  socket.bytesReceived = received;
  socket.bytesSent = sent;
  socket.carriedData = true;
  return socket;
}

TcpSocket Listener(u16 port) {
  TcpSocket socket;
  socket.cookie = 1;
  socket.state = TcpState::kListen;
  socket.localPort = port;
  socket.inode = 500;
  return socket;
}

class ConnectionTrackerTest : public testing::Test {
 protected:
  // "type port direction in/out puid @ms since kStart" of each event since the last call.
  std::vector<std::string> Take() {
    std::vector<std::string> texts;
    for (const ConnectionRecord& record : records_) {
      texts.push_back(std::to_string(record.type) + " " + std::to_string(record.port) + " " +
                      (record.directionCode == 0 ? "in " : "out ") + std::to_string(record.bytesIn) + "/" +
                      std::to_string(record.bytesOut) + " " + std::to_string(record.processPuid) + " @" +
                      std::to_string(record.timeMs - kStart));
    }
    records_.clear();
    return texts;
  }

  using Texts = std::vector<std::string>;

  std::vector<ConnectionRecord> records_;
  std::map<u32, u64> owners_{{10, kBrowser}, {20, kServer}};
  ConnectionTracker tracker_{[this](const ConnectionRecord& record) { records_.push_back(record); },
                             [this](u32 inode) { return owners_.count(inode) != 0 ? owners_[inode] : 0; }};
};

TEST_F(ConnectionTrackerTest, OutgoingConnectionIsAnnouncedWithItsProcessAndRemotePort) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 0, 0)}, kStart + 250);
  EXPECT_EQ(Take(), Texts{"185 443 out 0/0 77 @250"});
  EXPECT_EQ(tracker_.Announced(), 1U);
}

TEST_F(ConnectionTrackerTest, ConnectionToAListeningPortIsInboundWithTheLocalPort) {
  tracker_.Snapshot({Listener(8080)}, kStart);
  tracker_.Snapshot({Listener(8080), Socket(5, TcpState::kEstablished, 8080, 40000, 20, 0, 0)}, kStart + 250);
  EXPECT_EQ(Take(), Texts{"185 8080 in 0/0 88 @250"});
}

TEST_F(ConnectionTrackerTest, ConnectionThatNobodyAcceptedYetWaitsForItsProcess) {
  tracker_.Snapshot({Listener(8080)}, kStart);
  tracker_.Snapshot({Listener(8080), Socket(5, TcpState::kEstablished, 8080, 40000, 0, 0, 0)}, kStart + 250);
  EXPECT_EQ(Take(), Texts{});
  tracker_.Snapshot({Listener(8080), Socket(5, TcpState::kEstablished, 8080, 40000, 20, 0, 0)}, kStart + 500);
  EXPECT_EQ(Take(), Texts{"185 8080 in 0/0 88 @250"});
}

TEST_F(ConnectionTrackerTest, NeverAcceptedConnectionIsAnnouncedWithoutAProcessWhenItEnds) {
  tracker_.Snapshot({Listener(8080)}, kStart);
  tracker_.Snapshot({Listener(8080), Socket(5, TcpState::kEstablished, 8080, 40000, 0, 100, 0)}, kStart + 250);
  tracker_.Destroyed(Socket(5, TcpState::kClose, 8080, 40000, 0, 101, 0), kStart + 400);
  tracker_.Snapshot({Listener(8080)}, kStart + 500);
  EXPECT_EQ(Take(), (Texts{"185 8080 in 0/0 0 @250", "70 8080 in 100/0 0 @400"}));
}

TEST_F(ConnectionTrackerTest, WhatStoodOpenAtTheStartIsNotNewAndItsCountsAreABaseline) {
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 1000, 500)}, kStart);
  EXPECT_EQ(Take(), Texts{});
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 1700, 500)}, kStart + 10000);
  EXPECT_EQ(Take(), Texts{"70 443 out 700/0 77 @10000"});
  EXPECT_EQ(tracker_.Announced(), 0U);
}

TEST_F(ConnectionTrackerTest, TrafficIsReportedOnceAnIntervalAsDifferences) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 10, 20)}, kStart + 250);
  Take();
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 30, 40)}, kStart + 10249);
  EXPECT_EQ(Take(), Texts{});
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 31, 41)}, kStart + 10250);
  EXPECT_EQ(Take(), Texts{"70 443 out 31/41 77 @10250"});
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 31, 42)}, kStart + 20250);
  EXPECT_EQ(Take(), Texts{"70 443 out 0/1 77 @20250"});
}

TEST_F(ConnectionTrackerTest, CountsPast32BitsAreSplit) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 0, 0)}, kStart + 250);
  Take();
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 0x180000000, 7)}, kStart + 20000);
  EXPECT_EQ(Take(), (Texts{"70 443 out 4294967295/7 77 @20000", "70 443 out 2147483649/0 77 @20000"}));
}

TEST_F(ConnectionTrackerTest, TheFinOfAPeerThatClosedFirstIsNotData) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 100, 10)}, kStart + 250);
  Take();
  tracker_.Destroyed(Socket(5, TcpState::kClose, 40000, 443, 0, 201, 10), kStart + 400);
  tracker_.Snapshot({}, kStart + 500);
  EXPECT_EQ(Take(), Texts{"70 443 out 200/10 77 @400"});
}

TEST_F(ConnectionTrackerTest, TheSideThatClosedFirstCountsEveryByte) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 100, 10)}, kStart + 250);
  Take();
  tracker_.Destroyed(Socket(5, TcpState::kClose, 40000, 443, 0, 200, 10), kStart + 400);
  tracker_.Snapshot({Socket(0, TcpState::kTimeWait, 40000, 443, 0, 0, 0)}, kStart + 500);
  EXPECT_EQ(Take(), Texts{"70 443 out 200/10 77 @400"});
}

TEST_F(ConnectionTrackerTest, ASingleByteAtTheEndIsTheFin) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 100, 10)}, kStart + 250);
  Take();
  tracker_.Destroyed(Socket(5, TcpState::kClose, 40000, 443, 0, 101, 10), kStart + 400);
  tracker_.Snapshot({Socket(0, TcpState::kTimeWait, 40000, 443, 0, 0, 0)}, kStart + 500);
  EXPECT_EQ(Take(), Texts{"70 443 out 100/10 77 @400"});
}

TEST_F(ConnectionTrackerTest, HalfClosedConnectionDoesNotCountTheFin) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 0, 0)}, kStart + 250);
  Take();
  tracker_.Snapshot({Socket(5, TcpState::kCloseWait, 40000, 443, 10, 101, 0)}, kStart + 20000);
  EXPECT_EQ(Take(), Texts{"70 443 out 100/0 77 @20000"});
  tracker_.Destroyed(Socket(5, TcpState::kClose, 40000, 443, 0, 101, 0), kStart + 20100);
  tracker_.Snapshot({}, kStart + 20250);
  EXPECT_EQ(Take(), Texts{});
}

TEST_F(ConnectionTrackerTest, ConnectionShorterThanALookIsRecordedWithoutAProcess) {
  tracker_.Snapshot({}, kStart);
  tracker_.Destroyed(Socket(5, TcpState::kClose, 40000, 443, 0, 301, 50), kStart + 100);
  tracker_.Snapshot({}, kStart + 250);
  EXPECT_EQ(Take(), (Texts{"185 443 out 0/0 0 @100", "70 443 out 300/50 0 @100"}));
}

TEST_F(ConnectionTrackerTest, FailedConnectGivesNothing) {
  tracker_.Snapshot({Socket(5, TcpState::kSynSent, 40000, 443, 10, 0, 0)}, kStart);
  TcpSocket refused = Socket(5, TcpState::kClose, 40000, 443, 0, 0, 0);
  refused.carriedData = false;
  tracker_.Destroyed(refused, kStart + 100);
  tracker_.Snapshot({}, kStart + 250);
  tracker_.Finish(kStart + 300);
  EXPECT_EQ(Take(), Texts{});
}

TEST_F(ConnectionTrackerTest, ListThatAnEndOvertookDoesNotReviveTheConnection) {
  tracker_.Snapshot({}, kStart);
  const TcpSocket open = Socket(5, TcpState::kEstablished, 40000, 443, 10, 100, 10);
  tracker_.Snapshot({open}, kStart + 250);
  tracker_.Destroyed(Socket(5, TcpState::kClose, 40000, 443, 0, 101, 10), kStart + 499);
  Take();
  tracker_.Snapshot({open}, kStart + 500);
  tracker_.Snapshot({}, kStart + 750);
  EXPECT_EQ(Take(), Texts{"70 443 out 100/10 77 @499"});
  EXPECT_EQ(tracker_.OpenConnections(), 0U);
}

TEST_F(ConnectionTrackerTest, ConnectionWhoseEndWasMissedIsClosedWithItsLastCounts) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 100, 10)}, kStart + 250);
  Take();
  tracker_.Snapshot({}, kStart + 500);
  EXPECT_EQ(Take(), Texts{"70 443 out 100/10 77 @500"});
}

TEST_F(ConnectionTrackerTest, FinishSendsWhatIsOwed) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({Socket(5, TcpState::kEstablished, 40000, 443, 10, 1, 2)}, kStart + 250);
  tracker_.Destroyed(Socket(6, TcpState::kClose, 40001, 443, 0, 5, 6), kStart + 300);
  Take();
  tracker_.Finish(kStart + 400);
  EXPECT_EQ(Take(), (Texts{"185 443 out 0/0 0 @300", "70 443 out 4/6 0 @300", "70 443 out 1/2 77 @400"}));
}

TEST_F(ConnectionTrackerTest, WaitingSocketsOfOthersAreNoConnections) {
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot(
      {Socket(0, TcpState::kTimeWait, 40000, 443, 0, 0, 0), Socket(0, TcpState::kFinWait2, 40001, 443, 0, 0, 0)},
      kStart + 250);
  tracker_.Finish(kStart + 300);
  EXPECT_EQ(Take(), Texts{});
}

TEST_F(ConnectionTrackerTest, AddressFamilyAndBytesOfTheRemoteSideAreCarried) {
  TcpSocket socket = Socket(5, TcpState::kEstablished, 40000, 443, 10, 0, 0);
  socket.ipv6 = true;
  socket.remote = {0x20, 0x01, 0x0D, 0xB8};
  tracker_.Snapshot({}, kStart);
  tracker_.Snapshot({socket}, kStart + 250);
  ASSERT_EQ(records_.size(), 1U);
  EXPECT_TRUE(records_[0].ipv6);
  EXPECT_EQ(records_[0].address[3], 0xB8);
  EXPECT_EQ(records_[0].protocol, "tcp");
}

}  // namespace
