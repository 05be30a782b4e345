// SocketAddress: where the control socket of a data folder is, in a form that fits an address.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "host/Descriptor.h"

namespace Host::Control {

// DIR/netdb.sock.
std::string SocketPath(const std::string& dataFolder);

// An address has room for 107 characters only, and a data folder may have more. A longer path is named by way of
// /proc/self/fd and the open folder, so the address is good while this object lives, in this process.
class SocketAddress {
 public:
  // False, with errno, when the folder cannot be opened.
  bool Open(const std::string& dataFolder);
  [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  [[nodiscard]] static socklen_t Size() { return sizeof(sockaddr_un); }

 private:
  Descriptor folder_;
  sockaddr_un address_ = {};
};

}  // namespace Host::Control
