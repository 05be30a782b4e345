#include "host/capture/ConnectionTracker.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Host::Capture {
namespace {

using Velmar::u16;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;

constexpr u8 kInboundCode = 0;
constexpr u8 kOutboundCode = 1;

bool IsWaiting(const TcpSocket& socket) {
  return socket.inode == 0 && (socket.state == TcpState::kTimeWait || socket.state == TcpState::kFinWait2);
}

// Established once, and still a socket with counts.
bool IsConnection(const TcpSocket& socket) {
  switch (socket.state) {
    case TcpState::kEstablished:
    case TcpState::kFinWait1:
    case TcpState::kCloseWait:
    case TcpState::kLastAck:
    case TcpState::kClosing:
      return socket.hasInfo;
    case TcpState::kFinWait2:
      return socket.hasInfo && !IsWaiting(socket);
    default:
      return false;
  }
}

// What was received without the FIN, for a socket that still lives.
u64 ReceivedData(const TcpSocket& socket) {
  const bool hadFin =
      socket.state == TcpState::kCloseWait || socket.state == TcpState::kLastAck || socket.state == TcpState::kClosing;
  return socket.bytesReceived - (hadFin && socket.bytesReceived > 0 ? 1 : 0);
}

}  // namespace

ConnectionTracker::ConnectionTracker(Emit emit, FindOwner findOwner)
    : emit_(std::move(emit)), findOwner_(std::move(findOwner)) {}

ConnectionTracker::Tuple ConnectionTracker::TupleOf(const TcpSocket& socket) {
  return {socket.local, socket.localPort, socket.remote, socket.remotePort};
}

void ConnectionTracker::Snapshot(const std::vector<TcpSocket>& sockets, u64 nowMs) {
  std::set<Tuple> waiting;
  listening_.clear();
  for (const TcpSocket& socket : sockets) {
    if (socket.state == TcpState::kListen) {
      listening_.insert(socket.localPort);
    } else if (IsWaiting(socket)) {
      waiting.insert(TupleOf(socket));
    }
  }
  SettleEnded(waiting);
  for (const TcpSocket& socket : sockets) {
    // A notice of its end may have overtaken this list.
    if (!IsConnection(socket) || endedCookies_.count(socket.cookie) != 0) {
      continue;
    }
    Connection& connection = Track(socket, nowMs);
    if (!connection.announced && socket.inode != 0) {
      connection.owner = findOwner_(socket.inode);
      Announce(connection);
    }
    if (connection.announced && nowMs - connection.lastTrafficMs >= kTrafficIntervalMs) {
      SendTraffic(connection, ReceivedData(socket), nowMs);
    }
  }
  DropVanished(sockets, nowMs);
  endedCookies_.clear();
  first_ = false;
}

ConnectionTracker::Connection& ConnectionTracker::Track(const TcpSocket& socket, u64 nowMs) {
  const auto [found, isNew] = connections_.try_emplace(socket.cookie);
  Connection& connection = found->second;
  if (isNew) {
    connection.inbound = listening_.count(socket.localPort) != 0;
    connection.baseline = first_;
    connection.firstSeenMs = nowMs;
    connection.lastTrafficMs = nowMs;
    if (first_) {
      connection.sentIn = ReceivedData(socket);
      connection.sentOut = socket.bytesSent;
    }
  }
  connection.socket = socket;
  return connection;
}

void ConnectionTracker::Announce(Connection& connection) {
  connection.announced = true;
  if (!connection.baseline) {
    ++announced_;
    emit_(RecordOf(connection, RYL::Events::kNewConnection, connection.firstSeenMs));
  }
}

void ConnectionTracker::SendTraffic(Connection& connection, u64 received, u64 nowMs) {
  connection.lastTrafficMs = nowMs;
  u64 in = received - std::min(received, connection.sentIn);
  u64 out = connection.socket.bytesSent - std::min(connection.socket.bytesSent, connection.sentOut);
  while (in != 0 || out != 0) {
    ConnectionRecord record = RecordOf(connection, RYL::Events::kTraffic, nowMs);
    record.bytesIn = static_cast<u32>(std::min<u64>(in, 0xFFFFFFFFU));
    record.bytesOut = static_cast<u32>(std::min<u64>(out, 0xFFFFFFFFU));
    in -= record.bytesIn;
    out -= record.bytesOut;
    connection.sentIn += record.bytesIn;
    connection.sentOut += record.bytesOut;
    emit_(record);
  }
}

void ConnectionTracker::Destroyed(const TcpSocket& socket, u64 nowMs) {
  endedCookies_.insert(socket.cookie);
  const auto found = connections_.find(socket.cookie);
  const bool seenBefore = found != connections_.end();
  if (!seenBefore && !socket.carriedData) {
    return;  // never established
  }
  Connection connection = seenBefore ? found->second : Connection{};
  const u64 receivedBefore = seenBefore ? ReceivedData(connection.socket) : 0;
  if (seenBefore) {
    connections_.erase(found);
  } else {
    connection.inbound = listening_.count(socket.localPort) != 0;
    connection.firstSeenMs = nowMs;
  }
  const bool hasCounts = socket.hasInfo;
  const TcpSocket before = connection.socket;
  connection.socket = socket;
  if (!hasCounts) {
    connection.socket.bytesReceived = before.bytesReceived;
    connection.socket.bytesSent = before.bytesSent;
  }
  ended_.push_back({connection, receivedBefore, nowMs});
}

void ConnectionTracker::SettleEnded(const std::set<Tuple>& waiting) {
  for (Ended& ended : ended_) {
    Connection& connection = ended.connection;
    u64 received = connection.socket.bytesReceived;
    const u64 growth = received - std::min(received, ended.receivedBefore);
    const bool closedFirst = waiting.count(TupleOf(connection.socket)) != 0;
    if (growth == 1 || (growth > 1 && !closedFirst)) {
      --received;
    }
    if (!connection.announced) {
      Announce(connection);
    }
    SendTraffic(connection, received, ended.endedMs);
  }
  ended_.clear();
}

// A notice that the kernel had to drop leaves its connection behind; its last counts are what is known.
void ConnectionTracker::DropVanished(const std::vector<TcpSocket>& sockets, u64 nowMs) {
  std::set<u64> present;
  for (const TcpSocket& socket : sockets) {
    present.insert(socket.cookie);
  }
  for (auto at = connections_.begin(); at != connections_.end();) {
    if (present.count(at->first) != 0) {
      ++at;
      continue;
    }
    Connection& connection = at->second;
    if (!connection.announced) {
      Announce(connection);
    }
    SendTraffic(connection, ReceivedData(connection.socket), nowMs);
    at = connections_.erase(at);
  }
}

void ConnectionTracker::Finish(u64 nowMs) {
  SettleEnded({});
  for (auto& [cookie, connection] : connections_) {
    if (!connection.announced) {
      Announce(connection);
    }
    SendTraffic(connection, ReceivedData(connection.socket), nowMs);
  }
}

ConnectionRecord ConnectionTracker::RecordOf(const Connection& connection, u32 type, u64 timeMs) const {
  ConnectionRecord record;
  record.type = type;
  record.timeMs = timeMs;
  record.processPuid = connection.owner;
  record.ipv6 = connection.socket.ipv6;
  std::memcpy(record.address, connection.socket.remote.data(), sizeof(record.address));
  record.port = connection.inbound ? connection.socket.localPort : connection.socket.remotePort;
  record.directionCode = connection.inbound ? kInboundCode : kOutboundCode;
  record.protocol = "tcp";
  return record;
}

}  // namespace Host::Capture
