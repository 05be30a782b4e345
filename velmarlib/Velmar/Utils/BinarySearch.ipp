// Bodies of BinarySearch.
#pragma once

#include <cstring>

#include "Velmar/Utils/BinarySearch.h"
#include "Velmar/Utils/FlatSearch.ipp"

namespace Velmar::Utils {

template <class K>
u32 BinarySearch<K>::GetLocation(Key key, const Node* entries) {
  constexpr u32 kWrapped = 0x80000000U;
  if (size == 0) {
    position = 0;
    return kNone;
  }
  u32 low = 0;
  u32 high = size - 1;
  while ((high & kWrapped) == 0 && low <= high) {
    const u32 middle = (low + high) >> 1;
    const int order = this->Compare(locations[middle], key, entries);
    if (order == 0) {
      position = middle;
      return locations[middle];
    }
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  position = (high & kWrapped) != 0 ? low : high + 1;
  return kNone;
}

template <class K>
bool BinarySearch<K>::Grow(u32 newCapacity, u32 /*maxCapacity*/) {
  return newCapacity <= capacity || this->Reallocate(newCapacity);
}

template <class K>
void BinarySearch<K>::Destroy() {
  this->FreeLocations();
  size = 0;
  capacity = 0;
}

template <class K>
bool BinarySearch<K>::Init(u32 initialCapacity, u32 /*maxCapacity*/, const void* searchContext) {
  this->context = searchContext;
  return initialCapacity == 0 || this->Reallocate(initialCapacity);
}

template <class K>
bool BinarySearch<K>::InsertNewElement(u32 location) {
  if (size == 0) {
    position = 0;
  } else if (position < size) {
    std::memmove(locations + position + 1, locations + position, (size - position) * sizeof(u32));
  }
  locations[position] = location;
  ++size;
  return true;
}

template <class K>
bool BinarySearch<K>::OverwriteOldElement(u32 location, const Node* entries) {
  const u32 target = position;
  if (target < size && locations[target] == location) {
    return true;
  }
  if (GetLocation(entries[location].key, entries) != location) {
    RYL_LOG(velmar, IndexKeyAbsent, size);
    position = target;
    return false;
  }
  const u32 old = position;
  if (old >= target) {
    std::memmove(locations + target + 1, locations + target, (old - target) * sizeof(u32));
    locations[target] = location;
  } else {
    std::memmove(locations + old, locations + old + 1, (target - 1 - old) * sizeof(u32));
    locations[target - 1] = location;
  }
  return true;
}

}  // namespace Velmar::Utils
