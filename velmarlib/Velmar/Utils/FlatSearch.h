// FlatSearch: what the indexes have in common that are one growing array of locations.
#pragma once

#include "Velmar/Collections/DB/ISearchInterface.h"
#include "Velmar/Types.h"

namespace Velmar::Utils {

// Base of BinarySearch and LinearSearch. Between MarkKeyAsDeleted and CompactDeleted nothing else may be called.
template <class K>
class FlatSearch : public Collections::DB::Base::ISearchInterface<K> {
 public:
  using Node = typename Collections::DB::KeyTraits<K>::Node;
  using Key = typename Collections::DB::KeyTraits<K>::Argument;

  FlatSearch() = default;
  ~FlatSearch() override;
  FlatSearch(const FlatSearch&) = delete;
  FlatSearch& operator=(const FlatSearch&) = delete;

  u32 GetLocationOfIndex(Key key, const Node* entries) override;
  bool Delete(Key key, const Node* entries, u32& location, bool& notFound) override;
  bool CompactDeleted() override;
  bool MarkKeyAsDeleted(u32 markedPosition) override;
  void Clear() override;
  [[nodiscard]] u32 GetMemoryUsage() const override;

 protected:
  // New storage of `newCapacity` locations with the present ones in it. False, logged at level 5, without memory.
  bool Reallocate(u32 newCapacity);
  void FreeLocations();
  int Compare(u32 location, Key key, const Node* entries) const {
    return Collections::DB::KeyTraits<K>::Compare(entries[location].key, key, this->context);
  }

  u32* locations = nullptr;
  u32 size = 0;
  u32 position = 0;
  u32 capacity = 0;
};

}  // namespace Velmar::Utils
