// HashKind: the names of query kinds and columns as numbers.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB {

// FNV-1a with 32 bits (G. Fowler, L. C. Noll, K.-P. Vo; http://www.isthe.com/chongo/tech/comp/fnv) over the bytes of
// `text`, A to Z folded to lower case.
constexpr Velmar::u32 HashKind(const char* text) {
  constexpr Velmar::u32 kOffsetBasis = 0x811C9DC5;
  constexpr Velmar::u32 kPrime = 0x01000193;
  Velmar::u32 hash = kOffsetBasis;
  for (; *text != '\0'; ++text) {
    const auto byte = static_cast<Velmar::u8>(*text);
    const bool isUpper = byte >= 'A' && byte <= 'Z';
    hash = (hash ^ (isUpper ? byte - 'A' + 'a' : byte)) * kPrime;
  }
  return hash;
}

}  // namespace RYL::NetDB
