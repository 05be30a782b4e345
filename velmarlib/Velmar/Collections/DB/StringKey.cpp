// String keys: comparison, memory and stored form.
#include <cstring>

#include "Velmar/Collections/DB/KeyStorage.ipp"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Utils/String.h"
#include "VelmarLog.h"

namespace Velmar::Collections::DB {

int KeyTraits<const char*>::Compare(const char* nodeKey, const char* key, const void* context) {
  const bool ignoreCase = context != nullptr && *static_cast<const u8*>(context) != 0;
  return Utils::String::Compare(nodeKey, key, ignoreCase);
}

bool ReadKeyEntrySize(const Buffer& index, u32 offset, const StoreHeader& header, u64& entrySize) {
  if ((header.FileFlags & FileFlags::kVariableSizeKeys) == 0) {
    entrySize = header.KeyEntrySize;
    return true;
  }
  u32 length = 0;
  const u8* bytes = index.GetUnsafePointer(offset, sizeof(length));
  if (bytes == nullptr) {
    return false;
  }
  std::memcpy(&length, bytes, sizeof(length));
  entrySize = u64{length} + sizeof(length);
  return true;
}

using StringStorage = KeyStorage<const char*>;

namespace {

// Memory for a key; null, logged at level 5, when there is none or the size does not fit a node.
char* AllocateKey(std::size_t bytes) {
  char* key = bytes < kNone ? static_cast<char*>(ModuleAllocate(bytes)) : nullptr;
  if (key == nullptr) {
    RYL_LOG(velmar, StoreKeyAllocationFailed, bytes);
  }
  return key;
}

}  // namespace

StringStorage::Reservation::~Reservation() {
  ModuleFree(memory_);
}

bool StringStorage::Reservation::ReserveFor(const Node& node, Argument key) {
  needed_ = std::strlen(key) + 1;
  if (node.key != nullptr && node.keyCapacity >= needed_) {
    return true;
  }
  const std::size_t wanted = needed_ / 16 * 16 + 16;
  memory_ = AllocateKey(wanted);
  capacity_ = static_cast<u32>(wanted);
  return memory_ != nullptr;
}

void StringStorage::Reservation::Install(Node& node, Argument key) {
  std::memcpy(memory_ == nullptr ? node.key : memory_, key, needed_);
  if (memory_ != nullptr) {
    ModuleFree(node.key);
    node.key = memory_;
    node.keyCapacity = capacity_;
    memory_ = nullptr;
  }
}

void StringStorage::FreeNode(Node& node) {
  ModuleFree(node.key);
  InitialiseNode(node);
}

bool StringStorage::Write(const Node& node, Buffer& index) {
  const std::size_t length = std::strlen(node.key);
  return length < kMaxBlockSize && index.PushUInt32(static_cast<u32>(length)) != kNone &&
         index.PushBuffer(node.key, static_cast<u32>(length)) != kNone;
}

bool StringStorage::Read(Node& node, const Buffer& index, u32 offset, const StoreHeader& header, u32& entrySize) {
  u64 size = 0;
  if (!ReadKeyEntrySize(index, offset, header, size) || size > index.size) {
    return false;
  }
  entrySize = static_cast<u32>(size);
  const u32 lengthWord = (header.FileFlags & FileFlags::kVariableSizeKeys) != 0 ? sizeof(u32) : 0;
  const u32 length = entrySize - lengthWord;
  const u8* bytes = index.GetUnsafePointer(offset, entrySize);
  char* key = bytes == nullptr ? nullptr : AllocateKey(std::size_t{length} + 1);
  if (key == nullptr) {
    return false;
  }
  std::memcpy(key, bytes + lengthWord, length);
  key[length] = '\0';
  FreeNode(node);
  node.key = key;
  node.keyCapacity = length + 1;
  return true;
}

}  // namespace Velmar::Collections::DB
