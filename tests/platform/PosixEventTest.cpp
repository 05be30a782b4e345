#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <csignal>

#include "SystemCallFilter.h"
#include "Velmar/OS/Threading.h"

namespace {

using namespace Velmar;
using OS::Event;

constexpr int kNoFilter = 3;

// Leaves without destructors, which may use futexes of their own.
[[noreturn]] void Leave(int code) {
  _exit(code);
}

void SignalTwiceUnderFilter() {
  Event event(false);
  event.Signal();
  if (!EndProcessOnSystemCall(SYS_futex)) {
    Leave(kNoFilter);
  }
  bool signalled = event.Signal() && event.Signal();
  Leave(signalled && event.Wait(0) && !event.Wait(0) ? 0 : 1);
}

TEST(PosixEventDeathTest, SignalOnASignalledEventMakesNoSystemCall) {
  EXPECT_EXIT(SignalTwiceUnderFilter(), testing::ExitedWithCode(0), "");
}

[[noreturn]] void WaitForever(Event& event) {
  for (;;) {
    event.Wait(3600000);
  }
}

// The filter is this thread's alone, so that the waiter may sleep. Ends when a signal meets it asleep.
void SignalWaiterUnderFilter() {
  static Event event(false);
  void* thread = OS::Threading::StartThread([](void*) { WaitForever(event); }, nullptr, "waiter");
  if (thread == nullptr || !EndProcessOnSystemCall(SYS_futex)) {
    Leave(kNoFilter);
  }
  for (;;) {
    event.Signal();
  }
}

// The counterpart, which shows that the filter sees a wake-up.
TEST(PosixEventDeathTest, SignalWithAWaiterWakesIt) {
  EXPECT_EXIT(SignalWaiterUnderFilter(), testing::KilledBySignal(SIGSYS), "");
}

TEST(PosixEvent, WaitEndsWithoutASignalWhenTheTimeIsOver) {
  Event event(false);
  timespec before = {};
  timespec after = {};
  clock_gettime(CLOCK_MONOTONIC, &before);
  EXPECT_FALSE(event.Wait(3));
  clock_gettime(CLOCK_MONOTONIC, &after);
  long elapsedNs = (after.tv_sec - before.tv_sec) * 1000000000 + (after.tv_nsec - before.tv_nsec);
  EXPECT_GE(elapsedNs, 3000000);
}

}  // namespace
