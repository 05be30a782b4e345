#include "Velmar/Hashes/GenericHash.h"

#include <cstring>

namespace Velmar::Hashes {

bool GenericHash::ComputeFromBuffer(const void* data, u32 size) {
  return Init() && Update(data, size) && Final();
}

bool GenericHash::ComputeFromString(const char* text, u32 length) {
  if (text == nullptr) {
    return false;
  }
  if (length != kNone) {
    return ComputeFromBuffer(text, length);
  }
  const std::size_t found = std::strlen(text);
  return found < kNone && ComputeFromBuffer(text, static_cast<u32>(found));
}

}  // namespace Velmar::Hashes
