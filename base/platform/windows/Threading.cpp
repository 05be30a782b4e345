#include "Velmar/OS/Threading.h"

#include <process.h>

#include "Velmar/Memory.h"
#include "platform/windows/WindowsApi.h"

namespace Velmar::OS {

namespace {

// The other backs keep no more bytes of a name, terminator included.
constexpr int kLabelSize = 16;

struct Thread {
  HANDLE handle;
  Threading::ThreadEntry entry;
  void* context;
  wchar_t label[kLabelSize];
};

void SetLabel(Thread& thread, const char* label) {
  int length = 0;
  while (label != nullptr && length < kLabelSize - 1 && label[length] != '\0') {
    ++length;
  }
  if (length > 0) {
    MultiByteToWideChar(CP_UTF8, 0, label, length, thread.label, kLabelSize - 1);
  }
}

// Windows before 10 has no names of threads.
void ShowLabel(const wchar_t* label) {
  using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  FARPROC found = kernel == nullptr ? nullptr : GetProcAddress(kernel, "SetThreadDescription");
  auto setDescription = reinterpret_cast<SetDescription>(reinterpret_cast<void*>(found));
  if (setDescription != nullptr) {
    setDescription(GetCurrentThread(), label);
  }
}

unsigned __stdcall RunThread(void* argument) {
  auto* thread = static_cast<Thread*>(argument);
  ShowLabel(thread->label);
  thread->entry(thread->context);
  return 0;
}

}  // namespace

void* Threading::MutexCreate() {
  auto* mutex = static_cast<CRITICAL_SECTION*>(Memory::Allocate(sizeof(CRITICAL_SECTION)));
  if (mutex != nullptr) {
    InitializeCriticalSection(mutex);
  }
  return mutex;
}

void Threading::MutexDestroy(void*& handle) {
  if (handle != nullptr) {
    DeleteCriticalSection(static_cast<CRITICAL_SECTION*>(handle));
    Memory::Free(handle);
    handle = nullptr;
  }
}

bool Threading::MutexLock(void* handle) {
  if (handle != nullptr) {
    EnterCriticalSection(static_cast<CRITICAL_SECTION*>(handle));
  }
  return true;
}

bool Threading::MutexUnlock(void* handle) {
  if (handle != nullptr) {
    LeaveCriticalSection(static_cast<CRITICAL_SECTION*>(handle));
  }
  return true;
}

void* Threading::StartThread(ThreadEntry entry, void* context, const char* label) {
  auto* thread = entry == nullptr ? nullptr : static_cast<Thread*>(Memory::Allocate(sizeof(Thread)));
  if (thread == nullptr) {
    return nullptr;
  }
  *thread = {nullptr, entry, context, {}};
  SetLabel(*thread, label);
  thread->handle = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &RunThread, thread, 0, nullptr));
  if (thread->handle == nullptr) {
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
  if (thread == nullptr || GetThreadId(thread->handle) == GetCurrentThreadId() ||
      WaitForSingleObject(thread->handle, INFINITE) != WAIT_OBJECT_0) {
    return false;
  }
  CloseHandle(thread->handle);
  Memory::Free(thread);
  handle = nullptr;
  return true;
}

}  // namespace Velmar::OS
