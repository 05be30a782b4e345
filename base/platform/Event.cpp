#include <atomic>
#include <new>

#include "Velmar/Memory.h"
#include "Velmar/OS/Threading.h"
#include "platform/WordWait.h"

namespace Velmar::OS {

namespace {

constexpr u32 kIdle = 0;
constexpr u32 kSignalled = 1;

// A waiter raises `waiters` before it sleeps and the kernel looks at `word` once more before it lets it; a signaller
// writes `word` before it reads `waiters`. All four are sequentially consistent, so that one of the two sees the other
// and no signal is slept through.
struct EventState {
  std::atomic<u32> word{kIdle};
  std::atomic<u32> waiters{0};
  bool manualReset = false;
};

bool TakeSignal(EventState& state) {
  u32 expected = kSignalled;
  return state.manualReset ? state.word.load() == kSignalled : state.word.compare_exchange_strong(expected, kIdle);
}

}  // namespace

Event::Event(bool manualReset) : handle_(Memory::Allocate(sizeof(EventState))) {
  if (handle_ != nullptr) {
    new (handle_) EventState;
    static_cast<EventState*>(handle_)->manualReset = manualReset;
  }
}

Event::~Event() {
  if (handle_ != nullptr) {
    static_cast<EventState*>(handle_)->~EventState();
    Memory::Free(handle_);
  }
}

bool Event::Wait(u32 milliseconds) {
  if (handle_ == nullptr) {
    return false;
  }
  EventState& state = *static_cast<EventState*>(handle_);
  u64 deadlineNs = Platform::MonotonicNanoseconds() + u64{milliseconds} * 1000000;
  while (!TakeSignal(state)) {
    if (Platform::MonotonicNanoseconds() >= deadlineNs) {
      return false;
    }
    state.waiters.fetch_add(1);
    Platform::WaitOnWord(state.word, kIdle, deadlineNs);
    state.waiters.fetch_sub(1);
  }
  return true;
}

bool Event::Signal() {
  if (handle_ == nullptr) {
    return false;
  }
  EventState& state = *static_cast<EventState*>(handle_);
  if (state.word.exchange(kSignalled) == kSignalled || state.waiters.load() == 0) {
    return true;
  }
  if (state.manualReset) {
    Platform::WakeAllWaiters(state.word);
  } else {
    Platform::WakeOneWaiter(state.word);
  }
  return true;
}

}  // namespace Velmar::OS
