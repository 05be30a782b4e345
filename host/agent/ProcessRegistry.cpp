#include "host/agent/ProcessRegistry.h"

#include <algorithm>
#include <vector>

#include "host/Types.h"
#include "host/events/ConnectionRecord.h"
#include "host/text/Numbers.h"

namespace Host {
namespace {

bool IsWindowsPath(const std::string& path) {
  return path.find('\\') != std::string::npos;
}

template <class Map, class Key>
const FileDigests* FindIn(const Map& map, const Key& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : &found->second;
}

}  // namespace

void ProcessRegistry::Put(u64 puid, u32 pid, const std::string& path) {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_[puid] = {pid, path};
}

void ProcessRegistry::Remove(u64 puid) {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.erase(puid);
}

bool ProcessRegistry::GetEventById(u64 processPuid, RYL::Events::GenericEventHolder* holder) {
  std::vector<u8> event;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    lastLookup_ = processPuid;
    const auto found = entries_.find(processPuid);
    if (found == entries_.end()) {
      return false;
    }
    event = PackProcess(processPuid, found->second.pid, found->second.path);
  }
  return holder->Set(event.data(), static_cast<u32>(event.size()));
}

u64 ProcessRegistry::LastLookup() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return lastLookup_;
}

void RecordedHashes::Put(const std::string& path, const FileDigests& digests) {
  const std::lock_guard<std::mutex> lock(mutex_);
  byPath_[path] = digests;
  if (IsWindowsPath(path)) {
    byFoldedPath_[Text::Lowered(path)] = digests;
  }
}

void RecordedHashes::PutForProcess(u64 puid, const FileDigests& digests) {
  const std::lock_guard<std::mutex> lock(mutex_);
  byProcess_[puid] = digests;
}

const FileDigests* RecordedHashes::Find(const std::string& path) const {
  const FileDigests* found = processes_ == nullptr ? nullptr : FindIn(byProcess_, processes_->LastLookup());
  if (found == nullptr) {
    found = FindIn(byPath_, path);
  }
  return found == nullptr && IsWindowsPath(path) ? FindIn(byFoldedPath_, Text::Lowered(path)) : found;
}

bool RecordedHashes::GetFileHashes(const char* path, RYL::Module::FileHashBlock* out, u32 /*which*/) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const FileDigests* digests = Find(path);
  if (digests == nullptr) {
    return false;
  }
  std::copy(digests->md5.begin(), digests->md5.end(), out->md5);
  std::copy(digests->sha256.begin(), digests->sha256.end(), out->qid);
  return true;
}

}  // namespace Host
