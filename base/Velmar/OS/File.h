// File: one open file as a stream.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::OS {

// Threads: thread-compatible. Errors: false from every operation; reads and writes transfer all bytes or fail.
// Effects on disk: a file opened by Create is synced before Close says true. A read-only handle never blocks a rename
// or a delete of the file.
class RYL_API File {
 public:
  File() = default;
  virtual ~File();  // closes
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Both openings close what is open first, and are false when that fails or when `path` is not a regular file.
  // Creates `path` for writing (mode 0600) and truncates an old file. Called with false, true.
  bool Create(const char* path, bool append, bool truncate);
  virtual bool OpenRead(const char* path);
  // False when the sync or the close failed, in which case what was written may not be on disk; true when nothing is
  // open.
  virtual bool Close();
  // `done` may be null; it gets the bytes transferred, also on failure.
  virtual bool Read(void* data, u32 size, u32* done);
  virtual bool Write(const void* data, u32 size, u32* done);
  virtual u64 Tell();  // all ones when it cannot be told
  virtual bool Seek(u64 position);

  // Size in bytes, 0 for a missing file.
  static u64 GetFileSize(const char* path);

 private:
  void* handle_ = nullptr;
  bool writable_ = false;
};

}  // namespace Velmar::OS
