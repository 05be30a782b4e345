#include "common/netdb_storage/NetDBCryptor.h"

#include <cstring>

#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Hashes/MD5.h"
#include "Velmar/OS/DateTime.h"
#include "common/netdb_storage/KeyText.h"
#include "common/netdb_storage/Rc4.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::Collections::Buffer;

constexpr u64 kDayLimit = 0x7FFFFFFFFFFFFFFF;

void StoreLittleEndian(u8* to, u64 value) {
  for (u32 i = 0; i < sizeof(value); ++i) {
    to[i] = static_cast<u8>(value >> (8 * i));
  }
}

u64 LoadLittleEndian(const u8* from) {
  u64 value = 0;
  for (u32 i = 0; i < sizeof(value); ++i) {
    value |= u64{from[i]} << (8 * i);
  }
  return value;
}

}  // namespace

bool NetDBCryptor::GetHeader(void* area, u32 size, u32& outSize) {
  outSize = kHeaderSize;
  if (size < kHeaderSize) {
    RYL_LOG(netdb_storage, BinderAreaTooSmall, size);
    return false;
  }
  u8* const bytes = static_cast<u8*>(area);
  StoreLittleEndian(bytes, day_stamp);
  StoreLittleEndian(bytes + sizeof(day_stamp), filter_stamp);
  RYL_LOG(netdb_storage, StampsWritten, day_stamp, filter_stamp);
  return true;
}

bool NetDBCryptor::SetHeader(const void* data, u32 size, u32 /*dataVersion*/) {
  if (size < kHeaderSize) {
    RYL_LOG(netdb_storage, BinderBlobTooSmall, size);
    return false;
  }
  const u8* const bytes = static_cast<const u8*>(data);
  day_stamp = LoadLittleEndian(bytes);
  filter_stamp = LoadLittleEndian(bytes + sizeof(day_stamp));
  RYL_LOG(netdb_storage, StampsRead, day_stamp, filter_stamp);
  return true;
}

bool NetDBCryptor::Serialize(const void* data, u32 size, Buffer& output) {
  RYL_LOG(netdb_storage, BlockToWrite, size);
  return CipherBlock(data, size, output);
}

bool NetDBCryptor::Deserialize(const void* data, u32 size, Buffer& output) {
  RYL_LOG(netdb_storage, BlockToRead, size);
  return CipherBlock(data, size, output);
}

bool NetDBCryptor::CipherBlock(const void* data, u32 size, Buffer& output) {
  RYL_LOG(netdb_storage, CipherStarts, size);
  u8 key[Rc4::kKeySize];
  if (!MakeKey(key)) {
    RYL_LOG(netdb_storage, NoCipherKey, day_stamp);
    return false;
  }
  Rc4::Start(state, key);
  if (size == 0) {
    return true;
  }
  const u32 offset = output.AllocateBuffer(size);
  if (offset == kNone) {
    RYL_LOG(netdb_storage, NoCipherOutput, size);
    return false;
  }
  Rc4::Apply(state, static_cast<const u8*>(data), size, output.GetUnsafePointer(offset, size));
  return true;
}

bool NetDBCryptor::MakeKey(u8 (&key)[16]) const {
  if (day_stamp >= kDayLimit) {
    RYL_LOG(netdb_storage, DayOutOfCipherRange, day_stamp);
    return false;
  }
  Velmar::OS::DateTime date;
  date.utc = true;
  char text[kKeyTextRoom];
  u32 length = 0;
  if (date.SetDateTime(static_cast<i64>(day_stamp))) {
    length = MakeKeyText(text, date.year, date.month, date.day);
  }
  if (length == 0) {
    RYL_LOG(netdb_storage, KeyTextNotMade, day_stamp);
    return false;
  }
  Velmar::Hashes::MD5 digest;
  const bool digested = digest.ComputeFromString(text, length);
  WipeMemory(text, sizeof(text));
  if (!digested) {
    RYL_LOG(netdb_storage, KeyDigestFailed);
    return false;
  }
  std::memcpy(key, digest.GetDigest(), sizeof(key));
  return true;
}

}  // namespace RYL::NetDB
