// InputFile: the lines of a log that is plain, gzip-compressed or standard input.
#pragma once

#include <string>
#include <string_view>

#include "host/Types.h"

struct gzFile_s;

namespace Host::Import {

// Lifetime: Open once; the destructor closes. Threads: thread-compatible. Memory is bounded by the longest line taken.
class InputFile {
 public:
  static constexpr std::size_t kMaxLine = 16 * 1024 * 1024;

  enum class Step {
    kLine,
    kTooLong,  // a line beyond kMaxLine, passed over
    kEnd,
    kFailed,  // Error() says why; what came before is good
  };

  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  // "-" is standard input. A pipe that must be `rewindable`, under whatever name, is first copied to a temporary file
  // that has none.
  // False with a sentence in Error().
  bool Open(const std::string& name, bool rewindable);
  // The next line without its line end (and without the byte order mark of the first). Valid until the next call. A
  // last line that a damaged compressed file cuts short is not given.
  Step Next(std::string_view& line);
  // Back to the first line. False when the input cannot do that.
  bool Rewind();

  // Opening the same name again would give the same lines.
  [[nodiscard]] bool IsReopenable() const { return reopenable_; }
  // Number of the line that Next gave last, from 1.
  [[nodiscard]] u64 LineNumber() const { return lineNumber_; }
  [[nodiscard]] const std::string& Name() const { return name_; }
  [[nodiscard]] const std::string& Error() const { return error_; }

 private:
  bool OpenDescriptor(int descriptor);
  bool Fill();
  Step Finish(bool tooLong, std::string_view& line);

  gzFile_s* file_ = nullptr;
  std::string name_;
  std::string error_;
  std::string buffer_;
  std::size_t bufferAt_ = 0;
  std::string line_;
  u64 lineNumber_ = 0;
  bool reopenable_ = false;
};

}  // namespace Host::Import
