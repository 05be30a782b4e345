#include "Velmar/Hashes/CRC32.h"

#include <zlib.h>

#include <cstring>

#include "Velmar/Utils/String.h"

namespace Velmar::Hashes {

namespace {

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

void StoreDigest(u32 value, u8 (&digest)[4]) {
  for (u32 i = 0; i < sizeof(digest); ++i) {
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
  if (area == nullptr || areaSize < GetContextSize()) {
    return false;
  }
  std::memset(area, 0, sizeof(u32));
  return true;
}

bool CRC32::UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) {
  if (area == nullptr || areaSize < GetContextSize()) {
    return false;
  }
  u32 value = 0;
  std::memcpy(&value, area, sizeof(value));
  if (!Continue(value, data, size)) {
    return false;
  }
  std::memcpy(area, &value, sizeof(value));
  return true;
}

bool CRC32::FinalWithContext(void* area, u32 areaSize) {
  if (area == nullptr || areaSize < GetContextSize()) {
    return false;
  }
  u32 value = 0;
  std::memcpy(&value, area, sizeof(value));
  StoreDigest(value, digest_);
  return true;
}

u32 CRC32::GetContextSize() const {
  return sizeof(u32);
}

u32 CRC32::GetValue() const {
  return value_;
}

}  // namespace Velmar::Hashes
