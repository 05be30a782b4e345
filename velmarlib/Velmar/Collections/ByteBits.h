// ByteBits: tables over a byte, for walking the bits that are set.
//
//   for (u8 bits = mask; bits != 0; bits = kWithoutLowestBit[bits]) Visit(kLowestSetBit[bits]);
#pragma once

#include "Velmar/Types.h"

namespace Velmar::Collections {

struct ByteTable {
  u8 values[256] = {};

  constexpr u8 operator[](u8 byte) const { return values[byte]; }
};

consteval ByteTable MakeLowestSetBit() {
  ByteTable table;
  for (u32 byte = 0; byte < 256; ++byte) {
    u8 bit = 0;
    while (bit < 8 && (byte >> bit & 1) == 0) {
      ++bit;
    }
    table.values[byte] = bit;
  }
  return table;
}

consteval ByteTable MakeWithoutLowestBit() {
  ByteTable table;
  for (u32 byte = 1; byte < 256; ++byte) {
    table.values[byte] = static_cast<u8>(byte & (byte - 1));
  }
  return table;
}

// Number of the lowest bit that is set, 8 for 0.
inline constexpr ByteTable kLowestSetBit = MakeLowestSetBit();
// The byte with that bit cleared.
inline constexpr ByteTable kWithoutLowestBit = MakeWithoutLowestBit();

}  // namespace Velmar::Collections
