#include "host/import/Identity.h"

#include <cstring>

#include "Velmar/Hashes/SHA256.h"

namespace Host::Import {

u64 UniqueIdOf(const std::string& text) {
  Velmar::Hashes::SHA256 hash;
  u64 id = 0;
  if (hash.ComputeFromBuffer(text.data(), static_cast<u32>(text.size()))) {
    std::memcpy(&id, hash.GetDigest(), sizeof(id));
  }
  return id;
}

}  // namespace Host::Import
