#include "host/control/Client.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>

#include "host/Descriptor.h"
#include "host/control/SocketAddress.h"

namespace Host::Control {
namespace {

constexpr std::size_t kChunk = 16 * 1024;
// Between two tries to connect to a daemon that has no place.
constexpr u64 kConnectAgainMs = 20;

// Printed with indents, an answer of brackets alone would take space by the square of their number.
constexpr u32 kMaxDepth = 16;

// Of a text that is JSON.
bool IsTooDeep(std::string_view json) {
  u32 depth = 0;
  bool isString = false;
  for (std::size_t at = 0; at < json.size() && depth <= kMaxDepth; ++at) {
    const char c = json[at];
    if (isString && c == '\\') {
      ++at;
    } else if (c == '"') {
      isString = !isString;
    } else if (!isString) {
      depth += c == '[' || c == '{' ? 1 : 0;
      depth -= c == ']' || c == '}' ? 1 : 0;
    }
  }
  return depth > kMaxDepth;
}

Reply Failed(const std::string& text) {
  return {Outcome::kFailed, text};
}

// One request and its reply.
class Conversation {
 public:
  Conversation(std::string dataFolder, const Waiting& waiting)
      : path_(SocketPath(dataFolder)),
        dataFolder_(std::move(dataFolder)),
        waiting_(waiting),
        endMs_(waiting.nowMs() + kAnswerLimitMs) {}

  Reply Run(Kind request) {
    Reply reply;
    if (!Connect(reply) || !Send(Encode({request, {}}), reply)) {
      return reply;
    }
    return Receive();
  }

 private:
  // False when the time is over.
  bool Wait(short events, u64 atMostMs) {
    const u64 nowMs = waiting_.nowMs();
    if (nowMs >= endMs_) {
      return false;
    }
    std::vector<pollfd> descriptors;
    if (events != 0) {
      descriptors.push_back({socket_.Get(), events, 0});
    }
    waiting_.wait(descriptors, static_cast<int>(std::min(endMs_ - nowMs, atMostMs)));
    return true;
  }

  bool Connect(Reply& failure) {
    SocketAddress address;
    if (!address.Open(dataFolder_)) {
      failure = NotConnected();
      return false;
    }
    socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    while (connect(socket_.Get(), address.Get(), SocketAddress::Size()) != 0) {
      if (errno != EAGAIN && errno != EINTR) {
        failure = NotConnected();
        return false;
      }
      if (!Wait(0, kConnectAgainMs)) {
        failure = TimeIsOver();
        return false;
      }
    }
    return true;
  }

  bool Send(const std::string& bytes, Reply& failure) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t size = send(socket_.Get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (size >= 0) {
        sent += static_cast<std::size_t>(size);
      } else if (errno != EAGAIN && errno != EINTR) {
        // It may have sent a reply before it closed.
        return true;
      } else if (!Wait(POLLOUT, kAnswerLimitMs)) {
        failure = TimeIsOver();
        return false;
      }
    }
    return true;
  }

  Reply Receive() {
    std::string received;
    std::array<char, kChunk> chunk;
    for (;;) {
      const ssize_t size = recv(socket_.Get(), chunk.data(), chunk.size(), 0);
      if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
        return Failed("the daemon closed the connection without an answer");
      }
      if (size < 0) {
        if (!Wait(POLLIN, kAnswerLimitMs)) {
          return TimeIsOver();
        }
        continue;
      }
      received.append(chunk.data(), static_cast<std::size_t>(size));
      const Decoding decoding = Decode(received, Sender::kDaemon);
      if (decoding.result != Decoded::kIncomplete) {
        return Understand(decoding);
      }
    }
  }

  [[nodiscard]] Reply NotConnected() const {
    if (errno == ENOENT || errno == ECONNREFUSED || errno == ENOTDIR) {
      return {Outcome::kNoDaemon, "no daemon is running on " + dataFolder_};
    }
    return Failed("cannot reach the daemon by " + path_ + ": " + std::strerror(errno));
  }

  static Reply TimeIsOver() {
    return Failed("the daemon did not answer within " + std::to_string(kAnswerLimitMs / 1000) + " seconds");
  }

  static Reply Understand(const Decoding& decoding) {
    switch (decoding.result) {
      case Decoded::kMessage:
        break;
      case Decoded::kOtherVersion:
        return Failed("the daemon speaks version " + std::to_string(decoding.version) +
                      " of the control protocol, and this program version " + std::to_string(kVersion) +
                      "; use the netdb that the daemon runs");
      default:
        return Failed("the daemon's answer is not understood");
    }
    const auto body = nlohmann::json::parse(decoding.message.text, nullptr, false);
    if (!body.is_object() || IsTooDeep(decoding.message.text)) {
      return Failed("the daemon's answer is not understood");
    }
    if (decoding.message.kind == Kind::kAnswer) {
      return {Outcome::kAnswer, decoding.message.text};
    }
    const auto error = body.find("error");
    return error != body.end() && error->is_string() ? Reply{Outcome::kRefused, error->get<std::string>()}
                                                     : Failed("the daemon's answer is not understood");
  }

  std::string path_;
  std::string dataFolder_;
  const Waiting& waiting_;
  u64 endMs_;
  Descriptor socket_;
};

}  // namespace

Waiting Waiting::Real() {
  Waiting waiting;
  waiting.nowMs = [] {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<u64>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
  };
  waiting.wait = [](std::vector<pollfd>& descriptors, int timeoutMs) {
    return poll(descriptors.data(), descriptors.size(), timeoutMs);
  };
  return waiting;
}

Reply Ask(const std::string& dataFolder, Kind request, const Waiting& waiting) {
  return Conversation(dataFolder, waiting).Run(request);
}

}  // namespace Host::Control
