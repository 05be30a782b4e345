// The blocks and the header of a store file, on any stream: a CRC over compressed, then ciphered bytes.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/DB/ISerializedDataBinder.h"
#include "Velmar/Collections/DB/StoreHeader.h"
#include "Velmar/Types.h"

namespace Velmar::Collections::DB {

// A work buffer of a save or a load: starts in an area of its own, so that small stores need no heap, and never passes
// what one block can hold.
struct WorkBuffer {
  WorkBuffer() : buffer(true) {}
  bool Create() {
    return buffer.CreateFromExistingBuffer(area, sizeof(area), true, true, kMaxBlockSize, 100, false,
                                           GrowType::kPercent);
  }

  u8 area[8192];
  Buffer buffer;
};

// Stream is OS::File or Utils::DatabaseManager. Of `fileFlags` kCiphered and kUncompressed say what is done to a block;
// `binder` must be there for the former. Errors: false after a record, level 3 unless said otherwise.

// Writes `plain` as one block, `scratch` being a second work buffer. On success `plain` is empty, ready for the next
// page; after a failure the content of both is lost.
template <class Stream>
bool WriteBlock(Buffer& plain, Buffer& scratch, Stream& stream, u32 fileFlags, ISerializedDataBinder* binder);

// Reads the block at `position` into `result`. The stream is then behind the block. Neither the binder nor zlib see
// bytes whose CRC is wrong, and no memory is taken for a payload that the stream does not hold.
template <class Stream>
bool ReadBlock(Stream& stream, u64 position, Buffer& result, Buffer& scratch, u32 fileFlags,
               ISerializedDataBinder* binder);

// Reads and verifies the header at the stream's position and leaves the stream behind it. A version 1 header has no
// BinderHeaderCrc; it comes out as 0. Records are at level 5; an unknown FormatVersion gives none.
template <class Stream>
bool ReadStoreHeader(Stream& stream, StoreHeader& header);

// Whether the stream has `size` bytes from `position` on. Moves the stream.
template <class Stream>
bool StreamHolds(Stream& stream, u64 position, u64 size);

}  // namespace Velmar::Collections::DB
