// ForEachFailingAllocation: runs a step again and again, each time with one more allocation that works before one
// fails.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "platform/sim/Sim.h"

// `step` makes its own objects, tries the operation, checks what a failure must leave and returns the operation's
// result. Ends when the step runs without meeting the fault, which must be a success. Gives the number of failed
// allocations.
inline int ForEachFailingAllocation(const std::function<bool()>& step) {
  constexpr int kMost = 1000;
  for (int n = 0; n < kMost; ++n) {
    const Velmar::u64 before = Velmar::Sim::CountAllocations();
    Velmar::Sim::FailAllocation(static_cast<Velmar::u64>(n));
    const bool succeeded = step();
    const Velmar::u64 made = Velmar::Sim::CountAllocations() - before;
    Velmar::Sim::FailAllocation(~Velmar::u64{0});
    if (made <= static_cast<Velmar::u64>(n)) {
      EXPECT_TRUE(succeeded) << "failed with no failing allocation";
      return n;
    }
    EXPECT_FALSE(succeeded) << "allocation " << n << " failed unnoticed";
  }
  ADD_FAILURE() << "the step never ends";
  return kMost;
}
