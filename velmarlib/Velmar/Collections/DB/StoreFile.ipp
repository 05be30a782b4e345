// Bodies of MapDB: its stored form (docs/file-format.md).
#pragma once

#include "Velmar/Collections/DB/KeyStorage.ipp"
#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/Collections/DB/StoreBlock.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Hashes/CRC32.h"
#include "VelmarLog.h"

namespace Velmar::Collections::DB {

template <class K, class V>
struct MapDB<K, V>::BinderBlob {
  u8 area[kMaxBinderBlob];
  u32 size = 0;
};

template <class K, class V>
struct MapDB<K, V>::SaveBuffers {
  bool Create() { return value.Create() && index.Create() && page.Create() && scratch.Create(); }

  WorkBuffer value;
  WorkBuffer index;
  WorkBuffer page;
  WorkBuffer scratch;
};

template <class K, class V>
struct MapDB<K, V>::LoadBuffers {
  bool Create() { return page.Create() && index.Create() && scratch.Create(); }

  WorkBuffer page;
  WorkBuffer index;
  WorkBuffer scratch;
  u32 pageOffset = 0;
  u32 indexOffset = 0;
  u64 nextPage = 0;
};

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::WriteStoreFile(Stream& stream) {
  SaveBuffers buffers;
  BinderBlob blob;
  StoreHeader header{};
  if (!IsInitialised() || !buffers.Create()) {
    RYL_LOG(velmar, StoreNoWorkBuffers);
    return false;
  }
  if (!PrepareHeader(header, blob)) {
    return false;
  }
  // Without its magic this is no store, however far the save comes.
  if (!stream.Write(&header, sizeof(header), nullptr)) {
    RYL_LOG(velmar, StoreHeaderNotWritten);
    return false;
  }
  if ((blob.size != 0 && !WriteBlob(stream, header, blob)) || (count != 0 && !WriteEntries(stream, header, buffers))) {
    return false;
  }
  header.Magic = kStoreMagic;
  Hashes::CRC32 crc;
  if (!crc.ComputeFromBuffer(&header, sizeof(header) - sizeof(header.HeaderCrc))) {
    RYL_LOG(velmar, StoreCrcNotComputed);
    return false;
  }
  header.HeaderCrc = crc.GetValue();
  if (!stream.Seek(0) || !stream.Write(&header, sizeof(header), nullptr)) {
    RYL_LOG(velmar, StoreHeaderNotWritten);
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::PrepareHeader(StoreHeader& header, BinderBlob& blob) {
  header.FormatVersion = kStoreFormatVersion;
  header.DataVersion = version;
  header.EntryCount = count;
  header.FileFlags = Keys::kFileFlags;
  header.KeyEntrySize = Keys::kEntrySize;
  if ((flags & StoreFlags::kNoCompression) != 0) {
    header.FileFlags |= FileFlags::kUncompressed;
  }
  if ((flags & StoreFlags::kCipherRequired) != 0) {
    header.FileFlags |= FileFlags::kCiphered;
  }
  if (binder == nullptr) {
    if ((flags & StoreFlags::kCipherRequired) != 0) {
      RYL_LOG(velmar, StoreBinderMissing);
      return false;
    }
    return true;
  }
  if (!binder->GetHeader(blob.area, sizeof(blob.area), blob.size)) {
    RYL_LOG(velmar, StoreBlobMissing);
    blob.size = 0;
  }
  if (blob.size > sizeof(blob.area)) {
    RYL_LOG(velmar, StoreBlobTooLarge, blob.size);
    return false;
  }
  header.BinderHeaderSize = blob.size;
  return true;
}

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::WriteBlob(Stream& stream, StoreHeader& header, const BinderBlob& blob) {
  Hashes::CRC32 crc;
  if (!crc.ComputeFromBuffer(blob.area, blob.size)) {
    RYL_LOG(velmar, StoreCrcNotComputed);
    return false;
  }
  header.BinderHeaderCrc = crc.GetValue();
  if (!stream.Write(blob.area, blob.size, nullptr)) {
    RYL_LOG(velmar, StoreBlobNotWritten, blob.size);
    return false;
  }
  return true;
}

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::WriteEntries(Stream& stream, StoreHeader& header, SaveBuffers& buffers) {
  u32 location = head;
  for (u32 i = 0; i < count; ++i) {
    const EntryOutcome outcome = WriteEntry(stream, location, header.FileFlags, buffers);
    if (outcome == EntryOutcome::kFailed) {
      return false;
    }
    if (outcome == EntryOutcome::kRefused) {
      --header.EntryCount;
      if ((flags & StoreFlags::kSkipUnserializable) == 0) {
        return false;
      }
    }
    location = entries[location].next;
  }
  if (buffers.page.buffer.size != 0 &&
      !WriteBlock(buffers.page.buffer, buffers.scratch.buffer, stream, header.FileFlags, binder)) {
    return false;
  }
  const u64 indexPosition = stream.Tell();
  if (indexPosition >= kNone) {
    RYL_LOG(velmar, StoreFileTooLarge, indexPosition);
    return false;
  }
  header.IndexPosition = static_cast<u32>(indexPosition);
  return WriteBlock(buffers.index.buffer, buffers.scratch.buffer, stream, header.FileFlags, binder);
}

// The value into the page and the key into the index, both or none.
template <class K, class V>
template <class Stream>
typename MapDB<K, V>::EntryOutcome MapDB<K, V>::WriteEntry(Stream& stream, u32 location, u32 fileFlags,
                                                           SaveBuffers& buffers) {
  const Node& node = entries[location];
  Buffer& value = buffers.value.buffer;
  value.Reset();
  if (node.valueOffset == kNone || !ValueAt(location).Serialize(value, nullptr)) {
    RYL_LOG(velmar, StoreValueNotSerialised, location);
    return EntryOutcome::kRefused;
  }
  Buffer& index = buffers.index.buffer;
  const u32 indexSize = index.size;
  if (!Keys::Write(node, index)) {
    RYL_LOG(velmar, StoreKeyNotSerialised, location);
    return index.Truncate(indexSize) ? EntryOutcome::kRefused : EntryOutcome::kFailed;
  }
  Buffer& page = buffers.page.buffer;
  const u64 recordSize = u64{value.size} + sizeof(value.size);
  if (page.size != 0 && page.size + recordSize > kPageSize &&
      !WriteBlock(page, buffers.scratch.buffer, stream, fileFlags, binder)) {
    return EntryOutcome::kFailed;
  }
  if (page.PushUInt32(value.size) == kNone ||
      page.PushBuffer(value.GetUnsafePointer(0, value.size), value.size) == kNone) {
    RYL_LOG(velmar, StorePageFull, value.size);
    return EntryOutcome::kFailed;
  }
  return EntryOutcome::kWritten;
}

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::ReadStoreFile(Stream& stream) {
  LoadBuffers buffers;
  StoreHeader header{};
  if (!IsInitialised() || !buffers.Create()) {
    RYL_LOG(velmar, StoreNoWorkBuffers);
    return false;
  }
  if (!ReadStoreHeader(stream, header)) {
    RYL_LOG(velmar, StoreHeaderRefused, header.FormatVersion);
    return false;
  }
  if (!IsFileWanted(header)) {
    return true;
  }
  if (!ReadBlob(stream, header)) {
    return false;
  }
  return header.EntryCount == 0 || (ReserveForFile(stream, header) && ReadEntries(stream, header, buffers));
}

// False for a file that is to count as an empty one.
template <class K, class V>
bool MapDB<K, V>::IsFileWanted(const StoreHeader& header) const {
  if (header.FormatVersion == 1) {
    return false;
  }
  const bool isOld = header.DataVersion < version && (flags & StoreFlags::kExactVersionOnly) != 0;
  if (header.DataVersion > version || isOld) {
    RYL_LOG(velmar, StoreFileOfOtherVersion, header.DataVersion, version);
    return false;
  }
  return true;
}

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::ReadBlob(Stream& stream, const StoreHeader& header) {
  if ((header.FileFlags & FileFlags::kCiphered) != 0 && binder == nullptr) {
    RYL_LOG(velmar, StoreBinderMissing);
    return false;
  }
  if (header.BinderHeaderSize > kMaxBinderBlob) {
    RYL_LOG(velmar, StoreBlobTooLarge, header.BinderHeaderSize);
    return false;
  }
  if (binder == nullptr || header.BinderHeaderSize == 0) {
    return true;
  }
  BinderBlob blob;
  blob.size = header.BinderHeaderSize;
  if (!stream.Read(blob.area, blob.size, nullptr)) {
    RYL_LOG(velmar, StoreBlobNotRead, blob.size);
    return false;
  }
  Hashes::CRC32 crc;
  if (header.BinderHeaderCrc != 0 &&
      (!crc.ComputeFromBuffer(blob.area, blob.size) || crc.GetValue() != header.BinderHeaderCrc)) {
    RYL_LOG(velmar, StoreBlobCrcWrong, header.BinderHeaderCrc);
    return false;
  }
  if (!binder->SetHeader(blob.area, blob.size, header.DataVersion)) {
    RYL_LOG(velmar, StoreBlobRefused, blob.size);
    return false;
  }
  return true;
}

// Memory for more entries than the store has is only taken when the bytes of the pages can hold that many.
template <class K, class V>
template <class Stream>
bool MapDB<K, V>::ReserveForFile(Stream& stream, const StoreHeader& header) {
  if (header.EntryCount <= capacity) {
    return true;
  }
  const u64 firstPage = u64{sizeof(header)} + header.BinderHeaderSize;
  const u64 pageBytes = header.IndexPosition > firstPage ? header.IndexPosition - firstPage : 0;
  const bool isPlain =
      (header.FileFlags & (FileFlags::kUncompressed | FileFlags::kCiphered)) == FileFlags::kUncompressed;
  const u64 neededBytes = u64{header.EntryCount} * (sizeof(u32) + Values::kMinimumSize);
  if (header.EntryCount <= maxCapacity &&
      (neededBytes > pageBytes * (isPlain ? 1 : kMaxInflation) || !StreamHolds(stream, firstPage, pageBytes))) {
    RYL_LOG(velmar, StoreFileTooSmall, header.EntryCount, pageBytes);
    return false;
  }
  return GrowTo(header.EntryCount, false);
}

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::ReadEntries(Stream& stream, const StoreHeader& header, LoadBuffers& buffers) {
  Buffer& scratch = buffers.scratch.buffer;
  const u64 firstPage = u64{sizeof(header)} + header.BinderHeaderSize;
  if (!ReadBlock(stream, firstPage, buffers.page.buffer, scratch, header.FileFlags, binder)) {
    return false;
  }
  buffers.nextPage = stream.Tell();
  if (!ReadBlock(stream, header.IndexPosition, buffers.index.buffer, scratch, header.FileFlags, binder)) {
    return false;
  }
  for (u32 i = 0; i < header.EntryCount; ++i) {
    if (buffers.pageOffset == buffers.page.buffer.size && !ReadNextPage(stream, header, buffers)) {
      return false;
    }
    if (!ReadEntry(header, buffers)) {
      return false;
    }
  }
  return true;
}

template <class K, class V>
template <class Stream>
bool MapDB<K, V>::ReadNextPage(Stream& stream, const StoreHeader& header, LoadBuffers& buffers) {
  if (buffers.nextPage >= header.IndexPosition) {
    RYL_LOG(velmar, StoreFilePagesEnd, buffers.nextPage, header.EntryCount);
    return false;
  }
  if (!ReadBlock(stream, buffers.nextPage, buffers.page.buffer, buffers.scratch.buffer, header.FileFlags, binder)) {
    return false;
  }
  buffers.nextPage = stream.Tell();
  buffers.pageOffset = 0;
  return true;
}

// An entry that cannot be filled is given back, so that every entry of the list stands in the index.
template <class K, class V>
bool MapDB<K, V>::ReadEntry(const StoreHeader& header, LoadBuffers& buffers) {
  if (!EnsureFreeEntry()) {
    return false;
  }
  AppendFreeEntry();
  if (!FillEntry(header, buffers)) {
    TakeBackTail();
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::FillEntry(const StoreHeader& header, LoadBuffers& buffers) {
  Node& node = entries[tail];
  u32 keyEntrySize = 0;
  if (!Keys::Read(node, buffers.index.buffer, buffers.indexOffset, header, keyEntrySize)) {
    RYL_LOG(velmar, StoreKeyNotRead, buffers.indexOffset);
    return false;
  }
  u32 valueSize = 0;
  if (!ReadValue(buffers, valueSize)) {
    RYL_LOG(velmar, StoreValueNotRead, buffers.pageOffset);
    return false;
  }
  if (search->GetLocation(node.key, entries) != kNone) {
    RYL_LOG(velmar, StoreKeyStandsTwice, buffers.indexOffset);
    return false;
  }
  if (!search->InsertNewElement(tail)) {
    RYL_LOG(velmar, StoreIndexRefusedEntry, tail);
    return false;
  }
  buffers.pageOffset += valueSize + u32{sizeof(valueSize)};
  buffers.indexOffset += keyEntrySize;
  return true;
}

// The record at the page offset into the newest entry.
template <class K, class V>
bool MapDB<K, V>::ReadValue(LoadBuffers& buffers, u32& valueSize) {
  const Buffer& page = buffers.page.buffer;
  StreamBuffer record(page, buffers.pageOffset, ~u64{0}, true);
  if (!record.Read(valueSize) || valueSize > record.Remaining() || !PrepareValue(tail, true)) {
    return false;
  }
  StreamBuffer window(page, u64{buffers.pageOffset} + sizeof(valueSize), valueSize, true);
  if (!ValueAt(tail).Deserialize(window, nullptr)) {
    Values::Reinitialise(ValueAt(tail));
    return false;
  }
  return true;
}

}  // namespace Velmar::Collections::DB
