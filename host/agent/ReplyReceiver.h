// ReplyReceiver and NamedBinaries: where the module's replies to a host's questions go.
//
//   ReplyReceiver receiver;
//   NamedBinaries binaries(maxBytes);
//   ModuleSession session({nullptr, nullptr, &receiver});
//   ...
//   session.Send(query, &binaries);
//   receiver.Take(); binaries.Find("events");
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "RYL/Events/EventSender.h"
#include "RYL/Events/ExternalData.h"
#include "Velmar/Utils/TreeContainer.h"
#include "host/Types.h"

namespace Host {

// Keeps copies of the module's own events until they are taken. Threads: thread-safe.
class ReplyReceiver final : public RYL::Events::EventSender {
 public:
  struct Reply {
    u32 kind = 0;
    Velmar::Utils::TreeContainer tree;
  };

  // `most`: replies that may wait.
  explicit ReplyReceiver(std::size_t most = 16) : most_(most) {}

  // False for a null tree, without memory, and when too many replies wait.
  bool Dispatch(u32 kind, Velmar::Utils::TreeContainer* tree, u32 reserved1, u32 reserved2, u32 reserved3) override;
  // The oldest reply, null when none waits.
  std::unique_ptr<Reply> Take();

 private:
  const std::size_t most_;
  std::mutex mutex_;
  std::deque<std::unique_ptr<Reply>> replies_;
};

// Keeps copies of named binaries, the last of each name. Threads: thread-compatible.
class NamedBinaries final : public RYL::Events::ExternalData {
 public:
  // `maxBytes`: what all of them together may have.
  explicit NamedBinaries(u64 maxBytes) : maxBytes_(maxBytes) {}

  // False, with what is kept as it was, for a null name, null data that has a size, past the limit, and without memory.
  bool SetBinary(const char* name, const void* data, u32 size) override;
  // Null for a name that has none; an empty one is not null. Good until the next SetBinary.
  [[nodiscard]] const std::vector<u8>* Find(const std::string& name) const;

 private:
  const u64 maxBytes_;
  u64 bytes_ = 0;
  std::map<std::string, std::vector<u8>> binaries_;
};

}  // namespace Host
