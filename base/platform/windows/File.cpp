#include "Velmar/OS/File.h"

#include <limits>

#include "platform/windows/WindowsPath.h"

namespace Velmar::OS {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Null when it cannot be opened, or is a device or a pipe. Handles are not inherited.
HANDLE OpenHandle(const char* path, DWORD access, DWORD disposition) {
  Platform::WidePath wide(path);
  if (wide.Text() == nullptr) {
    return nullptr;
  }
  HANDLE handle = CreateFileW(wide.Text(), access, kShareAll, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return nullptr;
  }
  if (GetFileType(handle) != FILE_TYPE_DISK) {
    CloseHandle(handle);
    return nullptr;
  }
  return handle;
}

// Repeats `step(bytes done, bytes left, moved)` until all is transferred, an error or the end of the file.
template <class Step>
bool TransferAll(u32 size, u32* done, Step step) {
  u32 transferred = 0;
  DWORD moved = 0;
  while (transferred < size && step(transferred, size - transferred, &moved) && moved != 0) {
    transferred += moved;
  }
  if (done != nullptr) {
    *done = transferred;
  }
  return transferred == size;
}

}  // namespace

File::~File() {
  File::Close();
}

bool File::Create(const char* path, bool append, bool truncate) {
  if (!File::Close()) {
    return false;
  }
  DWORD access = append ? FILE_GENERIC_WRITE & ~static_cast<DWORD>(FILE_WRITE_DATA) : GENERIC_WRITE;
  handle_ = OpenHandle(path, access, truncate ? CREATE_ALWAYS : OPEN_ALWAYS);
  writable_ = handle_ != nullptr;
  return writable_;
}

bool File::OpenRead(const char* path) {
  if (!File::Close()) {
    return false;
  }
  handle_ = OpenHandle(path, GENERIC_READ, OPEN_EXISTING);
  return handle_ != nullptr;
}

bool File::Close() {
  if (handle_ == nullptr) {
    return true;
  }
  bool synced = !writable_ || FlushFileBuffers(handle_) != 0;
  bool closed = CloseHandle(handle_) != 0;
  handle_ = nullptr;
  writable_ = false;
  return synced && closed;
}

bool File::Read(void* data, u32 size, u32* done) {
  if (handle_ == nullptr || writable_) {
    if (done != nullptr) {
      *done = 0;
    }
    return false;
  }
  return TransferAll(size, done, [this, data](u32 at, u32 left, DWORD* moved) {
    return ReadFile(handle_, static_cast<u8*>(data) + at, left, moved, nullptr) != 0;
  });
}

bool File::Write(const void* data, u32 size, u32* done) {
  if (handle_ == nullptr || !writable_) {
    if (done != nullptr) {
      *done = 0;
    }
    return false;
  }
  return TransferAll(size, done, [this, data](u32 at, u32 left, DWORD* moved) {
    return WriteFile(handle_, static_cast<const u8*>(data) + at, left, moved, nullptr) != 0;
  });
}

u64 File::Tell() {
  LARGE_INTEGER position = {};
  if (handle_ == nullptr || SetFilePointerEx(handle_, {}, &position, FILE_CURRENT) == 0) {
    return ~u64{0};
  }
  return static_cast<u64>(position.QuadPart);
}

bool File::Seek(u64 position) {
  if (handle_ == nullptr || position > static_cast<u64>(std::numeric_limits<i64>::max())) {
    return false;
  }
  LARGE_INTEGER target = {};
  target.QuadPart = static_cast<i64>(position);
  return SetFilePointerEx(handle_, target, nullptr, FILE_BEGIN) != 0;
}

u64 File::GetFileSize(const char* path) {
  Platform::WidePath wide(path);
  BY_HANDLE_FILE_INFORMATION information = {};
  if (!Platform::DescribePath(wide.Text(), false, information) || Platform::IsFolder(information)) {
    return 0;
  }
  return Platform::JoinHalves(information.nFileSizeHigh, information.nFileSizeLow);
}

}  // namespace Velmar::OS
