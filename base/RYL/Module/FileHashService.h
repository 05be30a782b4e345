// FileHashService: host service 1000, digests of program files.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Module {

// What GetFileHashes fills. 164 bytes.
struct FileHashBlock {
  u8 md5[16];
  u8 unused[116];
  u8 qid[32];  // second file identifier; this system's host gives the SHA-256 digest
};
static_assert(sizeof(FileHashBlock) == 164);

inline constexpr u32 kFileHashServiceNumber = 1000;
// The digests that a module asks for.
inline constexpr u32 kDefaultFileHashes = 9;

// Threads: thread-safe; may block on disk.
class FileHashService {
 public:
  // False when the file cannot be read or is not known; `out` may then be partly filled.
  virtual bool GetFileHashes(const char* path, FileHashBlock* out, u32 which = kDefaultFileHashes) = 0;

 protected:
  ~FileHashService() = default;
};

}  // namespace RYL::Module
