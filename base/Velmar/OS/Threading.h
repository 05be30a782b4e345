// Mutexes, events and threads.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::OS {

// All static, thread-safe. Handles are opaque.
class RYL_API Threading {
 public:
  // A recursive mutex; null on failure.
  static void* MutexCreate();
  static void MutexDestroy(void*& handle);  // takes null; sets it to null
  // On a null handle these do nothing and say true.
  static bool MutexLock(void* handle);
  static bool MutexUnlock(void* handle);

  using ThreadEntry = void (*)(void* context);
  // For hosts: starts a thread with a name of at most 15 bytes. Null on failure.
  static void* StartThread(ThreadEntry entry, void* context, const char* label);
  static bool IsValidThreadHandle(void* handle);
  // Joins and sets the handle to null. False for a handle that is not valid.
  static bool WaitForThreadToEnd(void*& handle);
};

// Holds a mutex for a scope; a null handle is no lock.
class ScopedLock {
 public:
  explicit ScopedLock(void* mutex) : mutex_(mutex) { Threading::MutexLock(mutex_); }
  ~ScopedLock() { Threading::MutexUnlock(mutex_); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  void* mutex_;
};

// A wake-up signal. `manualReset` false (auto-reset): one Wait takes the signal, and signals that come before it is
// taken are one. Lifetime: a Signal may still be under way when the Wait that it ended returns; the signallers must be
// done before the event goes. Threads: thread-safe. Signal on an event that is already signalled makes no system call.
class RYL_API Event {
 public:
  explicit Event(bool manualReset);
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  [[nodiscard]] bool IsValid() const { return handle_ != nullptr; }
  // True when signalled, false on time-out or on an event that is not valid.
  bool Wait(u32 milliseconds);
  bool Signal();

 private:
  void* handle_;
};

}  // namespace Velmar::OS
