// IPv4 and IPv6: raw addresses, first octet first, ordered byte by byte.
#pragma once

#include <bit>
#include <cstring>
#include <type_traits>

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
  // Negative, 0 or positive. The first octet weighs most, so whole words compare as big-endian numbers.
  [[nodiscard]] int Compare(const AddressBytes& other) const {
    for (u32 at = 0; at < kSize; at += sizeof(Word)) {
      const Word mine = WordAt(at);
      const Word its = other.WordAt(at);
      if (mine != its) {
        return mine < its ? -1 : 1;
      }
    }
    return 0;
  }
  bool operator<(const AddressBytes& other) const { return Compare(other) < 0; }
  bool operator>(const AddressBytes& other) const { return Compare(other) > 0; }
  bool operator==(const AddressBytes& other) const { return Compare(other) == 0; }
  bool operator!=(const AddressBytes& other) const { return Compare(other) != 0; }

 private:
  using Word = std::conditional_t<kSize % sizeof(u64) == 0, u64, u32>;
  static_assert(kSize % sizeof(Word) == 0);

  [[nodiscard]] Word WordAt(u32 at) const {
    Word word;
    std::memcpy(&word, bytes + at, sizeof(word));
    if constexpr (std::endian::native == std::endian::big) {
      return word;
    } else if constexpr (sizeof(word) == sizeof(u64)) {
      return __builtin_bswap64(word);
    } else {
      return __builtin_bswap32(word);
    }
  }
};

using IPv4 = AddressBytes<u32>;
using IPv6 = AddressBytes<Velmar::Types::UInt128>;

}  // namespace RYL::NetDB
