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

namespace {

// Whether the allocation that is about to be made is one of those that fail.
bool FailsNow() {
  const u64 number = allocations.fetch_add(1);
  const u64 first = firstFailing;
  return number >= first && number - first < failing;
}

}  // namespace

void* Allocate(std::size_t size) {
  return FailsNow() ? nullptr : std::malloc(size);
}

void* Reallocate(void* memory, std::size_t size) {
  return FailsNow() ? nullptr : std::realloc(memory, size);
}

void Free(void* memory) {
  std::free(memory);
}

}  // namespace Memory

}  // namespace Velmar
