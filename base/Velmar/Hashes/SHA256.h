// SHA-256 (FIPS 180-4), by the platform's crypto library.
#pragma once

#include "Velmar/Hashes/GenericHash.h"

namespace Velmar::Hashes {

class RYL_API SHA256 : public GenericHash {
 public:
  SHA256() = default;
  ~SHA256() override;
  SHA256(const SHA256&) = delete;
  SHA256& operator=(const SHA256&) = delete;

  bool Init() override;
  bool Update(const void* data, u32 size) override;
  bool Final() override;
  const char* GetHexDigest(bool upperCase) override;
  const u8* GetDigest() const override;  // 32 bytes
  u32 GetDigestSize() const override;
  bool InitWithContext(void* area, u32 areaSize) override;
  bool UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) override;
  bool FinalWithContext(void* area, u32 areaSize) override;
  const char* GetHexDigestWithContext(void* area, u32 areaSize, bool upperCase) const override;
  const u8* GetDigestWithContext(const void* area, u32 areaSize) const override;
  u32 GetDigestSizeWithContext(const void* area, u32 areaSize) const override;
  u32 GetContextSize() const override;

 private:
  void* state_ = nullptr;
  u8 digest_[32] = {};
  char hex_[2 * 32 + 1] = {};
};

}  // namespace Velmar::Hashes
