#include "host/agent/StatisticsState.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/Descriptor.h"

namespace Host {
namespace {

using nlohmann::json;
using Velmar::Utils::StringView;
using Velmar::Utils::TreeContainer;

constexpr u32 kFileVersion = 1;
// So that the largest state fits the largest file.
constexpr std::size_t kMaxNames = 16;  // of a tree
constexpr std::size_t kMaxName = 64;
constexpr char kNameCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";
constexpr u32 kTreeNodes = 8;

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

// At most a byte more than `limit`. False with errno.
bool ReadAtMost(int descriptor, std::size_t limit, std::string& text) {
  text.resize(limit + 1);
  std::size_t size = 0;
  while (size < text.size()) {
    const ssize_t part = read(descriptor, text.data() + size, text.size() - size);
    if (part < 0 && errno == EINTR) {
      continue;
    }
    if (part < 0) {
      return false;
    }
    if (part == 0) {
      break;
    }
    size += static_cast<std::size_t>(part);
  }
  text.resize(size);
  return true;
}

bool WriteAll(int descriptor, const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t part = write(descriptor, text.data() + written, text.size() - written);
    if (part < 0 && errno != EINTR) {
      return false;
    }
    written += part < 0 ? 0 : static_cast<std::size_t>(part);
  }
  return true;
}

// False with errno.
bool ReplaceFile(const std::string& path, const std::string& text) {
  const std::string temporary = path + ".temp";
  // What has the name may be the rest of an earlier write, or a pipe whose open would wait for a reader.
  unlink(temporary.c_str());
  Descriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file.IsOpen() || !WriteAll(file.Get(), text) || fsync(file.Get()) != 0 || !file.Close() ||
      std::rename(temporary.c_str(), path.c_str()) != 0) {
    return false;
  }
  // The old file or the new one: after a power cut either is right.
  const Descriptor folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  fsync(folder.Get());
  return true;
}

bool IsName(const std::string& name) {
  return name.size() <= kMaxName && name.find_first_not_of(kNameCharacters) == std::string::npos;
}

bool IsCounter(const json& value) {
  return value.is_number_unsigned() && value.get<u64>() <= std::numeric_limits<u32>::max();
}

}  // namespace

StatisticsState::StatisticsState(const std::string& dataFolder) {
  const bool ends = !dataFolder.empty() && dataFolder.back() == '/';
  path_ = dataFolder + (ends ? "" : "/") + "netdb-statistics.json";
}

bool StatisticsState::Load(std::string& error) {
  trees_.clear();
  const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!file.IsOpen() && errno == ENOENT) {
    return true;
  }
  std::string text;
  if (!file.IsOpen() || !ReadAtMost(file.Get(), kMaxFileSize, text)) {
    error = "cannot read " + path_ + ": " + std::strerror(errno) + "; counting starts anew";
    return false;
  }
  if (!Parse(text)) {
    trees_.clear();
    error = path_ + " is damaged; counting starts anew";
    return false;
  }
  return true;
}

bool StatisticsState::Parse(const std::string& text) {
  if (text.size() > kMaxFileSize) {
    return false;
  }
  const json document = json::parse(text, nullptr, false);
  if (!document.is_object() || document.value("version", json()) != kFileVersion ||
      !document.value("trees", json()).is_array()) {
    return false;
  }
  for (const json& tree : document["trees"]) {
    if (!tree.is_object() || tree.size() > kMaxNames) {
      return false;
    }
    Counters counters;
    for (const auto& [name, value] : tree.items()) {
      if (!IsCounter(value) || !IsName(name)) {
        return false;
      }
      counters[name] = value.get<u32>();
    }
    trees_.push_back(std::move(counters));
  }
  FoldOldest();
  return true;
}

void StatisticsState::Add(const TreeContainer& tree) {
  Counters counters;
  bool counted = false;
  for (u32 i = 0; i < tree.GetNodeChildrenCount(TreeContainer::kRoot) && i < kMaxNames; ++i) {
    const u32 node = tree.GetNodeChild(TreeContainer::kRoot, i);
    const StringView view = tree.GetNodeName(node);
    const std::string name(view.text, view.length);
    bool isNumber = false;
    const u32 value = tree.GetCurrentNodeValueUInt32(node, 0, &isNumber);
    if (isNumber && IsName(name)) {
      counters[name] = value;
      counted = counted || value != 0;
    }
  }
  if (counted) {
    trees_.push_back(std::move(counters));
    changed_ = true;
    FoldOldest();
  }
}

void StatisticsState::FoldOldest() {
  if (trees_.size() <= kMaxTrees) {
    return;
  }
  const auto last = trees_.begin() + static_cast<std::ptrdiff_t>(trees_.size() - kMaxTrees);
  for (auto tree = trees_.begin(); tree != last; ++tree) {
    for (const auto& [name, value] : *tree) {
      if (last->size() < kMaxNames || last->count(name) != 0) {
        (*last)[name] += value;
      }
    }
  }
  trees_.erase(trees_.begin(), last);
}

std::string StatisticsState::Text() const {
  const json document = {{"version", kFileVersion}, {"trees", trees_}};
  return document.dump() + "\n";
}

bool StatisticsState::Store(std::string& error) {
  if (!changed_) {
    return true;
  }
  if (!ReplaceFile(path_, Text())) {
    error = "cannot write " + path_ + ": " + std::strerror(errno);
    return false;
  }
  changed_ = false;
  return true;
}

bool StatisticsState::FillHistory(Velmar::Collections::Array<TreeContainer>& history) const {
  if (!history.Create(kMaxTrees, kMaxTrees, 1, false, Velmar::Collections::GrowType::kFixedStep)) {
    return false;
  }
  TreeContainer tree;
  if (!tree.Create(kTreeNodes, kTreeNodes, true, kTreeNodes)) {
    return false;
  }
  for (const Counters& counters : trees_) {
    bool added = tree.Reset(true, kTreeNodes);
    for (const auto& [name, value] : counters) {
      const StringView key(name.c_str(), static_cast<u32>(name.size()));
      added = added && tree.AddUInt32(TreeContainer::kRoot, key, value, false) != TreeContainer::kError;
    }
    if (!added || !history.Add(tree)) {
      return false;
    }
  }
  return true;
}

}  // namespace Host
