// AddressFilter: which remote addresses are worth a row, as far as the address itself tells.
#pragma once

#include "Velmar/Types.h"
#include "common/PrivateAddress.h"

namespace RYL::Module {

using NetDB::FirstOctet;
using NetDB::IsPrivateAddress;
using NetDB::SecondOctet;

// 169.254/16 and 127/8.
constexpr bool IsLinkLocalOrLoopback(u32 address) {
  const u32 a = FirstOctet(address);
  return (a == 169 && SecondOctet(address) == 254) || a == 127;
}

// By the address alone. A private address that is to be kept needs no further test.
constexpr bool PassesAddressFilter(u32 address, bool keepPrivate) {
  return IsPrivateAddress(address) ? keepPrivate : !IsLinkLocalOrLoopback(address);
}

}  // namespace RYL::Module
