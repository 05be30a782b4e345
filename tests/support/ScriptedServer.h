// ScriptedServer: a server on the loopback interface that does to each connection what a test's script says.
//
//   ScriptedServer server([](Peer& peer) {
//     peer.ReadRequest();
//     peer.Send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n[]");
//   });
//   ... "http://127.0.0.1:" + std::to_string(server.Port()) ...
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// One connection, in the clear or under TLS.
class Peer {
 public:
  virtual ~Peer() = default;
  // Bytes of a whole request, by its Content-Length; what came until then when the connection ended before. The server
  // keeps it for Requests.
  std::string ReadRequest();
  // False when the other side is gone.
  virtual bool Send(const std::string& bytes) = 0;
  // Returns when the other side has closed.
  void WaitForEnd();

 protected:
  // At most `size` bytes; 0 at the end.
  virtual std::size_t Read(char* bytes, std::size_t size) = 0;

 private:
  friend class ScriptedServer;
  class ScriptedServer* server_ = nullptr;
};

// A certificate and its key, PEM, on disk.
struct ServerIdentity {
  std::string certificatePath;
  std::string keyPath;
};
// Makes a self-signed one for that DNS name or IPv4 address, in `folder`.
ServerIdentity MakeIdentity(const std::string& folder, const std::string& name);

// Serves from construction to destruction, one connection after the other, on a thread of its own. The destructor waits
// for the script that runs: one that waits for the other side's end needs that to have come.
class ScriptedServer {
 public:
  using Script = std::function<void(Peer& peer)>;

  // With an identity it talks TLS; a handshake that fails is no connection for the script.
  explicit ScriptedServer(Script script, const ServerIdentity* identity = nullptr);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] int Port() const { return port_; }
  [[nodiscard]] std::vector<std::string> Requests() const;
  // Handshakes tried and connections taken.
  [[nodiscard]] int Connections() const;

 private:
  friend class Peer;
  struct Tls;

  void Serve();
  void ServeOne(int descriptor);

  Script script_;
  std::unique_ptr<Tls> tls_;
  int port_ = 0;  // before the listener, which finds it
  int listener_ = -1;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  int connections_ = 0;
  std::thread thread_;
};

// A port of the loopback interface where nobody listens.
int UnusedPort();

// A reply with a body and its length.
std::string HttpReply(const std::string& body, const std::string& status = "200 OK", const std::string& headers = "");
