#include "Velmar/Collections/Buffer.h"

#include <cstring>
#include <new>

#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Memory.h"

namespace Velmar::Collections {

namespace {

// What one block of a store file can hold.
constexpr u32 kObjectMaxSize = 26214400;
constexpr u32 kObjectGrowthPercent = 100;

// Where a range of no bytes is in a buffer without storage.
u8 nothing;

}  // namespace

Buffer::Buffer(bool /*empty*/) {}

Buffer::~Buffer() {
  Release();
}

void Buffer::Release() {
  if (ownsData_) {
    Memory::Free(data_);
  }
  data_ = nullptr;
  ownsData_ = false;
  capacity_ = 0;
  size = 0;
}

bool Buffer::Create(u32 capacity, u32 maxSize, u32 growth, bool zeroed, GrowType type) {
  if (growth == 0 || capacity > maxSize) {
    return false;
  }
  u8* data = nullptr;
  if (capacity != 0) {
    data = static_cast<u8*>(Memory::Allocate(capacity));
    if (data == nullptr) {
      return false;
    }
  }
  Release();
  data_ = data;
  ownsData_ = data != nullptr;
  capacity_ = capacity;
  maxSize_ = maxSize;
  growth_ = growth;
  growType_ = type;
  zeroed_ = zeroed;
  return true;
}

bool Buffer::CreateFromExistingBuffer(void* area, u32 areaSize, bool startEmpty, bool mayLeaveArea, u32 maxSize,
                                      u32 growth, bool zeroed, GrowType type) {
  if (area == nullptr || areaSize == 0 || growth == 0 || (mayLeaveArea && areaSize > maxSize)) {
    return false;
  }
  Release();
  data_ = static_cast<u8*>(area);
  capacity_ = areaSize;
  size = startEmpty ? 0 : areaSize;
  maxSize_ = mayLeaveArea ? maxSize : areaSize;
  growth_ = growth;
  growType_ = type;
  zeroed_ = zeroed;
  return true;
}

// A growth of 0 marks a buffer that was never created.
bool Buffer::ReserveFor(u64 newSize) {
  if (growth_ == 0 || newSize > maxSize_) {
    return false;
  }
  if (newSize <= capacity_) {
    return true;
  }
  u32 newCapacity = Internal::CalculateCollectionGrowth(capacity_, growth_, growType_, maxSize_);
  newCapacity = newCapacity < newSize ? static_cast<u32>(newSize) : newCapacity;
  u8* data = static_cast<u8*>(ownsData_ ? Memory::Reallocate(data_, newCapacity) : Memory::Allocate(newCapacity));
  if (data == nullptr) {
    return false;
  }
  if (!ownsData_ && size != 0) {
    std::memcpy(data, data_, size);
  }
  data_ = data;
  ownsData_ = true;
  capacity_ = newCapacity;
  return true;
}

u32 Buffer::PushUInt8(u8 value) {
  return PushBuffer(&value, sizeof(value));
}

u32 Buffer::PushUInt16(u16 value) {
  const u8 bytes[2] = {static_cast<u8>(value), static_cast<u8>(value >> 8)};
  return PushBuffer(bytes, sizeof(bytes));
}

u32 Buffer::PushUInt32(u32 value) {
  const u8 bytes[4] = {static_cast<u8>(value), static_cast<u8>(value >> 8), static_cast<u8>(value >> 16),
                       static_cast<u8>(value >> 24)};
  return PushBuffer(bytes, sizeof(bytes));
}

u32 Buffer::PushUInt64(u64 value) {
  u8 bytes[8];
  for (u32 i = 0; i < sizeof(bytes); ++i) {
    bytes[i] = static_cast<u8>(value >> (8 * i));
  }
  return PushBuffer(bytes, sizeof(bytes));
}

u32 Buffer::PushBuffer(const void* data, u32 dataSize) {
  const u32 offset = size;
  if ((data == nullptr && dataSize != 0) || !ReserveFor(u64{offset} + dataSize)) {
    return kNone;
  }
  if (dataSize != 0) {
    std::memcpy(data_ + offset, data, dataSize);
  }
  size = offset + dataSize;
  return offset;
}

u32 Buffer::PushZeroedBuffer(u32 zeroes) {
  const u32 offset = size;
  if (!ReserveFor(u64{offset} + zeroes)) {
    return kNone;
  }
  if (zeroes != 0) {
    std::memset(data_ + offset, 0, zeroes);
  }
  size = offset + zeroes;
  return offset;
}

u32 Buffer::AllocateBuffer(u32 room) {
  if (zeroed_) {
    return PushZeroedBuffer(room);
  }
  const u32 offset = size;
  if (!ReserveFor(u64{offset} + room)) {
    return kNone;
  }
  size = offset + room;
  return offset;
}

u8* Buffer::GetUnsafePointer(u32 offset, u32 count) {
  if (u64{offset} + count > size) {
    return nullptr;
  }
  return data_ == nullptr ? &nothing : data_ + offset;
}

const u8* Buffer::GetUnsafePointer(u32 offset, u32 count) const {
  return const_cast<Buffer*>(this)->GetUnsafePointer(offset, count);
}

void Buffer::Reset() {
  size = 0;
}

bool Buffer::Truncate(u32 newSize) {
  if (newSize > size) {
    return false;
  }
  size = newSize;
  return true;
}

bool Buffer::Serialize(Buffer& out, void* /*context*/) const {
  const u32 start = out.size;
  if (out.PushUInt32(size) == kNone) {
    return false;
  }
  if (out.PushBuffer(data_, size) == kNone) {
    out.Truncate(start);
    return false;
  }
  return true;
}

bool Buffer::Deserialize(StreamBuffer& in, void* /*context*/) {
  u32 newSize = 0;
  if (!in.Read(newSize) || newSize > in.Remaining() || !ReserveFor(newSize)) {
    return false;
  }
  size = newSize;
  return in.Read(data_, newSize);
}

bool Buffer::InitializeObject() {
  Buffer* self = new (this) Buffer(true);
  return self->Create(0, kObjectMaxSize, kObjectGrowthPercent, false, GrowType::kPercent);
}

bool Buffer::ReinitializeObject() {
  Reset();
  return true;
}

void Buffer::UninitializeObject() {
  this->~Buffer();
}

bool Buffer::InitializeObjectFrom(const Buffer& source) {
  Buffer* self = new (this) Buffer(true);
  return self->Create(source.size, kObjectMaxSize, kObjectGrowthPercent, false, GrowType::kPercent) &&
         self->PushBuffer(source.data_, source.size) != kNone;
}

void Buffer::InitializeObjectByMove(Buffer& source) {
  Buffer* self = new (this) Buffer(true);
  self->size = source.size;
  self->capacity_ = source.capacity_;
  self->data_ = source.data_;
  self->maxSize_ = source.maxSize_;
  self->growth_ = source.growth_;
  self->growType_ = source.growType_;
  self->ownsData_ = source.ownsData_;
  self->zeroed_ = source.zeroed_;
  source.ownsData_ = false;
  source.~Buffer();
}

}  // namespace Velmar::Collections
