// StreamBuffer: a read cursor over a window of a Buffer.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Collections {

// Reads little-endian values from the window; the source must outlive it and not change.
// Threads: thread-compatible. Errors: false when the window is exhausted, with nothing read and the output untouched.
class RYL_API StreamBuffer {
 public:
  // Window of `size` bytes from `offset`; -1 as size means to the end. A window that leaves the source is empty.
  // `readOnly` is always true.
  StreamBuffer(const Buffer& source, u64 offset, u64 size, bool readOnly);

  bool Read(u16& value);
  bool Read(u32& value);
  bool Read(u64& value);
  bool Read(void* out, u32 size);
  // The next `size` bytes in place, null when there are fewer. Advances.
  const u8* Take(u32 size);
  [[nodiscard]] u64 Remaining() const { return end_ - position_; }

 private:
  const Buffer* source_;
  u64 position_;
  u64 end_;
};

}  // namespace Velmar::Collections
