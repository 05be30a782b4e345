// Scheduler: the virtual clock, and the threads that wait for a signal or for it.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>
#include <vector>

#include "Velmar/Types.h"

namespace Velmar::Sim {

// The state of one Event.
struct SimEvent {
  bool manualReset;
  bool signalled;
};

// Threads: every method is called with the state's mutex held; a waiter gives it up while it blocks. Who wakes a waiter
// takes it off the list, so that a woken thread never counts as a waiting one.
class Scheduler {
 public:
  [[nodiscard]] u64 EpochMs() const { return epochMs_; }
  // Never goes back, whatever SetEpoch does.
  [[nodiscard]] u64 MonotonicMs() const { return monotonicMs_; }
  void SetEpoch(u64 epochMs) { epochMs_ = epochMs; }
  void Advance(u64 milliseconds);

  // True when signalled, false when the virtual time has come.
  bool Wait(SimEvent& event, u32 milliseconds, std::unique_lock<std::mutex>& lock);
  void Signal(SimEvent& event);
  // Blocks in real time, at most 30 seconds.
  bool BlockUntilWaiting(u32 count, std::unique_lock<std::mutex>& lock);

 private:
  struct Waiter {
    SimEvent* event;
    u64 dueMs;
    bool woken = false;
    bool signalled = false;
    std::condition_variable ready;
  };
  static void Wake(Waiter& waiter, bool signalled);

  u64 epochMs_ = 0;
  u64 monotonicMs_ = 0;
  std::list<Waiter*> waiting_;
  std::condition_variable waitingGrew_;
};

}  // namespace Velmar::Sim
