// HashArea: how a hash that runs outside its object lies in a caller's memory.
#pragma once

#include <cstring>

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace Velmar::Hashes {

// The running state, then the digest and its hex text once there are any. The memory needs no alignment. A view: it
// owns nothing, and copies see the same memory.
template <class State, u32 DigestSize>
class HashArea {
 public:
  static constexpr u32 kHexSize = 2 * DigestSize + 1;
  static constexpr u32 kSize = sizeof(State) + DigestSize + kHexSize;

  HashArea(void* area, u32 areaSize) : bytes_(areaSize < kSize ? nullptr : static_cast<u8*>(area)) {}

  // False for an area that is null or too small; nothing else may be asked of it then.
  [[nodiscard]] bool IsUsable() const { return bytes_ != nullptr; }

  // Starts with `state` and a digest of zeroes.
  void Begin(State state) {
    std::memset(bytes_, 0, kSize);
    SetState(state);
  }
  [[nodiscard]] State GetState() const {
    State state;
    std::memcpy(&state, bytes_, sizeof(state));
    return state;
  }
  void SetState(State state) { std::memcpy(bytes_, &state, sizeof(state)); }
  [[nodiscard]] u8* Digest() const { return bytes_ + sizeof(State); }
  const char* WriteHex(bool upperCase) {
    char* hex = reinterpret_cast<char*>(Digest() + DigestSize);
    Utils::String::BufferToHex(Digest(), DigestSize, hex, kHexSize, upperCase, false);
    return hex;
  }

 private:
  u8* bytes_;
};

}  // namespace Velmar::Hashes
