#include "Velmar/Collections/StreamBuffer.h"

#include <cstring>

namespace Velmar::Collections {

namespace {

template <class T>
bool ReadLittleEndian(StreamBuffer& in, T& value) {
  const u8* bytes = in.Take(sizeof(T));
  if (bytes == nullptr) {
    return false;
  }
  u64 result = 0;
  for (u32 i = 0; i < sizeof(T); ++i) {
    result |= u64{bytes[i]} << (8 * i);
  }
  value = static_cast<T>(result);
  return true;
}

}  // namespace

StreamBuffer::StreamBuffer(const Buffer& source, u64 offset, u64 size, bool /*readOnly*/)
    : source_(&source), position_(0), end_(0) {
  constexpr u64 kToEnd = ~u64{0};
  if (offset > source.size) {
    return;
  }
  const u64 available = source.size - offset;
  if (size != kToEnd && size > available) {
    return;
  }
  position_ = offset;
  end_ = offset + (size == kToEnd ? available : size);
}

bool StreamBuffer::Read(u16& value) {
  return ReadLittleEndian(*this, value);
}
bool StreamBuffer::Read(u32& value) {
  return ReadLittleEndian(*this, value);
}
bool StreamBuffer::Read(u64& value) {
  return ReadLittleEndian(*this, value);
}

bool StreamBuffer::Read(void* out, u32 size) {
  const u8* bytes = Take(size);
  if (bytes == nullptr) {
    return false;
  }
  if (size != 0) {
    std::memcpy(out, bytes, size);
  }
  return true;
}

const u8* StreamBuffer::Take(u32 size) {
  if (size > Remaining()) {
    return nullptr;
  }
  const u8* bytes = source_->GetUnsafePointer(static_cast<u32>(position_), size);
  position_ += size;
  return bytes;
}

}  // namespace Velmar::Collections
