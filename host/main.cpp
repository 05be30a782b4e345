// netdb: the connection history of a machine.
#include <exception>
#include <iostream>
#include <vector>

#include "host/commands/Command.h"
#include "host/commands/Console.h"

namespace {

using Host::Commands::Command;

const Command* FindCommand(const std::vector<Command>& commands, const std::string& name) {
  for (const Command& command : commands) {
    if (command.app->get_name() == name) {
      return &command;
    }
  }
  return nullptr;
}

// Help of the program, or of a command with its examples.
int PrintHelp(const std::string& overview, const std::vector<Command>& commands, const std::string& name) {
  const Command* command = name.empty() ? nullptr : FindCommand(commands, name);
  if (command == nullptr && !name.empty()) {
    Host::Commands::PrintError("there is no command \"" + name + "\"");
    return Host::Commands::kUsage;
  }
  std::cout << (command == nullptr ? overview : command->app->help("netdb"));
  if (command != nullptr && !command->examples.empty()) {
    std::cout << "\nExamples:\n" << command->examples;
  }
  std::cout << "\nExit codes: 0 done, 1 failed, 2 wrong use, 3 partial result\n";
  return Host::Commands::FinishOutput(std::cout) ? Host::Commands::kDone : Host::Commands::kFailed;
}

int UsageError(const CLI::App& program, const std::string& text) {
  const auto chosen = program.get_subcommands();
  Host::Commands::PrintError(text + "; try \"netdb help" + (chosen.empty() ? "" : " " + chosen[0]->get_name()) + "\"");
  return Host::Commands::kUsage;
}

int Main(int argc, char** argv) {
  CLI::App program("Keeps a day-by-day history of a machine's network connections.", "netdb");
  program.set_version_flag("--version", "netdb " NETDB_VERSION);
  program.require_subcommand(1);
  std::vector<Command> commands = {
      Host::Commands::AddRun(program),        Host::Commands::AddImport(program), Host::Commands::AddQuery(program),
      Host::Commands::AddInspect(program),    Host::Commands::AddVerify(program), Host::Commands::AddPurge(program),
      Host::Commands::AddStatus(program),     Host::Commands::AddPolicy(program), Host::Commands::AddReload(program),
      Host::Commands::AddReputation(program), Host::Commands::AddFilter(program)};
  std::string topic;
  Command help;
  help.app = program.add_subcommand("help", "Show how a command is used");
  help.app->add_option("COMMAND", topic, "One of the commands");
  commands.push_back(help);
  const std::string overview = program.help();  // after the parse it would be that of the subcommand
  commands.back().run = [&] { return PrintHelp(overview, commands, topic); };

  try {
    program.parse(argc, argv);
  } catch (const CLI::CallForVersion& version) {
    std::cout << version.what() << '\n';
    return Host::Commands::FinishOutput(std::cout) ? Host::Commands::kDone : Host::Commands::kFailed;
  } catch (const CLI::CallForHelp&) {
    const auto chosen = program.get_subcommands();
    return PrintHelp(overview, commands, chosen.empty() ? "" : chosen[0]->get_name());
  } catch (const CLI::ParseError& error) {
    return UsageError(program, error.what());
  }
  return FindCommand(commands, program.get_subcommands()[0]->get_name())->run();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    Host::Commands::PrintError(error.what());
    return Host::Commands::kFailed;
  }
}
