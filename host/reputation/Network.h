// Network: an address or a block of addresses of either family, and its text forms.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/Types.h"

namespace Host::Reputation {

// An address as a number, first octet highest. IPv4 has the lowest 32 bits.
struct Bits {
  u64 high = 0;
  u64 low = 0;

  friend bool operator==(const Bits& a, const Bits& b) { return a.high == b.high && a.low == b.low; }
  friend bool operator<(const Bits& a, const Bits& b) { return a.high != b.high ? a.high < b.high : a.low < b.low; }
};

enum class Family { kIPv4, kIPv6 };
// Bits of an address.
u32 WidthOf(Family family);

struct Address {
  Family family = Family::kIPv4;
  Bits bits;
};

struct Network {
  Family family = Family::kIPv4;
  Bits first;
  u32 prefixLength = 0;

  [[nodiscard]] Bits Last() const;
};

// An address alone; no zone, no blanks. Thread-safe, as all here.
std::optional<Address> ReadAddress(std::string_view text);
// "192.0.2.0/24", "2001:db8::/32", or an address, which is a network of one. Bits behind the prefix are cut off, and
// `hadHostBits` says that there were some; it is false for what is no network.
std::optional<Network> ReadNetwork(std::string_view text, bool& hadHostBits);
std::string ToText(const Network& network);

}  // namespace Host::Reputation
