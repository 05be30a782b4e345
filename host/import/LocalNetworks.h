// LocalNetworks: which addresses of a recorded log are the local side.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Types.h"

namespace Host::Import {

// First octet first.
using Address = std::array<u8, 4>;

enum class AddressKind { kIPv4, kIPv6, kNone };
// Reads an address in text form. `address` is written for kIPv4 only.
AddressKind ReadAddress(const std::string& text, Address& address);

// Threads: thread-compatible.
class LocalNetworks {
 public:
  // The private (10/8, 172.16/12, 192.168/16), loopback (127/8) and link-local (169.254/16) ones.
  static LocalNetworks Usual();
  // Comma-separated addresses and networks such as "192.0.2.7,198.51.100.0/24". Nothing, with a sentence in `error`,
  // for anything else.
  static std::optional<LocalNetworks> Parse(const std::string& list, std::string& error);

  [[nodiscard]] bool Contains(const Address& address) const;

 private:
  struct Network {
    u32 value;  // first octet highest
    u32 mask;
  };

  void Add(const Address& address, u32 prefixLength);

  std::vector<Network> networks_;
};

}  // namespace Host::Import
