#include "host/agent/DiskHashes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Velmar/Hashes/MD5.h"
#include "Velmar/Hashes/SHA256.h"

namespace Host {
namespace {

using Velmar::u32;

std::string VersionOf(const struct stat& status) {
  return std::to_string(status.st_dev) + "/" + std::to_string(status.st_ino) + "/" + std::to_string(status.st_size) +
         "/" + std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

bool HashFile(int descriptor, FileDigests& digests) {
  Velmar::Hashes::MD5 md5;
  Velmar::Hashes::SHA256 sha256;
  if (!md5.Init() || !sha256.Init()) {
    return false;
  }
  char area[64 * 1024];
  while (true) {
    const ssize_t size = read(descriptor, area, sizeof(area));
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size <= 0) {
      if (size < 0 || !md5.Final() || !sha256.Final()) {
        return false;
      }
      std::memcpy(digests.md5.data(), md5.GetDigest(), digests.md5.size());
      std::memcpy(digests.sha256.data(), sha256.GetDigest(), digests.sha256.size());
      return true;
    }
    if (!md5.Update(area, static_cast<u32>(size)) || !sha256.Update(area, static_cast<u32>(size))) {
      return false;
    }
  }
}

}  // namespace

bool DiskHashes::GetFileHashes(const char* path, RYL::Module::FileHashBlock* out, u32 /*which*/) {
  // O_NONBLOCK: a path that names a pipe must not block the module's worker.
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    return false;
  }
  struct stat status {};
  bool done = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  if (done) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (entries_.size() >= kMaxKept && entries_.count(path) == 0) {
      entries_.clear();
    }
    Entry& entry = entries_[path];
    const std::string version = VersionOf(status);
    if (entry.version != version) {
      done = HashFile(descriptor, entry.digests);
      entry.version = done ? version : std::string();
    }
    std::memcpy(out->md5, entry.digests.md5.data(), sizeof(out->md5));
    std::memcpy(out->qid, entry.digests.sha256.data(), sizeof(out->qid));
  }
  close(descriptor);
  return done;
}

}  // namespace Host
