// The virtual clock of the simulated platform, and who waits for it.
#include <gmock/gmock.h>

#include <array>
#include <atomic>

#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "platform/sim/Sim.h"

namespace {

using namespace Velmar;
using OS::Event;
using OS::Threading;
using OS::Time;
using testing::ElementsAre;

class SimTime : public testing::Test {
 protected:
  SimTime() { Sim::Reset(); }
};

class SimWait : public SimTime {};

u64 Now() {
  return Time::GetEpochTime(nullptr);
}

u64 Ticks() {
  u64 ticks = 0;
  EXPECT_TRUE(Time::GetPerformanceCounter(ticks));
  return ticks;
}

TEST_F(SimTime, ClockStandsStill) {
  EXPECT_EQ(Now(), 1700000000000U);
  EXPECT_EQ(Now(), 1700000000000U);
  EXPECT_EQ(Time::GetSystemTime(), 1700000000U);
}

TEST_F(SimTime, AdvanceMovesBothClocks) {
  u64 before = Ticks();
  Sim::AdvanceTime(1500);
  EXPECT_EQ(Now(), 1700000001500U);
  EXPECT_EQ(Time::GetSystemTime(), 1700000001U);
  u64 frequency = 0;
  ASSERT_TRUE(Time::GetPerformanceFrequency(frequency));
  EXPECT_EQ((Ticks() - before) * 1000 / frequency, 1500U);
}

TEST_F(SimTime, SettingTheWallClockLeavesTheCounter) {
  u64 before = Ticks();
  Sim::SetEpochTime(5000);
  EXPECT_EQ(Now(), 5000U);
  EXPECT_EQ(Ticks(), before);
}

TEST_F(SimTime, SleepAddsItsLengthAndReturns) {
  Time::Sleep(100);
  Time::Sleep(0);
  Time::Sleep(3600000);
  EXPECT_THAT(Sim::Sleeps(), ElementsAre(100U, 0U, 3600000U));
  EXPECT_EQ(Now(), 1700000000000U + 3600100U);
}

TEST_F(SimTime, FrequencyCanFail) {
  u64 frequency = 7;
  Sim::FailPerformanceFrequency(true);
  EXPECT_FALSE(Time::GetPerformanceFrequency(frequency));
  EXPECT_EQ(frequency, 7U);
  Sim::FailPerformanceFrequency(false);
  EXPECT_TRUE(Time::GetPerformanceFrequency(frequency));
}

TEST_F(SimTime, ResetStartsOver) {
  Time::Sleep(100);
  Sim::PutFile("/a", "");
  Sim::FailMutexCreate(1);
  Sim::Reset();
  EXPECT_EQ(Now(), 1700000000000U);
  EXPECT_THAT(Sim::Sleeps(), ElementsAre());
  EXPECT_THAT(Sim::ListFiles(), ElementsAre());
  EXPECT_EQ(Sim::CountFileOperations(), 0U);
  EXPECT_EQ(Sim::CountAllocations(), 0U);
  void* mutex = Threading::MutexCreate();
  EXPECT_NE(mutex, nullptr);
  Threading::MutexDestroy(mutex);
}

// A thread that waits once with a time-out and notes how that ended.
class Waiter {
 public:
  explicit Waiter(u32 milliseconds, Event& event) : milliseconds_(milliseconds), event_(event) {
    thread_ = Threading::StartThread([](void* context) { static_cast<Waiter*>(context)->Run(); }, this, "waiter");
  }
  ~Waiter() { Threading::WaitForThreadToEnd(thread_); }
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  // Joins: true when a signal ended the wait.
  bool Signalled() {
    EXPECT_TRUE(Threading::WaitForThreadToEnd(thread_));
    return signalled_;
  }
  u64 woken = 0;

 private:
  void Run() {
    signalled_ = event_.Wait(milliseconds_);
    woken = Now();
  }
  u32 milliseconds_;
  Event& event_;
  void* thread_;
  bool signalled_ = false;
};

TEST_F(SimWait, TimeOutComesAtItsTimeAndNotBefore) {
  Event event(false);
  Waiter waiter(60000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  Sim::AdvanceTime(59999);
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  Sim::AdvanceTime(1);
  EXPECT_FALSE(waiter.Signalled());
  EXPECT_EQ(waiter.woken, 1700000060000U);
}

TEST_F(SimWait, SignalEndsTheWait) {
  Event event(false);
  Waiter waiter(60000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(waiter.Signalled());
  EXPECT_EQ(waiter.woken, 1700000000000U);
  EXPECT_FALSE(event.Wait(0));
}

TEST_F(SimWait, SleepWakesWhoseTimeComes) {
  Event event(false);
  Waiter waiter(100, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  Time::Sleep(100);
  EXPECT_FALSE(waiter.Signalled());
}

TEST_F(SimWait, OneSignalWakesTheFirstOfTwo) {
  Event event(false);
  Waiter first(1000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  Waiter second(1000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(2));
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(first.Signalled());
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  Sim::AdvanceTime(1000);
  EXPECT_FALSE(second.Signalled());
}

TEST_F(SimWait, AdvanceWakesOnlyWhoIsDue) {
  Event event(false);
  Waiter late(2000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  Waiter early(1000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(2));
  Sim::AdvanceTime(1500);
  EXPECT_FALSE(early.Signalled());
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(late.Signalled());
}

TEST_F(SimWait, ManualResetWakesAll) {
  Event event(true);
  Waiter first(1000, event);
  Waiter second(1000, event);
  ASSERT_TRUE(Sim::WaitUntilWaiting(2));
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(first.Signalled());
  EXPECT_TRUE(second.Signalled());
  EXPECT_TRUE(event.Wait(0));
}

// A loop that turns on a signal or after a minute, as a worker does.
struct Loop {
  Event wake{false};
  std::atomic<bool> stop{false};
  std::atomic<int> turns{0};

  static void Run(void* context) {
    auto* loop = static_cast<Loop*>(context);
    while (!loop->stop) {
      loop->wake.Wait(60000);
      ++loop->turns;
    }
  }
};

TEST_F(SimWait, EachStepLetsALoopTurnExactlyOnce) {
  Loop loop;
  void* thread = Threading::StartThread(&Loop::Run, &loop, "loop");
  ASSERT_TRUE(Sim::WaitUntilWaiting(1));
  for (int turn = 1; turn <= 200; ++turn) {
    if (turn % 2 == 0) {
      Sim::AdvanceTime(60000);
    } else {
      EXPECT_TRUE(loop.wake.Signal());
    }
    ASSERT_TRUE(Sim::WaitUntilWaiting(1));
    ASSERT_EQ(loop.turns, turn);
  }
  loop.stop = true;
  EXPECT_TRUE(loop.wake.Signal());
  EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
}

}  // namespace
