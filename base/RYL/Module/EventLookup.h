// EventLookup: host service 23, finds recorded events by identifier.
#pragma once

#include "RYL/Events/GenericEventHolder.h"
#include "Velmar/Types.h"

namespace RYL::Module {

inline constexpr u32 kEventLookupServiceNumber = 23;

// Threads: thread-safe.
class EventLookup {
 public:
  // Fills `holder` with the process event (RYL/Events/Records.h) of that process. False when it is not known.
  virtual bool GetEventById(u64 processPuid, Events::GenericEventHolder* holder) = 0;

 protected:
  ~EventLookup() = default;
};

}  // namespace RYL::Module
