// Fixed-width integer names and the wide unsigned integers that keys and digests use.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Velmar {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i8 = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

// "No location", "no node", "to the end": all ones, wherever a u32 position is returned.
inline constexpr u32 kNone = 0xFFFFFFFFU;

namespace Types {

// An unsigned number of `Words` 64-bit words. Words compare from the first in memory to the last.
template <std::size_t Words>
struct WideUInt {
  u64 words[Words] = {};

  // Negative, 0 or positive: the first differing word decides.
  [[nodiscard]] int Compare(const WideUInt& other) const {
    for (std::size_t i = 0; i < Words; ++i) {
      if (words[i] != other.words[i]) {
        return words[i] < other.words[i] ? -1 : 1;
      }
    }
    return 0;
  }
  bool operator==(const WideUInt& other) const { return Compare(other) == 0; }
  bool operator!=(const WideUInt& other) const { return Compare(other) != 0; }
  bool operator<(const WideUInt& other) const { return Compare(other) < 0; }
  bool operator>(const WideUInt& other) const { return Compare(other) > 0; }
};

using UInt128 = WideUInt<2>;
using UInt256 = WideUInt<4>;

// A 64-byte value of the host's event records; all zero when built from 0.
struct UInt512 : WideUInt<8> {
  UInt512() = default;
  explicit UInt512(int value) { words[0] = static_cast<u64>(static_cast<i64>(value)); }
};

}  // namespace Types
}  // namespace Velmar

namespace RYL {
using Velmar::i16;
using Velmar::i32;
using Velmar::i64;
using Velmar::i8;
using Velmar::kNone;
using Velmar::u16;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
}  // namespace RYL
