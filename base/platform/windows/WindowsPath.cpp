#include "platform/windows/WindowsPath.h"

#include "Velmar/Memory.h"

namespace Velmar::Platform {

WidePath::WidePath(const char* path) {
  if (path == nullptr || *path == '\0') {
    return;
  }
  int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, nullptr, 0);
  if (size <= 0) {
    return;
  }
  text_ = area_;
  if (size > kAreaSize) {
    text_ = static_cast<wchar_t*>(Memory::Allocate(static_cast<std::size_t>(size) * sizeof(wchar_t)));
  }
  if (text_ != nullptr) {
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, text_, size);
  }
}

WidePath::~WidePath() {
  if (text_ != area_) {
    Memory::Free(text_);
  }
}

bool DescribePath(const wchar_t* path, bool noFollow, BY_HANDLE_FILE_INFORMATION& information) {
  if (path == nullptr) {
    return false;
  }
  // Only with backup semantics can a folder be opened.
  DWORD flags = FILE_FLAG_BACKUP_SEMANTICS | (noFollow ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
  HANDLE handle = CreateFileW(path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return false;
  }
  bool described = GetFileInformationByHandle(handle, &information) != 0;
  CloseHandle(handle);
  return described;
}

u64 ToEpochMilliseconds(const FILETIME& time) {
  // The system counts steps of 100 ns from 1601 on.
  constexpr u64 kEpoch = 116444736000000000;
  u64 steps = JoinHalves(time.dwHighDateTime, time.dwLowDateTime);
  return steps < kEpoch ? 0 : (steps - kEpoch) / 10000;
}

}  // namespace Velmar::Platform
