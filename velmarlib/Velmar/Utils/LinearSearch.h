// LinearSearch: a store's index as one array of locations in insertion order, for short lists.
#pragma once

#include "Velmar/Utils/FlatSearch.h"

namespace Velmar::Utils {

// Threads: none of its own; runs under the store's lock.
template <class K>
class LinearSearch final : public FlatSearch<K> {
 public:
  using typename FlatSearch<K>::Key;
  using typename FlatSearch<K>::Node;

  // A miss leaves position 0.
  u32 GetLocation(Key key, const Node* entries) override;
  // A miss is logged at level 5.
  bool Delete(Key key, const Node* entries, u32& location, bool& notFound) override;
  // Reallocates even to the same capacity.
  bool Grow(u32 newCapacity, u32 maxCapacity) override;
  // Leaves the capacity as it was.
  void Destroy() override;
  bool Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) override;
  bool InsertNewElement(u32 location) override;
  // Nothing to do: the location stays where it is, and its key is read through the node.
  bool OverwriteOldElement(u32 location, const Node* entries) override;

 private:
  friend struct SearchTestAccess;

  using FlatSearch<K>::locations;
  using FlatSearch<K>::size;
  using FlatSearch<K>::position;
  using FlatSearch<K>::capacity;
};

}  // namespace Velmar::Utils
