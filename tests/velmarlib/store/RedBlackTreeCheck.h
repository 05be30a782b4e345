// What must hold of a red-black tree at any time, and its whole state as text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Velmar/Collections/RedBlackTree.h"

namespace TreeCheck {

using namespace Velmar;
using Collections::GrowType;
using Tree = Collections::RedBlackTree<u32, char>;

// Fails the test unless one node hangs right: known colour, no red child under red, its children's links back.
inline void CheckNode(const Tree& tree, u32 node) {
  namespace Colour = Collections::TreeColour;
  const Tree::Node& checked = tree.nodes.data[node];
  EXPECT_TRUE(checked.colour == Colour::kRed || checked.colour == Colour::kBlack) << "node " << node;
  EXPECT_EQ(checked.nextFree, kNone) << "node " << node;
  for (const u32 child : {checked.left, checked.right}) {
    if (child != kNone) {
      EXPECT_EQ(tree.nodes.data[child].parent, node) << "child " << child;
      EXPECT_FALSE(checked.colour == Colour::kRed && tree.nodes.data[child].colour == Colour::kRed) << "node " << node;
    }
  }
}

// Fails the test unless the chain of erased nodes and the nodes in use are together the array.
inline void CheckFreeChain(const Tree& tree, std::vector<bool> seen) {
  u32 freed = 0;
  for (u32 node = tree.freeHead; node != kNone && freed <= tree.nodes.count; node = tree.nodes.data[node].nextFree) {
    ASSERT_LT(node, tree.nodes.count);
    EXPECT_FALSE(seen[node]) << "erased node " << node << " is in the tree or twice in the chain";
    seen[node] = true;
    EXPECT_EQ(tree.nodes.data[node].parent, kNone);
    ++freed;
  }
  EXPECT_EQ(tree.count + freed, tree.nodes.count);
}

// The nodes in order. Fails the test on a damaged link, unequal black heights, a wrong count or chain.
inline std::vector<u32> NodesInOrder(const Tree& tree) {
  std::vector<u32> order;
  std::vector<bool> seen(tree.nodes.count);
  std::vector<std::pair<u32, u32>> path;  // nodes whose left side is done next, and the blacks down to each
  u32 node = tree.root;
  u32 blacks = 0;
  u32 height = kNone;
  const auto reachEnd = [&height, &blacks] {
    height = height == kNone ? blacks : height;
    EXPECT_EQ(blacks, height) << "every way down has as many black nodes";
  };
  if (tree.root != kNone) {
    EXPECT_EQ(tree.nodes.data[tree.root].colour, Collections::TreeColour::kBlack);
    EXPECT_EQ(tree.nodes.data[tree.root].parent, kNone);
  }
  while (node != kNone || !path.empty()) {
    for (; node != kNone; node = tree.nodes.data[node].left) {
      if (node >= tree.nodes.count || seen[node]) {
        ADD_FAILURE() << "link to " << node;
        return order;
      }
      seen[node] = true;
      CheckNode(tree, node);
      blacks += tree.nodes.data[node].colour == Collections::TreeColour::kBlack ? 1 : 0;
      path.emplace_back(node, blacks);
    }
    reachEnd();
    std::tie(node, blacks) = path.back();
    path.pop_back();
    order.push_back(node);
    node = tree.nodes.data[node].right;
  }
  reachEnd();
  EXPECT_EQ(order.size(), tree.count);
  CheckFreeChain(tree, seen);
  return order;
}

// The keys in order, after the same checks.
inline std::vector<u32> KeysInOrder(const Tree& tree) {
  std::vector<u32> keys;
  for (const u32 node : NodesInOrder(tree)) {
    keys.push_back(tree.nodes.data[node].key);
  }
  return keys;
}

// All that an operation that fails must leave alone.
inline std::string State(const Tree& tree) {
  std::string text = std::to_string(tree.root) + " " + std::to_string(tree.count) + " " +
                     std::to_string(tree.freeHead) + " " + std::to_string(tree.nodes.capacity) + ":";
  for (u32 i = 0; i < tree.nodes.count; ++i) {
    const Tree::Node& node = tree.nodes.data[i];
    for (const u32 field : {node.key, u32{static_cast<u8>(node.data)}, node.left, node.right, node.parent,
                            node.nextFree, u32{node.colour}}) {
      text += " " + std::to_string(static_cast<i32>(field));
    }
    text += ";";
  }
  return text;
}

}  // namespace TreeCheck
