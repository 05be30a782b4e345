// StopSignal: SIGINT and SIGTERM as a flag.
#pragma once

namespace Host::Commands {

// Catches both from construction to destruction, so that a command can end in good order; a second one of the same kind
// ends the program at once. Lifetime: one at a time in a process.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  [[nodiscard]] static bool IsRequested();
};

}  // namespace Host::Commands
