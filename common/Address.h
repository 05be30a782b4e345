// IPv4 and IPv6: raw addresses, first octet first, ordered byte by byte.
#pragma once

#include <cstring>

#include "Velmar/Types.h"

namespace RYL::NetDB {

// `Raw`, the integer that holds the bytes as they lie in memory, is what address conversions and caches use.
template <class RawType>
struct AddressBytes {
  using Raw = RawType;
  static constexpr u32 kSize = sizeof(Raw);

  u8 bytes[kSize] = {};

  static AddressBytes FromRaw(const Raw& raw) {
    AddressBytes address;
    std::memcpy(address.bytes, &raw, kSize);
    return address;
  }
  [[nodiscard]] Raw ToRaw() const {
    Raw raw;
    std::memcpy(&raw, bytes, kSize);
    return raw;
  }
  [[nodiscard]] int Compare(const AddressBytes& other) const { return std::memcmp(bytes, other.bytes, kSize); }
  bool operator<(const AddressBytes& other) const { return Compare(other) < 0; }
  bool operator>(const AddressBytes& other) const { return Compare(other) > 0; }
  bool operator==(const AddressBytes& other) const { return Compare(other) == 0; }
  bool operator!=(const AddressBytes& other) const { return Compare(other) != 0; }
};

using IPv4 = AddressBytes<u32>;
using IPv6 = AddressBytes<Velmar::Types::UInt128>;

}  // namespace RYL::NetDB
