// SockDiag: this network namespace's TCP sockets, over the kernel's socket diagnosis.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/capture/TcpSocket.h"

namespace Host::Capture {

// Needs no privilege. Threads: thread-compatible.
// Errors: false with a sentence in `error`.
class SockDiag {
 public:
  SockDiag() = default;
  ~SockDiag();
  SockDiag(const SockDiag&) = delete;
  SockDiag& operator=(const SockDiag&) = delete;

  bool Open(std::string& error);
  // All TCP sockets of both families, listening and closing ones included.
  bool Dump(std::vector<TcpSocket>& sockets, std::string& error);
  // Readable when sockets were destroyed.
  [[nodiscard]] int DestroyDescriptor() const { return destroyed_; }
  // Appends the sockets destroyed since the last call, without blocking. `lost` is set when the kernel had to drop
  // notices.
  bool ReadDestroyed(std::vector<TcpSocket>& sockets, bool& lost, std::string& error);

 private:
  int query_ = -1;
  int destroyed_ = -1;
  unsigned sequence_ = 0;
};

// Appends the sockets of a run of netlink messages. `done` is set by the end mark of a dump. False when the kernel
// reports an error (in `errorNumber`) or the bytes are not whole messages.
bool ParseDiagMessages(const unsigned char* data, std::size_t size, std::vector<TcpSocket>& sockets, bool& done,
                       int& errorNumber);

}  // namespace Host::Capture
