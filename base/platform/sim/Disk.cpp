#include "platform/sim/Disk.h"

#include <algorithm>

namespace Velmar::Sim {

std::string NormalizePath(const std::string& path) {
  std::string result;
  std::size_t at = 0;
  while (at < path.size()) {
    std::size_t end = std::min(path.find('/', at), path.size());
    std::string element = path.substr(at, end - at);
    if (element == "..") {
      result.resize(result.empty() ? 0 : result.rfind('/'));
    } else if (!element.empty() && element != ".") {
      result += "/" + element;
    }
    at = end + 1;
  }
  return result.empty() ? "/" : result;
}

std::string FolderOf(const std::string& path) {
  return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

std::set<std::string> Disk::Operation::Folders() const {
  std::set<std::string> folders;
  for (const std::string& path : {from, to}) {
    if (!path.empty()) {
      folders.insert(FolderOf(path));
    }
  }
  return folders;
}

void Disk::ApplyTo(Entries& entries, const Operation& operation) {
  if (!operation.from.empty()) {
    entries.erase(operation.from);
  }
  if (!operation.to.empty()) {
    entries[operation.to] = operation.node;
  }
}

void Disk::Perform(Operation operation) {
  ApplyTo(entries_, operation);
  unsynced_.push_back(std::move(operation));
}

FilePointer Disk::Find(const std::string& path) const {
  auto found = entries_.find(path);
  return found == entries_.end() ? nullptr : found->second;
}

FilePointer Disk::Create(const std::string& path, u64 nowMs) {
  if (IsFolder(path) || !IsFolder(FolderOf(path))) {
    return nullptr;
  }
  FilePointer node = Find(path);
  if (node == nullptr) {
    node = std::make_shared<FileNode>();
    node->createdMs = nowMs;
    node->modifiedMs = nowMs;
    Perform({"", path, node});
  }
  return node;
}

bool Disk::Remove(const std::string& path) {
  FilePointer node = Find(path);
  if (node == nullptr) {
    return false;
  }
  Perform({path, "", node});
  return true;
}

bool Disk::Rename(const std::string& from, const std::string& to) {
  FilePointer node = Find(from);
  if (node == nullptr || Find(to) != nullptr || IsFolder(to) || !IsFolder(FolderOf(to))) {
    return false;
  }
  Perform({from, to, node});
  return true;
}

bool Disk::MakeFolder(const std::string& path) {
  if (IsFolder(path)) {
    return true;
  }
  if (Find(path) != nullptr || !MakeFolder(FolderOf(path))) {
    return false;
  }
  folders_.insert(path);
  return true;
}

// Marks the unsynced operations of `folder`, and those that must be durable no later than they.
std::vector<bool> Disk::NeededBy(const std::string& folder) const {
  std::set<std::string> wanted = {folder};
  std::vector<bool> needed(unsynced_.size());
  for (std::size_t i = unsynced_.size(); i-- > 0;) {
    std::set<std::string> touched = unsynced_[i].Folders();
    needed[i] = std::any_of(touched.begin(), touched.end(),
                            [&wanted](const std::string& name) { return wanted.count(name) != 0; });
    if (needed[i]) {
      wanted.insert(touched.begin(), touched.end());
    }
  }
  return needed;
}

void Disk::SyncFolder(const std::string& folder, bool half) {
  std::vector<bool> needed = NeededBy(folder);
  auto left = std::count(needed.begin(), needed.end(), true);
  left = half ? left / 2 : left;
  std::vector<Operation> remaining;
  for (std::size_t i = 0; i < unsynced_.size(); ++i) {
    if (needed[i] && left > 0) {
      ApplyTo(durable_, unsynced_[i]);
      --left;
    } else {
      remaining.push_back(std::move(unsynced_[i]));
    }
  }
  unsynced_ = std::move(remaining);
}

void Disk::LosePower(u64 seed) {
  Random random(seed);
  std::map<std::string, u64> kept;
  for (const Operation& operation : unsynced_) {
    for (const std::string& folder : operation.Folders()) {
      ++kept[folder];
    }
  }
  for (auto& [folder, count] : kept) {
    count = random() % (count + 1);
  }
  for (const Operation& operation : unsynced_) {
    std::set<std::string> touched = operation.Folders();
    bool keep =
        std::all_of(touched.begin(), touched.end(), [&kept](const std::string& name) { return kept[name] > 0; });
    for (const std::string& folder : touched) {
      kept[folder] = keep ? kept[folder] - 1 : 0;
    }
    if (keep) {
      ApplyTo(durable_, operation);
    }
  }
  unsynced_.clear();
  entries_ = durable_;
  for (auto& [path, node] : entries_) {
    node->LosePower(random);
  }
}

u64 Disk::UsedBytes() const {
  u64 used = 0;
  for (const auto& [path, node] : entries_) {
    used += node->Content().size();
  }
  return used;
}

std::vector<std::string> Disk::List(const std::string& folder, bool recursive) const {
  std::string prefix = folder == "/" ? "/" : folder + "/";
  std::vector<std::string> paths;
  auto collect = [&](const std::string& path) {
    bool below = path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0;
    if (below && (recursive || path.find('/', prefix.size()) == std::string::npos)) {
      paths.push_back(path);
    }
  };
  for (const auto& [path, node] : entries_) {
    collect(path);
  }
  std::for_each(folders_.begin(), folders_.end(), collect);
  std::sort(paths.begin(), paths.end());
  return paths;
}

FilePointer Disk::Put(const std::string& path, const std::string& content, u64 nowMs) {
  if (!MakeFolder(FolderOf(path)) || IsFolder(path)) {
    return nullptr;
  }
  SyncFolder(FolderOf(path), false);
  auto node = std::make_shared<FileNode>();
  node->createdMs = nowMs;
  node->Write(0, content.data(), static_cast<u32>(content.size()), nowMs);
  node->Sync();
  ApplyTo(entries_, {"", path, node});
  ApplyTo(durable_, {"", path, node});
  return node;
}

bool Disk::Take(const std::string& path) {
  SyncFolder(FolderOf(path), false);
  durable_.erase(path);
  return entries_.erase(path) != 0;
}

}  // namespace Velmar::Sim
