// Server: the daemon's end of the control socket.
//
//   Server server([&](const Message& request) { return Answer(request); });
//   if (!server.Open(dataFolder, error)) ...
//   while (...) {
//     descriptors = {own...};
//     server.Watch(descriptors, now());
//     poll(descriptors.data(), descriptors.size(), server.TimeoutMs(now()));
//     server.Serve(now());
//   }
#pragma once

#include <poll.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "host/Descriptor.h"
#include "host/Types.h"
#include "host/control/Message.h"

namespace Host::Control {

// One request a connection. A peer that is slow, silent, or sends what is no request loses its own connection and costs
// no other one anything: nothing here blocks, and each connection has a time limit.
// Lifetime: Open once. The holder of the data folder's lock alone may open one there.
// Threads: one thread; the handler runs on it, inside Serve.
// Effects on disk: DIR/netdb.sock, mode 0600 from its first moment, replaced when it is there already, removed at the
// end.
class Server {
 public:
  using Handler = std::function<Message(const Message& request)>;

  // Of a whole connection.
  static constexpr u64 kTimeLimitMs = 3000;
  static constexpr std::size_t kMaxConnections = 16;
  // What a connection has at least, also when there are kMaxConnections and others wait.
  static constexpr u64 kGraceMs = 500;
  // When the system has no descriptor for a connection.
  static constexpr u64 kRetryMs = 1000;

  explicit Server(Handler handler) : handler_(std::move(handler)) {}
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // False with a sentence in `error`.
  bool Open(const std::string& dataFolder, std::string& error);
  // Appends what to wait for.
  void Watch(std::vector<pollfd>& descriptors, u64 nowMs) const;
  // How long to wait at most; -1 for ever.
  [[nodiscard]] int TimeoutMs(u64 nowMs) const;
  // Does what can be done without waiting. `nowMs` never runs backwards.
  void Serve(u64 nowMs);
  [[nodiscard]] std::size_t Connections() const { return connections_.size(); }

 private:
  struct Connection {
    Descriptor socket;
    u64 sinceMs = 0;
    std::string received;
    std::string reply;  // not empty: the request is answered
    std::size_t sent = 0;
  };

  bool Bind(const std::string& dataFolder);
  void Accept(u64 nowMs);
  // Whether there is a place for another connection, if only one that is taken from the oldest.
  [[nodiscard]] bool Accepts(u64 nowMs) const;
  // Each gives false when the connection is over.
  bool Advance(Connection& connection);
  bool Receive(Connection& connection);
  static bool Send(Connection& connection);

  Handler handler_;
  std::string path_;
  Descriptor listener_;
  std::list<Connection> connections_;  // the oldest first
  u64 acceptAgainMs_ = 0;
};

}  // namespace Host::Control
