// RC4, the cipher of the day files' blocks, with keys of 16 bytes.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB::Rc4 {

inline constexpr u32 kKeySize = 16;

// Brings `state` to the start of the key stream of `key`.
void Start(u8 (&state)[256], const u8 (&key)[kKeySize]);
// out[n] = in[n] XOR key stream; the two may be the same area. Runs from the start of the stream and uses `state` up.
void Apply(u8 (&state)[256], const u8* in, u32 size, u8* out);

}  // namespace RYL::NetDB::Rc4
