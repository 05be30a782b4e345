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

 private:
  struct Entry {
    Velmar::u32 pid;
    std::string path;
  };
  mutable std::mutex mutex_;
  std::unordered_map<Velmar::u64, Entry> entries_;
};

// Service 1000 out of recorded digests, by path. Thread-safe.
class RecordedHashes final : public RYL::Module::FileHashService {
 public:
  void Put(const std::string& path, const FileDigests& digests);
  bool GetFileHashes(const char* path, RYL::Module::FileHashBlock* out, Velmar::u32 which) override;

 private:
  mutable std::mutex mutex_;
  std::unordered_map<std::string, FileDigests> entries_;
};

}  // namespace Host
