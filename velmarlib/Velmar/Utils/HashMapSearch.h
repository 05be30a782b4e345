// HashMapSearch: a store's index as a hash map of locations.
#pragma once

#include "Velmar/Collections/DB/ISearchInterface.h"
#include "Velmar/Collections/HashMap.h"
#include "Velmar/Types.h"

namespace Velmar::Utils {

// Numeric keys only. The map knows the 64-bit hash of a key (SignedFnv1a over its bytes) and nothing else, and there is
// no second comparison: two keys with equal hashes are one key. Among u32 keys that is not rare: about one in 9,300 of
// 131,072 random ones has the hash of an earlier one, and of the numbers below 4,000,000 every second one has; so this
// kind is for values that may be mistaken for another's, or for wide keys, whose hashes spread.
// Threads: runs under the store's lock; Delete and Clear take the map's own one besides.
template <class K>
class HashMapSearch final : public Collections::DB::Base::ISearchInterface<K> {
 public:
  using Node = typename Collections::DB::KeyTraits<K>::Node;
  using Key = typename Collections::DB::KeyTraits<K>::Argument;

  // Location 0, logged at level 5, before Init and after Destroy. Leaves the hash for the insertion.
  u32 GetLocation(Key key, const Node* entries) override;
  // The low half of the key's hash, whether the key is there or not.
  u32 GetLocationOfIndex(Key key, const Node* entries) override;
  // An absent key is logged at level 5.
  bool Delete(Key key, const Node* entries, u32& location, bool& notFound) override;
  bool CompactDeleted() override;
  // Takes the position for a whole hash and deletes its key at once; level 5 when there is none. What
  // GetLocationOfIndex gives will do only for a hash that fits 32 bits.
  bool MarkKeyAsDeleted(u32 position) override;
  // The map grows by itself.
  bool Grow(u32 newCapacity, u32 maxCapacity) override;
  void Destroy() override;
  void Clear() override;
  // False, at level 5, also for an initial capacity above the largest table.
  bool Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) override;
  bool InsertNewElement(u32 location) override;
  // When the new key cannot be put in, the old one is put back.
  bool OverwriteOldElement(u32 location, const Node* entries) override;
  [[nodiscard]] u32 GetMemoryUsage() const override;

 private:
  friend struct SearchTestAccess;

  static u64 Hash(const K& key);

  Collections::HashMap<u64, u32> map;
  u64 lastHash = 0;
};

}  // namespace Velmar::Utils
