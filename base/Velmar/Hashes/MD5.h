// MD5 (RFC 1321), by the platform's crypto library.
#pragma once

#include "Velmar/Hashes/GenericHash.h"

namespace Velmar::Hashes {

class RYL_API MD5 : public GenericHash {
 public:
  MD5() = default;
  ~MD5() override;
  MD5(const MD5&) = delete;
  MD5& operator=(const MD5&) = delete;

  bool Init() override;
  bool Update(const void* data, u32 size) override;
  bool Final() override;
  const char* GetHexDigest(bool upperCase) override;
  const u8* GetDigest() const override;  // 16 bytes
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
  u8 digest_[16] = {};
  char hex_[2 * 16 + 1] = {};
};

}  // namespace Velmar::Hashes
