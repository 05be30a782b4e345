// GenericEventHolder: a caller's area for one event record, which outgrows it onto the heap.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace RYL::Events {

// Lifetime: the area must outlive the holder. Threads: thread-compatible.
class RYL_API GenericEventHolder {
 public:
  GenericEventHolder(void* area, u32 areaSize);
  ~GenericEventHolder();
  GenericEventHolder(const GenericEventHolder&) = delete;
  GenericEventHolder& operator=(const GenericEventHolder&) = delete;

  // Copies the record in. False on exhaustion, with the holder empty.
  bool Set(const void* record, u32 recordSize);
  // Null while empty.
  [[nodiscard]] const u8* GetData() const { return size_ == 0 ? nullptr : data_; }
  [[nodiscard]] u32 GetSize() const { return size_; }

 private:
  u8* area_;
  u32 areaSize_;
  u8* data_;
  u32 size_ = 0;
};

}  // namespace RYL::Events
