// Function: what it holds, where it holds it, and what is left when there is no memory.
#include "Velmar/Utils/Function.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "Velmar/Collections/Array.h"
#include "tests/velmarlib/collections/TestAllocator.h"

namespace {

using Velmar::Utils::Function;

// A callable that counts itself; `Words` decides whether it fits inside the Function.
template <std::size_t Words>
struct Counting {
  static inline int alive = 0;
  std::uint64_t words[Words] = {};

  explicit Counting(std::uint64_t value) {
    words[0] = value;
    ++alive;
  }
  Counting(const Counting& other) : words() {
    words[0] = other.words[0];
    ++alive;
  }
  Counting(Counting&& other) noexcept : words() {
    words[0] = std::exchange(other.words[0], 0);
    ++alive;
  }
  Counting& operator=(const Counting&) = delete;
  ~Counting() { --alive; }

  std::uint64_t operator()(std::uint64_t add) const { return words[0] + add; }
};
using Small = Counting<1>;
using Large = Counting<16>;
using Adder = Function<std::uint64_t(std::uint64_t)>;

static_assert(!std::is_constructible_v<Adder, int>, "only what can be called so converts");
static_assert(!std::is_constructible_v<Adder, void (*)(const char*)>, "only what can be called so converts");
static_assert(std::is_nothrow_move_assignable_v<Adder>);

TEST(Function, NewOneIsEmpty) {
  const Adder empty{};
  EXPECT_FALSE(empty);
}

TEST(Function, SmallCallableNeedsNoMemory) {
  TestAllocator memory;
  {
    const Adder add(Small(40));
    ASSERT_TRUE(add);
    EXPECT_EQ(add(2), 42U);
  }
  EXPECT_EQ(memory.requests, 0U);
  EXPECT_EQ(Small::alive, 0);
}

TEST(Function, LargeCallableLiesInModuleMemory) {
  TestAllocator memory;
  {
    const Adder add(Large(40));
    ASSERT_TRUE(add);
    EXPECT_EQ(add(2), 42U);
    EXPECT_EQ(memory.live, 1);
    EXPECT_EQ(memory.lastSize, sizeof(Large));
  }
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(Large::alive, 0);
}

TEST(Function, NoMemoryLeavesItEmpty) {
  TestAllocator memory;
  memory.FailRequest(0);
  const Adder add(Large(40));
  EXPECT_FALSE(add);
  EXPECT_EQ(Large::alive, 0);
}

template <class Callable>
void CopiesAreIndependent() {
  TestAllocator memory;
  {
    Adder copy;
    {
      const Adder original(Callable(40));
      ASSERT_TRUE(copy.CopyFrom(original));
      EXPECT_EQ(original(1), 41U);
      EXPECT_EQ(Callable::alive, 2);
    }
    EXPECT_EQ(copy(2), 42U);
    const Adder second(copy);
    Adder third;
    third = second;
    third = *&third;
    EXPECT_EQ(third(3), 43U);
    EXPECT_EQ(Callable::alive, 3);
  }
  EXPECT_EQ(Callable::alive, 0);
  EXPECT_EQ(memory.live, 0);
}

TEST(Function, CopyOfASmallCallableIsIndependent) {
  CopiesAreIndependent<Small>();
}
TEST(Function, CopyOfALargeCallableIsIndependent) {
  CopiesAreIndependent<Large>();
}

template <class Callable>
void MovesTakeTheCallable() {
  TestAllocator memory;
  {
    Adder first(Callable(40));
    Adder second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): a moved-from Function is empty
    EXPECT_EQ(Callable::alive, 1);
    Adder third(Callable(7));
    third = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(third(2), 42U);
    EXPECT_EQ(Callable::alive, 1);
    Adder& same = third;
    third = std::move(same);
    EXPECT_EQ(third(2), 42U);
    third = Adder();
    EXPECT_FALSE(third);
    EXPECT_EQ(Callable::alive, 0);
  }
  EXPECT_EQ(memory.live, 0);
}

TEST(Function, MoveTakesASmallCallable) {
  MovesTakeTheCallable<Small>();
}
TEST(Function, MoveTakesALargeCallable) {
  MovesTakeTheCallable<Large>();
}

TEST(Function, CopyWithoutMemoryLeavesItEmpty) {
  TestAllocator memory;
  {
    const Adder original(Large(40));
    Adder copy(Small(1));
    memory.FailRequest(0);
    EXPECT_FALSE(copy.CopyFrom(original));
    EXPECT_FALSE(copy);
    EXPECT_EQ(original(2), 42U);
    EXPECT_TRUE(copy.CopyFrom(original));
    EXPECT_TRUE(copy.CopyFrom(copy));
    EXPECT_EQ(copy(2), 42U);
  }
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(Large::alive, 0);
}

TEST(Function, CopyOfAnEmptyOneIsEmptyAndTrue) {
  const Adder empty{};
  Adder target(Small(1));
  EXPECT_TRUE(target.CopyFrom(empty));
  EXPECT_FALSE(target);
  EXPECT_EQ(Small::alive, 0);
}

TEST(Function, ResetDropsTheCallable) {
  Adder add(Small(1));
  add.Reset();
  EXPECT_FALSE(add);
  EXPECT_EQ(Small::alive, 0);
  add.Reset();
  EXPECT_FALSE(add);
}

TEST(Function, ResultIsDroppedWhereNoneIsWanted) {
  int calls = 0;
  const Function<void()> count([&calls] { return ++calls; });
  count();
  EXPECT_EQ(calls, 1);
}

TEST(Function, ArgumentsPassByReferenceAndByMove) {
  const Function<int(int&, std::unique_ptr<int>)> take([](int& counter, std::unique_ptr<int> value) {
    ++counter;
    return *value;
  });
  int counter = 0;
  EXPECT_EQ(take(counter, std::make_unique<int>(9)), 9);
  EXPECT_EQ(counter, 1);
}

int Twice(int value) {
  return value * 2;
}

TEST(Function, NullPointerToAFunctionIsEmpty) {
  int (*pointer)(int) = &Twice;
  const Function<int(int)> filled(pointer);
  ASSERT_TRUE(filled);
  EXPECT_EQ(filled(4), 8);
  pointer = nullptr;
  const Function<int(int)> empty(pointer);
  EXPECT_FALSE(empty);
}

struct Point {
  int x = 3;
  int Shifted(int by) const { return x + by; }
};

TEST(Function, PointersToMembersAreCalledOnTheirObject) {
  const Function<int(const Point&, int)> shifted(&Point::Shifted);
  EXPECT_EQ(shifted(Point(), 4), 7);
}

TEST(Function, StateOfACallableSurvivesItsCalls) {
  const Function<int()> next([n = 0]() mutable { return ++n; });
  EXPECT_EQ(next(), 1);
  EXPECT_EQ(next(), 2);
}

TEST(Function, ArrayOfFunctionsGrowsAndCopies) {
  TestAllocator memory;
  {
    Velmar::Collections::Array<Adder> filters;
    for (std::uint64_t i = 0; i < 10; ++i) {
      ASSERT_TRUE(filters.Add(i % 2 == 0 ? Adder(Large(i)) : Adder(Small(i))));
    }
    for (Velmar::u32 i = 0; i < 10; ++i) {
      EXPECT_EQ(filters.data[i](100), 100U + i);
    }
    memory.FailRequest(1);
    EXPECT_FALSE(filters.Add(Adder(Large(1)))) << "the copy into the array finds no memory";
    EXPECT_EQ(filters.count, 10U);
  }
  EXPECT_EQ(memory.live, 0);
  EXPECT_EQ(Large::alive, 0);
  EXPECT_EQ(Small::alive, 0);
}

}  // namespace
