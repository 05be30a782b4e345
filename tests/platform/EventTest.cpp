#include <gtest/gtest.h>

#include <array>
#include <atomic>

#include "Velmar/OS/Threading.h"

namespace {

using namespace Velmar;
using OS::Event;
using OS::Threading;

// Long enough that only a signal ends it.
constexpr u32 kLongMs = 3600000;

TEST(EventContract, StartsUnsignalled) {
  Event event(false);
  ASSERT_TRUE(event.IsValid());
  EXPECT_FALSE(event.Wait(0));
}

TEST(EventContract, OneWaitTakesTheSignal) {
  Event event(false);
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(event.Wait(kLongMs));
  EXPECT_FALSE(event.Wait(0));
}

TEST(EventContract, SignalsThatNobodyTookAreOne) {
  Event event(false);
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(event.Wait(0));
  EXPECT_FALSE(event.Wait(0));
}

TEST(EventContract, ManualResetStaysSignalled) {
  Event event(true);
  EXPECT_FALSE(event.Wait(0));
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(event.Wait(0));
  EXPECT_TRUE(event.Wait(kLongMs));
}

struct Pair {
  Event there{false};
  Event back{false};
  int turns = 0;
};

void Answer(void* context) {
  auto* pair = static_cast<Pair*>(context);
  for (int i = 0; i < 200; ++i) {
    pair->turns += pair->there.Wait(kLongMs) ? 1 : 0;
    pair->back.Signal();
  }
}

TEST(EventContract, EverySignalOfAnExchangeArrives) {
  Pair pair;
  void* thread = Threading::StartThread(&Answer, &pair, "answer");
  for (int i = 0; i < 200; ++i) {
    EXPECT_TRUE(pair.there.Signal());
    EXPECT_TRUE(pair.back.Wait(kLongMs));
  }
  EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  EXPECT_EQ(pair.turns, 200);
}

constexpr int kProducers = 4;
constexpr int kItems = 2000;

struct Queue {
  Event filled{false};
  std::atomic<int> waiting{0};
};

void Produce(void* context) {
  auto* queue = static_cast<Queue*>(context);
  for (int i = 0; i < kItems; ++i) {
    queue->waiting.fetch_add(1);
    queue->filled.Signal();
  }
}

TEST(EventContract, ConsumerSeesAllOfManySignallers) {
  Queue queue;
  std::array<void*, kProducers> threads = {};
  for (void*& thread : threads) {
    thread = Threading::StartThread(&Produce, &queue, "producer");
    ASSERT_TRUE(Threading::IsValidThreadHandle(thread));
  }
  int taken = 0;
  while (taken < kProducers * kItems) {
    ASSERT_TRUE(queue.filled.Wait(kLongMs));
    taken += queue.waiting.exchange(0);
  }
  EXPECT_EQ(taken, kProducers * kItems);
  for (void*& thread : threads) {
    EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  }
}

struct Gate {
  Event open{true};
  std::atomic<int> passed{0};
};

void Pass(void* context) {
  auto* gate = static_cast<Gate*>(context);
  if (gate->open.Wait(kLongMs)) {
    gate->passed.fetch_add(1);
  }
}

TEST(EventContract, ManualResetLetsEveryWaiterPass) {
  Gate gate;
  std::array<void*, 4> threads = {};
  for (void*& thread : threads) {
    thread = Threading::StartThread(&Pass, &gate, "waiter");
    ASSERT_TRUE(Threading::IsValidThreadHandle(thread));
  }
  EXPECT_TRUE(gate.open.Signal());
  for (void*& thread : threads) {
    EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  }
  EXPECT_EQ(gate.passed, 4);
}

}  // namespace
