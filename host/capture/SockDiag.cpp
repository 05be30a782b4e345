#include "host/capture/SockDiag.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Host::Capture {
namespace {

using Velmar::u64;
using Velmar::u8;

constexpr std::size_t kReceiveSize = 64 * 1024;
// Room for bursts of closes between two reads.
constexpr int kDestroyReceiveBuffer = 8 * 1024 * 1024;

bool Fail(const char* what, std::string& error) {
  error = std::string(what) + ": " + std::strerror(errno);
  return false;
}

// "::ffff:a.b.c.d" is IPv4 in an IPv6 socket.
bool IsMapped(const u8* address) {
  static constexpr u8 kPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  return std::memcmp(address, kPrefix, sizeof(kPrefix)) == 0;
}

void TakeAddresses(const inet_diag_msg& message, TcpSocket& socket) {
  u8 local[16];
  u8 remote[16];
  std::memcpy(local, message.id.idiag_src, sizeof(local));
  std::memcpy(remote, message.id.idiag_dst, sizeof(remote));
  const bool mapped = message.idiag_family == AF_INET6 && IsMapped(local);
  socket.ipv6 = message.idiag_family == AF_INET6 && !mapped;
  const std::size_t size = socket.ipv6 ? 16 : 4;
  const std::size_t from = mapped ? 12 : 0;
  std::memcpy(socket.local.data(), local + from, size);
  std::memcpy(socket.remote.data(), remote + from, size);
}

void TakeInfo(const rtattr* attribute, TcpSocket& socket) {
  tcp_info info{};
  std::memcpy(&info, RTA_DATA(attribute), std::min<std::size_t>(RTA_PAYLOAD(attribute), sizeof(info)));
  socket.hasInfo = true;
  socket.bytesReceived = info.tcpi_bytes_received;
  socket.bytesSent = info.tcpi_bytes_sent - std::min<u64>(info.tcpi_bytes_retrans, info.tcpi_bytes_sent);
  socket.carriedData = info.tcpi_bytes_acked > 0 || info.tcpi_bytes_received > 0;
}

// False when the message is too short for what it says.
bool TakeSocket(const nlmsghdr& header, TcpSocket& socket) {
  if (header.nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) {
    return false;
  }
  inet_diag_msg message;
  std::memcpy(&message, NLMSG_DATA(&header), sizeof(message));
  socket.cookie = message.id.idiag_cookie[0] | static_cast<u64>(message.id.idiag_cookie[1]) << 32U;
  socket.state = static_cast<TcpState>(message.idiag_state);
  socket.localPort = ntohs(message.id.idiag_sport);
  socket.remotePort = ntohs(message.id.idiag_dport);
  socket.inode = message.idiag_inode;
  TakeAddresses(message, socket);

  const auto* data = reinterpret_cast<const u8*>(&header);
  auto left = static_cast<int>(header.nlmsg_len - NLMSG_LENGTH(sizeof(inet_diag_msg)));
  const auto* attribute = reinterpret_cast<const rtattr*>(data + NLMSG_LENGTH(sizeof(inet_diag_msg)));
  while (left >= static_cast<int>(sizeof(rtattr)) && attribute->rta_len >= sizeof(rtattr) &&
         attribute->rta_len <= left) {
    if (attribute->rta_type == INET_DIAG_INFO) {
      TakeInfo(attribute, socket);
    }
    const auto step = static_cast<int>(RTA_ALIGN(attribute->rta_len));
    left -= step;
    attribute = reinterpret_cast<const rtattr*>(reinterpret_cast<const u8*>(attribute) + step);
  }
  return true;
}

int OpenSocket(unsigned groups) {
  const int descriptor = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  if (descriptor < 0) {
    return -1;
  }
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    close(descriptor);
    return -1;
  }
  return descriptor;
}

struct DumpRequest {
  nlmsghdr header;
  inet_diag_req_v2 body;
};

bool SendDumpRequest(int descriptor, unsigned sequence, u8 family) {
  DumpRequest request{};
  request.header.nlmsg_len = sizeof(request);
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = sequence;
  request.body.sdiag_family = family;
  request.body.sdiag_protocol = IPPROTO_TCP;
  request.body.idiag_ext = 1U << (INET_DIAG_INFO - 1);
  request.body.idiag_states = 0xFFFFFFFFU;
  return send(descriptor, &request, sizeof(request), 0) == static_cast<ssize_t>(sizeof(request));
}

}  // namespace

SockDiag::~SockDiag() {
  if (query_ >= 0) {
    close(query_);
  }
  if (destroyed_ >= 0) {
    close(destroyed_);
  }
}

bool SockDiag::Open(std::string& error) {
  query_ = OpenSocket(0);
  destroyed_ = OpenSocket(1U << (SKNLGRP_INET_TCP_DESTROY - 1) | 1U << (SKNLGRP_INET6_TCP_DESTROY - 1));
  if (query_ < 0 || destroyed_ < 0) {
    return Fail("cannot open the kernel's socket diagnosis", error);
  }
  // Without the privilege for the first form the second is cut to the system's limit, which is what there is.
  if (setsockopt(destroyed_, SOL_SOCKET, SO_RCVBUFFORCE, &kDestroyReceiveBuffer, sizeof(kDestroyReceiveBuffer)) != 0) {
    setsockopt(destroyed_, SOL_SOCKET, SO_RCVBUF, &kDestroyReceiveBuffer, sizeof(kDestroyReceiveBuffer));
  }
  return true;
}

bool SockDiag::Dump(std::vector<TcpSocket>& sockets, std::string& error) {
  alignas(nlmsghdr) unsigned char area[kReceiveSize];
  for (const u8 family : {u8{AF_INET}, u8{AF_INET6}}) {
    if (!SendDumpRequest(query_, ++sequence_, family)) {
      return Fail("cannot ask for the TCP sockets", error);
    }
    for (bool done = false; !done;) {
      const ssize_t size = recv(query_, area, sizeof(area), 0);
      if (size < 0 && errno == EINTR) {
        continue;
      }
      int errorNumber = 0;
      if (size <= 0 || !ParseDiagMessages(area, static_cast<std::size_t>(size), sockets, done, errorNumber)) {
        errno = size <= 0 ? errno : errorNumber;
        return Fail("cannot read the TCP sockets", error);
      }
    }
  }
  return true;
}

bool SockDiag::ReadDestroyed(std::vector<TcpSocket>& sockets, bool& lost, std::string& error) {
  alignas(nlmsghdr) unsigned char area[kReceiveSize];
  while (true) {
    const ssize_t size = recv(destroyed_, area, sizeof(area), MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size < 0 && errno == ENOBUFS) {
      lost = true;
      continue;
    }
    if (size < 0) {
      return errno == EAGAIN || errno == EWOULDBLOCK || Fail("cannot read closed sockets", error);
    }
    bool done = false;
    int errorNumber = 0;
    if (!ParseDiagMessages(area, static_cast<std::size_t>(size), sockets, done, errorNumber)) {
      errno = errorNumber;
      return Fail("cannot read closed sockets", error);
    }
  }
}

bool ParseDiagMessages(const unsigned char* data, std::size_t size, std::vector<TcpSocket>& sockets, bool& done,
                       int& errorNumber) {
  errorNumber = EPROTO;
  while (size >= sizeof(nlmsghdr)) {
    const auto* header = reinterpret_cast<const nlmsghdr*>(data);
    if (header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > size) {
      return false;
    }
    if (header->nlmsg_type == NLMSG_DONE) {
      done = true;
      return true;
    }
    if (header->nlmsg_type == NLMSG_ERROR) {
      nlmsgerr report{};
      if (header->nlmsg_len >= NLMSG_LENGTH(sizeof(report.error))) {
        std::memcpy(&report.error, NLMSG_DATA(header), sizeof(report.error));
        errorNumber = -report.error;
      }
      return false;
    }
    TcpSocket socket;
    if (header->nlmsg_type == SOCK_DIAG_BY_FAMILY) {
      if (!TakeSocket(*header, socket)) {
        return false;
      }
      sockets.push_back(socket);
    }
    const std::size_t step = std::min<std::size_t>(NLMSG_ALIGN(header->nlmsg_len), size);
    data += step;
    size -= step;
  }
  return true;
}

}  // namespace Host::Capture
