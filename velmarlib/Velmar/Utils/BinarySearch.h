// BinarySearch: a store's index as one array of locations, sorted by the keys behind them.
#pragma once

#include "Velmar/Utils/FlatSearch.h"

namespace Velmar::Utils {

// Threads: none of its own; `position` ties a GetLocation to the call after it, so both run under one lock.
template <class K>
class BinarySearch final : public FlatSearch<K> {
 public:
  using typename FlatSearch<K>::Key;
  using typename FlatSearch<K>::Node;

  // A miss leaves the first position whose key is above the key.
  u32 GetLocation(Key key, const Node* entries) override;
  bool Grow(u32 newCapacity, u32 maxCapacity) override;
  void Destroy() override;
  bool Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) override;
  bool InsertNewElement(u32 location) override;
  bool OverwriteOldElement(u32 location, const Node* entries) override;

 private:
  friend struct SearchTestAccess;

  using FlatSearch<K>::locations;
  using FlatSearch<K>::size;
  using FlatSearch<K>::position;
  using FlatSearch<K>::capacity;
};

}  // namespace Velmar::Utils
