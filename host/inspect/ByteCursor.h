// ByteCursor: takes values off the front of bytes in memory, never past their end.
#pragma once

#include <cstring>

#include "host/Types.h"

namespace Host::Inspect {

// The bytes outlive this. Thread-compatible.
class ByteCursor {
 public:
  ByteCursor(const u8* data, u32 size) : data_(data), left_(size) {}

  // False, with nothing taken, where the bytes end. So is Skip.
  template <class T>
  bool Take(T& value) {
    if (left_ < sizeof(T)) {
      return false;
    }
    std::memcpy(&value, data_, sizeof(T));
    return Skip(sizeof(T));
  }
  bool Skip(u64 size) {
    if (left_ < size) {
      return false;
    }
    data_ += size;
    left_ -= static_cast<u32>(size);
    return true;
  }
  [[nodiscard]] u32 Left() const { return left_; }
  // What is taken next.
  [[nodiscard]] const u8* Position() const { return data_; }

 private:
  const u8* data_;
  u32 left_;
};

}  // namespace Host::Inspect
