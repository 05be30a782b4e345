#include "Velmar/OS/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>

namespace Velmar::OS {

namespace {

constexpr mode_t kFileMode = 0600;

// A descriptor is kept as its number plus one, so that null means no open file.
void* ToHandle(int descriptor) {
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor) + 1);
}

int ToDescriptor(void* handle) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(handle) - 1);
}

bool IsRegularFile(int descriptor) {
  struct stat info = {};
  return fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
}

// Without O_NONBLOCK a pipe that stands where a file is expected would hold the caller up.
int OpenRegularFile(const char* path, int flags) {
  int descriptor = -1;
  do {
    descriptor = open(path, flags | O_NONBLOCK | O_CLOEXEC, kFileMode);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor >= 0 && !IsRegularFile(descriptor)) {
    close(descriptor);
    return -1;
  }
  return descriptor;
}

bool SyncDescriptor(int descriptor) {
  int result = 0;
  do {
    result = fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Repeats `step(bytes done, bytes left)` until all is transferred, an error or the end of the file.
template <class Step>
bool TransferAll(u32 size, u32* done, Step step) {
  u32 transferred = 0;
  while (transferred < size) {
    ssize_t part = step(transferred, static_cast<std::size_t>(size - transferred));
    if (part == 0 || (part < 0 && errno != EINTR)) {
      break;
    }
    if (part > 0) {
      transferred += static_cast<u32>(part);
    }
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
  if (path == nullptr || !File::Close()) {
    return false;
  }
  int descriptor = OpenRegularFile(path, O_WRONLY | O_CREAT | (append ? O_APPEND : 0) | (truncate ? O_TRUNC : 0));
  if (descriptor < 0) {
    return false;
  }
  handle_ = ToHandle(descriptor);
  writable_ = true;
  return true;
}

bool File::OpenRead(const char* path) {
  if (path == nullptr || !File::Close()) {
    return false;
  }
  int descriptor = OpenRegularFile(path, O_RDONLY);
  if (descriptor < 0) {
    return false;
  }
  handle_ = ToHandle(descriptor);
  return true;
}

bool File::Close() {
  if (handle_ == nullptr) {
    return true;
  }
  int descriptor = ToDescriptor(handle_);
  bool synced = !writable_ || SyncDescriptor(descriptor);
  handle_ = nullptr;
  writable_ = false;
  // An interrupted close has closed all the same.
  bool closed = close(descriptor) == 0 || errno == EINTR;
  return synced && closed;
}

bool File::Read(void* data, u32 size, u32* done) {
  if (handle_ == nullptr) {
    if (done != nullptr) {
      *done = 0;
    }
    return false;
  }
  return TransferAll(size, done, [this, data](u32 at, std::size_t left) {
    return read(ToDescriptor(handle_), static_cast<u8*>(data) + at, left);
  });
}

bool File::Write(const void* data, u32 size, u32* done) {
  if (handle_ == nullptr || !writable_) {
    if (done != nullptr) {
      *done = 0;
    }
    return false;
  }
  return TransferAll(size, done, [this, data](u32 at, std::size_t left) {
    return write(ToDescriptor(handle_), static_cast<const u8*>(data) + at, left);
  });
}

u64 File::Tell() {
  off_t position = handle_ == nullptr ? -1 : lseek(ToDescriptor(handle_), 0, SEEK_CUR);
  return static_cast<u64>(static_cast<i64>(position));
}

bool File::Seek(u64 position) {
  if (handle_ == nullptr || position > static_cast<u64>(std::numeric_limits<off_t>::max())) {
    return false;
  }
  return lseek(ToDescriptor(handle_), static_cast<off_t>(position), SEEK_SET) >= 0;
}

u64 File::GetFileSize(const char* path) {
  struct stat info = {};
  if (path == nullptr || stat(path, &info) != 0 || S_ISDIR(info.st_mode)) {
    return 0;
  }
  return static_cast<u64>(info.st_size);
}

}  // namespace Velmar::OS
