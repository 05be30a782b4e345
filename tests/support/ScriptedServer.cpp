#include "tests/support/ScriptedServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace {

class PlainPeer final : public Peer {
 public:
  explicit PlainPeer(int descriptor) : descriptor_(descriptor) {}
  bool Send(const std::string& bytes) override {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t done = send(descriptor_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (done <= 0) {
        return false;
      }
      sent += static_cast<std::size_t>(done);
    }
    return true;
  }

 protected:
  std::size_t Read(char* bytes, std::size_t size) override {
    const ssize_t done = recv(descriptor_, bytes, size, 0);
    return done > 0 ? static_cast<std::size_t>(done) : 0;
  }

 private:
  int descriptor_;
};

class TlsPeer final : public Peer {
 public:
  explicit TlsPeer(SSL* connection) : connection_(connection) {}
  ~TlsPeer() override { SSL_shutdown(connection_); }
  bool Send(const std::string& bytes) override {
    return SSL_write(connection_, bytes.data(), static_cast<int>(bytes.size())) > 0;
  }

 protected:
  std::size_t Read(char* bytes, std::size_t size) override {
    const int done = SSL_read(connection_, bytes, static_cast<int>(size));
    return done > 0 ? static_cast<std::size_t>(done) : 0;
  }

 private:
  SSL* connection_;
};

// 127.0.0.1 and any port; -1 when there is none.
int BoundSocket(int& port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
  port = ntohs(address.sin_port);
  return descriptor;
}

}  // namespace

std::string Peer::ReadRequest() {
  std::string text;
  std::size_t wanted = std::string::npos;
  char bytes[4096];
  while (text.size() < wanted) {
    const std::size_t size = Read(bytes, sizeof(bytes));
    if (size == 0) {
      break;
    }
    text.append(bytes, size);
    const std::size_t end = text.find("\r\n\r\n");
    if (wanted == std::string::npos && end != std::string::npos) {
      const std::size_t at = text.find("Content-Length: ");
      wanted = end + 4 + (at < end ? std::strtoul(text.c_str() + at + 16, nullptr, 10) : 0);
    }
  }
  const std::lock_guard<std::mutex> lock(server_->mutex_);
  server_->requests_.push_back(text);
  return text;
}

void Peer::WaitForEnd() {
  char bytes[4096];
  while (Read(bytes, sizeof(bytes)) > 0) {
  }
}

struct ScriptedServer::Tls {
  explicit Tls(const ServerIdentity& identity) : context(SSL_CTX_new(TLS_server_method())) {
    EXPECT_EQ(SSL_CTX_use_certificate_file(context, identity.certificatePath.c_str(), SSL_FILETYPE_PEM), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context, identity.keyPath.c_str(), SSL_FILETYPE_PEM), 1);
  }
  ~Tls() { SSL_CTX_free(context); }
  Tls(const Tls&) = delete;
  Tls& operator=(const Tls&) = delete;

  SSL_CTX* context;
};

ScriptedServer::ScriptedServer(Script script, const ServerIdentity* identity)
    : script_(std::move(script)),
      tls_(identity == nullptr ? nullptr : std::make_unique<Tls>(*identity)),
      listener_(BoundSocket(port_)) {
  EXPECT_EQ(listen(listener_, 16), 0);
  thread_ = std::thread(&ScriptedServer::Serve, this);
}

ScriptedServer::~ScriptedServer() {
  shutdown(listener_, SHUT_RDWR);  // ends the accept
  thread_.join();
  close(listener_);
}

std::vector<std::string> ScriptedServer::Requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

int ScriptedServer::Connections() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return connections_;
}

void ScriptedServer::Serve() {
  // Clients leave when they like, and TLS then writes into a broken pipe.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  for (int descriptor = -1; (descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(descriptor)) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++connections_;
    }
    ServeOne(descriptor);
  }
}

void ScriptedServer::ServeOne(int descriptor) {
  if (tls_ == nullptr) {
    PlainPeer peer(descriptor);
    peer.server_ = this;
    script_(peer);
    return;
  }
  const std::unique_ptr<SSL, void (*)(SSL*)> connection(SSL_new(tls_->context), &SSL_free);
  SSL_set_fd(connection.get(), descriptor);
  if (SSL_accept(connection.get()) == 1) {
    TlsPeer peer(connection.get());
    peer.server_ = this;
    script_(peer);
  }
}

int UnusedPort() {
  int port = 0;
  close(BoundSocket(port));
  return port;
}

std::string HttpReply(const std::string& body, const std::string& status, const std::string& headers) {
  return "HTTP/1.1 " + status + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}
