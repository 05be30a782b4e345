// EventSender: the way out for a module's own events.
#pragma once

#include "Velmar/Types.h"

namespace Velmar::Utils {
class TreeContainer;
}

namespace RYL::Events {

// Threads: thread-safe.
class EventSender {
 public:
  // Sends `tree` as an event of `kind`; the tree is read before the call returns. The last three are 0.
  virtual bool Dispatch(u32 kind, Velmar::Utils::TreeContainer* tree, u32 reserved1, u32 reserved2, u32 reserved3) = 0;

 protected:
  ~EventSender() = default;
};

}  // namespace RYL::Events
