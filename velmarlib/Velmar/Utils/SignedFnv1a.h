// SignedFnv1a: a 64-bit hash of bytes, FNV-1a but for one step.
#pragma once

#include "Velmar/Types.h"

namespace Velmar::Utils {

// FNV is by Glenn Fowler, Landon Curt Noll and Kiem-Phong Vo, described in the Internet draft
// draft-eastlake-fnv, "The FNV Non-Cryptographic Hash Algorithm". The difference: here a byte is a signed char,
// extended to 64 bits before the XOR, so that a byte of 0x80 or above flips the top 56 bits too. Texts of ASCII hash as
// published; others do not. Indexes are not stored, so the hash may depend on the machine's byte order.
inline u64 SignedFnv1a(const void* data, std::size_t size) {
  constexpr u64 kOffsetBasis = 0xCBF29CE484222325U;
  constexpr u64 kPrime = 0x100000001B3U;
  const auto* bytes = static_cast<const i8*>(data);
  u64 hash = kOffsetBasis;
  for (std::size_t i = 0; i < size; ++i) {
    hash = (hash ^ static_cast<u64>(i64{bytes[i]})) * kPrime;
  }
  return hash;
}

}  // namespace Velmar::Utils
