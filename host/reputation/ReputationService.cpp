#include "host/reputation/ReputationService.h"

#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "host/Descriptor.h"
#include "host/reputation/Answer.h"

namespace Host::Reputation {
namespace {

constexpr unsigned kThreads = 2;
constexpr unsigned kMaxConnections = 64;
constexpr std::size_t kConnectionMemory = 32 * 1024;  // a request's head and its parts
constexpr unsigned kIdleSeconds = 10;
constexpr int kBacklog = 64;
// What a client may send beyond the limit and still read the answer that says so.
constexpr std::size_t kMaxDiscarded = 16 * kMaxBody;

// A request whose body is coming in.
struct Request {
  unsigned refusal = 0;  // 0: none
  std::string body;
  std::size_t received = 0;

  // False when the connection is to be cut.
  bool Take(const char* bytes, std::size_t size) {
    received += size;
    if (received > kMaxBody && refusal == 0) {
      refusal = MHD_HTTP_CONTENT_TOO_LARGE;
      body = {};
    }
    if (refusal == 0) {
      body.append(bytes, size);
    }
    return received <= kMaxDiscarded;
  }
};

unsigned RefusalOf(const char* path, const char* method) {
  if (std::strcmp(path, kBatchPath) != 0) {
    return MHD_HTTP_NOT_FOUND;
  }
  return std::strcmp(method, MHD_HTTP_METHOD_POST) == 0 ? 0 : MHD_HTTP_METHOD_NOT_ALLOWED;
}

const char* SentenceOf(unsigned refusal) {
  switch (refusal) {
    case MHD_HTTP_NOT_FOUND:
      return "there is only /batch/ip/gtm";
    case MHD_HTTP_METHOD_NOT_ALLOWED:
      return "only POST is answered";
    default:
      return "a request may have 1 MiB";
  }
}

MHD_Result Send(MHD_Connection* connection, const HttpAnswer& answer) {
  MHD_Response* response =
      MHD_create_response_from_buffer(answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) {
    return MHD_NO;
  }
  MHD_Result result = MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
  if (result == MHD_YES) {
    result = MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  }
  if (result == MHD_YES && answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
    result = MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, MHD_HTTP_METHOD_POST);
  }
  if (result == MHD_YES) {
    result = MHD_queue_response(connection, answer.status, response);
  }
  MHD_destroy_response(response);
  return result;
}

// Called with the head, with each part of the body, and once it is whole.
MHD_Result Handle(void* service, MHD_Connection* connection, const char* path, const char* method,
                  const char* /*version*/, const char* bytes, std::size_t* size, void** context) {
  try {
    auto* request = static_cast<Request*>(*context);
    if (request == nullptr) {
      *context = new Request{RefusalOf(path, method), {}, 0};
      return MHD_YES;
    }
    if (*size != 0) {
      const bool goesOn = request->Take(bytes, *size);
      *size = 0;
      return goesOn ? MHD_YES : MHD_NO;
    }
    if (request->refusal != 0) {
      return Send(connection, ErrorAnswer(request->refusal, SentenceOf(request->refusal)));
    }
    const auto harmless = static_cast<const ReputationService*>(service)->InUse();
    return Send(connection, AnswerBatch(request->body, *harmless));
  } catch (const std::exception&) {
    return MHD_NO;  // no memory; nothing may pass through the library's frames
  }
}

void Complete(void* /*service*/, MHD_Connection* /*connection*/, void** context, MHD_RequestTerminationCode /*why*/) {
  delete static_cast<Request*>(*context);
  *context = nullptr;
}

union SocketAddress {
  sockaddr any;
  sockaddr_in v4;
  sockaddr_in6 v6;
};

socklen_t FillSocketAddress(const ListenAddress& where, SocketAddress& out) {
  out = {};
  if (where.address.family == Family::kIPv4) {
    out.v4.sin_family = AF_INET;
    out.v4.sin_port = htons(where.port);
    out.v4.sin_addr.s_addr = htonl(static_cast<u32>(where.address.bits.low));
    return sizeof(out.v4);
  }
  out.v6.sin6_family = AF_INET6;
  out.v6.sin6_port = htons(where.port);
  out.v6.sin6_addr = in6addr_loopback;
  return sizeof(out.v6);
}

// A listening socket and the port that it got; a closed one with the reason in errno.
Descriptor Listen(const ListenAddress& where, u16& port) {
  SocketAddress address;
  socklen_t length = FillSocketAddress(where, address);
  Descriptor socket(::socket(address.any.sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  if (!socket.IsOpen() || setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
      bind(socket.Get(), &address.any, length) != 0 || listen(socket.Get(), kBacklog) != 0 ||
      getsockname(socket.Get(), &address.any, &length) != 0) {
    const int reason = errno;
    socket.Close();
    errno = reason;
    return socket;
  }
  port = ntohs(address.any.sa_family == AF_INET ? address.v4.sin_port : address.v6.sin6_port);
  return socket;
}

std::string HostText(const Address& address) {
  const std::string text = ToText({address.family, address.bits, WidthOf(address.family)});
  const std::string host = text.substr(0, text.find('/'));
  return address.family == Family::kIPv6 ? "[" + host + "]" : host;
}

}  // namespace

ReputationService::ReputationService() : harmless_(std::make_shared<const AddressList>()) {}

ReputationService::~ReputationService() {
  if (daemon_ != nullptr) {
    MHD_stop_daemon(daemon_);
  }
}

void ReputationService::Use(std::shared_ptr<const AddressList> harmless) {
  const std::lock_guard<std::mutex> lock(mutex_);
  harmless_.swap(harmless);
}

std::shared_ptr<const AddressList> ReputationService::InUse() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return harmless_;
}

bool ReputationService::Start(const ListenAddress& where, std::string& error) {
  u16 port = 0;
  Descriptor socket = Listen(where, port);
  if (!socket.IsOpen()) {
    error =
        "cannot listen on " + HostText(where.address) + ":" + std::to_string(where.port) + ": " + std::strerror(errno);
    return false;
  }
  // The library closes the socket.
  daemon_ = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL, 0, nullptr, nullptr, &Handle, this,
                             MHD_OPTION_LISTEN_SOCKET, socket.Release(), MHD_OPTION_NOTIFY_COMPLETED, &Complete,
                             nullptr, MHD_OPTION_THREAD_POOL_SIZE, kThreads, MHD_OPTION_CONNECTION_LIMIT,
                             kMaxConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
                             MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    error = "the HTTP service cannot be started";
    return false;
  }
  url_ = "http://" + HostText(where.address) + ":" + std::to_string(port);
  return true;
}

}  // namespace Host::Reputation
