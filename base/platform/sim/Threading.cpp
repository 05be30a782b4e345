#include "Velmar/OS/Threading.h"

#include <pthread.h>

#include <mutex>
#include <new>
#include <string>
#include <thread>

#include "Velmar/Memory.h"
#include "platform/sim/State.h"

namespace Velmar::OS {

namespace {

constexpr std::size_t kLongestLabel = 15;

struct Thread {
  std::string label;
  std::thread thread;
};

// In memory of Memory::Allocate, so that a failing allocation fails here as it would on a real machine.
template <class T, class... Arguments>
T* New(Arguments&&... arguments) {
  void* memory = Memory::Allocate(sizeof(T));
  return memory == nullptr ? nullptr : new (memory) T{std::forward<Arguments>(arguments)...};
}

template <class T>
void Delete(void* object) {
  if (object != nullptr) {
    static_cast<T*>(object)->~T();
    Memory::Free(object);
  }
}

}  // namespace

void* Threading::MutexCreate() {
  return Sim::TakeFailure(&Sim::State::failMutexCreates) ? nullptr : New<std::recursive_mutex>();
}

void Threading::MutexDestroy(void*& handle) {
  Delete<std::recursive_mutex>(handle);
  handle = nullptr;
}

bool Threading::MutexLock(void* handle) {
  if (handle != nullptr) {
    static_cast<std::recursive_mutex*>(handle)->lock();
  }
  return true;
}

bool Threading::MutexUnlock(void* handle) {
  if (handle != nullptr) {
    static_cast<std::recursive_mutex*>(handle)->unlock();
  }
  return true;
}

void* Threading::StartThread(ThreadEntry entry, void* context, const char* label) {
  if (entry == nullptr || Sim::TakeFailure(&Sim::State::failThreadStarts)) {
    return nullptr;
  }
  auto* thread = New<Thread>();
  if (thread == nullptr) {
    return nullptr;
  }
  thread->label = std::string(label == nullptr ? "" : label).substr(0, kLongestLabel);
  thread->thread = std::thread([thread, entry, context] {
    pthread_setname_np(pthread_self(), thread->label.c_str());
    entry(context);
  });
  return thread;
}

bool Threading::IsValidThreadHandle(void* handle) {
  return handle != nullptr;
}

bool Threading::WaitForThreadToEnd(void*& handle) {
  auto* thread = static_cast<Thread*>(handle);
  if (thread == nullptr || thread->thread.get_id() == std::this_thread::get_id()) {
    return false;
  }
  thread->thread.join();
  Delete<Thread>(thread);
  handle = nullptr;
  return true;
}

Event::Event(bool manualReset)
    : handle_(Sim::TakeFailure(&Sim::State::failEventCreates) ? nullptr : New<Sim::SimEvent>(manualReset, false)) {}

Event::~Event() {
  Delete<Sim::SimEvent>(handle_);
}

bool Event::Wait(u32 milliseconds) {
  if (handle_ == nullptr) {
    return false;
  }
  std::unique_lock<std::mutex> lock(Sim::GetState().mutex);
  return Sim::GetState().scheduler.Wait(*static_cast<Sim::SimEvent*>(handle_), milliseconds, lock);
}

bool Event::Signal() {
  if (handle_ == nullptr || Sim::TakeFailure(&Sim::State::failEventSignals)) {
    return false;
  }
  std::unique_lock<std::mutex> lock(Sim::GetState().mutex);
  Sim::GetState().scheduler.Signal(*static_cast<Sim::SimEvent*>(handle_));
  return true;
}

}  // namespace Velmar::OS
