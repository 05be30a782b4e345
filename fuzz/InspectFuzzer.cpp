// Any bytes as a store file under inspection, as they are and with their checksums made right.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Velmar/Hashes/CRC32.h"
#include "host/inspect/StoreInspector.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Host::u32;

u32 WordAt(const Bytes& bytes, std::size_t at) {
  u32 value = 0;
  if (at + sizeof(value) <= bytes.size()) {
    std::memcpy(&value, bytes.data() + at, sizeof(value));
  }
  return value;
}

// Writes the CRC of `size` bytes from `from` at `at`, as far as all that is there.
void Seal(Bytes& bytes, std::size_t from, std::size_t size, std::size_t at) {
  if (from > bytes.size() || size > bytes.size() - from || at > bytes.size() || bytes.size() - at < sizeof(u32)) {
    return;
  }
  Velmar::Hashes::CRC32 crc;
  crc.ComputeFromBuffer(bytes.data() + from, static_cast<u32>(size));
  const u32 value = crc.GetValue();
  std::memcpy(bytes.data() + at, &value, sizeof(value));
}

// A block starts with its CRC; its first size says how long its payload is.
void SealBlock(Bytes& bytes, std::size_t position, u32 fileFlags) {
  const std::size_t sizes = 1 + ((fileFlags & 4) != 0 ? 1 : 0) + ((fileFlags & 8) == 0 ? 1 : 0);
  Seal(bytes, position + 4, sizes * 4 + WordAt(bytes, position + 4), position);
}

// Mutations get past the checksums only when these are made right again.
void SealAll(Bytes& bytes) {
  if (bytes.size() < 40) {
    return;
  }
  std::copy_n("RYLB", 4, bytes.begin());
  const u32 flags = WordAt(bytes, 16);
  const std::size_t blob = WordAt(bytes, 28);
  SealBlock(bytes, 40 + std::min<std::size_t>(blob, bytes.size()), flags);
  SealBlock(bytes, WordAt(bytes, 24), flags);
  Seal(bytes, 40, blob, 32);
  Seal(bytes, 0, 36, 36);
}

void Inspect(const Bytes& bytes) {
  Host::Inspect::MemoryBytes source(bytes.data(), bytes.size());
  const Host::Inspect::StoreReport report = Host::Inspect::InspectStore(source);
  ToText(report, "file");
  ToJson(report, "file");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, data + size);
  Inspect(bytes);
  SealAll(bytes);
  Inspect(bytes);
  return 0;
}
