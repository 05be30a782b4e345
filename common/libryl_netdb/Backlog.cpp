#include "common/libryl_netdb/Backlog.h"

#include <memory>

#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/Threading.h"
#include "common/libryl_netdb/ModuleLog.h"

namespace RYL::NetDB {
namespace {

constexpr u32 kGrowStepMask = 0x00FFFFFF;
constexpr u32 kPercentBit = 0x80000000;

// Uninitialised room for `capacity` entries, null on exhaustion.
BacklogMessage* AllocateEntries(u32 capacity) {
  return static_cast<BacklogMessage*>(
      Velmar::Collections::ModuleAllocate(std::size_t{capacity} * sizeof(BacklogMessage)));
}

}  // namespace

Backlog::~Backlog() {
  {
    const Velmar::OS::ScopedLock lock(mutex);
    Free();
  }
  Velmar::OS::Threading::MutexDestroy(mutex);
}

bool Backlog::Create(u32 initialCapacity, u32 ceiling, u32 growStep, bool threadSafe, bool overwriteOldest,
                     Velmar::Collections::GrowType growType) {
  if (initialCapacity > ceiling || (growStep & kGrowStepMask) == 0 || ceiling == 0) {
    RYL_LOG(ryl_netdb, BacklogBadParameters, initialCapacity, ceiling, growStep);
    return false;
  }
  if (threadSafe) {
    mutex = Velmar::OS::Threading::MutexCreate();
    if (mutex == nullptr) {
      RYL_LOG(ryl_netdb, BacklogNoLock);
      return false;
    }
  }
  entries = initialCapacity == 0 ? nullptr : AllocateEntries(initialCapacity);
  if (entries == nullptr && initialCapacity != 0) {
    RYL_LOG(ryl_netdb, BacklogNotAllocated, initialCapacity);
    Velmar::OS::Threading::MutexDestroy(mutex);
    return false;
  }
  std::uninitialized_value_construct_n(entries, initialCapacity);
  capacity = initialCapacity;
  max_count = ceiling;
  grow_info = (growStep & kGrowStepMask) | (growType == Velmar::Collections::GrowType::kPercent ? kPercentBit : 0);
  overwrite_oldest = overwriteOldest ? 1 : 0;
  return true;
}

bool Backlog::Push(const BacklogMessage& message) {
  const Velmar::OS::ScopedLock lock(mutex);
  const u32 held = GetCount();
  const bool full = held >= max_count;
  if (full && overwrite_oldest == 0) {
    RYL_LOG(ryl_netdb, BacklogFull, max_count);
    return false;
  }
  if (!full && held == capacity && !Grow()) {
    RYL_LOG(ryl_netdb, BacklogNotGrown, held);
    return false;
  }
  const u64 end = u64{head} + held;
  entries[end < capacity ? end : end - capacity] = message;
  if (full) {
    head = head + 1 == capacity ? 0 : head + 1;
  } else {
    count.store(held + 1, std::memory_order_relaxed);
  }
  return true;
}

bool Backlog::Pop(BacklogMessage& message) {
  const Velmar::OS::ScopedLock lock(mutex);
  const u32 held = GetCount();
  if (held == 0) {
    RYL_LOG(ryl_netdb, BacklogEmpty);
    return false;
  }
  message = entries[head];
  head = held == 1 || head + 1 == capacity ? 0 : head + 1;
  count.store(held - 1, std::memory_order_relaxed);
  return true;
}

bool Backlog::Grow() {
  const u32 held = GetCount();
  const auto growType = (grow_info & kPercentBit) != 0 ? Velmar::Collections::GrowType::kPercent
                                                       : Velmar::Collections::GrowType::kFixedStep;
  const u32 newCapacity =
      Velmar::Internal::CalculateCollectionGrowth(capacity, grow_info & kGrowStepMask, growType, max_count);
  if (held + 1 > newCapacity) {
    RYL_LOG(ryl_netdb, BacklogCeilingReached, max_count);
    return false;
  }
  BacklogMessage* grown = AllocateEntries(newCapacity);
  if (grown == nullptr) {
    RYL_LOG(ryl_netdb, BacklogNoMemory, newCapacity);
    return false;
  }
  // The queue is full: the oldest run goes from head to the end of the array.
  BacklogMessage* next = std::uninitialized_copy(entries + head, entries + capacity, grown);
  next = std::uninitialized_copy(entries, entries + head, next);
  std::uninitialized_value_construct(next, grown + newCapacity);
  Velmar::Collections::ModuleFree(entries);
  entries = grown;
  head = 0;
  capacity = newCapacity;
  return true;
}

void Backlog::Free() {
  Velmar::Collections::ModuleFree(entries);
  entries = nullptr;
  head = 0;
  count.store(0, std::memory_order_relaxed);
  capacity = 0;
  max_count = 0;
  grow_info = 0;
  overwrite_oldest = 0;
}

}  // namespace RYL::NetDB
