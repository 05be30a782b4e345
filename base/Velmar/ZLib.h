// Deflate in one call, over zlib. All static, thread-safe.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar {

enum class CompressionLevel : i32 { kDefault = -1, kStore = 0, kFastest = 1, kBest = 9 };

class RYL_API ZLib {
 public:
  // The largest output that `size` bytes can give; 0 if that does not fit 32 bits.
  static u32 ZcompressBound(u32 size);
  // `outSize` is the room on entry and the bytes written on success.
  static bool Zcompress(void* out, u32& outSize, const void* in, u32 size, CompressionLevel level);
  static bool ZlibUncompress(void* out, u32& outSize, const void* in, u32 size);
};

}  // namespace Velmar
