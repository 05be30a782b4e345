// DatabaseManager: what a store may be given instead of a plain file. The library has no implementation of its own.
#pragma once

#include <atomic>

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace Velmar::Utils {

// Errors: false from every operation. A user raises useCount before a load or a save and lowers it afterwards.
class DatabaseManager {
 public:
  virtual ~DatabaseManager() = default;
  virtual bool IsSingleThreaded() = 0;
  virtual bool SetWritterFile(const String& path) = 0;
  // True with HasReaderFile false afterwards when there is no such file.
  virtual bool SetReaderFile(const String& path) = 0;
  virtual bool HasReaderFile() = 0;
  virtual bool Commit() = 0;

  virtual bool Read(void* data, u32 size, u32* done) = 0;
  virtual bool Write(const void* data, u32 size, u32* done) = 0;
  virtual u64 Tell() = 0;
  virtual bool Seek(u64 position) = 0;

  std::atomic<u32> useCount{0};
};

}  // namespace Velmar::Utils
