// BlockReader: one block of a store file at a time, verified, deciphered and inflated.
#pragma once

#include <string>
#include <vector>

#include "common/netdb_storage/NetDBCryptor.h"
#include "host/inspect/ByteSource.h"
#include "host/inspect/StoreReport.h"

namespace Host::Inspect {

// Threads: thread-compatible. `bytes` and `cryptor` must outlive this.
class BlockReader {
 public:
  // `fileFlags` as in the store's header. `cryptor` is null when the file does not say its day, which ciphered blocks
  // need.
  BlockReader(ByteSource& bytes, u32 fileFlags, RYL::NetDB::NetDBCryptor* cryptor)
      : bytes_(bytes), fileFlags_(fileFlags), cryptor_(cryptor) {}

  // Reads the block at `position`, which may not pass `end`. False when not even its sizes make sense, so that nobody
  // knows where the next one is. Else block.isReadable tells whether `plain` holds its content. `problem` is a sentence
  // when something is wrong, else empty.
  bool Read(u64 position, u64 end, BlockReport& block, std::vector<u8>& plain, std::string& problem);

 private:
  bool ReadSizes(u64 position, u64 end, BlockReport& block, u32& payloadSize, std::string& problem);
  void ComputeCrc(BlockReport& block, const std::vector<u8>& payload) const;
  bool Decipher(const BlockReport& block, std::vector<u8>& payload, std::string& problem);
  static bool Inflate(const BlockReport& block, const std::vector<u8>& compressed, std::vector<u8>& plain,
                      std::string& problem);

  ByteSource& bytes_;
  u32 fileFlags_;
  RYL::NetDB::NetDBCryptor* cryptor_;
};

}  // namespace Host::Inspect
