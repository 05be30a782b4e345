#include "Velmar/Collections/DB/StoreBlock.h"

#include <algorithm>
#include <utility>

#include "Velmar/Hashes/CRC32.h"
#include "Velmar/OS/File.h"
#include "Velmar/Utils/DatabaseManager.h"
#include "Velmar/ZLib.h"
#include "VelmarLog.h"

namespace Velmar::Collections::DB {

namespace {

bool IsCiphered(u32 fileFlags) {
  return (fileFlags & FileFlags::kCiphered) != 0;
}

bool IsCompressed(u32 fileFlags) {
  return (fileFlags & FileFlags::kUncompressed) == 0;
}

// The words in front of a payload as they lie in the file: the CRC, the sizes that the file's flags ask for, RawSize
// last. The first size is always that of the payload.
struct BlockHeader {
  explicit BlockHeader(u32 fileFlags)
      : number(2U + (IsCiphered(fileFlags) ? 1U : 0U) + (IsCompressed(fileFlags) ? 1U : 0U)) {}

  [[nodiscard]] u32 Bytes() const { return number * u32{sizeof(u32)}; }
  u32& Crc() { return words[0]; }
  u32& PayloadSize() { return words[1]; }
  u32& RawSize() { return words[number - 1]; }
  // Only of a compressed block.
  u32& CompressedSize() { return words[number - 2]; }

  // The CRC over the sizes and `payload`.
  bool ComputeCrc(const Buffer& payload, u32& value) const {
    Hashes::CRC32 crc;
    if (!crc.Init() || !crc.Update(words + 1, Bytes() - u32{sizeof(u32)}) ||
        !crc.Update(payload.GetUnsafePointer(0, payload.size), payload.size)) {
      return false;
    }
    value = crc.GetValue();
    return true;
  }

  u32 number;
  u32 words[4] = {};
};

bool Compress(const Buffer& plain, Buffer& out) {
  out.Reset();
  u32 outSize = ZLib::ZcompressBound(plain.size);
  if (outSize == 0 || out.AllocateBuffer(outSize) != 0 ||
      !ZLib::Zcompress(out.GetUnsafePointer(0, outSize), outSize, plain.GetUnsafePointer(0, plain.size), plain.size,
                       CompressionLevel::kDefault) ||
      outSize == 0 || !out.Truncate(outSize)) {
    RYL_LOG(velmar, StoreBlockNotCompressed, plain.size);
    return false;
  }
  return true;
}

bool Decompress(const Buffer& payload, u32 rawSize, Buffer& out) {
  out.Reset();
  u32 outSize = rawSize;
  if (rawSize > u64{payload.size} * kMaxInflation || out.AllocateBuffer(rawSize) != 0 ||
      !ZLib::ZlibUncompress(out.GetUnsafePointer(0, rawSize), outSize, payload.GetUnsafePointer(0, payload.size),
                            payload.size) ||
      outSize != rawSize) {
    RYL_LOG(velmar, StoreBlockNotDecompressed, payload.size, rawSize);
    return false;
  }
  return true;
}

bool Cipher(const Buffer& payload, Buffer& out, ISerializedDataBinder* binder) {
  out.Reset();
  if (binder == nullptr || !binder->Serialize(payload.GetUnsafePointer(0, payload.size), payload.size, out) ||
      out.size == 0) {
    RYL_LOG(velmar, StoreBlockNotCiphered, payload.size);
    return false;
  }
  return true;
}

// The plain form may be larger than its ciphered form only as far as the binder really fills it: what is had beforehand
// is never more than the bytes that the file held.
bool Decipher(const Buffer& payload, u32 limit, Buffer& out, ISerializedDataBinder* binder) {
  out.Reset();
  bool done = binder != nullptr && out.AllocateBuffer(std::min(limit, payload.size)) == 0;
  out.Reset();
  done = done && binder->Deserialize(payload.GetUnsafePointer(0, payload.size), payload.size, out) && out.size <= limit;
  if (!done) {
    RYL_LOG(velmar, StoreBlockNotDeciphered, payload.size);
  }
  return done;
}

template <class Stream>
bool WriteHeaderAndPayload(Stream& stream, BlockHeader& header, const Buffer& payload) {
  if (!header.ComputeCrc(payload, header.Crc())) {
    RYL_LOG(velmar, StoreCrcNotComputed);
    return false;
  }
  if (!stream.Write(header.words, header.Bytes(), nullptr) ||
      (payload.size != 0 && !stream.Write(payload.GetUnsafePointer(0, payload.size), payload.size, nullptr))) {
    RYL_LOG(velmar, StoreBlockNotWritten, payload.size);
    return false;
  }
  return true;
}

template <class Stream>
bool ReadBlockHeader(Stream& stream, u64 position, BlockHeader& header) {
  if (!stream.Seek(position) || !stream.Read(header.words, header.Bytes(), nullptr)) {
    RYL_LOG(velmar, StoreBlockNotRead, position);
    return false;
  }
  for (u32 i = 1; i < header.number; ++i) {
    if (header.words[i] > kMaxBlockSize) {
      RYL_LOG(velmar, StoreBlockTooLarge, position, header.words[i]);
      return false;
    }
  }
  return true;
}

// Reads the payload of the block at `position` into `target` and compares the CRC.
template <class Stream>
bool ReadPayload(Stream& stream, u64 position, BlockHeader& header, Buffer& target) {
  const u32 payloadSize = header.PayloadSize();
  const u64 payloadPosition = position + header.Bytes();
  target.Reset();
  // Up to its own area a buffer takes no memory, so that only larger sizes need to be believed.
  const bool fitsArea = payloadSize <= sizeof(WorkBuffer::area);
  if ((!fitsArea && (!StreamHolds(stream, payloadPosition, payloadSize) || !stream.Seek(payloadPosition))) ||
      target.AllocateBuffer(payloadSize) != 0 ||
      (payloadSize != 0 && !stream.Read(target.GetUnsafePointer(0, payloadSize), payloadSize, nullptr))) {
    RYL_LOG(velmar, StoreBlockNotRead, position);
    return false;
  }
  u32 crc = 0;
  if (!header.ComputeCrc(target, crc) || crc != header.Crc()) {
    RYL_LOG(velmar, StoreBlockCrcWrong, position);
    return false;
  }
  return true;
}

bool HeaderCrc(const StoreHeader& header, u32 size, u32& value) {
  Hashes::CRC32 crc;
  if (!crc.ComputeFromBuffer(&header, size)) {
    return false;
  }
  value = crc.GetValue();
  return true;
}

}  // namespace

template <class Stream>
bool StreamHolds(Stream& stream, u64 position, u64 size) {
  u8 last = 0;
  return size == 0 || (stream.Seek(position + size - 1) && stream.Read(&last, 1, nullptr));
}

template <class Stream>
bool WriteBlock(Buffer& plain, Buffer& scratch, Stream& stream, u32 fileFlags, ISerializedDataBinder* binder) {
  BlockHeader header(fileFlags);
  header.RawSize() = plain.size;
  Buffer* payload = &plain;
  Buffer* other = &scratch;
  if (IsCompressed(fileFlags)) {
    if (!Compress(*payload, *other)) {
      return false;
    }
    std::swap(payload, other);
    header.CompressedSize() = payload->size;
  }
  if (IsCiphered(fileFlags)) {
    if (!Cipher(*payload, *other, binder)) {
      return false;
    }
    std::swap(payload, other);
    header.PayloadSize() = payload->size;
  }
  if (!WriteHeaderAndPayload(stream, header, *payload)) {
    return false;
  }
  plain.Reset();
  return true;
}

template <class Stream>
bool ReadBlock(Stream& stream, u64 position, Buffer& result, Buffer& scratch, u32 fileFlags,
               ISerializedDataBinder* binder) {
  // The last step must land in `result`.
  const bool oneStep = IsCiphered(fileFlags) != IsCompressed(fileFlags);
  Buffer* payload = oneStep ? &scratch : &result;
  Buffer* other = oneStep ? &result : &scratch;
  other->Reset();
  BlockHeader header(fileFlags);
  if (!ReadBlockHeader(stream, position, header) || !ReadPayload(stream, position, header, *payload)) {
    return false;
  }
  if (IsCiphered(fileFlags)) {
    const u32 compressedSize = IsCompressed(fileFlags) ? header.CompressedSize() : 0;
    if (!Decipher(*payload, std::max(compressedSize, header.RawSize()), *other, binder)) {
      return false;
    }
    std::swap(payload, other);
  }
  if (IsCompressed(fileFlags) && !Decompress(*payload, header.RawSize(), *other)) {
    return false;
  }
  if (result.size != header.RawSize()) {
    RYL_LOG(velmar, StoreBlockSizeWrong, position, result.size, header.RawSize());
    return false;
  }
  return true;
}

template <class Stream>
bool ReadStoreHeader(Stream& stream, StoreHeader& header) {
  constexpr u32 kVersion1Size = 36;
  header = StoreHeader{};
  if (!stream.Read(&header, kVersion1Size, nullptr)) {
    RYL_LOG(velmar, StoreHeaderNotRead);
    return false;
  }
  if (header.Magic != kStoreMagic) {
    RYL_LOG(velmar, StoreHeaderMagicWrong, header.Magic);
    return false;
  }
  if (header.FormatVersion != 1 && header.FormatVersion != kStoreFormatVersion) {
    return false;
  }
  const bool isVersion1 = header.FormatVersion == 1;
  if (!isVersion1 && !stream.Read(&header.HeaderCrc, sizeof(header.HeaderCrc), nullptr)) {
    RYL_LOG(velmar, StoreHeaderNotRead);
    return false;
  }
  u32 crc = 0;
  const u32 stored = isVersion1 ? header.BinderHeaderCrc : header.HeaderCrc;
  if (!HeaderCrc(header, isVersion1 ? 32 : kVersion1Size, crc) || crc != stored) {
    RYL_LOG(velmar, StoreHeaderCrcWrong, stored, crc);
    return false;
  }
  if (isVersion1) {
    header.HeaderCrc = stored;
    header.BinderHeaderCrc = 0;
  }
  return true;
}

#define RYL_STREAM(Stream)                                                                      \
  template bool WriteBlock<Stream>(Buffer&, Buffer&, Stream&, u32, ISerializedDataBinder*);     \
  template bool ReadBlock<Stream>(Stream&, u64, Buffer&, Buffer&, u32, ISerializedDataBinder*); \
  template bool ReadStoreHeader<Stream>(Stream&, StoreHeader&);                                 \
  template bool StreamHolds<Stream>(Stream&, u64, u64);
RYL_STREAM(OS::File)
RYL_STREAM(Utils::DatabaseManager)
#undef RYL_STREAM

}  // namespace Velmar::Collections::DB
