// RedBlackTree: a balanced search tree whose nodes lie in one array and whose links are indices into it.
//
//   RedBlackTree<u32, char> tree;
//   tree.Init(0, 1000, 100, false, GrowType::kFixedStep);
//   tree.Insert(location, 0, &wanted, Compare);
//   tree.Erase(&wanted, Compare);
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Collections/Growth.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/Types.h"

namespace Velmar::Collections {

// RedBlackTree::Node::colour.
namespace TreeColour {
inline constexpr u8 kRed = 0;
inline constexpr u8 kBlack = 1;
inline constexpr u8 kDoubleBlack = 2;  // stands for one black too many, while an erasure is being balanced
}  // namespace TreeColour

// On which side of its parent a node hangs.
namespace TreeSide {
inline constexpr u32 kLeft = 1;
inline constexpr u32 kRight = 2;
}  // namespace TreeSide

// The balancing is the textbook one (Cormen, Leiserson, Rivest, Stein: Introduction to Algorithms, "Red-Black Trees").
// A node keeps its index from its insertion to its erasure. Erased nodes wait in a chain for the next insertion; the
// array never shrinks. The tree knows no order of keys: whoever calls brings a comparator or the place.
// Lifetime: Init sets it up; without it, the first operation does, for 100000 nodes and with a lock.
// Threads: with `threadSafe` each operation, that first one apart, holds the tree's lock; otherwise thread-compatible.
// Errors: false with nothing changed. Misuse is logged at level 3; growth fails with the records of Array.
template <class K, class D>
class RedBlackTree {
 public:
  // Links are kNone where there is nothing. nextFree is used in erased nodes only; their other links are kNone.
  struct Node {
    K key;
    D data;
    u32 left;
    u32 right;
    u32 parent;
    u32 nextFree;
    u8 colour;
  };

  // Three-way: a node's key against what `context` stands for.
  using Comparator = int (*)(const K& key, const void* context);

  RedBlackTree() = default;
  ~RedBlackTree() { OS::Threading::MutexDestroy(mutex); }
  RedBlackTree(const RedBlackTree&) = delete;
  RedBlackTree& operator=(const RedBlackTree&) = delete;

  // An empty tree with room for `initialCapacity` nodes that grows by Array's rule to `maxCapacity`. On failure the
  // tree is empty and not set up.
  bool Init(u32 initialCapacity, u32 maxCapacity, u32 growth, bool threadSafe, GrowType growType);

  // Hangs a new node on the free `side` of `parent`, or makes it the root when `parent` is kNone and the tree is empty.
  // False without a record when `parent` is kNone in a tree that has nodes. For orders that the caller has walked.
  bool InsertAtLocation(const K& key, const D& data, u32 parent, u32 side);
  // Inserts where `context` belongs. A node that compares equal is refused. An empty tree compares nothing, and takes a
  // null comparator.
  bool Insert(const K& key, const D& data, const void* context, Comparator comparator);
  // Erases the node that compares equal.
  bool Erase(const void* context, Comparator comparator);
  // Erases node `node`.
  bool EraseIterator(u32 node);
  void Clear();    // keeps the array
  void Destroy();  // frees it; the tree can be used again

  // The node for which compare(key) is 0, or kNone. `parent` and `side` get the place where the walk stood last: that
  // of the node found, or the one where it belongs. Takes no lock.
  template <class Compare>
  u32 Walk(const Compare& compare, u32& parent, u32& side) const;

  // Open to the code that walks the tree under its own rules; it locks `mutex` around such a walk.
  u32 root = kNone;
  Array<Node> nodes;
  u32 count = 0;
  u32 freeHead = kNone;
  bool initialised = false;
  void* mutex = nullptr;

 private:
  bool EnsureInitialised();
  bool MatchLock(bool threadSafe);
  bool __insert(const K& key, const D& data, u32 parent, u32 side);
  bool StoreNode(u32 index, const Node& fresh);
  void PushFree(u32 node);
  void EraseNode(u32 node);
  void ExchangeWithSuccessor(u32 node);
  void BalanceInsertion(u32 node);
  void BalanceErasure(u32 node);
  bool BalanceAtSibling(u32& node);
  void Rotate(u32 node, u32 side);
  void ReplaceChild(u32 old, u32 replacement);

  // Where the index of a node stands that hangs on `side` of `parent`.
  u32& Link(u32 parent, u32 side) {
    if (parent == kNone) {
      return root;
    }
    Node& node = nodes.data[parent];
    return side == TreeSide::kLeft ? node.left : node.right;
  }
  [[nodiscard]] u32 SideOf(u32 node) const {
    return nodes.data[nodes.data[node].parent].left == node ? TreeSide::kLeft : TreeSide::kRight;
  }
  static u32 Opposite(u32 side) { return side == TreeSide::kLeft ? TreeSide::kRight : TreeSide::kLeft; }
  [[nodiscard]] bool IsRed(u32 node) const { return node != kNone && nodes.data[node].colour == TreeColour::kRed; }
  // Whether `node` is in the tree, and not past the array's end or in the chain of erased nodes.
  [[nodiscard]] bool IsNode(u32 node) const {
    return node < nodes.count && (node == root || nodes.data[node].parent != kNone);
  }
};

template <class K, class D>
template <class Compare>
u32 RedBlackTree<K, D>::Walk(const Compare& compare, u32& parent, u32& side) const {
  parent = kNone;
  u32 node = root;
  while (node != kNone) {
    const Node& stand = nodes.data[node];
    const int order = compare(stand.key);
    if (order == 0) {
      return node;
    }
    parent = node;
    side = order < 0 ? TreeSide::kRight : TreeSide::kLeft;
    node = order < 0 ? stand.right : stand.left;
  }
  return kNone;
}

}  // namespace Velmar::Collections
