// ParseHex: digests as text.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB {

// The value of a hex digit of either case, or -1.
constexpr int HexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Reads exactly 2 x `size` digits into `bytes`. False for another length or another character; `bytes` then holds a
// part.
constexpr bool ParseHex(const char* text, Velmar::u8* bytes, Velmar::u32 size) {
  for (Velmar::u32 i = 0; i < size; ++i, text += 2) {
    const int high = HexDigit(text[0]);
    const int low = high < 0 ? -1 : HexDigit(text[1]);
    if (low < 0) {
      return false;
    }
    bytes[i] = static_cast<Velmar::u8>(high * 16 + low);
  }
  return *text == '\0';
}

}  // namespace RYL::NetDB
