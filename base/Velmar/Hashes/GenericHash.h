// Checksums and digests behind one interface: CRC-32, MD5, SHA-256.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Hashes {

// Base of all hashes. Threads: thread-compatible.
// The ...WithContext forms keep the state in a caller's area instead of the object (at least GetContextSize bytes,
// aligned as for any object) and are otherwise the same. Errors: false when the crypto library refuses or an area is
// too small.
class RYL_API GenericHash {
 public:
  virtual ~GenericHash() = default;
  virtual bool Init() = 0;
  virtual bool Update(const void* data, u32 size) = 0;
  virtual bool Final() = 0;
  // Lower-case hex of the digest after Final, upper case on request. Valid as long as the object.
  virtual const char* GetHexDigest(bool upperCase) = 0;
  virtual const u8* GetDigest() const = 0;
  virtual u32 GetDigestSize() const = 0;
  virtual bool InitWithContext(void* area, u32 areaSize) = 0;
  virtual bool UpdateWithContext(void* area, u32 areaSize, const void* data, u32 size) = 0;
  virtual bool FinalWithContext(void* area, u32 areaSize) = 0;
  virtual u32 GetContextSize() const = 0;

  // Init, Update and Final in one. A length of -1 means up to the terminator.
  bool ComputeFromBuffer(const void* data, u32 size);
  bool ComputeFromString(const char* text, u32 length);
};

}  // namespace Velmar::Hashes
