#include "platform/sim/FileNode.h"

#include <algorithm>

namespace Velmar::Sim {

void FileNode::Write(u64 offset, const void* data, u32 size, u64 nowMs) {
  unsynced_.push_back({false, offset, std::string(static_cast<const char*>(data), size)});
  ApplyTo(content_, unsynced_.back());
  modifiedMs = nowMs;
}

void FileNode::Truncate(u64 nowMs) {
  unsynced_.push_back({true, 0, {}});
  content_.clear();
  modifiedMs = nowMs;
}

void FileNode::Sync() {
  if (!unsynced_.empty()) {
    durable_ = content_;
    unsynced_.clear();
  }
}

void FileNode::SyncHalf() {
  auto end = unsynced_.begin() + static_cast<std::ptrdiff_t>(unsynced_.size() / 2);
  std::for_each(unsynced_.begin(), end, [this](const Change& change) { ApplyTo(durable_, change); });
  unsynced_.erase(unsynced_.begin(), end);
}

void FileNode::LosePower(Random& random) {
  if (!unsynced_.empty()) {
    switch (random() % 5) {
      case 0:
        break;
      case 1:
        durable_ = content_;
        break;
      case 2:
        ApplyFirstToDisk(random);
        break;
      case 3:
        ApplyFirstToDisk(random);
        GrowOnDisk();
        break;
      default:
        ApplyAnyToDisk(random);
        break;
    }
  }
  unsynced_.clear();
  content_ = durable_;
}

void FileNode::ApplyFirstToDisk(Random& random) {
  std::size_t whole = random() % unsynced_.size();
  for (std::size_t i = 0; i < whole; ++i) {
    ApplyTo(durable_, unsynced_[i]);
  }
  Change cut = unsynced_[whole];
  cut.data.resize(random() % (cut.data.size() + 1));
  ApplyTo(durable_, cut);
}

void FileNode::ApplyAnyToDisk(Random& random) {
  for (const Change& change : unsynced_) {
    u64 fate = random() % 3;
    if (fate == 0) {
      continue;
    }
    Change part = change;
    if (fate == 1) {
      u64 first = random() % (change.data.size() + 1);
      part.offset += first;
      part.data = change.data.substr(first, random() % (change.data.size() - first + 1));
    }
    ApplyTo(durable_, part);
  }
  if (random() % 2 == 0) {
    GrowOnDisk();
  }
}

void FileNode::GrowOnDisk() {
  durable_.resize(std::max(durable_.size(), content_.size()), '\0');
}

void FileNode::ApplyTo(std::string& content, const Change& change) {
  if (change.truncate) {
    content.clear();
    return;
  }
  u64 end = change.offset + change.data.size();
  if (!change.data.empty() && content.size() < end) {
    content.resize(end, '\0');
  }
  std::copy(change.data.begin(), change.data.end(),
            content.begin() + static_cast<std::ptrdiff_t>(std::min<u64>(change.offset, content.size())));
}

}  // namespace Velmar::Sim
