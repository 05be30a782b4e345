#include "common/libryl_netdb/Backlog.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Velmar/Collections/ModuleMemory.h"
#include "platform/sim/Sim.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace RYL::NetDB {

struct BacklogTestAccess {
  static u32& Head(Backlog& queue) { return queue.head; }
  static u32 Capacity(const Backlog& queue) { return queue.capacity; }
  static u32& GrowInfo(Backlog& queue) { return queue.grow_info; }
  static u32 MaxCount(const Backlog& queue) { return queue.max_count; }
  static const void* Mutex(const Backlog& queue) { return queue.mutex; }
  static const BacklogMessage* Entries(const Backlog& queue) { return queue.entries; }
};

namespace {

using Access = BacklogTestAccess;
using Velmar::Collections::GrowType;

BacklogMessage Numbered(u64 number) {
  BacklogMessage message;
  message.process_puid = number;
  message.address = static_cast<u32>(number);
  message.timestamp = number + 1000000000;
  return message;
}

void PushRange(Backlog& queue, u64 from, u64 to) {
  for (u64 number = from; number < to; ++number) {
    ASSERT_TRUE(queue.Push(Numbered(number)));
  }
}

void ExpectPops(Backlog& queue, u64 from, u64 to) {
  BacklogMessage message;
  for (u64 number = from; number < to; ++number) {
    ASSERT_TRUE(queue.Pop(message));
    ASSERT_EQ(message.process_puid, number);
    ASSERT_EQ(message.timestamp, number + 1000000000);
  }
}

class BacklogTest : public ::testing::Test {
 protected:
  BacklogTest() {
    Velmar::Sim::Reset();
    Velmar::Collections::SetModuleAllocator(&memory);
  }
  ~BacklogTest() override {
    EXPECT_EQ(memory.Out(), 0U);
    Velmar::Collections::SetModuleAllocator(nullptr);
  }

  LogCapture log;
  CountingAllocator memory;
};

TEST_F(BacklogTest, ParametersOutOfRangeAreRefused) {
  struct {
    u32 capacity, ceiling, step;
  } const cases[] = {{11, 10, 1}, {0, 0, 1}, {1, 10, 0}, {1, 10, 0x01000000}};
  for (const auto& bad : cases) {
    log.Clear();
    Backlog queue;
    EXPECT_FALSE(queue.Create(bad.capacity, bad.ceiling, bad.step, true, false, GrowType::kFixedStep));
    EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.BacklogBadParameters"});
    EXPECT_EQ(Access::Entries(queue), nullptr);
  }
}

TEST_F(BacklogTest, CreateKeepsStepAndTypeInOneWord) {
  Backlog fixed;
  ASSERT_TRUE(fixed.Create(4, 10, 0xFF000003, false, false, GrowType::kFixedStep));
  EXPECT_EQ(Access::GrowInfo(fixed), 3U);
  EXPECT_EQ(Access::Mutex(fixed), nullptr);
  Backlog percent;
  ASSERT_TRUE(percent.Create(4, 10, 50, true, false, GrowType::kPercent));
  EXPECT_EQ(Access::GrowInfo(percent), 0x80000032U);
  EXPECT_NE(Access::Mutex(percent), nullptr);
  EXPECT_EQ(Access::MaxCount(percent), 10U);
}

TEST_F(BacklogTest, NoMutexIsLoggedAndLeavesNothing) {
  Backlog queue;
  Velmar::Sim::FailMutexCreate(1);
  EXPECT_FALSE(queue.Create(4, 10, 1, true, false, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.BacklogNoLock"});
  EXPECT_EQ(Access::Capacity(queue), 0U);
}

TEST_F(BacklogTest, NoMemoryIsLoggedAndLeavesNothing) {
  Backlog queue;
  memory.FailFrom(0);
  EXPECT_FALSE(queue.Create(4, 10, 1, true, false, GrowType::kFixedStep));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.BacklogNotAllocated"});
  EXPECT_EQ(Access::Mutex(queue), nullptr);
  EXPECT_EQ(Access::Capacity(queue), 0U);
}

TEST_F(BacklogTest, OldestComesOutFirst) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(8, 8, 1, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 8);
  EXPECT_EQ(queue.GetCount(), 8U);
  ExpectPops(queue, 0, 8);
  EXPECT_TRUE(log.Lines(3).empty());
}

TEST_F(BacklogTest, EmptyQueueGivesNothing) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(8, 8, 1, true, false, GrowType::kFixedStep));
  BacklogMessage message = Numbered(5);
  EXPECT_FALSE(queue.Pop(message));
  EXPECT_EQ(message.process_puid, 5U);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"3 ryl_netdb.BacklogEmpty"});
}

TEST_F(BacklogTest, HeadReturnsToStartWhenQueueEmpties) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(8, 8, 1, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 3);
  ExpectPops(queue, 0, 2);
  EXPECT_EQ(Access::Head(queue), 2U);
  ExpectPops(queue, 2, 3);
  EXPECT_EQ(Access::Head(queue), 0U);
}

TEST_F(BacklogTest, HeadGoesRoundTheEnd) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(4, 4, 1, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 4);
  ExpectPops(queue, 0, 3);
  PushRange(queue, 4, 7);
  ExpectPops(queue, 3, 4);
  EXPECT_EQ(Access::Head(queue), 0U);
  ExpectPops(queue, 4, 7);
}

TEST_F(BacklogTest, WrappedQueueGrowsInOrder) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(1024, 0x100000, 256, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 1024);
  ExpectPops(queue, 0, 700);
  PushRange(queue, 1024, 1724);
  EXPECT_EQ(Access::Capacity(queue), 1024U);
  EXPECT_EQ(Access::Head(queue), 700U);
  PushRange(queue, 1724, 1725);
  EXPECT_EQ(Access::Capacity(queue), 1280U);
  EXPECT_EQ(Access::Head(queue), 0U);
  ExpectPops(queue, 700, 1725);
}

TEST_F(BacklogTest, QueueThatStartsWithoutRoomGrows) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(0, 4, 2, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 4);
  EXPECT_FALSE(queue.Push(Numbered(4)));
  ExpectPops(queue, 0, 4);
}

TEST_F(BacklogTest, FullQueueRefusesAndKeepsItsOrder) {
  constexpr u32 kCeiling = 0x100000;
  Backlog queue;
  ASSERT_TRUE(queue.Create(kCeiling - 256, kCeiling, 256, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, kCeiling);
  EXPECT_FALSE(queue.Push(Numbered(kCeiling)));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.BacklogFull"});
  EXPECT_EQ(log.Arguments("ryl_netdb.BacklogFull"), std::vector<std::string>{"1048576"});
  EXPECT_EQ(queue.GetCount(), kCeiling);
  ExpectPops(queue, 0, kCeiling);
}

TEST_F(BacklogTest, GrowthWithoutMemoryRefusesAndKeepsTheQueue) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(4, 100, 4, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 4);
  memory.FailFrom(0);
  EXPECT_FALSE(queue.Push(Numbered(4)));
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"5 ryl_netdb.BacklogNoMemory", "5 ryl_netdb.BacklogNotGrown"}));
  EXPECT_EQ(log.Arguments("ryl_netdb.BacklogNoMemory"), std::vector<std::string>{"8"});
  PushRange(queue, 4, 5);
  ExpectPops(queue, 0, 5);
}

TEST_F(BacklogTest, GrowthThatGivesNoRoomRefuses) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(4, 100, 4, true, false, GrowType::kFixedStep));
  PushRange(queue, 0, 4);
  Access::GrowInfo(queue) = 0;
  EXPECT_FALSE(queue.Push(Numbered(4)));
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"3 ryl_netdb.BacklogCeilingReached", "5 ryl_netdb.BacklogNotGrown"}));
  EXPECT_EQ(log.Arguments("ryl_netdb.BacklogCeilingReached"), std::vector<std::string>{"100"});
  ExpectPops(queue, 0, 4);
}

TEST_F(BacklogTest, PercentGrowthStopsAtTheCeiling) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(10, 14, 50, true, false, GrowType::kPercent));
  PushRange(queue, 0, 11);
  EXPECT_EQ(Access::Capacity(queue), 14U);
}

TEST_F(BacklogTest, OverwritingQueueReplacesItsOldest) {
  Backlog queue;
  ASSERT_TRUE(queue.Create(2, 4, 1, true, true, GrowType::kFixedStep));
  PushRange(queue, 0, 4);
  EXPECT_EQ(Access::Capacity(queue), 4U);
  PushRange(queue, 4, 10);
  EXPECT_EQ(queue.GetCount(), 4U);
  EXPECT_EQ(Access::Head(queue), 2U);
  ExpectPops(queue, 6, 10);
  EXPECT_TRUE(log.Lines(3).empty());
}

TEST_F(BacklogTest, ConcurrentPushesAllComeOut) {
  constexpr u64 kThreads = 4;
  constexpr u64 kEach = 2000;
  Backlog queue;
  ASSERT_TRUE(queue.Create(16, 0x100000, 256, true, false, GrowType::kFixedStep));
  std::vector<std::thread> threads;
  for (u64 thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&queue, thread] { PushRange(queue, thread * kEach, (thread + 1) * kEach); });
  }
  // The numbers of one thread come in its order.
  u64 next[kThreads] = {0, kEach, 2 * kEach, 3 * kEach};
  for (u64 taken = 0; taken < kThreads * kEach;) {
    BacklogMessage message;
    if (queue.GetCount() != 0 && queue.Pop(message)) {
      ASSERT_EQ(message.process_puid, next[message.process_puid / kEach]++);
      ++taken;
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(queue.GetCount(), 0U);
}

}  // namespace
}  // namespace RYL::NetDB
