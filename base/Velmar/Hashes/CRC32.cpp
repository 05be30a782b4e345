#include "Velmar/Hashes/CRC32.h"

#include <zlib.h>

#include "Velmar/Hashes/HashArea.h"
#include "Velmar/Utils/String.h"

namespace Velmar::Hashes {

namespace {

constexpr u32 kDigestSize = 4;
using Area = HashArea<u32, kDigestSize>;

// False for bytes that are not there. zlib takes a null pointer as a request to start anew, so no bytes never reach it.
bool Continue(u32& value, const void* data, u32 size) {
  if (size == 0) {
    return true;
  }
  if (data == nullptr) {
    return false;
  }
  value = static_cast<u32>(crc32(value, static_cast<const Bytef*>(data), size));
  return true;
}

void StoreDigest(u32 value, u8* digest) {
  for (u32 i = 0; i < kDigestSize; ++i) {
    digest[i] = static_cast<u8>(value >> (8 * i));
  }
}

}  // namespace

CRC32::CRC32() = default;

bool CRC32::Init() {
  value_ = 0;
  return true;
}

bool CRC32::Update(const void* data, u32 size) {
  return Continue(value_, data, size);
}

bool CRC32::Final() {
  StoreDigest(value_, digest_);
  return true;
}

const char* CRC32::GetHexDigest(bool upperCase) {
  Utils::String::BufferToHex(digest_, sizeof(digest_), hex_, sizeof(hex_), upperCase, false);
  return hex_;
}

const u8* CRC32::GetDigest() const {
  return digest_;
}

u32 CRC32::GetDigestSize() const {
  return sizeof(digest_);
}

bool CRC32::InitWithContext(void* area, u32 areaSize) {
  Area context(area, areaSize);
  if (!context.IsUsable()) {
    return false;
  }
  context.Begin(0);
  return true;
}

bool CRC32::UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) {
  Area context(area, areaSize);
  if (!context.IsUsable()) {
    return false;
  }
  u32 value = context.GetState();
  if (!Continue(value, data, size)) {
    return false;
  }
  context.SetState(value);
  return true;
}

bool CRC32::FinalWithContext(void* area, u32 areaSize) {
  const Area context(area, areaSize);
  if (!context.IsUsable()) {
    return false;
  }
  StoreDigest(context.GetState(), context.Digest());
  return true;
}

const char* CRC32::GetHexDigestWithContext(void* area, u32 areaSize, bool upperCase) const {
  Area context(area, areaSize);
  return context.IsUsable() ? context.WriteHex(upperCase) : nullptr;
}

const u8* CRC32::GetDigestWithContext(const void* area, u32 areaSize) const {
  const Area context(const_cast<void*>(area), areaSize);
  return context.IsUsable() ? context.Digest() : nullptr;
}

u32 CRC32::GetDigestSizeWithContext(const void* area, u32 areaSize) const {
  return Area(const_cast<void*>(area), areaSize).IsUsable() ? kDigestSize : 0;
}

u32 CRC32::GetContextSize() const {
  return Area::kSize;
}

u32 CRC32::GetValue() const {
  return value_;
}

}  // namespace Velmar::Hashes
