// WordWait: sleeping on a 32-bit word, the one thing that Event needs of a platform.
#pragma once

#include <atomic>

#include "Velmar/Types.h"

namespace Velmar::Platform {

// Sleeps while `word` holds `expected`, at most until the monotonic time `deadlineNs`. Returns early on a wake and may
// return early for no reason; the caller looks at the word again.
void WaitOnWord(std::atomic<u32>& word, u32 expected, u64 deadlineNs);
void WakeOneWaiter(std::atomic<u32>& word);
void WakeAllWaiters(std::atomic<u32>& word);

u64 MonotonicNanoseconds();

}  // namespace Velmar::Platform
