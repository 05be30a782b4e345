// Command: what a subcommand of the program offers to main.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace Host::Commands {

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2, kPartial = 3 };

struct Command {
  CLI::App* app = nullptr;
  std::function<int()> run;  // after a successful parse; gives the exit code
  std::string examples;      // for `netdb help`
};

// Each adds its subcommand to `program`, which must outlive the result.
Command AddImport(CLI::App& program);
Command AddQuery(CLI::App& program);
Command AddInspect(CLI::App& program);
Command AddVerify(CLI::App& program);
Command AddPurge(CLI::App& program);
Command AddFilter(CLI::App& program);
Command AddRun(CLI::App& program);
Command AddStatus(CLI::App& program);
Command AddPolicy(CLI::App& program);
Command AddReload(CLI::App& program);
Command AddReputation(CLI::App& program);

// `--data DIR` with its default.
void AddDataOption(CLI::App& command, std::string& dataFolder);
// `--policy FILE`; `path` stays empty without it.
void AddPolicyOption(CLI::App& command, std::string& path);

}  // namespace Host::Commands
