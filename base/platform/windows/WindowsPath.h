// WindowsPath: UTF-8 paths of the API as the wide ones of the system, and what the system knows of a path.
#pragma once

#include "Velmar/Types.h"
#include "platform/windows/WindowsApi.h"

namespace Velmar::Platform {

// Null text when the path is null or empty, is not valid UTF-8, or memory is exhausted.
class WidePath {
 public:
  explicit WidePath(const char* path);
  ~WidePath();
  WidePath(const WidePath&) = delete;
  WidePath& operator=(const WidePath&) = delete;

  [[nodiscard]] const wchar_t* Text() const { return text_; }

 private:
  static constexpr int kAreaSize = 320;
  wchar_t* text_ = nullptr;
  wchar_t area_[kAreaSize];
};

// False when nothing is there. With `noFollow` a link is described itself.
bool DescribePath(const wchar_t* path, bool noFollow, BY_HANDLE_FILE_INFORMATION& information);

inline bool IsFolder(const BY_HANDLE_FILE_INFORMATION& information) {
  return (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

inline u64 JoinHalves(DWORD high, DWORD low) {
  return u64{high} << 32 | low;
}

// 0 for a time before the epoch.
u64 ToEpochMilliseconds(const FILETIME& time);

}  // namespace Velmar::Platform
