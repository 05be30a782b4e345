// ByteSource: the bytes that an inspection reads, in a file or in memory.
#pragma once

#include <cstring>
#include <string>

#include "host/Types.h"

namespace Host::Inspect {

class ByteSource {
 public:
  ByteSource() = default;
  virtual ~ByteSource() = default;
  ByteSource(const ByteSource&) = delete;
  ByteSource& operator=(const ByteSource&) = delete;

  [[nodiscard]] virtual u64 Size() const = 0;
  // Exactly `size` bytes from `position`, or false.
  virtual bool Read(u64 position, void* to, u32 size) = 0;
};

// Bytes that outlive this.
class MemoryBytes final : public ByteSource {
 public:
  MemoryBytes(const u8* data, u64 size) : data_(data), size_(size) {}
  [[nodiscard]] u64 Size() const override { return size_; }
  bool Read(u64 position, void* to, u32 size) override {
    if (position > size_ || size > size_ - position) {
      return false;
    }
    if (size > 0) {
      std::memcpy(to, data_ + position, size);
    }
    return true;
  }

 private:
  const u8* data_;
  u64 size_;
};

class FileBytes final : public ByteSource {
 public:
  ~FileBytes() override;
  // False, with errno, when the file cannot be opened; only a regular file is one.
  bool Open(const std::string& path);
  [[nodiscard]] u64 Size() const override { return size_; }
  bool Read(u64 position, void* to, u32 size) override;

 private:
  int descriptor_ = -1;
  u64 size_ = 0;
};

// What the errno of a failed FileBytes::Open means, for people.
std::string WhyUnreadable(int error);

}  // namespace Host::Inspect
