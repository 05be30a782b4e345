// The kernel's socket diagnosis on this machine, and its messages byte by byte.
#include "host/capture/SockDiag.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

namespace {

using Host::Capture::ParseDiagMessages;
using Host::Capture::SockDiag;
using Host::Capture::TcpSocket;
using Host::Capture::TcpState;

struct Message {
  nlmsghdr header{};
  inet_diag_msg body{};
};

Message SocketMessage() {
  Message message;
  message.header.nlmsg_len = sizeof(message);
  message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  message.body.idiag_family = AF_INET;
  message.body.idiag_state = 1;
  message.body.id.idiag_sport = htons(40000);
  message.body.id.idiag_dport = htons(443);
  message.body.id.idiag_src[0] = htonl(0xC6336401);
  message.body.id.idiag_dst[0] = htonl(0xCB007109);
  message.body.id.idiag_cookie[0] = 7;
  message.body.id.idiag_cookie[1] = 1;
  message.body.idiag_inode = 99;
  return message;
}

template <class T>
bool Parse(const T& bytes, std::size_t size, std::vector<TcpSocket>& sockets, bool& done, int& errorNumber) {
  return ParseDiagMessages(reinterpret_cast<const unsigned char*>(&bytes), size, sockets, done, errorNumber);
}

TEST(SockDiagParse, TakesASocketOfEachFamily) {
  Message messages[2] = {SocketMessage(), SocketMessage()};
  messages[1].body.idiag_family = AF_INET6;
  messages[1].body.id.idiag_src[2] = messages[1].body.id.idiag_dst[2] = htonl(0xFFFF);
  messages[1].body.id.idiag_src[3] = htonl(0xC6336401);
  messages[1].body.id.idiag_dst[3] = htonl(0xCB007109);
  messages[1].body.id.idiag_src[0] = messages[1].body.id.idiag_dst[0] = 0;

  std::vector<TcpSocket> sockets;
  bool done = false;
  int errorNumber = 0;
  ASSERT_TRUE(Parse(messages, sizeof(messages), sockets, done, errorNumber));
  ASSERT_EQ(sockets.size(), 2U);
  for (const TcpSocket& socket : sockets) {
    EXPECT_FALSE(socket.ipv6) << "an IPv4 address inside an IPv6 socket is IPv4";
    EXPECT_EQ(socket.cookie, 0x100000007U);
    EXPECT_EQ(socket.state, TcpState::kEstablished);
    EXPECT_EQ(socket.localPort, 40000);
    EXPECT_EQ(socket.remotePort, 443);
    EXPECT_EQ(socket.inode, 99U);
    EXPECT_EQ((std::vector<int>{socket.remote[0], socket.remote[1], socket.remote[2], socket.remote[3]}),
              (std::vector<int>{203, 0, 113, 9}));
  }
  EXPECT_FALSE(done);
}

TEST(SockDiagParse, EndMarkEndsTheList) {
  nlmsghdr end{};
  end.nlmsg_len = sizeof(end);
  end.nlmsg_type = NLMSG_DONE;
  std::vector<TcpSocket> sockets;
  bool done = false;
  int errorNumber = 0;
  EXPECT_TRUE(Parse(end, sizeof(end), sockets, done, errorNumber));
  EXPECT_TRUE(done);
}

TEST(SockDiagParse, KernelErrorIsReported) {
  struct {
    nlmsghdr header{};
    nlmsgerr error{};
  } message;
  message.header.nlmsg_len = sizeof(message);
  message.header.nlmsg_type = NLMSG_ERROR;
  message.error.error = -EPERM;
  std::vector<TcpSocket> sockets;
  bool done = false;
  int errorNumber = 0;
  EXPECT_FALSE(Parse(message, sizeof(message), sockets, done, errorNumber));
  EXPECT_EQ(errorNumber, EPERM);
}

TEST(SockDiagParse, MessageThatClaimsMoreThanItHasIsRefused) {
  Message message = SocketMessage();
  message.header.nlmsg_len = sizeof(message) + 1;
  std::vector<TcpSocket> sockets;
  bool done = false;
  int errorNumber = 0;
  EXPECT_FALSE(Parse(message, sizeof(message), sockets, done, errorNumber));
  message.header.nlmsg_len = sizeof(nlmsghdr) + 4;
  EXPECT_FALSE(Parse(message, sizeof(message), sockets, done, errorNumber));
  EXPECT_TRUE(sockets.empty());
}

TEST(SockDiagParse, AnyBytesAreSafe) {
  std::mt19937 random(20260314);
  alignas(nlmsghdr) unsigned char bytes[sizeof(Message) * 2];
  for (int round = 0; round < 20000; ++round) {
    const Message pattern = SocketMessage();
    std::memcpy(bytes, &pattern, sizeof(pattern));
    for (std::size_t i = round % 2 == 0 ? 16 : 0; i < sizeof(bytes); ++i) {
      bytes[i] = static_cast<unsigned char>(random());
    }
    std::vector<TcpSocket> sockets;
    bool done = false;
    int errorNumber = 0;
    const bool parsed = ParseDiagMessages(bytes, random() % (sizeof(bytes) + 1), sockets, done, errorNumber);
    EXPECT_LE(sockets.size(), 2U);
    EXPECT_TRUE(parsed || errorNumber != 0);
  }
}

TEST(SockDiag, ShowsAListeningSocketOfThisProcessAndNoticesAClose) {
  SockDiag diag;
  std::string error;
  ASSERT_TRUE(diag.Open(error)) << error;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  socklen_t size = sizeof(address);
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  const auto port = ntohs(address.sin_port);

  std::vector<TcpSocket> sockets;
  ASSERT_TRUE(diag.Dump(sockets, error)) << error;
  const auto found = std::find_if(sockets.begin(), sockets.end(), [port](const TcpSocket& socket) {
    return socket.localPort == port && socket.state == TcpState::kListen;
  });
  ASSERT_NE(found, sockets.end());
  EXPECT_NE(found->inode, 0U);
  EXPECT_EQ(found->local[0], 127);
  close(listener);
  bool lost = false;
  EXPECT_TRUE(diag.ReadDestroyed(sockets, lost, error)) << error;
}

}  // namespace
