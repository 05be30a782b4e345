// Bodies of KeyStorage for numeric keys.
#pragma once

#include <cstring>

#include "Velmar/Collections/DB/KeyStorage.h"

namespace Velmar::Collections::DB {

// The size of the index entry at `offset`: told by its own length word, or the same for all. False past the end.
bool ReadKeyEntrySize(const Buffer& index, u32 offset, const StoreHeader& header, u64& entrySize);

template <class K>
bool KeyStorage<K>::Read(Node& node, const Buffer& index, u32 offset, const StoreHeader& header, u32& entrySize) {
  u64 size = 0;
  if (!ReadKeyEntrySize(index, offset, header, size) || size != sizeof(K)) {
    return false;
  }
  const u8* bytes = index.GetUnsafePointer(offset, sizeof(K));
  if (bytes == nullptr) {
    return false;
  }
  std::memcpy(&node.key, bytes, sizeof(K));
  entrySize = sizeof(K);
  return true;
}

}  // namespace Velmar::Collections::DB
