// Bodies of HashMapSearch.
#pragma once

#include "Velmar/Utils/HashMapSearch.h"
#include "Velmar/Utils/SignedFnv1a.h"
#include "VelmarLog.h"

namespace Velmar::Utils {

template <class K>
u64 HashMapSearch<K>::Hash(const K& key) {
  return SignedFnv1a(&key, sizeof(K));
}

template <class K>
u32 HashMapSearch<K>::GetLocation(Key key, const Node* /*entries*/) {
  if (!map.IsCreated()) {
    RYL_LOG(velmar, IndexMapMissing);
    return 0;
  }
  lastHash = Hash(key);
  return map.Find(lastHash) ? map.FoundValue() : kNone;
}

template <class K>
u32 HashMapSearch<K>::GetLocationOfIndex(Key key, const Node* /*entries*/) {
  return static_cast<u32>(Hash(key));
}

template <class K>
bool HashMapSearch<K>::Delete(Key key, const Node* /*entries*/, u32& location, bool& notFound) {
  notFound = false;
  if (!map.Get(Hash(key), location)) {
    notFound = true;
    RYL_LOG(velmar, IndexKeyAbsent, map.GetCount());
    return false;
  }
  return map._Delete();
}

template <class K>
bool HashMapSearch<K>::CompactDeleted() {
  return true;
}

template <class K>
bool HashMapSearch<K>::MarkKeyAsDeleted(u32 position) {
  if (!map.Find(position) || !map._Delete()) {
    RYL_LOG(velmar, IndexPositionOutOfRange, position);
    return false;
  }
  return true;
}

template <class K>
bool HashMapSearch<K>::Grow(u32 /*newCapacity*/, u32 /*maxCapacity*/) {
  return true;
}

template <class K>
void HashMapSearch<K>::Destroy() {
  map.Destroy();
}

template <class K>
void HashMapSearch<K>::Clear() {
  map.Clear(false);
}

template <class K>
bool HashMapSearch<K>::Init(u32 initialCapacity, u32 /*maxCapacity*/, const void* searchContext) {
  this->context = searchContext;
  if (initialCapacity > map.kMaxTableSize) {
    RYL_LOG(velmar, IndexCapacityTooLarge, initialCapacity, map.kMaxTableSize);
    return false;
  }
  if (!map.InitializeLazy(initialCapacity, true) || !map.Create()) {
    RYL_LOG(velmar, IndexMapNotSetUp, initialCapacity);
    return false;
  }
  return true;
}

template <class K>
bool HashMapSearch<K>::InsertNewElement(u32 location) {
  return map._Insert(lastHash, location);
}

template <class K>
bool HashMapSearch<K>::OverwriteOldElement(u32 location, const Node* entries) {
  const u64 oldHash = Hash(entries[location].key);
  if (!map.Find(oldHash) || !map._Delete()) {
    RYL_LOG(velmar, IndexKeyAbsent, map.GetCount());
    return false;
  }
  if (!map.Find(lastHash) && map._Insert(lastHash, location)) {
    return true;
  }
  RYL_LOG(velmar, IndexKeyNotReplaced, location);
  if (!map.Find(oldHash)) {
    map._Insert(oldHash, location);
  }
  return false;
}

template <class K>
u32 HashMapSearch<K>::GetMemoryUsage() const {
  return map.GetMemoryUsage() + 96;
}

}  // namespace Velmar::Utils
