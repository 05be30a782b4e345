// Backlog: the queue of observations between intake and the worker.
#pragma once

#include <atomic>

#include "Velmar/Collections/Growth.h"
#include "Velmar/Types.h"
#include "common/netdb_storage/BacklogMessage.h"

namespace RYL::NetDB {

// A circular queue that grows by steps up to its ceiling; the oldest entry comes out first.
// Lifetime: Create once; the destructor frees it. Threads: thread-safe when created so, but for the destructor.
// Errors: false after a log record, with the queue as it was.
class Backlog {
 public:
  Backlog() = default;
  ~Backlog();
  Backlog(const Backlog&) = delete;
  Backlog& operator=(const Backlog&) = delete;

  // `overwriteOldest`: a full queue replaces its oldest entry instead of refusing. Level 5: a capacity above the
  // ceiling, a growth or ceiling of 0, no lock, no memory; the queue is then unusable.
  bool Create(u32 initialCapacity, u32 ceiling, u32 growStep, bool threadSafe, bool overwriteOldest,
              Velmar::Collections::GrowType growType);
  // False (level 5) when the queue is full or cannot grow.
  bool Push(const BacklogMessage& message);
  // False (level 3) when the queue is empty.
  bool Pop(BacklogMessage& message);

  // Without the lock: may be stale.
  [[nodiscard]] u32 GetCount() const { return count.load(std::memory_order_relaxed); }

 private:
  friend struct BacklogTestAccess;

  bool Grow();
  void Free();

  BacklogMessage* entries = nullptr;
  u32 head = 0;
  std::atomic<u32> count{0};  // written under the mutex
  u32 capacity = 0;
  u32 max_count = 0;
  u32 grow_info = 0;  // low 24 bits: growth; bit 31: growth is a percentage
  void* mutex = nullptr;
  u8 overwrite_oldest = 0;
};

}  // namespace RYL::NetDB
