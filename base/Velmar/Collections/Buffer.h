// Buffer: the growable byte buffer with a hard maximum; StreamBuffer (its own header) reads it.
#pragma once

#include "Velmar/Collections/Growth.h"
#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Collections {

class StreamBuffer;

// A growable byte buffer that never passes its maximum size.
//
// Lifetime: empty and unusable (every push fails) until Create, CreateFromExistingBuffer or InitializeObject.
// Threads: thread-compatible.
// Errors: a push returns the offset written at, or -1 (kNone) when the buffer would pass its maximum or memory is
// exhausted; the content is then unchanged.
class RYL_API Buffer {
 public:
  u32 size = 0;  // Bytes in use. Read-only for callers.

  // `empty` is always true: nothing is allocated.
  explicit Buffer(bool empty);
  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  // Heap buffer. `zeroed`: AllocateBuffer clears its room. False, with nothing changed, on exhaustion, on a growth of 0
  // or a capacity above `maxSize`.
  bool Create(u32 capacity, u32 maxSize, u32 growth, bool zeroed, GrowType type);
  // Starts in `area` and moves to the heap when it outgrows it and `mayLeaveArea` is set; without it the maximum is
  // `areaSize`. With `startEmpty` false the area's bytes are the content. False, with nothing changed, on a growth of
  // 0, a null or empty area, or one above `maxSize` that may be left.
  bool CreateFromExistingBuffer(void* area, u32 areaSize, bool startEmpty, bool mayLeaveArea, u32 maxSize, u32 growth,
                                bool zeroed, GrowType type);

  // Little-endian. What is pushed must not lie in this buffer, which may move.
  u32 PushUInt8(u8 value);
  u32 PushUInt16(u16 value);
  u32 PushUInt32(u32 value);
  u32 PushUInt64(u64 value);
  u32 PushBuffer(const void* data, u32 dataSize);
  u32 PushZeroedBuffer(u32 zeroes);
  // Appends `room` uninitialised bytes and returns their offset. Callers that take anything but 0 as failure reset
  // first.
  u32 AllocateBuffer(u32 room);

  // The `count` bytes at `offset`; null if they are not all in use. Valid until the next push.
  [[nodiscard]] u8* GetUnsafePointer(u32 offset, u32 count);
  [[nodiscard]] const u8* GetUnsafePointer(u32 offset, u32 count) const;

  void Reset();                // size 0, capacity kept
  bool Truncate(u32 newSize);  // false if newSize is beyond the end

  // Serial form: u32 length, then the bytes. The second argument is always null.
  bool Serialize(Buffer& out, void* context) const;
  bool Deserialize(StreamBuffer& in, void* context);

  // Life cycle of a Buffer in raw memory, as in a store's value pool. A buffer made so may grow to what one block of a
  // store file can hold (26214400 bytes).
  bool InitializeObject();                          // construct; false on exhaustion
  bool ReinitializeObject();                        // empty for reuse, storage kept
  void UninitializeObject();                        // destruct
  bool InitializeObjectFrom(const Buffer& source);  // construct as a copy; false on exhaustion
  // Construct by taking over the storage of `source`, which is left destructed. Never fails.
  void InitializeObjectByMove(Buffer& source);

 private:
  bool ReserveFor(u64 newSize);
  void Release();

  // In an order that leaves no gaps: a store's value pool holds one of these an entry, 32 bytes each.
  u32 capacity_ = 0;
  u8* data_ = nullptr;
  u32 maxSize_ = 0;
  u32 growth_ = 0;
  GrowType growType_ = GrowType::kFixedStep;
  bool ownsData_ = false;
  bool zeroed_ = false;
};

}  // namespace Velmar::Collections
