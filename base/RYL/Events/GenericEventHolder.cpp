#include "RYL/Events/GenericEventHolder.h"

#include <cstring>

#include "Velmar/Memory.h"

namespace RYL::Events {

GenericEventHolder::GenericEventHolder(void* area, u32 areaSize)
    : area_(static_cast<u8*>(area)), areaSize_(area == nullptr ? 0 : areaSize), data_(area_) {}

GenericEventHolder::~GenericEventHolder() {
  if (data_ != area_) {
    Velmar::Memory::Free(data_);
  }
}

bool GenericEventHolder::Set(const void* record, u32 recordSize) {
  size_ = 0;
  u8* target = area_;
  if (recordSize > areaSize_) {
    target = record == nullptr ? nullptr : static_cast<u8*>(Velmar::Memory::Allocate(recordSize));
  }
  const bool done = recordSize == 0 || (record != nullptr && target != nullptr);
  if (done && recordSize != 0) {
    // The record may lie in what this holder has now.
    std::memmove(target, record, recordSize);
    size_ = recordSize;
  }
  if (data_ != area_) {
    Velmar::Memory::Free(data_);
  }
  data_ = done ? target : area_;
  return done;
}

}  // namespace RYL::Events
