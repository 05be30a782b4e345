#include "host/commands/Command.h"

#include <memory>

#include "host/agent/DataFolder.h"
#include "host/agent/Policy.h"
#include "host/commands/Run.h"

namespace Host::Commands {

void AddDataOption(Options options, std::string& dataFolder) {
  dataFolder = DefaultDataFolder();
  // A script whose variable is not set must not be given the root folder.
  const auto hasName = [](const std::string& folder) {
    return folder.empty() ? "the data folder has no name" : std::string();
  };
  options.Text("--data", dataFolder, "Folder of the history").Named("DIR").ShowDefault().Check(hasName);
}

void AddPolicyOption(Options options, std::string& path) {
  options.Text("--policy", path, "Policy document (TOML); else " + Policy::DefaultPath() + " if it is there")
      .Named("FILE");
}

Command AddRun(Program& program) {
  const auto arguments = std::make_shared<RunOptions>();
  Options options = program.AddCommand("run", "Record this machine's connections until SIGINT or SIGTERM");
  AddDataOption(options, arguments->dataFolder);
  AddPolicyOption(options, arguments->policyPath);
  return {
      options.Name(), [arguments] { return RunCommand(*arguments); },
      "  sudo netdb run                  all processes of this machine\n"
      "  netdb run --data /tmp/history   those of this user, into a folder of its own\n"
      "  netdb run --policy netdb.toml   with the settings of that document\n"
      "SIGHUP and \"netdb reload\" read the policy again; \"netdb status\" and \"netdb policy\" ask while it runs.\n"};
}

}  // namespace Host::Commands
