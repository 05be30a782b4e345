// PolicyCheck: which recorded connections a history under a policy would not keep.
#pragma once

#include "host/agent/Policy.h"
#include "host/import/RecordedConnection.h"

namespace Host::Import {

// Threads: thread-compatible.
class PolicyCheck {
 public:
  // `nowMs`: the present, which days are counted back from.
  PolicyCheck(const Policy& policy, u64 nowMs);

  // kTooOld for a connection whose start lies in a day that the folder's age limit removes; kPrivateAddress and
  // kSpecialAddress for a remote address that the module leaves out; else kConnection.
  [[nodiscard]] Finding Check(const RecordedConnection& connection) const;

 private:
  u64 keptFromMs_;  // start of the oldest day that is kept
  bool keepPrivate_;
};

}  // namespace Host::Import
