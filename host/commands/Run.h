// netdb run: records this machine's connections in the foreground.
#pragma once

#include <string>

namespace Host {

struct RunOptions {
  std::string dataFolder;
};

// Exit code of the command.
int RunCommand(const RunOptions& options);

}  // namespace Host
