// Bodies of LinearSearch.
#pragma once

#include "Velmar/Utils/FlatSearch.ipp"
#include "Velmar/Utils/LinearSearch.h"

namespace Velmar::Utils {

template <class K>
u32 LinearSearch<K>::GetLocation(Key key, const Node* entries) {
  for (u32 i = 0; i < size; ++i) {
    if (this->Compare(locations[i], key, entries) == 0) {
      position = i;
      return locations[i];
    }
  }
  position = 0;
  return kNone;
}

template <class K>
bool LinearSearch<K>::Delete(Key key, const Node* entries, u32& location, bool& notFound) {
  const bool deleted = FlatSearch<K>::Delete(key, entries, location, notFound);
  if (!deleted) {
    RYL_LOG(velmar, IndexKeyAbsent, size);
  }
  return deleted;
}

template <class K>
bool LinearSearch<K>::Grow(u32 newCapacity, u32 /*maxCapacity*/) {
  return this->Reallocate(newCapacity);
}

template <class K>
void LinearSearch<K>::Destroy() {
  this->FreeLocations();
  size = 0;
}

template <class K>
bool LinearSearch<K>::Init(u32 initialCapacity, u32 /*maxCapacity*/, const void* searchContext) {
  if (initialCapacity != 0 && !this->Reallocate(initialCapacity)) {
    return false;
  }
  this->context = searchContext;
  return true;
}

template <class K>
bool LinearSearch<K>::InsertNewElement(u32 location) {
  locations[size++] = location;
  return true;
}

template <class K>
bool LinearSearch<K>::OverwriteOldElement(u32 /*location*/, const Node* /*entries*/) {
  return true;
}

}  // namespace Velmar::Utils
