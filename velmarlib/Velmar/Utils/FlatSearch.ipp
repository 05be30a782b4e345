// Bodies of FlatSearch.
#pragma once

#include <cstring>

#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Utils/FlatSearch.h"
#include "VelmarLog.h"

namespace Velmar::Utils {

template <class K>
FlatSearch<K>::~FlatSearch() {
  FreeLocations();
}

template <class K>
void FlatSearch<K>::FreeLocations() {
  Collections::ModuleFree(locations);
  locations = nullptr;
}

template <class K>
u32 FlatSearch<K>::GetLocationOfIndex(Key key, const Node* entries) {
  if (this->GetLocation(key, entries) == kNone) {
    RYL_LOG(velmar, IndexKeyAbsent, size);
    return kNone;
  }
  return position;
}

template <class K>
bool FlatSearch<K>::Delete(Key key, const Node* entries, u32& location, bool& notFound) {
  notFound = false;
  const u32 found = this->GetLocation(key, entries);
  if (found == kNone) {
    notFound = true;
    return false;
  }
  location = found;
  std::memmove(locations + position, locations + position + 1, (size - position - 1) * sizeof(u32));
  --size;
  return true;
}

template <class K>
bool FlatSearch<K>::CompactDeleted() {
  u32 kept = 0;
  for (u32 i = 0; i < size; ++i) {
    if (locations[i] != kNone) {
      locations[kept++] = locations[i];
    }
  }
  size = kept;
  position = kept;
  return true;
}

template <class K>
bool FlatSearch<K>::MarkKeyAsDeleted(u32 markedPosition) {
  if (markedPosition >= size) {
    RYL_LOG(velmar, IndexPositionOutOfRange, markedPosition);
    return false;
  }
  locations[markedPosition] = kNone;
  return true;
}

template <class K>
void FlatSearch<K>::Clear() {
  size = 0;
}

template <class K>
u32 FlatSearch<K>::GetMemoryUsage() const {
  return capacity * u32{sizeof(u32)} + 40;
}

template <class K>
bool FlatSearch<K>::Reallocate(u32 newCapacity) {
  auto* memory =
      newCapacity < size ? nullptr : static_cast<u32*>(Collections::ModuleAllocate(newCapacity * sizeof(u32)));
  if (memory == nullptr) {
    RYL_LOG(velmar, IndexAllocationFailed, newCapacity);
    return false;
  }
  if (size != 0) {
    std::memcpy(memory, locations, size * sizeof(u32));
  }
  FreeLocations();
  locations = memory;
  capacity = newCapacity;
  return true;
}

}  // namespace Velmar::Utils
