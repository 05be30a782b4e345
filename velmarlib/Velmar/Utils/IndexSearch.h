// IndexSearch: a store's index as a direct table of locations; the key is the place in the table.
#pragma once

#include "Velmar/Collections/DB/ISearchInterface.h"
#include "Velmar/Types.h"

namespace Velmar::Utils {

// Numeric keys below the store's maximum only. A wide key counts as a number when its first word is 0.
// Recycling an entry leaves the slot of its old key as it was.
// Threads: none of its own; runs under the store's lock.
template <class K>
class IndexSearch final : public Collections::DB::Base::ISearchInterface<K> {
 public:
  using Node = typename Collections::DB::KeyTraits<K>::Node;
  using Key = typename Collections::DB::KeyTraits<K>::Argument;

  IndexSearch() = default;
  ~IndexSearch() override;
  IndexSearch(const IndexSearch&) = delete;
  IndexSearch& operator=(const IndexSearch&) = delete;

  // A key out of range leaves no position, so that an insertion after it fails.
  u32 GetLocation(Key key, const Node* entries) override;
  u32 GetLocationOfIndex(Key key, const Node* entries) override;
  // notFound stays true also on success. An absent key is logged at level 5.
  bool Delete(Key key, const Node* entries, u32& location, bool& notFound) override;
  bool CompactDeleted() override;
  bool MarkKeyAsDeleted(u32 markedPosition) override;
  // Only makes a missing table; its size never changes.
  bool Grow(u32 newCapacity, u32 maxCapacity) override;
  void Destroy() override;
  void Clear() override;
  bool Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) override;
  bool InsertNewElement(u32 location) override;
  bool OverwriteOldElement(u32 location, const Node* entries) override;
  [[nodiscard]] u32 GetMemoryUsage() const override;

 private:
  friend struct SearchTestAccess;

  bool AllocateTable();

  u32* locations = nullptr;
  u32 size = 0;
  u32 position = 0;
};

}  // namespace Velmar::Utils
