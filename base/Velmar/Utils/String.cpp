#include "Velmar/Utils/String.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Velmar/Memory.h"

namespace Velmar::Utils {

namespace {

constexpr i32 kMaxLength = 0x7FFFFFFE;
constexpr i64 kMinHeapCapacity = 16;

// The length that `sourceLength` asks for, -1 when it cannot be held. `source` is not null.
i32 ResolveLength(const char* source, int sourceLength) {
  if (sourceLength != -1) {
    return sourceLength >= 0 && sourceLength <= kMaxLength ? sourceLength : -1;
  }
  const std::size_t found = std::strlen(source);
  return found <= static_cast<std::size_t>(kMaxLength) ? static_cast<i32>(found) : -1;
}

}  // namespace

String::String()
    : text(&empty_),
      length(0),
      storage_(&empty_),
      capacity_(1),
      ownsStorage_(false),
      mayLeaveArea_(true),
      empty_('\0') {}

String::String(const char* initial, bool /*copy*/) : String() {
  Set(initial);
}

String::String(const String& other) : String() {
  Set(&other);
}

String::String(String&& other) noexcept : String() {
  TakeFrom(other);
}

String& String::operator=(const String& other) {
  if (this != &other && !Set(&other)) {
    Clear();
  }
  return *this;
}

String& String::operator=(String&& other) noexcept {
  if (this != &other) {
    TakeFrom(other);
  }
  return *this;
}

String::~String() {
  Release();
}

// A caller's area may not live as long as the new owner, so text in an area is copied.
void String::TakeFrom(String& other) {
  if (!other.ownsStorage_) {
    if (!Set(&other)) {
      Clear();
    }
    other.Clear();
    return;
  }
  Release();
  storage_ = other.storage_;
  text = storage_;
  length = other.length;
  capacity_ = other.capacity_;
  ownsStorage_ = true;
  other.ownsStorage_ = false;
  other.Release();
}

void String::Release() {
  if (ownsStorage_) {
    Memory::Free(storage_);
  }
  storage_ = &empty_;
  text = storage_;
  capacity_ = 1;
  ownsStorage_ = false;
  mayLeaveArea_ = true;
  SetLength(0);
}

void String::SetLength(i32 newLength) {
  storage_[newLength] = '\0';
  length = newLength;
}

// Room for `newLength` bytes and the terminator, the content kept.
bool String::ReserveFor(i32 newLength) {
  const i64 needed = static_cast<i64>(newLength) + 1;
  if (needed <= capacity_) {
    return true;
  }
  if (newLength > kMaxLength || !mayLeaveArea_) {
    return false;
  }
  i64 newCapacity = 2 * static_cast<i64>(capacity_);
  newCapacity = newCapacity < kMinHeapCapacity ? kMinHeapCapacity : newCapacity;
  newCapacity = newCapacity < needed ? needed : newCapacity;
  newCapacity = newCapacity > kMaxLength + i64{1} ? kMaxLength + i64{1} : newCapacity;
  char* storage = static_cast<char*>(Memory::Allocate(static_cast<std::size_t>(newCapacity)));
  if (storage == nullptr) {
    return false;
  }
  std::memcpy(storage, storage_, static_cast<std::size_t>(length) + 1);
  if (ownsStorage_) {
    Memory::Free(storage_);
  }
  storage_ = storage;
  text = storage_;
  capacity_ = static_cast<i32>(newCapacity);
  ownsStorage_ = true;
  return true;
}

bool String::Create(int capacity) {
  if (capacity < 0 || capacity > kMaxLength) {
    return false;
  }
  if (capacity >= capacity_) {
    char* storage = static_cast<char*>(Memory::Allocate(static_cast<std::size_t>(capacity) + 1));
    if (storage == nullptr) {
      return false;
    }
    Release();
    storage_ = storage;
    text = storage_;
    capacity_ = capacity + 1;
    ownsStorage_ = true;
  }
  SetLength(0);
  return true;
}

bool String::Create(char* area, int size, bool startEmpty, bool mayLeaveArea) {
  if (area == nullptr || size < 1) {
    return false;
  }
  i32 areaLength = 0;
  if (!startEmpty) {
    const void* end = std::memchr(area, '\0', static_cast<std::size_t>(size));
    if (end == nullptr) {
      return false;
    }
    areaLength = static_cast<i32>(static_cast<const char*>(end) - area);
  }
  Release();
  storage_ = area;
  text = storage_;
  capacity_ = size;
  mayLeaveArea_ = mayLeaveArea;
  SetLength(areaLength);
  return true;
}

bool String::Set(const char* source, int sourceLength) {
  if (source == nullptr) {
    Clear();
    return true;
  }
  const i32 newLength = ResolveLength(source, sourceLength);
  // A source inside this string is no longer than the string, so it never makes the storage move.
  if (newLength < 0 || !ReserveFor(newLength)) {
    return false;
  }
  std::memmove(storage_, source, static_cast<std::size_t>(newLength));
  SetLength(newLength);
  return true;
}

bool String::Set(const String* source, int sourceLength) {
  if (source == nullptr) {
    Clear();
    return true;
  }
  if (sourceLength > source->length) {
    return false;
  }
  return Set(source->text, sourceLength == -1 ? source->length : sourceLength);
}

bool String::Add(const char* source, int sourceLength) {
  if (source == nullptr) {
    return true;
  }
  const i32 addedLength = ResolveLength(source, sourceLength);
  if (addedLength < 0 || addedLength > kMaxLength - length) {
    return false;
  }
  const auto distance = reinterpret_cast<std::uintptr_t>(source) - reinterpret_cast<std::uintptr_t>(storage_);
  const bool isOwnText = distance < static_cast<std::uintptr_t>(capacity_);
  if (!ReserveFor(length + addedLength)) {
    return false;
  }
  std::memmove(storage_ + length, isOwnText ? storage_ + distance : source, static_cast<std::size_t>(addedLength));
  SetLength(length + addedLength);
  return true;
}

bool String::AddChar(char c) {
  return Add(&c, 1);
}

bool String::SetFormat(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const bool done = FormatAt(0, format, arguments);
  va_end(arguments);
  return done;
}

bool String::AddFormat(const char* format, ...) {
  const i32 end = length;
  va_list arguments;
  va_start(arguments, format);
  const bool done = FormatAt(end, format, arguments);
  va_end(arguments);
  return done;
}

// Formats aside first, so that a failure leaves the content whole.
bool String::FormatAt(i32 at, const char* format, __builtin_va_list arguments) {
  char scratch[512];
  va_list again;
  va_copy(again, arguments);
  const int made = std::vsnprintf(scratch, sizeof(scratch), format, arguments);
  bool done = made >= 0 && made <= kMaxLength - at && ReserveFor(at + made);
  if (done) {
    const std::size_t room = static_cast<std::size_t>(made) + 1;
    if (room <= sizeof(scratch)) {
      std::memcpy(storage_ + at, scratch, room);
    } else {
      std::vsnprintf(storage_ + at, room, format, again);
    }
    SetLength(at + made);
  }
  va_end(again);
  return done;
}

void String::Clear() {
  SetLength(0);
}

bool String::Truncate(int newLength) {
  if (newLength < 0 || newLength > length) {
    return false;
  }
  SetLength(newLength);
  return true;
}

char String::GetChar(int index) const {
  const int position = index == -1 ? length - 1 : index;
  return position >= 0 && position < length ? text[position] : '\0';
}

}  // namespace Velmar::Utils
