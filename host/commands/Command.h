// Command: what a subcommand of the program offers to main.
#pragma once

#include <functional>
#include <string>

#include "host/commands/CommandLine.h"

namespace Host::Commands {

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2, kPartial = 3 };

struct Command {
  std::string name;
  std::function<int()> run;  // after a successful parse; gives the exit code
  std::string examples;      // for `netdb help`
};

// Each adds its subcommand to `program`, which must outlive the result.
Command AddImport(Program& program);
Command AddQuery(Program& program);
Command AddSql(Program& program);
Command AddShow(Program& program);
Command AddTop(Program& program);
Command AddNew(Program& program);
Command AddInspect(Program& program);
Command AddVerify(Program& program);
Command AddPurge(Program& program);
Command AddFilter(Program& program);
Command AddRun(Program& program);
Command AddStatus(Program& program);
Command AddPolicy(Program& program);
Command AddReload(Program& program);
Command AddReputation(Program& program);
Command AddEvent(Program& program);

// `--data DIR` with its default.
void AddDataOption(Options options, std::string& dataFolder);
// `--policy FILE`; `path` stays empty without it.
void AddPolicyOption(Options options, std::string& path);

}  // namespace Host::Commands
