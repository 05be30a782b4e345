// Which addresses belong to private networks.
#pragma once

#include "Velmar/Types.h"
#include "common/Address.h"

namespace RYL::NetDB {

// Raw IPv4 addresses hold the first octet in the first byte, the low one here.
constexpr u32 FirstOctet(u32 address) {
  return address & 0xFF;
}
constexpr u32 SecondOctet(u32 address) {
  return (address >> 8) & 0xFF;
}

// 10/8, 172.16/12, 192.168/16.
constexpr bool IsPrivateAddress(u32 address) {
  const u32 a = FirstOctet(address);
  const u32 b = SecondOctet(address);
  return a == 10 || (a == 172 && (b & 0xF0) == 16) || (a == 192 && b == 168);
}
inline bool IsPrivateAddress(const IPv4& address) {
  return IsPrivateAddress(address.ToRaw());
}

// fc00::/7.
inline bool IsPrivateAddress(const IPv6& address) {
  return (address.bytes[0] & 0xFE) == 0xFC;
}

}  // namespace RYL::NetDB
