// AddressFilter: which remote addresses are worth a row.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Module {

// Addresses hold the first octet in the first byte, the low one here.
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

// 169.254/16 and 127/8.
constexpr bool IsLinkLocalOrLoopback(u32 address) {
  const u32 a = FirstOctet(address);
  return (a == 169 && SecondOctet(address) == 254) || a == 127;
}

// A private address that is to be kept passes without any further test.
constexpr bool PassesAddressFilter(u32 address, bool keepPrivate) {
  return IsPrivateAddress(address) ? keepPrivate : !IsLinkLocalOrLoopback(address);
}

}  // namespace RYL::Module
