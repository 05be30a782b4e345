#include "host/capture/SocketOwners.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <utility>

#include "Velmar/Hashes/SHA256.h"

namespace Host::Capture {
namespace {

using Velmar::u32;
using Velmar::u64;

// The worker may still ask about a process a little after its end.
constexpr u64 kForgetAfterMs = 600000;
constexpr int kStartTimeField = 22;

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

Folder OpenFolder(const std::string& path) {
  return {opendir(path.c_str()), &closedir};
}

std::string ReadLink(const std::string& path) {
  char target[4096];
  const ssize_t size = readlink(path.c_str(), target, sizeof(target));
  return size <= 0 ? std::string() : std::string(target, static_cast<std::size_t>(size));
}

bool ParseNumber(const char* text, u32& number) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text, &end, 10);
  if (end == text || *end != '\0' || value > 0xFFFFFFFFUL) {
    return false;
  }
  number = static_cast<u32>(value);
  return true;
}

// Start time of a process in clock ticks since the boot; 0 when it is gone. The name in field 2 may hold anything, so
// fields are counted from its closing parenthesis.
u64 StartTicks(const std::string& processFolder) {
  std::ifstream file(processFolder + "/stat");
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const std::size_t close = text.rfind(')');
  if (close == std::string::npos) {
    return 0;
  }
  std::istringstream fields(text.substr(close + 1));
  std::string field;
  for (int number = 3; number <= kStartTimeField && fields >> field; ++number) {
  }
  return std::strtoull(field.c_str(), nullptr, 10);
}

// The program's path; the command's name for one that cannot be read.
std::string ProgramPath(const std::string& processFolder) {
  static const std::string kDeleted = " (deleted)";
  std::string path = ReadLink(processFolder + "/exe");
  if (path.size() > kDeleted.size() && path.compare(path.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0) {
    path.resize(path.size() - kDeleted.size());
  }
  if (path.empty()) {
    std::ifstream file(processFolder + "/comm");
    std::getline(file, path);
  }
  return path;
}

}  // namespace

SocketOwners::SocketOwners(ProcessRegistry& registry, std::string procFolder)
    : registry_(registry), procFolder_(std::move(procFolder)) {
  std::ifstream file(procFolder_ + "/sys/kernel/random/boot_id");
  std::getline(file, bootId_);
}

u64 SocketOwners::Find(u32 inode) {
  auto found = holders_.find(inode);
  if (found == holders_.end() && !scanned_) {
    Scan();
    found = holders_.find(inode);
  }
  return found == holders_.end() ? 0 : Identify(found->second);
}

void SocketOwners::Refresh(u64 nowMs) {
  scanned_ = false;
  nowMs_ = nowMs;
  holders_.clear();
  for (auto at = known_.begin(); at != known_.end();) {
    if (nowMs - at->second.lastSeenMs <= kForgetAfterMs) {
      ++at;
      continue;
    }
    registry_.Remove(at->second.puid);
    at = known_.erase(at);
  }
}

void SocketOwners::Scan() {
  scanned_ = true;
  const Folder folder = OpenFolder(procFolder_);
  if (folder == nullptr) {
    return;
  }
  while (const dirent* entry = readdir(folder.get())) {
    u32 pid = 0;
    if (ParseNumber(entry->d_name, pid)) {
      ScanProcess(pid);
    }
  }
}

void SocketOwners::ScanProcess(u32 pid) {
  static const char kPrefix[] = "socket:[";
  const std::string processFolder = procFolder_ + "/" + std::to_string(pid);
  const Folder folder = OpenFolder(processFolder + "/fd");
  if (folder == nullptr) {
    return;
  }
  u64 startTicks = 0;
  while (const dirent* entry = readdir(folder.get())) {
    const std::string target = ReadLink(processFolder + "/fd/" + entry->d_name);
    if (target.compare(0, sizeof(kPrefix) - 1, kPrefix) != 0) {
      continue;
    }
    u32 inode = 0;
    if (!ParseNumber(target.substr(sizeof(kPrefix) - 1, target.size() - sizeof(kPrefix)).c_str(), inode)) {
      continue;
    }
    startTicks = startTicks == 0 ? StartTicks(processFolder) : startTicks;
    const auto [found, isNew] = holders_.try_emplace(inode, Holder{startTicks, pid});
    if (!isNew && startTicks < found->second.startTicks) {
      found->second = {startTicks, pid};
    }
  }
}

u64 SocketOwners::Identify(const Holder& holder) {
  const std::string key = std::to_string(holder.pid) + "/" + std::to_string(holder.startTicks);
  const auto [found, isNew] = known_.try_emplace(key, Known{0, nowMs_});
  found->second.lastSeenMs = nowMs_;
  if (isNew) {
    Velmar::Hashes::SHA256 hash;
    const std::string identity = bootId_ + "/" + key;
    if (hash.ComputeFromBuffer(identity.data(), static_cast<u32>(identity.size()))) {
      std::memcpy(&found->second.puid, hash.GetDigest(), sizeof(found->second.puid));
    }
    registry_.Put(found->second.puid, holder.pid, ProgramPath(procFolder_ + "/" + std::to_string(holder.pid)));
  }
  return found->second.puid;
}

}  // namespace Host::Capture
