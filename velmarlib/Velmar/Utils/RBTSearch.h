// RBTSearch: a store's index as a red-black tree of locations, ordered by the keys behind them.
#pragma once

#include "Velmar/Collections/DB/ISearchInterface.h"
#include "Velmar/Collections/RedBlackTree.h"
#include "Velmar/Types.h"

namespace Velmar::Utils {

// A position of this index is the index of a tree node; it stays for as long as the key is in.
// Threads: none of its own; `parent` and `side` tie a GetLocation to the call after it, so both run under one lock.
template <class K>
class RBTSearch final : public Collections::DB::Base::ISearchInterface<K> {
 public:
  using Node = typename Collections::DB::KeyTraits<K>::Node;
  using Key = typename Collections::DB::KeyTraits<K>::Argument;

  RBTSearch() = default;
  RBTSearch(const RBTSearch&) = delete;
  RBTSearch& operator=(const RBTSearch&) = delete;

  // A miss leaves the place of the key. After a hit nothing can be inserted: the place is taken. A text must live until
  // the call that the location is for.
  u32 GetLocation(Key key, const Node* entries) override;
  u32 GetLocationOfIndex(Key key, const Node* entries) override;
  // An absent key is logged at level 5.
  bool Delete(Key key, const Node* entries, u32& location, bool& notFound) override;
  // Nothing to do: marking erases.
  bool CompactDeleted() override;
  // Erases the node, leaving the positions of all others.
  bool MarkKeyAsDeleted(u32 markedPosition) override;
  // Nothing to do: the tree grows with its insertions.
  bool Grow(u32 newCapacity, u32 maxCapacity) override;
  void Destroy() override;
  void Clear() override;
  bool Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) override;
  bool InsertNewElement(u32 location) override;
  // Takes no memory: the node of the old key serves for the new one.
  bool OverwriteOldElement(u32 location, const Node* entries) override;
  [[nodiscard]] u32 GetMemoryUsage() const override;

 private:
  friend struct SearchTestAccess;

  using Tree = Collections::RedBlackTree<u32, char>;

  // A key that a node is compared with, and all that the comparison needs.
  struct Wanted {
    const RBTSearch& search;
    Key key;
    const Node* entries;
  };

  int Compare(u32 location, Key key, const Node* entries) const {
    return Collections::DB::KeyTraits<K>::Compare(entries[location].key, key, this->context);
  }
  bool EraseKey(Key key, const Node* entries);

  Tree tree;
  u32 side = Collections::TreeSide::kLeft;
  K lookupKey{};
  u32 parent = kNone;
  char nodeData = 0;
  u32 foundNode = kNone;
};

}  // namespace Velmar::Utils
