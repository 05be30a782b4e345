// TcpSocket: one TCP socket as the kernel reports it at one moment.
#pragma once

#include <array>

#include "Velmar/Types.h"

namespace Host::Capture {

// Kernel numbers of the states that matter here.
enum class TcpState : Velmar::u8 {
  kEstablished = 1,
  kSynSent = 2,
  kSynReceived = 3,
  kFinWait1 = 4,
  kFinWait2 = 5,
  kTimeWait = 6,
  kClose = 7,
  kCloseWait = 8,
  kLastAck = 9,
  kListen = 10,
  kClosing = 11,
  kNewSynReceived = 12,
};

struct TcpSocket {
  Velmar::u64 cookie = 0;  // the kernel's name of the socket, never reused
  TcpState state = TcpState::kClose;
  bool ipv6 = false;                   // false also for IPv4 inside an IPv6 socket
  std::array<Velmar::u8, 16> local{};  // first octet first; IPv4 in the first four bytes
  std::array<Velmar::u8, 16> remote{};
  Velmar::u16 localPort = 0;
  Velmar::u16 remotePort = 0;
  Velmar::u32 inode = 0;          // 0: no process holds it (yet, or any more)
  bool hasInfo = false;           // the counts below are known
  Velmar::u64 bytesReceived = 0;  // a received FIN counts as one byte
  Velmar::u64 bytesSent = 0;      // without retransmissions
  bool carriedData = false;       // the handshake was completed: something was acknowledged or received
};

}  // namespace Host::Capture
