// ISerializedDataBinder: what a store's user adds to its file: a header blob and a cipher.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Types.h"

namespace Velmar::Collections::DB {

// Order of calls on a save: GetHeader, then Serialize for each page in file order and for the index block. On a load:
// SetHeader, then Deserialize for the first page, the index block and the following pages.
// Threads: called by the store's thread, under its lock.
class ISerializedDataBinder {
 public:
  // Writes the blob into `area` of `size` (8192) bytes and its length into `outSize`. False: the file gets no blob.
  virtual bool GetHeader(void* area, u32 size, u32& outSize) = 0;
  // The blob of the file being loaded. False fails the load.
  virtual bool SetHeader(const void* data, u32 size, u32 dataVersion) = 0;
  // Ciphers one block into `output`, which is empty.
  virtual bool Serialize(const void* /*data*/, u32 /*size*/, Buffer& /*output*/) { return false; }
  // The reverse.
  virtual bool Deserialize(const void* /*data*/, u32 /*size*/, Buffer& /*output*/) { return false; }
  virtual ~ISerializedDataBinder() = default;
  // A binder that is not a part of its owner lies on the module's memory.
  static void operator delete(void* memory) { ModuleFree(memory); }
};

}  // namespace Velmar::Collections::DB
