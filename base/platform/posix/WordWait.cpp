#include "platform/WordWait.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <climits>

namespace Velmar::Platform {

namespace {

static_assert(sizeof(std::atomic<u32>) == sizeof(u32) && std::atomic<u32>::is_always_lock_free);

void Wake(std::atomic<u32>& word, int count) {
  syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

}  // namespace

void WaitOnWord(std::atomic<u32>& word, u32 expected, u64 deadlineNs) {
  timespec deadline = {static_cast<time_t>(deadlineNs / 1000000000), static_cast<long>(deadlineNs % 1000000000)};
  // The BITSET form takes an absolute time of the monotonic clock.
  syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, expected, &deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
}

void WakeOneWaiter(std::atomic<u32>& word) {
  Wake(word, 1);
}

void WakeAllWaiters(std::atomic<u32>& word) {
  Wake(word, INT_MAX);
}

u64 MonotonicNanoseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<u64>(now.tv_sec) * 1000000000 + static_cast<u64>(now.tv_nsec);
}

}  // namespace Velmar::Platform
