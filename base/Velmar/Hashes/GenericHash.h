// Checksums and digests behind one interface: CRC-32, MD5, SHA-256.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Hashes {

// Base of all hashes. Threads: thread-compatible.
// Errors: false when the crypto library refuses, when bytes are not there, or when an area is too small.
//
// The ...WithContext forms keep everything in a caller's area of at least GetContextSize bytes, leave the object alone,
// and are otherwise the same; one object may so serve many areas, from many threads. An area begun by InitWithContext
// must see FinalWithContext, which releases what it holds, before it is begun anew or given up.
class RYL_API GenericHash {
 public:
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
  // Both point into the area, null when that is too small.
  virtual const char* GetHexDigestWithContext(void* area, u32 areaSize, bool upperCase) const = 0;
  virtual const u8* GetDigestWithContext(const void* area, u32 areaSize) const = 0;
  // 0 when the area is too small.
  virtual u32 GetDigestSizeWithContext(const void* area, u32 areaSize) const = 0;
  virtual u32 GetContextSize() const = 0;
  virtual ~GenericHash() = default;

  // Init, Update and Final in one. A length of -1 means up to the terminator.
  bool ComputeFromBuffer(const void* data, u32 size);
  bool ComputeFromString(const char* text, u32 length);
};

}  // namespace Velmar::Hashes
