// The tree in an array.
#include "Velmar/Collections/RedBlackTree.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <numeric>
#include <random>
#include <thread>

#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/RedBlackTreeCheck.h"

namespace {

using namespace TreeCheck;
using Collections::ArrayFlags::kGrowthMask;
using Collections::TreeColour::kBlack;
using Collections::TreeColour::kRed;
using Collections::TreeSide::kLeft;
using Collections::TreeSide::kRight;
using Keys = std::vector<u32>;
using Lines = std::vector<std::string>;
using Texts = std::vector<std::string>;

int CompareNumbers(const u32& key, const void* wanted) {
  const u32 number = *static_cast<const u32*>(wanted);
  return key < number ? -1 : (key > number ? 1 : 0);
}

bool Insert(Tree& tree, u32 key) {
  return tree.Insert(key, static_cast<char>(key), &key, CompareNumbers);
}

bool Erase(Tree& tree, u32 key) {
  return tree.Erase(&key, CompareNumbers);
}

u32 Find(const Tree& tree, u32 key) {
  u32 parent = kNone;
  u32 side = kLeft;
  return tree.Walk([key](u32 node) { return CompareNumbers(node, &key); }, parent, side);
}

bool InitPlain(Tree& tree, u32 initial, u32 maximum, u32 step) {
  return tree.Init(initial, maximum, step, false, GrowType::kFixedStep);
}

void InsertAll(Tree& tree, const Keys& keys) {
  for (const u32 key : keys) {
    ASSERT_TRUE(Insert(tree, key));
  }
}

Keys UpTo(u32 last) {
  Keys keys(last);
  std::iota(keys.begin(), keys.end(), 1U);
  return keys;
}

TEST(RedBlackTree, NodeCosts28Bytes) {
  EXPECT_EQ(sizeof(Tree::Node), 28U);
}

// Random insertions and erasures by every way in, with all that must hold looked at after each. A node keeps its index.
void RunAtRandom(u64 seed, u32 range) {
  std::printf("range %u, seed %llu\n", range, static_cast<unsigned long long>(seed));
  std::mt19937_64 random(seed);
  std::map<u32, u32> model;  // key to node
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 0, range, 7));
  for (int step = 0; step < 3000 && !testing::Test::HasFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    const auto key = static_cast<u32>(random() % range);
    const bool isGrowing = step / 500 % 2 == 0;
    const bool inserts = random() % 10 < (isGrowing ? 7 : 3);
    u32 parent = kNone;
    u32 side = kLeft;
    const u32 node = tree.Walk([key](u32 nodeKey) { return CompareNumbers(nodeKey, &key); }, parent, side);
    ASSERT_EQ(node, model.count(key) != 0 ? model[key] : kNone);
    if (inserts) {
      const bool byPlace = random() % 2 == 0 && node == kNone;
      EXPECT_EQ(byPlace ? tree.InsertAtLocation(key, 'x', parent, side) : Insert(tree, key), node == kNone);
      model.emplace(key, Find(tree, key));
    } else {
      const bool byNode = random() % 2 == 0 && node != kNone;
      EXPECT_EQ(byNode ? tree.EraseIterator(node) : Erase(tree, key), node != kNone);
      model.erase(key);
    }
    Keys keys;
    for (const auto& entry : model) {
      keys.push_back(entry.first);
      EXPECT_EQ(tree.nodes.data[entry.second].key, entry.first) << "a node keeps its index";
    }
    EXPECT_EQ(KeysInOrder(tree), keys);
  }
}

TEST(RedBlackTree, RandomRunsKeepEveryPropertyAfterEveryStep) {
  for (u64 seed = 1; seed <= 4; ++seed) {
    for (const u32 range : {2U, 9U, 40U, 200U}) {
      RunAtRandom(seed, range);
    }
  }
}

TEST(RedBlackTree, EveryOrderOfInsertionAndEveryErasureThenANewKey) {
  Keys order = UpTo(7);
  do {
    for (u32 erased = 1; erased <= 7; ++erased) {
      Tree tree;
      ASSERT_TRUE(InitPlain(tree, 7, 7, 1));
      InsertAll(tree, order);
      ASSERT_TRUE(Erase(tree, erased));
      Keys left = UpTo(7);
      left.erase(left.begin() + erased - 1);
      ASSERT_EQ(KeysInOrder(tree), left);
      ASSERT_TRUE(Insert(tree, 8));
      ASSERT_EQ(tree.nodes.count, 7U);
      left.push_back(8);
      ASSERT_EQ(KeysInOrder(tree), left);
    }
    ASSERT_FALSE(HasFailure());
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(RedBlackTree, RisingAndFallingKeysAreErasedFromEitherEndToNothing) {
  for (const bool rises : {true, false}) {
    for (const bool fromFront : {true, false}) {
      Keys keys = UpTo(100);
      Tree tree;
      ASSERT_TRUE(InitPlain(tree, 0, 100, 10));
      InsertAll(tree, rises ? keys : Keys(keys.rbegin(), keys.rend()));
      while (!keys.empty()) {
        const auto erased = fromFront ? keys.begin() : keys.end() - 1;
        EXPECT_TRUE(Erase(tree, *erased));
        keys.erase(erased);
        ASSERT_EQ(KeysInOrder(tree), keys);
      }
      EXPECT_EQ(tree.root, kNone);
    }
  }
}

TEST(RedBlackTree, ErasedNodeWithTwoChildrenTakesTheNextKeyAlongAndItsSlotServesAgain) {
  u32 checked = 0;
  for (u32 erased = 1; erased <= 31; ++erased) {
    Tree tree;
    ASSERT_TRUE(InitPlain(tree, 32, 32, 1));
    InsertAll(tree, UpTo(31));
    const u32 node = Find(tree, erased);
    const Tree::Node before = tree.nodes.data[node];
    if (before.left == kNone || before.right == kNone) {
      continue;
    }
    ++checked;
    const u32 successor = Find(tree, erased + 1);
    ASSERT_TRUE(Erase(tree, erased));
    EXPECT_EQ(tree.freeHead, node);
    EXPECT_EQ(tree.nodes.data[node].key, erased + 1);
    EXPECT_EQ(tree.nodes.data[node].data, static_cast<char>(erased + 1));
    EXPECT_EQ(Find(tree, erased + 1), successor) << "the next one keeps its own node";
    Keys left = UpTo(31);
    left.erase(left.begin() + erased - 1);
    EXPECT_EQ(KeysInOrder(tree), left);
    ASSERT_TRUE(Insert(tree, 77));
    EXPECT_EQ(Find(tree, 77), node);
    EXPECT_EQ(tree.nodes.data[node].data, char{77});
    left.push_back(77);
    EXPECT_EQ(KeysInOrder(tree), left);
  }
  EXPECT_GT(checked, 10U);
}

TEST(RedBlackTree, NextNodeTakesThePlaceAndTheColour) {
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 4, 4, 1));
  InsertAll(tree, {2, 1, 4, 3});
  EXPECT_TRUE(Erase(tree, 2));
  EXPECT_EQ(tree.root, Find(tree, 3));
  EXPECT_EQ(tree.nodes.data[tree.root].colour, kBlack);
  EXPECT_EQ(KeysInOrder(tree), (Keys{1, 3, 4}));
}

TEST(RedBlackTree, ErasedNodesServeLastFirst) {
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 5, 5, 1));
  InsertAll(tree, UpTo(5));
  ASSERT_TRUE(tree.EraseIterator(0));
  ASSERT_TRUE(tree.EraseIterator(4));
  EXPECT_EQ(tree.freeHead, 4U);
  EXPECT_EQ(tree.nodes.data[4].nextFree, 0U);
  InsertAll(tree, {10, 11});
  EXPECT_EQ(Find(tree, 10), 4U);
  EXPECT_EQ(Find(tree, 11), 0U);
  EXPECT_EQ(tree.freeHead, kNone);
}

TEST(RedBlackTree, ErasedRootHandsItsColourToItsOnlyChild) {
  for (const u32 child : {1U, 3U}) {
    Tree tree;
    ASSERT_TRUE(InitPlain(tree, 2, 2, 1));
    InsertAll(tree, {2, child});
    const u32 node = Find(tree, child);
    ASSERT_EQ(tree.nodes.data[node].colour, kRed);
    ASSERT_TRUE(Erase(tree, 2));
    EXPECT_EQ(tree.root, node);
    EXPECT_EQ(tree.nodes.data[node].colour, kBlack);
    EXPECT_EQ(KeysInOrder(tree), Keys{child});
    ASSERT_TRUE(Erase(tree, child));
    EXPECT_EQ(tree.root, kNone);
    EXPECT_EQ(KeysInOrder(tree), Keys{});
  }
}

TEST(RedBlackTree, FirstOperationSetsTheTreeUp) {
  Tree inserted;
  EXPECT_TRUE(inserted.InsertAtLocation(1, 2, kNone, 0));
  EXPECT_EQ(inserted.nodes.capacity, 16U);
  EXPECT_EQ(KeysInOrder(inserted), Keys{1});
  Tree walked;
  EXPECT_TRUE(Insert(walked, 5));
  Tree erased;
  EXPECT_FALSE(Erase(erased, 1));
  Tree marked;
  EXPECT_FALSE(marked.EraseIterator(0));
  for (const Tree* tree : {&inserted, &walked, &erased, &marked}) {
    EXPECT_TRUE(tree->initialised);
    EXPECT_NE(tree->mutex, nullptr);
    EXPECT_EQ(tree->nodes.maxCapacity, 100000U);
    EXPECT_EQ(tree->nodes.flagWord & (kGrowthMask | Collections::ArrayFlags::kPercent), 16U);
  }
}

TEST(RedBlackTree, FirstOperationThatFindsNoLockFailsAndTheNextSetsUp) {
  Tree tree;
  LogCapture log;
  Sim::FailMutexCreate(4);
  EXPECT_FALSE(tree.InsertAtLocation(1, 0, kNone, kLeft));
  EXPECT_FALSE(Insert(tree, 1));
  EXPECT_FALSE(Erase(tree, 1));
  EXPECT_FALSE(tree.EraseIterator(0));
  EXPECT_EQ(log.Lines(), Lines(4, "3 velmar.TreeNotSetUp"));
  EXPECT_FALSE(tree.initialised);
  EXPECT_TRUE(Insert(tree, 1));
  EXPECT_EQ(KeysInOrder(tree), Keys{1});
}

TEST(RedBlackTree, InitGivesBothLocksOrNone) {
  Tree tree;
  ASSERT_TRUE(tree.Init(1, 2, 1, true, GrowType::kFixedStep));
  EXPECT_NE(tree.mutex, nullptr);
  EXPECT_NE(tree.nodes.mutex, nullptr);
  ASSERT_TRUE(Insert(tree, 1));
  ASSERT_TRUE(InitPlain(tree, 1, 2, 1));
  EXPECT_EQ(tree.mutex, nullptr);
  EXPECT_EQ(tree.nodes.mutex, nullptr);
  EXPECT_EQ(KeysInOrder(tree), Keys{}) << "set up anew, a tree is empty";
}

TEST(RedBlackTree, FailedInitLeavesATreeThatIsNotSetUp) {
  TestAllocator memory;
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 1, 2, 1));
  ASSERT_TRUE(Insert(tree, 1));
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(InitPlain(tree, 3, 3, 1));
  EXPECT_FALSE(tree.initialised);
  EXPECT_EQ(KeysInOrder(tree), Keys{});
  EXPECT_FALSE(InitPlain(tree, 3, 2, 1));
  Sim::FailMutexCreate(1);
  EXPECT_FALSE(tree.Init(1, 2, 1, true, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "3 velmar.ArrayCapacityAboveCeiling"}));
  EXPECT_TRUE(InitPlain(tree, 1, 2, 1));
  EXPECT_TRUE(Insert(tree, 1));
  tree.Destroy();
  EXPECT_EQ(memory.live, 0);
}

TEST(RedBlackTree, ParentThatIsNoNodeIsRefused) {
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 4, 4, 1));
  InsertAll(tree, UpTo(3));
  ASSERT_TRUE(tree.EraseIterator(2));
  const std::string before = State(tree);
  LogCapture log;
  EXPECT_FALSE(tree.InsertAtLocation(9, 0, 3, kRight)) << "the array's size";
  EXPECT_EQ(log.Arguments("velmar.TreeNodeAbsent"), (Texts{"3", "3"}));
  EXPECT_FALSE(tree.InsertAtLocation(9, 0, 2, kRight)) << "an erased node";
  EXPECT_EQ(log.Lines(), Lines(2, "3 velmar.TreeNodeAbsent"));
  EXPECT_EQ(State(tree), before);
}

TEST(RedBlackTree, TakenOrUnknownSideIsRefused) {
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 4, 4, 1));
  InsertAll(tree, {2, 1, 3});
  const std::string before = State(tree);
  LogCapture log;
  for (const u32 side : {kLeft, kRight, 0U, 3U}) {
    EXPECT_FALSE(tree.InsertAtLocation(9, 0, 0, side));
    EXPECT_EQ(log.Arguments("velmar.TreePlaceTaken"), (Texts{"0", std::to_string(side)}));
  }
  EXPECT_EQ(log.Lines(), Lines(4, "3 velmar.TreePlaceTaken"));
  EXPECT_EQ(State(tree), before);
  EXPECT_TRUE(tree.InsertAtLocation(9, 0, 2, kRight));
  EXPECT_EQ(KeysInOrder(tree), (Keys{1, 2, 3, 9}));
}

TEST(RedBlackTree, WithoutAParentOnlyAnEmptyTreeTakesANode) {
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 4, 4, 1));
  LogCapture log;
  EXPECT_TRUE(tree.InsertAtLocation(5, 7, kNone, kRight));
  EXPECT_EQ(tree.nodes.data[tree.root].data, char{7});
  const std::string before = State(tree);
  EXPECT_FALSE(tree.InsertAtLocation(6, 0, kNone, kRight));
  EXPECT_EQ(State(tree), before);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(RedBlackTree, KeyThatStandsAndKeyThatIsAbsentChangeNothing) {
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 4, 4, 1));
  InsertAll(tree, {2, 1, 3});
  ASSERT_TRUE(tree.EraseIterator(2));
  const std::string before = State(tree);
  LogCapture log;
  EXPECT_FALSE(Insert(tree, 1));
  EXPECT_FALSE(Erase(tree, 3));
  EXPECT_FALSE(tree.EraseIterator(2));
  EXPECT_FALSE(tree.EraseIterator(3));
  EXPECT_FALSE(tree.EraseIterator(kNone));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.TreeKeyStandsTwice", "3 velmar.TreeKeyAbsent", "3 velmar.TreeNodeAbsent",
                                "3 velmar.TreeNodeAbsent", "3 velmar.TreeNodeAbsent"}));
  EXPECT_EQ(log.Arguments("velmar.TreeKeyAbsent"), Texts{"2"});
  EXPECT_EQ(State(tree), before);
}

TEST(RedBlackTree, ArrayGrowsByItsOwnRuleToItsCeiling) {
  TestAllocator memory;
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 2, 5, 2));
  for (const u32 capacity : {2U, 2U, 4U, 4U, 5U}) {
    ASSERT_TRUE(Insert(tree, tree.count + 1));
    EXPECT_EQ(tree.nodes.capacity, capacity);
  }
  const std::string before = State(tree);
  LogCapture log;
  EXPECT_FALSE(Insert(tree, 6));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.ArrayCeilingReached"});
  EXPECT_EQ(State(tree), before);
  EXPECT_EQ(KeysInOrder(tree), UpTo(5));
  const auto requests = memory.requests.load();
  ASSERT_TRUE(Erase(tree, 3));
  EXPECT_EQ(tree.nodes.count, 5U) << "the array does not shrink";
  EXPECT_TRUE(Insert(tree, 6));
  EXPECT_EQ(memory.requests, requests);
  tree.Destroy();
}

TEST(RedBlackTree, EachAllocationOfGrowthFailsOnceAndChangesNothing) {
  TestAllocator memory;
  u32 failures = 0;
  for (u64 n = 0;; ++n) {
    const u64 before = memory.requests;
    memory.FailRequest(n);
    Tree tree;
    ASSERT_TRUE(InitPlain(tree, 0, 50, 3));
    for (u32 i = 0; i < 50; ++i) {
      const u32 key = i * 37 % 50;
      const std::string state = State(tree);
      LogCapture log;
      if (!Insert(tree, key)) {
        ++failures;
        EXPECT_EQ(log.Lines(), Lines{"5 velmar.ArrayNoMemory"});
        EXPECT_EQ(State(tree), state);
        ASSERT_TRUE(Insert(tree, key)) << "memory is there again";
      }
      NodesInOrder(tree);
    }
    const bool reached = memory.requests - before > n;
    tree.Destroy();
    EXPECT_EQ(memory.live, 0);
    if (!reached) {
      break;
    }
  }
  EXPECT_EQ(failures, 17U) << "one for each step of three";
}

TEST(RedBlackTree, ClearKeepsTheArrayAndDestroyFreesIt) {
  TestAllocator memory;
  Tree tree;
  ASSERT_TRUE(InitPlain(tree, 3, 9, 2));
  InsertAll(tree, UpTo(4));
  ASSERT_TRUE(Erase(tree, 2));
  tree.Clear();
  EXPECT_EQ(State(tree), "4294967295 0 4294967295 5:");
  InsertAll(tree, {3, 1});
  EXPECT_EQ(KeysInOrder(tree), (Keys{1, 3}));
  tree.Destroy();
  EXPECT_EQ(State(tree), "4294967295 0 4294967295 0:");
  EXPECT_EQ(memory.live, 0);
  InsertAll(tree, UpTo(3));
  EXPECT_EQ(tree.nodes.capacity, 4U) << "with the growth and the ceiling that it had";
  EXPECT_EQ(tree.nodes.maxCapacity, 9U);
  tree.Destroy();
}

TEST(RedBlackTree, ThreadsShareATreeWithALock) {
  Tree tree;
  ASSERT_TRUE(tree.Init(0, 1000, 50, true, GrowType::kFixedStep));
  std::vector<std::thread> threads;
  for (u32 first = 0; first < 4; ++first) {
    threads.emplace_back([&tree, first] {
      for (u32 key = first; key < 1000; key += 4) {
        Insert(tree, key);
        if (key % 3 == 0) {
          Erase(tree, key);
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(tree.count, 666U);
  NodesInOrder(tree);
}

}  // namespace
