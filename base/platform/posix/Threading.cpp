#include "Velmar/OS/Threading.h"

#include <pthread.h>

#include <cstring>

#include "Velmar/Memory.h"

namespace Velmar::OS {

namespace {

// What the system keeps of a thread's name, terminator included.
constexpr std::size_t kLabelSize = 16;

struct Thread {
  pthread_t id;
  Threading::ThreadEntry entry;
  void* context;
  char label[kLabelSize];
};

bool InitRecursive(pthread_mutex_t* mutex) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) {
    return false;
  }
  bool done = pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0 &&
              pthread_mutex_init(mutex, &attributes) == 0;
  pthread_mutexattr_destroy(&attributes);
  return done;
}

void* RunThread(void* argument) {
  auto* thread = static_cast<Thread*>(argument);
  pthread_setname_np(pthread_self(), thread->label);
  thread->entry(thread->context);
  return nullptr;
}

}  // namespace

void* Threading::MutexCreate() {
  auto* mutex = static_cast<pthread_mutex_t*>(Memory::Allocate(sizeof(pthread_mutex_t)));
  if (mutex != nullptr && !InitRecursive(mutex)) {
    Memory::Free(mutex);
    return nullptr;
  }
  return mutex;
}

void Threading::MutexDestroy(void*& handle) {
  if (handle != nullptr) {
    pthread_mutex_destroy(static_cast<pthread_mutex_t*>(handle));
    Memory::Free(handle);
    handle = nullptr;
  }
}

bool Threading::MutexLock(void* handle) {
  return handle == nullptr || pthread_mutex_lock(static_cast<pthread_mutex_t*>(handle)) == 0;
}

bool Threading::MutexUnlock(void* handle) {
  return handle == nullptr || pthread_mutex_unlock(static_cast<pthread_mutex_t*>(handle)) == 0;
}

void* Threading::StartThread(ThreadEntry entry, void* context, const char* label) {
  auto* thread = entry == nullptr ? nullptr : static_cast<Thread*>(Memory::Allocate(sizeof(Thread)));
  if (thread == nullptr) {
    return nullptr;
  }
  *thread = {{}, entry, context, {}};
  if (label != nullptr) {
    std::strncpy(thread->label, label, kLabelSize - 1);
  }
  if (pthread_create(&thread->id, nullptr, &RunThread, thread) != 0) {
    Memory::Free(thread);
    return nullptr;
  }
  return thread;
}

bool Threading::IsValidThreadHandle(void* handle) {
  return handle != nullptr;
}

bool Threading::WaitForThreadToEnd(void*& handle) {
  auto* thread = static_cast<Thread*>(handle);
  if (thread == nullptr || pthread_equal(thread->id, pthread_self()) != 0 || pthread_join(thread->id, nullptr) != 0) {
    return false;
  }
  Memory::Free(thread);
  handle = nullptr;
  return true;
}

}  // namespace Velmar::OS
