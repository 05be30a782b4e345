// The header of a store file as it lies in the file, and the limits of the format (docs/file-format.md).
#pragma once

#include <bit>

#include "Velmar/Types.h"

namespace Velmar::Collections::DB {

static_assert(std::endian::native == std::endian::little, "store files are read and written as they lie in memory");

// All little-endian u32.
struct StoreHeader {
  u32 Magic;
  u32 FormatVersion;
  u32 DataVersion;
  u32 EntryCount;
  u32 FileFlags;
  u32 KeyEntrySize;
  u32 IndexPosition;
  u32 BinderHeaderSize;
  u32 BinderHeaderCrc;
  u32 HeaderCrc;
};
static_assert(sizeof(StoreHeader) == 40);

// StoreHeader::FileFlags.
namespace FileFlags {
inline constexpr u32 kFixedSizeKeys = 1;     // index entries are KeyEntrySize bytes each
inline constexpr u32 kVariableSizeKeys = 2;  // index entries are a length and the key's bytes
inline constexpr u32 kCiphered = 4;          // every block is ciphered and has a CipheredSize
inline constexpr u32 kUncompressed = 8;      // no block is compressed or has a CompressedSize
}  // namespace FileFlags

inline constexpr u32 kStoreMagic = 0x424C5952;  // "RYLB"
inline constexpr u32 kStoreFormatVersion = 2;
inline constexpr u32 kMaxBinderBlob = 8192;
// Bound of every size of a block, and so of every work buffer of a save or a load.
inline constexpr u32 kMaxBlockSize = 26214400;
// A page is closed before it would pass this; one larger value makes a page of its own.
inline constexpr u32 kPageSize = 0x500000;
// Deflate gives at most this many bytes for one of its own (RFC 1951: 258 bytes for 2 bits).
inline constexpr u32 kMaxInflation = 1032;

}  // namespace Velmar::Collections::DB
