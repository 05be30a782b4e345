#include "platform/sim/Scheduler.h"

#include <algorithm>
#include <chrono>

namespace Velmar::Sim {

namespace {

constexpr std::chrono::seconds kPatience(30);

}  // namespace

void Scheduler::Wake(Waiter& waiter, bool signalled) {
  waiter.woken = true;
  waiter.signalled = signalled;
  waiter.ready.notify_one();
}

void Scheduler::Advance(u64 milliseconds) {
  epochMs_ += milliseconds;
  monotonicMs_ += milliseconds;
  waiting_.sort([](const Waiter* a, const Waiter* b) { return a->dueMs < b->dueMs; });
  while (!waiting_.empty() && waiting_.front()->dueMs <= monotonicMs_) {
    Wake(*waiting_.front(), false);
    waiting_.pop_front();
  }
}

bool Scheduler::Wait(SimEvent& event, u32 milliseconds, std::unique_lock<std::mutex>& lock) {
  if (event.signalled) {
    event.signalled = event.manualReset;
    return true;
  }
  if (milliseconds == 0) {
    return false;
  }
  Waiter waiter;
  waiter.event = &event;
  waiter.dueMs = monotonicMs_ + milliseconds;
  waiting_.push_back(&waiter);
  waitingGrew_.notify_all();
  waiter.ready.wait(lock, [&waiter] { return waiter.woken; });
  return waiter.signalled;
}

void Scheduler::Signal(SimEvent& event) {
  event.signalled = true;
  auto isWaiter = [&event](const Waiter* waiter) { return waiter->event == &event; };
  for (auto found = std::find_if(waiting_.begin(), waiting_.end(), isWaiter);
       event.signalled && found != waiting_.end(); found = std::find_if(waiting_.begin(), waiting_.end(), isWaiter)) {
    Wake(**found, true);
    waiting_.erase(found);
    event.signalled = event.manualReset;
  }
}

bool Scheduler::BlockUntilWaiting(u32 count, std::unique_lock<std::mutex>& lock) {
  auto deadline = std::chrono::system_clock::now() + kPatience;
  return waitingGrew_.wait_until(lock, deadline, [this, count] { return waiting_.size() >= count; });
}

}  // namespace Velmar::Sim
