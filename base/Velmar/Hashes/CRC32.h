// CRC-32: reflected, polynomial 0xEDB88320, initial and final XOR 0xFFFFFFFF (ISO 3309, as in zlib).
#pragma once

#include "Velmar/Hashes/GenericHash.h"

namespace Velmar::Hashes {

class RYL_API CRC32 : public GenericHash {
 public:
  CRC32();
  bool Init() override;
  bool Update(const void* data, u32 size) override;
  bool Final() override;
  const char* GetHexDigest(bool upperCase) override;
  const u8* GetDigest() const override;  // 4 bytes, little-endian
  u32 GetDigestSize() const override;
  bool InitWithContext(void* area, u32 areaSize) override;
  bool UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) override;
  bool FinalWithContext(void* area, u32 areaSize) override;
  const char* GetHexDigestWithContext(void* area, u32 areaSize, bool upperCase) const override;
  const u8* GetDigestWithContext(const void* area, u32 areaSize) const override;
  u32 GetDigestSizeWithContext(const void* area, u32 areaSize) const override;
  u32 GetContextSize() const override;

  // The checksum of what was given so far, with or without Final.
  [[nodiscard]] u32 GetValue() const;

 private:
  u32 value_ = 0;
  u8 digest_[4] = {};
  char hex_[9] = {};
};

}  // namespace Velmar::Hashes
