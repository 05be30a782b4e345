#include "Velmar/Memory.h"

#include <atomic>
#include <cstdlib>

#include "platform/sim/State.h"

namespace Velmar {

namespace {

// Apart from the state's mutex: allocation is the one service that is called often enough to matter.
std::atomic<u64> allocations{0};
std::atomic<u64> firstFailing{0};
std::atomic<u64> failing{0};

}  // namespace

namespace Sim {

void FailAllocation(u64 n, u64 count) {
  failing = 0;
  firstFailing = allocations + n;
  failing = n == ~u64{0} ? 0 : count;
}

u64 CountAllocations() {
  return allocations;
}

void ResetAllocations() {
  failing = 0;
  allocations = 0;
}

}  // namespace Sim

namespace Memory {

void* Allocate(std::size_t size) {
  u64 number = allocations.fetch_add(1);
  u64 first = firstFailing;
  if (number >= first && number - first < failing) {
    return nullptr;
  }
  return std::malloc(size);
}

void Free(void* memory) {
  std::free(memory);
}

}  // namespace Memory

}  // namespace Velmar
