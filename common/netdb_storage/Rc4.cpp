#include "common/netdb_storage/Rc4.h"

#include <utility>

namespace RYL::NetDB::Rc4 {

void Start(u8 (&state)[256], const u8 (&key)[kKeySize]) {
  for (u32 i = 0; i < 256; ++i) {
    state[i] = static_cast<u8>(i);
  }
  u32 j = 0;
  for (u32 i = 0; i < 256; ++i) {
    j = (j + key[i & (kKeySize - 1)] + state[i]) & 0xFF;
    std::swap(state[i], state[j]);
  }
}

void Apply(u8 (&state)[256], const u8* in, u32 size, u8* out) {
  u32 i = 0;
  u32 j = 0;
  for (u32 at = 0; at < size; ++at) {
    i = (i + 1) & 0xFF;
    const u8 low = state[i];
    j = (j + low) & 0xFF;
    const u8 high = state[j];
    state[i] = high;
    state[j] = low;
    out[at] = static_cast<u8>(in[at] ^ state[static_cast<u8>(low + high)]);
  }
}

}  // namespace RYL::NetDB::Rc4
