// Module memory with and without a host's allocator.
#include "Velmar/Collections/ModuleMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tests/velmarlib/collections/TestAllocator.h"

namespace {

using namespace Velmar::Collections;

struct Pair {
  static inline int alive = 0;
  int first;
  int second;
  Pair(int a, int b) : first(a), second(b) { ++alive; }
  ~Pair() { --alive; }
};

TEST(ModuleMemory, WithoutAnAllocatorTheHeapServes) {
  void* memory = ModuleAllocate(100);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % alignof(std::max_align_t), 0U);
  std::memset(memory, 0xA5, 100);
  ModuleFree(memory);
  ModuleFree(nullptr);
}

TEST(ModuleMemory, AllocatorServesAllCallsWhileItIsSet) {
  {
    TestAllocator memory;
    void* block = ModuleAllocate(24);
    EXPECT_EQ(memory.lastSize, 24U);
    EXPECT_EQ(memory.live, 1);
    ModuleFree(block);
    EXPECT_EQ(memory.live, 0);
  }
  void* block = ModuleAllocate(8);
  EXPECT_NE(block, nullptr) << "the heap serves again";
  ModuleFree(block);
}

TEST(ModuleMemory, FreeHandsAZeroedWordEachTime) {
  TestAllocator memory;
  ModuleFree(ModuleAllocate(1));
  ModuleFree(ModuleAllocate(1));
  EXPECT_EQ(memory.badScratch, 0U);
  EXPECT_EQ(memory.frees, 2U);
}

TEST(ModuleMemory, NullNeverReachesTheAllocator) {
  TestAllocator memory;
  ModuleFree(nullptr);
  Delete<Pair>(nullptr);
  EXPECT_EQ(memory.frees, 0U);
  EXPECT_EQ(memory.badScratch, 0U);
}

TEST(ModuleMemory, ExhaustionIsNull) {
  TestAllocator memory;
  memory.FailRequest(0);
  EXPECT_EQ(ModuleAllocate(8), nullptr);
  memory.FailRequest(0);
  EXPECT_EQ((New<Pair>(1, 2)), nullptr);
  EXPECT_EQ(Pair::alive, 0);
}

TEST(ModuleMemory, ObjectsAreConstructedAndDestructed) {
  TestAllocator memory;
  Pair* pair = New<Pair>(3, 4);
  ASSERT_NE(pair, nullptr);
  EXPECT_EQ(pair->first, 3);
  EXPECT_EQ(pair->second, 4);
  EXPECT_EQ(Pair::alive, 1);
  Delete(pair);
  EXPECT_EQ(Pair::alive, 0);
  EXPECT_EQ(memory.live, 0);
}

}  // namespace
