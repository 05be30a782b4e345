#include "host/inspect/ByteSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace Host::Inspect {
namespace {

// Of a pipe or a device; no open of a file gives it.
constexpr int kNoRegularFile = ESPIPE;

}  // namespace

FileBytes::~FileBytes() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

bool FileBytes::Open(const std::string& path) {
  struct stat status = {};
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);  // a pipe would wait for its writer
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : kNoRegularFile;
    return false;
  }
  size_ = static_cast<u64>(status.st_size);
  return true;
}

bool FileBytes::Read(u64 position, void* to, u32 size) {
  auto* at = static_cast<u8*>(to);
  while (size > 0) {
    const ssize_t done = pread(descriptor_, at, size, static_cast<off_t>(position));
    if (done < 0 && errno == EINTR) {
      continue;
    }
    if (done <= 0) {
      return false;
    }
    at += done;
    position += static_cast<u64>(done);
    size -= static_cast<u32>(done);
  }
  return true;
}

std::string WhyUnreadable(int error) {
  return error == kNoRegularFile ? "it is not a regular file" : std::strerror(error);
}

}  // namespace Host::Inspect
