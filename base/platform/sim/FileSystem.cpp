#include "Velmar/OS/FileSystem.h"

#include <algorithm>
#include <random>

#include "BaseLog.h"
#include "platform/sim/State.h"

namespace Velmar::OS {

namespace {

using Sim::Operation;
using Sim::Outcome;
using Lock = std::unique_lock<std::mutex>;

bool IsUsable(const char* path) {
  return path != nullptr && *path != '\0';
}

// False for the two ways to fail; for the others `real` says whether the operation is to happen.
bool BeginOperation(Operation kind, bool& real) {
  Outcome outcome = Sim::GetState().Begin(kind);
  real = outcome == Outcome::kProceed;
  return real || outcome == Outcome::kDrop;
}

bool SyncFolder(const std::string& folder) {
  Sim::State& state = Sim::GetState();
  Outcome outcome = state.Begin(Operation::kSyncFolder);
  if (outcome == Outcome::kProceed || outcome == Outcome::kTear) {
    state.disk.SyncFolder(folder, outcome == Outcome::kTear);
  }
  return outcome == Outcome::kProceed || outcome == Outcome::kDrop;
}

struct Item {
  std::string path;
  bool isDirectory;
  u64 size = 0;
  FileTimes times;
};

// False when the entry is there no more.
bool Describe(Item& item, bool withSizes) {
  Lock lock(Sim::GetState().mutex);
  Sim::Disk& disk = Sim::GetState().disk;
  item.isDirectory = disk.IsFolder(item.path);
  Sim::FilePointer node = disk.Find(item.path);
  if (node != nullptr && withSizes) {
    item.size = node->Content().size();
    item.times = {node->createdMs, node->modifiedMs, node->modifiedMs};
  }
  return item.isDirectory || node != nullptr;
}

bool ListFolder(const char* folder, bool recursive, std::vector<std::string>& paths) {
  Lock lock(Sim::GetState().mutex);
  bool real = false;
  if (!BeginOperation(Operation::kEnumerate, real)) {
    return false;
  }
  std::string path = Sim::NormalizePath(folder);
  if (real && !Sim::GetState().disk.IsFolder(path)) {
    return false;
  }
  if (real) {
    paths = Sim::GetState().disk.List(path, recursive);
    if (const u64 seed = Sim::GetState().listingSeed; seed != 0) {
      std::shuffle(paths.begin(), paths.end(), std::mt19937_64(seed));
    }
  }
  return true;
}

}  // namespace

bool FileSystem::FileExists(const char* path, bool /*noFollow*/) {
  Lock lock(Sim::GetState().mutex);
  bool real = false;
  return IsUsable(path) && BeginOperation(Operation::kExists, real) &&
         (!real || Sim::GetState().disk.Find(Sim::NormalizePath(path)) != nullptr);
}

bool FileSystem::DirectoryExists(const char* path, bool /*noFollow*/) {
  Lock lock(Sim::GetState().mutex);
  bool real = false;
  return IsUsable(path) && BeginOperation(Operation::kExists, real) &&
         (!real || Sim::GetState().disk.IsFolder(Sim::NormalizePath(path)));
}

bool FileSystem::DirectoryExists(const Utils::String& path, bool noFollow) {
  return DirectoryExists(path.text, noFollow);
}

bool FileSystem::CreateDirectory(const char* path) {
  Lock lock(Sim::GetState().mutex);
  bool real = false;
  return IsUsable(path) && BeginOperation(Operation::kCreateDirectory, real) &&
         (!real || Sim::GetState().disk.MakeFolder(Sim::NormalizePath(path)));
}

bool FileSystem::DeleteFile(const char* path, bool /*force*/, bool (*confirm)(const char*)) {
  if (path == nullptr || (confirm != nullptr && !confirm(path))) {
    return false;
  }
  Lock lock(Sim::GetState().mutex);
  bool real = false;
  if (!BeginOperation(Operation::kDelete, real)) {
    return false;
  }
  std::string name = Sim::NormalizePath(path);
  if (real && Sim::GetState().disk.IsFolder(name)) {
    return false;
  }
  if (real) {
    Sim::GetState().disk.Remove(name);
  }
  return true;
}

bool FileSystem::DeleteFile(Utils::String& path, bool force, bool (*confirm)(const char*)) {
  return DeleteFile(path.text, force, confirm);
}

bool FileSystem::MoveFile(const char* from, const char* to) {
  if (!IsUsable(from) || !IsUsable(to)) {
    return false;
  }
  {
    Sim::State& state = Sim::GetState();
    Lock lock(state.mutex);
    std::string source = Sim::NormalizePath(from);
    std::string target = Sim::NormalizePath(to);
    bool real = false;
    if (!BeginOperation(Operation::kMove, real)) {
      return false;
    }
    if (!real) {
      return true;
    }
    if (!state.disk.Rename(source, target)) {
      return false;
    }
    std::string sourceFolder = Sim::FolderOf(source);
    std::string targetFolder = Sim::FolderOf(target);
    if (SyncFolder(targetFolder) && (sourceFolder == targetFolder || SyncFolder(sourceFolder))) {
      return true;
    }
    // Nobody is left to see a result or to log.
    if (state.dead) {
      return false;
    }
  }
  RYL_LOG(base, FolderSyncFailed, to);
  return true;
}

bool FileSystem::IsFileSystemCaseSensitive() {
  Lock lock(Sim::GetState().mutex);
  return Sim::GetState().caseSensitive;
}

bool FileSystem::EnumerateFiles(Utils::String& folder, bool recursive, EnumerateCallback callback, void* context,
                                bool withSizes, bool withDirectories, bool /*withLinks*/) {
  std::vector<std::string> paths;
  if (!IsUsable(folder.text) || callback == nullptr || !ListFolder(folder.text, recursive, paths)) {
    return false;
  }
  // The callback runs without the mutex: it may use the file system itself.
  for (const std::string& path : paths) {
    Item item;
    item.path = path;
    if (!Describe(item, withSizes) || (item.isDirectory && !withDirectories)) {
      continue;
    }
    const char* name = item.path.c_str() + item.path.rfind('/') + 1;
    if (!callback(item.path.c_str(), name, item.size, item.isDirectory, item.times, context)) {
      return false;
    }
  }
  return true;
}

}  // namespace Velmar::OS
