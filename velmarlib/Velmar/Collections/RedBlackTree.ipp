// Bodies of RedBlackTree.
#pragma once

#include <utility>

#include "Velmar/Collections/RedBlackTree.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

template <class K, class D>
bool RedBlackTree<K, D>::Init(u32 initialCapacity, u32 maxCapacity, u32 growth, bool threadSafe, GrowType growType) {
  initialised = false;
  Clear();
  initialised = MatchLock(threadSafe) && nodes.Create(initialCapacity, maxCapacity, growth, threadSafe, growType);
  return initialised;
}

template <class K, class D>
bool RedBlackTree<K, D>::EnsureInitialised() {
  constexpr u32 kMaximum = 100000;
  constexpr u32 kStep = 16;
  if (!initialised && !Init(0, kMaximum, kStep, true, GrowType::kFixedStep)) {
    RYL_LOG(velmar, TreeNotSetUp);
    return false;
  }
  return true;
}

template <class K, class D>
bool RedBlackTree<K, D>::MatchLock(bool threadSafe) {
  if (!threadSafe) {
    OS::Threading::MutexDestroy(mutex);
    return true;
  }
  if (mutex == nullptr) {
    mutex = OS::Threading::MutexCreate();
  }
  return mutex != nullptr;
}

template <class K, class D>
bool RedBlackTree<K, D>::InsertAtLocation(const K& key, const D& data, u32 parent, u32 side) {
  if (!EnsureInitialised()) {
    return false;
  }
  OS::ScopedLock lock(mutex);
  if (parent == kNone) {
    return count == 0 && Insert(key, data, nullptr, nullptr);
  }
  if (!IsNode(parent)) {
    RYL_LOG(velmar, TreeNodeAbsent, parent, nodes.count);
    return false;
  }
  return __insert(key, data, parent, side);
}

template <class K, class D>
bool RedBlackTree<K, D>::Insert(const K& key, const D& data, const void* context, Comparator comparator) {
  if (!EnsureInitialised()) {
    return false;
  }
  OS::ScopedLock lock(mutex);
  u32 parent = kNone;
  u32 side = TreeSide::kLeft;
  const auto compare = [context, comparator](const K& nodeKey) { return comparator(nodeKey, context); };
  if (Walk(compare, parent, side) != kNone) {
    RYL_LOG(velmar, TreeKeyStandsTwice, count);
    return false;
  }
  return __insert(key, data, parent, side);
}

// At a place that must be free, the root's if `parent` is kNone.
template <class K, class D>
bool RedBlackTree<K, D>::__insert(const K& key, const D& data, u32 parent, u32 side) {
  const bool isSide = side == TreeSide::kLeft || side == TreeSide::kRight;
  if (!isSide || Link(parent, side) != kNone) {
    RYL_LOG(velmar, TreePlaceTaken, parent, side);
    return false;
  }
  const u32 index = freeHead != kNone ? freeHead : nodes.count;
  Link(parent, side) = index;
  if (!StoreNode(index, Node{key, data, kNone, kNone, parent, kNone, TreeColour::kRed})) {
    Link(parent, side) = kNone;
    return false;
  }
  ++count;
  BalanceInsertion(index);
  return true;
}

// Into the first erased node, or behind the last one of the array.
template <class K, class D>
bool RedBlackTree<K, D>::StoreNode(u32 index, const Node& fresh) {
  if (freeHead == kNone) {
    return nodes.Add(fresh);
  }
  freeHead = nodes.data[index].nextFree;
  nodes.data[index] = fresh;
  return true;
}

template <class K, class D>
bool RedBlackTree<K, D>::Erase(const void* context, Comparator comparator) {
  if (!EnsureInitialised()) {
    return false;
  }
  OS::ScopedLock lock(mutex);
  u32 parent = kNone;
  u32 side = TreeSide::kLeft;
  const auto compare = [context, comparator](const K& nodeKey) { return comparator(nodeKey, context); };
  const u32 node = Walk(compare, parent, side);
  if (node == kNone) {
    RYL_LOG(velmar, TreeKeyAbsent, count);
    return false;
  }
  EraseNode(node);
  return true;
}

template <class K, class D>
bool RedBlackTree<K, D>::EraseIterator(u32 node) {
  if (!EnsureInitialised()) {
    return false;
  }
  OS::ScopedLock lock(mutex);
  if (!IsNode(node)) {
    RYL_LOG(velmar, TreeNodeAbsent, node, nodes.count);
    return false;
  }
  EraseNode(node);
  return true;
}

template <class K, class D>
void RedBlackTree<K, D>::Clear() {
  OS::ScopedLock lock(mutex);
  count = 0;
  nodes.Empty();
  root = kNone;
  freeHead = kNone;
}

template <class K, class D>
void RedBlackTree<K, D>::Destroy() {
  OS::ScopedLock lock(mutex);
  Clear();
  const GrowType type = (nodes.flagWord & ArrayFlags::kPercent) != 0 ? GrowType::kPercent : GrowType::kFixedStep;
  nodes.Create(0, nodes.maxCapacity, nodes.flagWord & ArrayFlags::kGrowthMask, nodes.mutex != nullptr, type);
}

template <class K, class D>
void RedBlackTree<K, D>::PushFree(u32 node) {
  Node& freed = nodes.data[node];
  freed.left = kNone;
  freed.right = kNone;
  freed.parent = kNone;
  freed.nextFree = freeHead;
  freeHead = node;
}

// With at most one child, a black node that is not the root has no child or a red one.
template <class K, class D>
void RedBlackTree<K, D>::EraseNode(u32 node) {
  if (nodes.data[node].left != kNone && nodes.data[node].right != kNone) {
    ExchangeWithSuccessor(node);
  }
  Node& erased = nodes.data[node];
  const u32 child = erased.left != kNone ? erased.left : erased.right;
  if (child != kNone) {
    nodes.data[child].colour = erased.colour;
  } else if (node != root && erased.colour == TreeColour::kBlack) {
    erased.colour = TreeColour::kDoubleBlack;
    BalanceErasure(node);
  }
  ReplaceChild(node, child);
  PushFree(node);
  --count;
}

// The node and the next one in order change places, so that the node has no left child. The other nodes keep their
// indices that way; only the key and data of the node that goes are overwritten.
template <class K, class D>
void RedBlackTree<K, D>::ExchangeWithSuccessor(u32 node) {
  u32 successor = nodes.data[node].right;
  while (nodes.data[successor].left != kNone) {
    successor = nodes.data[successor].left;
  }
  Node& leaving = nodes.data[node];
  Node& rising = nodes.data[successor];
  const Node place = rising;
  ReplaceChild(node, successor);
  rising.left = leaving.left;
  nodes.data[rising.left].parent = successor;
  if (place.parent == node) {
    rising.right = node;
    leaving.parent = successor;
  } else {
    rising.right = leaving.right;
    nodes.data[rising.right].parent = successor;
    leaving.parent = place.parent;
    nodes.data[place.parent].left = node;
  }
  leaving.left = kNone;
  leaving.right = place.right;
  if (place.right != kNone) {
    nodes.data[place.right].parent = node;
  }
  std::swap(leaving.colour, rising.colour);
  leaving.key = place.key;
  leaving.data = place.data;
}

// A red node whose parent may be red. The fault goes up two levels a round, or ends by at most two rotations.
template <class K, class D>
void RedBlackTree<K, D>::BalanceInsertion(u32 node) {
  while (IsRed(nodes.data[node].parent)) {
    u32 parent = nodes.data[node].parent;
    const u32 grandparent = nodes.data[parent].parent;
    const u32 side = SideOf(parent);
    const u32 uncle = Link(grandparent, Opposite(side));
    nodes.data[grandparent].colour = TreeColour::kRed;
    if (IsRed(uncle)) {
      nodes.data[parent].colour = TreeColour::kBlack;
      nodes.data[uncle].colour = TreeColour::kBlack;
      node = grandparent;
      continue;
    }
    if (SideOf(node) != side) {
      Rotate(parent, side);
      parent = node;
    }
    nodes.data[parent].colour = TreeColour::kBlack;
    Rotate(grandparent, Opposite(side));
    break;
  }
  nodes.data[root].colour = TreeColour::kBlack;
}

// A double-black node. The mark goes up, or ends by at most three rotations; at the root one black is simply dropped.
template <class K, class D>
void RedBlackTree<K, D>::BalanceErasure(u32 node) {
  while (node != root && !BalanceAtSibling(node)) {
  }
  nodes.data[root].colour = TreeColour::kBlack;
}

// True when the tree is balanced; otherwise `node` is the double-black one now. A double-black node has a sibling: its
// side is at least two blacks high.
template <class K, class D>
bool RedBlackTree<K, D>::BalanceAtSibling(u32& node) {
  const u32 parent = nodes.data[node].parent;
  const u32 side = SideOf(node);
  u32 sibling = Link(parent, Opposite(side));
  if (IsRed(sibling)) {
    nodes.data[sibling].colour = TreeColour::kBlack;
    nodes.data[parent].colour = TreeColour::kRed;
    Rotate(parent, side);
    sibling = Link(parent, Opposite(side));
  }
  const u32 inner = Link(sibling, side);
  nodes.data[node].colour = TreeColour::kBlack;
  if (!IsRed(inner) && !IsRed(Link(sibling, Opposite(side)))) {
    nodes.data[sibling].colour = TreeColour::kRed;
    const bool ends = IsRed(parent);
    nodes.data[parent].colour = ends ? TreeColour::kBlack : TreeColour::kDoubleBlack;
    node = parent;
    return ends;
  }
  if (!IsRed(Link(sibling, Opposite(side)))) {
    Rotate(sibling, Opposite(side));
    sibling = inner;
  }
  nodes.data[sibling].colour = nodes.data[parent].colour;
  nodes.data[parent].colour = TreeColour::kBlack;
  nodes.data[Link(sibling, Opposite(side))].colour = TreeColour::kBlack;
  Rotate(parent, side);
  return true;
}

// The node goes down to `side`, and its child of the other side comes up in its place.
template <class K, class D>
void RedBlackTree<K, D>::Rotate(u32 node, u32 side) {
  const u32 rising = Link(node, Opposite(side));
  const u32 middle = Link(rising, side);
  ReplaceChild(node, rising);
  Link(node, Opposite(side)) = middle;
  if (middle != kNone) {
    nodes.data[middle].parent = node;
  }
  Link(rising, side) = node;
  nodes.data[node].parent = rising;
}

// `replacement`, which may be kNone, hangs in the place of `old`.
template <class K, class D>
void RedBlackTree<K, D>::ReplaceChild(u32 old, u32 replacement) {
  const u32 parent = nodes.data[old].parent;
  Link(parent, parent == kNone ? TreeSide::kLeft : SideOf(old)) = replacement;
  if (replacement != kNone) {
    nodes.data[replacement].parent = parent;
  }
}

}  // namespace Velmar::Collections
