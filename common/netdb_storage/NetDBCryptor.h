// NetDBCryptor: the data binder of every day file: its two stamps and its cipher.
#pragma once

#include "Velmar/Collections/DB/ISerializedDataBinder.h"
#include "Velmar/Types.h"

namespace RYL::NetDB {

// RC4 (as in RFC 6229's algorithm) with a key made of the file's own day, started anew for each block. It keeps a file
// from casual reading only: whoever has the file and this program has the key. Threads: one thread at a time.
class NetDBCryptor final : public Velmar::Collections::DB::ISerializedDataBinder {
 public:
  static constexpr u32 kHeaderSize = 16;

  bool GetHeader(void* area, u32 size, u32& outSize) override;
  bool SetHeader(const void* data, u32 size, u32 dataVersion) override;
  bool Serialize(const void* data, u32 size, Velmar::Collections::Buffer& output) override;
  bool Deserialize(const void* data, u32 size, Velmar::Collections::Buffer& output) override;

  void SetDayStamp(u64 value) { day_stamp = value; }
  void SetFilterStamp(u64 value) { filter_stamp = value; }
  // First second of the file's day, epoch seconds.
  [[nodiscard]] u64 GetDayStamp() const { return day_stamp; }
  // Epoch seconds of the last filter run, 0 if none.
  [[nodiscard]] u64 GetFilterStamp() const { return filter_stamp; }

 private:
  bool CipherBlock(const void* data, u32 size, Velmar::Collections::Buffer& output);
  bool MakeKey(u8 (&key)[16]) const;

  u8 state[256] = {};
  u64 day_stamp = 0;
  u64 filter_stamp = 0;
};

}  // namespace RYL::NetDB
