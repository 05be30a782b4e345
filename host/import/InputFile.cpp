#include "host/import/InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Host::Import {
namespace {

constexpr unsigned kReadSize = 256 * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// A descriptor of a temporary file without a name that holds what `from` still gives; -1 on failure.
int CopyToTemporary(int from) {
  std::FILE* temporary = std::tmpfile();
  if (temporary == nullptr) {
    return -1;
  }
  std::array<char, 65536> block;
  bool good = true;
  for (ssize_t size = 1; good && size > 0;) {
    size = read(from, block.data(), block.size());
    if (size < 0 && errno == EINTR) {
      size = 1;
      continue;
    }
    good = size == 0 || (size > 0 && std::fwrite(block.data(), 1, static_cast<std::size_t>(size), temporary) ==
                                         static_cast<std::size_t>(size));
  }
  good = std::fflush(temporary) == 0 && good;
  const int descriptor = good ? fcntl(fileno(temporary), F_DUPFD_CLOEXEC, 0) : -1;
  std::fclose(temporary);
  if (descriptor >= 0) {
    lseek(descriptor, 0, SEEK_SET);
  }
  return descriptor;
}

int OpenByName(const std::string& name) {
  return name == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(name.c_str(), O_RDONLY | O_CLOEXEC);
}

// `descriptor` itself, or a copy that can go back in its place; -1 on failure.
int MadeRewindable(int descriptor) {
  if (lseek(descriptor, 0, SEEK_CUR) >= 0) {
    return descriptor;
  }
  const int copy = CopyToTemporary(descriptor);
  const int error = errno;
  close(descriptor);
  errno = error;
  return copy;
}

}  // namespace

InputFile::~InputFile() {
  if (file_ != nullptr) {
    gzclose_r(file_);
  }
}

bool InputFile::Open(const std::string& name, bool rewindable) {
  name_ = name == "-" ? "standard input" : name;
  int descriptor = OpenByName(name);
  struct stat status = {};
  if (descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    close(descriptor);
    descriptor = -1;
    errno = EISDIR;
  }
  if (descriptor >= 0 && rewindable) {
    descriptor = MadeRewindable(descriptor);
  }
  if (descriptor < 0) {
    error_ = "cannot read " + name_ + ": " + std::strerror(errno);
    return false;
  }
  reopenable_ = name != "-" && S_ISREG(status.st_mode);
  return OpenDescriptor(descriptor);
}

bool InputFile::OpenDescriptor(int descriptor) {
  file_ = gzdopen(descriptor, "rb");
  if (file_ == nullptr) {
    close(descriptor);
    error_ = "cannot read " + name_ + ": no memory";
    return false;
  }
  gzbuffer(file_, kReadSize);
  return true;
}

// False at the end and on failure; the latter leaves a sentence in error_.
bool InputFile::Fill() {
  buffer_.resize(kReadSize);
  bufferAt_ = 0;
  const int size = gzread(file_, buffer_.data(), kReadSize);
  buffer_.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  int code = Z_OK;
  const char* text = gzerror(file_, &code);
  if (size < 0 || (size == 0 && code == Z_BUF_ERROR)) {
    error_ = code == Z_BUF_ERROR ? name_ + " is cut short" : "cannot read " + name_ + ": " + text;
  }
  return size > 0;
}

InputFile::Step InputFile::Finish(bool tooLong, std::string_view& line) {
  ++lineNumber_;
  if (tooLong) {
    return Step::kTooLong;
  }
  line = line_;
  if (lineNumber_ == 1 && line.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    line.remove_prefix(kByteOrderMark.size());
  }
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  return Step::kLine;
}

InputFile::Step InputFile::Next(std::string_view& line) {
  line_.clear();
  bool tooLong = false;
  bool any = false;
  while (bufferAt_ < buffer_.size() || Fill()) {
    any = true;
    const std::size_t end = buffer_.find('\n', bufferAt_);
    const std::size_t stop = end == std::string::npos ? buffer_.size() : end;
    tooLong = tooLong || line_.size() + (stop - bufferAt_) > kMaxLine;
    if (!tooLong) {
      line_.append(buffer_, bufferAt_, stop - bufferAt_);
    }
    bufferAt_ = stop;
    if (end != std::string::npos) {
      ++bufferAt_;
      return Finish(tooLong, line);
    }
  }
  if (!error_.empty()) {
    return Step::kFailed;
  }
  return any ? Finish(tooLong, line) : Step::kEnd;
}

bool InputFile::Rewind() {
  if (gzrewind(file_) != 0) {
    error_ = "cannot read " + name_ + " a second time";
    return false;
  }
  buffer_.clear();
  bufferAt_ = 0;
  lineNumber_ = 0;
  error_.clear();
  return true;
}

}  // namespace Host::Import
