// DiskHashes: service 1000 out of the files themselves.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

#include "RYL/Module/FileHashService.h"
#include "host/agent/ProcessRegistry.h"

namespace Host {

// MD5 and SHA-256 of program files, kept until a file changes (by device, inode, size and modification time) and for
// at most kMaxKept files. A path is resolved as this process sees it. Threads: thread-safe; reads whole files.
class DiskHashes final : public RYL::Module::FileHashService {
 public:
  static constexpr std::size_t kMaxKept = 4096;

  bool GetFileHashes(const char* path, RYL::Module::FileHashBlock* out, Velmar::u32 which) override;

 private:
  struct Entry {
    std::string version;
    FileDigests digests;
  };
  std::mutex mutex_;
  std::unordered_map<std::string, Entry> entries_;
};

}  // namespace Host
