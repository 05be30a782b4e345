// Recorder: the loop that records this machine's TCP connections until it is told to stop.
#pragma once

#include <functional>
#include <string>

#include "Velmar/Types.h"
#include "host/agent/ProcessRegistry.h"
#include "host/events/ConnectionRecord.h"

namespace Host::Capture {

// What the status line shows.
struct RecorderStatus {
  std::size_t open = 0;          // connections open now
  Velmar::u64 recorded = 0;      // new connections since the start
  Velmar::u64 closesMissed = 0;  // times that the kernel had to drop notices of closed sockets
};

class Recorder {
 public:
  static constexpr int kPollMs = 250;
  static constexpr int kStatusMs = 1000;

  struct Callbacks {
    std::function<void(const ConnectionRecord&)> emit;
    std::function<void()> ready;                        // the first look at the sockets is done
    std::function<void(const RecorderStatus&)> status;  // about once a second
  };

  // `stopDescriptor` becomes readable when recording is to end. Processes go into `registry` before the events that
  // name them are emitted. False with a sentence in `error` when the kernel's socket diagnosis cannot be used (any
  // more); what was seen until then has been emitted.
  static bool Run(int stopDescriptor, ProcessRegistry& registry, const Callbacks& callbacks, std::string& error);
};

}  // namespace Host::Capture
