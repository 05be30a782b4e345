// Bodies of IndexSearch.
#pragma once

#include <algorithm>

#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Utils/IndexSearch.h"
#include "VelmarLog.h"

namespace Velmar::Utils {

namespace IndexKeys {

// The place of a key in a table of `size` slots, kNone past its end.
inline u32 Slot(u32 key, u32 size) {
  return key < size ? key : kNone;
}

inline u32 Slot(const Types::UInt128& key, u32 size) {
  return key.words[0] == 0 && key.words[1] < size ? static_cast<u32>(key.words[1]) : kNone;
}

}  // namespace IndexKeys

template <class K>
IndexSearch<K>::~IndexSearch() {
  Collections::ModuleFree(locations);
}

template <class K>
u32 IndexSearch<K>::GetLocation(Key key, const Node* /*entries*/) {
  position = IndexKeys::Slot(key, size);
  return position == kNone || locations == nullptr ? kNone : locations[position];
}

template <class K>
u32 IndexSearch<K>::GetLocationOfIndex(Key key, const Node* entries) {
  if (GetLocation(key, entries) == kNone) {
    RYL_LOG(velmar, IndexKeyAbsent, size);
    return kNone;
  }
  return position;
}

template <class K>
bool IndexSearch<K>::Delete(Key key, const Node* entries, u32& location, bool& notFound) {
  notFound = true;
  const u32 found = GetLocation(key, entries);
  if (found == kNone) {
    RYL_LOG(velmar, IndexKeyAbsent, size);
    return false;
  }
  location = found;
  locations[position] = kNone;
  return true;
}

template <class K>
bool IndexSearch<K>::CompactDeleted() {
  return true;
}

template <class K>
bool IndexSearch<K>::MarkKeyAsDeleted(u32 markedPosition) {
  if (markedPosition >= size || locations == nullptr) {
    RYL_LOG(velmar, IndexPositionOutOfRange, markedPosition);
    return false;
  }
  locations[markedPosition] = kNone;
  return true;
}

template <class K>
bool IndexSearch<K>::AllocateTable() {
  locations = static_cast<u32*>(Collections::ModuleAllocate(size * sizeof(u32)));
  if (locations == nullptr) {
    RYL_LOG(velmar, IndexAllocationFailed, size);
    return false;
  }
  Clear();
  return true;
}

template <class K>
bool IndexSearch<K>::Grow(u32 /*newCapacity*/, u32 /*maxCapacity*/) {
  return locations != nullptr || AllocateTable();
}

template <class K>
void IndexSearch<K>::Destroy() {
  Collections::ModuleFree(locations);
  locations = nullptr;
  position = kNone;
  size = 0;
}

template <class K>
void IndexSearch<K>::Clear() {
  if (locations != nullptr) {
    std::fill_n(locations, size, kNone);
  }
}

template <class K>
bool IndexSearch<K>::Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) {
  this->context = searchContext;
  size = maxCapacity;
  position = 0;
  return initialCapacity == 0 || AllocateTable();
}

template <class K>
bool IndexSearch<K>::InsertNewElement(u32 location) {
  if (position >= size || locations == nullptr) {
    RYL_LOG(velmar, IndexPositionOutOfRange, position);
    return false;
  }
  locations[position] = location;
  return true;
}

template <class K>
bool IndexSearch<K>::OverwriteOldElement(u32 location, const Node* /*entries*/) {
  return InsertNewElement(location);
}

template <class K>
u32 IndexSearch<K>::GetMemoryUsage() const {
  return size * u32{sizeof(u32)} + 32;
}

}  // namespace Velmar::Utils
