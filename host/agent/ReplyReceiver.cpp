#include "host/agent/ReplyReceiver.h"

#include <new>
#include <utility>

namespace Host {

// The module's code must see no exception.
bool ReplyReceiver::Dispatch(u32 kind, Velmar::Utils::TreeContainer* tree, u32 /*reserved1*/, u32 /*reserved2*/,
                             u32 /*reserved3*/) try {
  if (tree == nullptr) {
    return false;
  }
  auto reply = std::make_unique<Reply>();
  reply->kind = kind;
  if (!reply->tree.CopyFrom(*tree)) {
    return false;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (replies_.size() >= most_) {
    return false;
  }
  replies_.push_back(std::move(reply));
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

std::unique_ptr<ReplyReceiver::Reply> ReplyReceiver::Take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (replies_.empty()) {
    return nullptr;
  }
  auto reply = std::move(replies_.front());
  replies_.pop_front();
  return reply;
}

bool NamedBinaries::SetBinary(const char* name, const void* data, u32 size) try {
  if (name == nullptr || (data == nullptr && size != 0)) {
    return false;
  }
  const auto found = binaries_.find(name);
  const u64 others = bytes_ - (found == binaries_.end() ? 0 : found->second.size());
  if (size > maxBytes_ - others) {
    return false;
  }
  const u8* bytes = static_cast<const u8*>(data);
  std::vector<u8> copy(bytes, bytes + size);
  binaries_[name] = std::move(copy);
  bytes_ = others + size;
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

const std::vector<u8>* NamedBinaries::Find(const std::string& name) const {
  const auto found = binaries_.find(name);
  return found == binaries_.end() ? nullptr : &found->second;
}

}  // namespace Host
