// ProcessRegistry: the processes and file digests that this program knows, served to the module.
#pragma once

#include <array>
#include <mutex>
#include <string>
#include <unordered_map>

#include "RYL/Module/EventLookup.h"
#include "RYL/Module/FileHashService.h"
#include "Velmar/Types.h"

namespace Host {

struct FileDigests {
  std::array<Velmar::u8, 16> md5{};
  std::array<Velmar::u8, 32> sha256{};
};

// Service 23. Thread-safe.
class ProcessRegistry final : public RYL::Module::EventLookup {
 public:
  void Put(Velmar::u64 puid, Velmar::u32 pid, const std::string& path);
  void Remove(Velmar::u64 puid);
  bool GetEventById(Velmar::u64 processPuid, RYL::Events::GenericEventHolder* holder) override;
  // The process asked for last, 0 before the first question.
  [[nodiscard]] Velmar::u64 LastLookup() const;

 private:
  struct Entry {
    Velmar::u32 pid;
    std::string path;
  };
  mutable std::mutex mutex_;
  std::unordered_map<Velmar::u64, Entry> entries_;
  Velmar::u64 lastLookup_ = 0;
};

// Service 1000 out of recorded digests, by process and by path. Thread-safe.
class RecordedHashes final : public RYL::Module::FileHashService {
 public:
  // The module asks for a file's digests right after it looked its process up, on the same thread: `processes`, which
  // may be null and must outlive this, tells for which process a question is.
  explicit RecordedHashes(const ProcessRegistry* processes = nullptr) : processes_(processes) {}

  // Replaces what was known of `path`. A Windows path (one with a backslash) is also found in another case.
  void Put(const std::string& path, const FileDigests& digests);
  // What the file of this process was, whatever else is known of its path.
  void PutForProcess(Velmar::u64 puid, const FileDigests& digests);
  bool GetFileHashes(const char* path, RYL::Module::FileHashBlock* out, Velmar::u32 which) override;

 private:
  // Null when nothing is known.
  const FileDigests* Find(const std::string& path) const;

  const ProcessRegistry* processes_;
  mutable std::mutex mutex_;
  std::unordered_map<std::string, FileDigests> byPath_;
  std::unordered_map<std::string, FileDigests> byFoldedPath_;
  std::unordered_map<Velmar::u64, FileDigests> byProcess_;
};

}  // namespace Host
