// ConnectionTracker: turns what the kernel shows of TCP sockets into the events of connections.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "host/capture/TcpSocket.h"
#include "host/events/ConnectionRecord.h"

namespace Host::Capture {

// A connection is announced once (type 185) when a process is known to hold it, or when it is gone; its traffic follows
// (type 70) at most once an interval and at its end. What stood open before the first snapshot is not announced, and
// its first counts are a baseline. A connection whose local port was listening when it was first seen is inbound.
//
// The kernel counts a received FIN as one byte and does not say whether there was one when a socket ended. The side
// that closed last had one; the side that closed first leaves a waiting socket behind and had none, unless a single
// byte is all that came since the last look. No growth since then means none either. An aborted connection may
// therefore come out one byte short.
//
// Threads: thread-compatible. Knows no clock and no system call: tests feed it with recorded moments.
class ConnectionTracker {
 public:
  using Emit = std::function<void(const ConnectionRecord&)>;
  // The identifier of the process that holds the socket with this inode, 0 for none.
  using FindOwner = std::function<Velmar::u64(Velmar::u32 inode)>;

  static constexpr Velmar::u64 kTrafficIntervalMs = 10000;

  ConnectionTracker(Emit emit, FindOwner findOwner);

  // All sockets of the namespace at `nowMs` (epoch milliseconds).
  void Snapshot(const std::vector<TcpSocket>& sockets, Velmar::u64 nowMs);
  // A socket that ended. Its events come with the next Snapshot, which shows whether it waits for its peer, or with
  // Finish.
  void Destroyed(const TcpSocket& socket, Velmar::u64 nowMs);
  // Sends what is still owed for all connections.
  void Finish(Velmar::u64 nowMs);

  [[nodiscard]] std::size_t OpenConnections() const { return connections_.size(); }
  [[nodiscard]] Velmar::u64 Announced() const { return announced_; }

 private:
  using Tuple = std::tuple<std::array<Velmar::u8, 16>, Velmar::u16, std::array<Velmar::u8, 16>, Velmar::u16>;

  struct Connection {
    TcpSocket socket;  // as last seen
    bool inbound = false;
    bool announced = false;
    bool baseline = false;  // stood open before the first snapshot
    Velmar::u64 owner = 0;
    Velmar::u64 firstSeenMs = 0;
    Velmar::u64 sentIn = 0;  // bytes reported so far
    Velmar::u64 sentOut = 0;
    Velmar::u64 lastTrafficMs = 0;
  };

  struct Ended {
    Connection connection;
    Velmar::u64 receivedBefore;
    Velmar::u64 endedMs;
  };

  static Tuple TupleOf(const TcpSocket& socket);
  Connection& Track(const TcpSocket& socket, Velmar::u64 nowMs);
  void Announce(Connection& connection);
  void SendTraffic(Connection& connection, Velmar::u64 received, Velmar::u64 nowMs);
  void SettleEnded(const std::set<Tuple>& waiting);
  void DropVanished(const std::vector<TcpSocket>& sockets, Velmar::u64 nowMs);
  ConnectionRecord RecordOf(const Connection& connection, Velmar::u32 type, Velmar::u64 timeMs) const;

  Emit emit_;
  FindOwner findOwner_;
  std::unordered_map<Velmar::u64, Connection> connections_;  // by cookie
  std::vector<Ended> ended_;
  std::set<Velmar::u64> endedCookies_;
  std::set<Velmar::u16> listening_;
  bool first_ = true;
  Velmar::u64 announced_ = 0;
};

}  // namespace Host::Capture
