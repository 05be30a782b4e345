// netdb run: records this machine's connections in the foreground, and answers on the control socket.
#pragma once

#include <string>

namespace Host {

struct RunOptions {
  std::string dataFolder;
  std::string policyPath;  // empty: wherever the policy usually is
};

// Exit code of the command.
int RunCommand(const RunOptions& options);

}  // namespace Host
