#include "host/control/Server.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "host/control/SocketAddress.h"

namespace Host::Control {
namespace {

constexpr int kWaitingConnections = 64;
constexpr std::size_t kChunk = 16 * 1024;

std::string RefusalOf(const Decoding& decoding) {
  switch (decoding.result) {
    case Decoded::kOtherVersion:
      return "this daemon speaks version " + std::to_string(kVersion) +
             " of the control protocol, and the request has version " + std::to_string(decoding.version);
    case Decoded::kUnknownKind:
      return "there is no request " + std::to_string(static_cast<u16>(decoding.message.kind));
    case Decoded::kTooLong:
      return "a request may have " + std::to_string(kMaxRequest) + " bytes";
    default:
      return "there is more than one request on the connection";
  }
}

bool WouldBlock() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

Server::~Server() {
  if (!path_.empty()) {
    unlink(path_.c_str());
  }
}

bool Server::Open(const std::string& dataFolder, std::string& error) {
  const std::string path = SocketPath(dataFolder);
  struct stat status = {};
  if (lstat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) {
    error = path + " is in the way: it is no socket";
    return false;
  }
  // Its daemon is gone, for the lock of the folder is ours.
  unlink(path.c_str());
  if (!Bind(dataFolder)) {
    error = "cannot make the control socket " + path + ": " + std::strerror(errno);
    return false;
  }
  path_ = path;
  return true;
}

bool Server::Bind(const std::string& dataFolder) {
  Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  SocketAddress address;
  // The file gets the mode that the socket has when it is bound.
  if (!listener.IsOpen() || fchmod(listener.Get(), 0600) != 0 || !address.Open(dataFolder) ||
      bind(listener.Get(), address.Get(), SocketAddress::Size()) != 0 ||
      listen(listener.Get(), kWaitingConnections) != 0) {
    return false;
  }
  listener_ = std::move(listener);
  return true;
}

bool Server::Accepts(u64 nowMs) const {
  const bool hasPlace = connections_.size() < kMaxConnections || nowMs - connections_.front().sinceMs >= kGraceMs;
  return hasPlace && nowMs >= acceptAgainMs_;
}

void Server::Watch(std::vector<pollfd>& descriptors, u64 nowMs) const {
  if (listener_.IsOpen() && Accepts(nowMs)) {
    descriptors.push_back({listener_.Get(), POLLIN, 0});
  }
  for (const Connection& connection : connections_) {
    const short events = connection.reply.empty() ? POLLIN : POLLOUT;
    descriptors.push_back({connection.socket.Get(), events, 0});
  }
}

int Server::TimeoutMs(u64 nowMs) const {
  u64 nextMs = ~u64{0};
  if (acceptAgainMs_ > nowMs) {
    nextMs = acceptAgainMs_;
  }
  if (!connections_.empty()) {
    const u64 limitMs = connections_.size() < kMaxConnections || Accepts(nowMs) ? kTimeLimitMs : kGraceMs;
    nextMs = std::min(nextMs, connections_.front().sinceMs + limitMs);
  }
  if (nextMs == ~u64{0}) {
    return -1;
  }
  return nextMs <= nowMs ? 0 : static_cast<int>(nextMs - nowMs);
}

void Server::Serve(u64 nowMs) {
  // What came while a handler took its time is still served.
  connections_.remove_if([this](Connection& connection) { return !Advance(connection); });
  connections_.remove_if([nowMs](const Connection& connection) { return nowMs - connection.sinceMs >= kTimeLimitMs; });
  Accept(nowMs);
}

void Server::Accept(u64 nowMs) {
  while (listener_.IsOpen() && Accepts(nowMs)) {
    Descriptor socket(accept4(listener_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket.IsOpen()) {
      if (!WouldBlock() && errno != ECONNABORTED) {
        acceptAgainMs_ = nowMs + kRetryMs;
      }
      return;
    }
    if (connections_.size() == kMaxConnections) {
      connections_.pop_front();
    }
    Connection connection;
    connection.socket = std::move(socket);
    connection.sinceMs = nowMs;
    if (Advance(connection)) {
      connections_.push_back(std::move(connection));
    }
  }
}

bool Server::Advance(Connection& connection) {
  if (connection.reply.empty() && !Receive(connection)) {
    return false;
  }
  return connection.reply.empty() || Send(connection);
}

bool Server::Receive(Connection& connection) {
  std::array<char, kChunk> chunk;
  while (connection.reply.empty()) {
    const ssize_t size = recv(connection.socket.Get(), chunk.data(), chunk.size(), 0);
    if (size <= 0) {
      return size < 0 && WouldBlock();
    }
    connection.received.append(chunk.data(), static_cast<std::size_t>(size));
    const Decoding decoding = Decode(connection.received, Sender::kClient);
    if (decoding.result == Decoded::kForeign) {
      return false;
    }
    if (decoding.result != Decoded::kIncomplete) {
      const bool isRequest = decoding.result == Decoded::kMessage;
      connection.reply = Encode(isRequest ? handler_(decoding.message) : Refusal(RefusalOf(decoding)));
      if (connection.reply.empty()) {
        connection.reply = Encode(Refusal("the answer is longer than a reply may be"));
      }
    }
  }
  return true;
}

bool Server::Send(Connection& connection) {
  while (connection.sent < connection.reply.size()) {
    const ssize_t size = send(connection.socket.Get(), connection.reply.data() + connection.sent,
                              connection.reply.size() - connection.sent, MSG_NOSIGNAL);
    if (size < 0) {
      return WouldBlock();
    }
    connection.sent += static_cast<std::size_t>(size);
  }
  return false;
}

}  // namespace Host::Control
