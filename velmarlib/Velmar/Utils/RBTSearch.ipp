// Bodies of RBTSearch.
#pragma once

#include <algorithm>

#include "Velmar/Collections/RedBlackTree.ipp"
#include "Velmar/Utils/RBTSearch.h"
#include "VelmarLog.h"

namespace Velmar::Utils {

template <class K>
u32 RBTSearch<K>::GetLocation(Key key, const Node* entries) {
  if (tree.count == 0) {
    parent = kNone;
    foundNode = kNone;
    return kNone;
  }
  lookupKey = key;
  foundNode = tree.Walk([&](u32 location) { return Compare(location, key, entries); }, parent, side);
  return foundNode == kNone ? kNone : tree.nodes.data[foundNode].key;
}

template <class K>
u32 RBTSearch<K>::GetLocationOfIndex(Key key, const Node* entries) {
  if (GetLocation(key, entries) == kNone) {
    RYL_LOG(velmar, IndexKeyAbsent, tree.count);
  }
  return foundNode;
}

template <class K>
bool RBTSearch<K>::Delete(Key key, const Node* entries, u32& location, bool& notFound) {
  notFound = false;
  const u32 found = GetLocation(key, entries);
  if (found == kNone) {
    notFound = true;
    RYL_LOG(velmar, IndexKeyAbsent, tree.count);
    return false;
  }
  location = found;
  return EraseKey(key, entries);
}

template <class K>
bool RBTSearch<K>::EraseKey(Key key, const Node* entries) {
  const Wanted wanted{*this, key, entries};
  return tree.Erase(&wanted, [](const u32& location, const void* sought) {
    const auto& [search, soughtKey, soughtEntries] = *static_cast<const Wanted*>(sought);
    return search.Compare(location, soughtKey, soughtEntries);
  });
}

template <class K>
bool RBTSearch<K>::CompactDeleted() {
  return true;
}

template <class K>
bool RBTSearch<K>::MarkKeyAsDeleted(u32 markedPosition) {
  if (!tree.EraseIterator(markedPosition)) {
    RYL_LOG(velmar, IndexPositionOutOfRange, markedPosition);
    return false;
  }
  return true;
}

template <class K>
bool RBTSearch<K>::Grow(u32 /*newCapacity*/, u32 /*maxCapacity*/) {
  return true;
}

template <class K>
void RBTSearch<K>::Destroy() {
  tree.Destroy();
  parent = kNone;
}

template <class K>
void RBTSearch<K>::Clear() {
  tree.Clear();
  parent = kNone;
}

// The step is cut to what the growth word of an array holds; a larger one would be read as another, even 0.
template <class K>
bool RBTSearch<K>::Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) {
  this->context = searchContext;
  const u32 step = std::min((maxCapacity - initialCapacity) / 5 + 1, Collections::ArrayFlags::kGrowthMask);
  if (!tree.Init(initialCapacity, maxCapacity, step, false, Collections::GrowType::kFixedStep)) {
    RYL_LOG(velmar, IndexTreeNotSetUp, initialCapacity, maxCapacity);
    return false;
  }
  return true;
}

template <class K>
bool RBTSearch<K>::InsertNewElement(u32 location) {
  return tree.InsertAtLocation(location, nodeData, parent, side);
}

// The place found before the erasure may have moved with it, so it is looked up again.
template <class K>
bool RBTSearch<K>::OverwriteOldElement(u32 location, const Node* entries) {
  if (location == kNone) {
    RYL_LOG(velmar, IndexPositionOutOfRange, location);
    return false;
  }
  if (!EraseKey(entries[location].key, entries)) {
    return false;
  }
  GetLocation(lookupKey, entries);
  return tree.InsertAtLocation(location, nodeData, parent, side);
}

template <class K>
u32 RBTSearch<K>::GetMemoryUsage() const {
  static_assert(sizeof(typename Tree::Node) == 28);
  return tree.nodes.capacity * u32{sizeof(typename Tree::Node)} + 120;
}

}  // namespace Velmar::Utils
