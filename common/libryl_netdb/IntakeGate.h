// IntakeGate: lets the worker end beside running intake without a lock on the intake path.
#pragma once

#include <atomic>
#include <thread>

#include "Velmar/Types.h"

namespace RYL::Module {

// Intake enters, then reads netdb_enabled, and uses the queue only if it is on. Who stops turns netdb_enabled off, then
// waits until the gate is empty: from then on nobody uses the queue. This holds because all four steps are sequentially
// consistent.
// Threads: thread-safe.
class IntakeGate {
 public:
  class Passage {
   public:
    explicit Passage(IntakeGate& gate) : count(gate.inside) { count.fetch_add(1); }
    ~Passage() { count.fetch_sub(1); }
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

   private:
    std::atomic<u32>& count;
  };

  // A passage takes no longer than one push, so this spins.
  void WaitUntilEmpty() const {
    while (inside.load() != 0) {
      std::this_thread::yield();
    }
  }

 private:
  std::atomic<u32> inside{0};
};

}  // namespace RYL::Module
