// Client: a command's end of the control socket.
//
//   const Reply reply = Ask(dataFolder, Kind::kStatus);
//   if (reply.outcome == Outcome::kNoDaemon) ...
#pragma once

#include <poll.h>

#include <functional>
#include <string>
#include <vector>

#include "host/Types.h"
#include "host/control/Message.h"

namespace Host::Control {

enum class Outcome {
  kAnswer,    // `text` is its JSON text
  kRefused,   // the daemon's reason is in `text`
  kNoDaemon,  // nobody listens there
  kFailed,    // `text` says why: no right to ask, no answer in time, one that is not understood
};

struct Reply {
  Outcome outcome = Outcome::kFailed;
  std::string text;
};

// The passing of time: milliseconds of a clock that never runs backwards, and poll.
struct Waiting {
  std::function<u64()> nowMs;
  std::function<int(std::vector<pollfd>& descriptors, int timeoutMs)> wait;

  static Waiting Real();
};

// A daemon has this long to answer.
inline constexpr u64 kAnswerLimitMs = 10'000;

// Sends one request and waits for its reply, kAnswerLimitMs at most. Changes nothing on disk. Thread-safe.
Reply Ask(const std::string& dataFolder, Kind request, const Waiting& waiting = Waiting::Real());

}  // namespace Host::Control
