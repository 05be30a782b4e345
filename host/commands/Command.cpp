#include "host/commands/Command.h"

#include <memory>

#include "host/agent/DataFolder.h"
#include "host/agent/Policy.h"
#include "host/commands/Run.h"

namespace Host::Commands {

void AddDataOption(CLI::App& command, std::string& dataFolder) {
  dataFolder = DefaultDataFolder();
  // A script whose variable is not set must not be given the root folder.
  const auto hasName = [](const std::string& folder) {
    return folder.empty() ? "the data folder has no name" : std::string();
  };
  command.add_option("--data", dataFolder, "Folder of the history")
      ->type_name("DIR")
      ->capture_default_str()
      ->check(CLI::Validator(hasName, ""));
}

void AddPolicyOption(CLI::App& command, std::string& path) {
  command.add_option("--policy", path, "Policy document (TOML); else " + Policy::DefaultPath() + " if it is there")
      ->type_name("FILE");
}

Command AddRun(CLI::App& program) {
  const auto options = std::make_shared<RunOptions>();
  CLI::App* app = program.add_subcommand("run", "Record this machine's connections until SIGINT or SIGTERM");
  AddDataOption(*app, options->dataFolder);
  AddPolicyOption(*app, options->policyPath);
  return {
      app, [options] { return RunCommand(*options); },
      "  sudo netdb run                  all processes of this machine\n"
      "  netdb run --data /tmp/history   those of this user, into a folder of its own\n"
      "  netdb run --policy netdb.toml   with the settings of that document\n"
      "SIGHUP and \"netdb reload\" read the policy again; \"netdb status\" and \"netdb policy\" ask while it runs.\n"};
}

}  // namespace Host::Commands
