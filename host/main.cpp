// netdb: the connection history of a machine.
#include <exception>
#include <iostream>
#include <vector>

#include "host/commands/Command.h"
#include "host/commands/Console.h"

namespace {

using Host::Commands::Command;
using Host::Commands::Program;

const Command* FindCommand(const std::vector<Command>& commands, const std::string& name) {
  for (const Command& command : commands) {
    if (command.name == name) {
      return &command;
    }
  }
  return nullptr;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

// Help of the program, or of a command with its examples.
int PrintHelp(const Program& program, const std::string& overview, const std::vector<Command>& commands,
              const std::vector<std::string>& name) {
  const auto help = name.empty() ? overview : program.HelpOf(name);
  if (!help) {
    Host::Commands::PrintError("there is no command \"" + Joined(name) + "\"");
    return Host::Commands::kUsage;
  }
  std::cout << *help;
  const Command* command = name.empty() ? nullptr : FindCommand(commands, name[0]);
  if (command != nullptr && !command->examples.empty()) {
    std::cout << "\nExamples:\n" << command->examples;
  }
  std::cout << "\nExit codes: 0 done, 1 failed, 2 wrong use, 3 partial result\n";
  return Host::Commands::FinishOutput(std::cout) ? Host::Commands::kDone : Host::Commands::kFailed;
}

int UsageError(const Program::Parsed& parsed) {
  Host::Commands::PrintError(parsed.text + "; try \"netdb help" + (parsed.command.empty() ? "" : " ") +
                             Joined(parsed.command) + "\"");
  return Host::Commands::kUsage;
}

int Main(int argc, char** argv) {
  Program program("Keeps a day-by-day history of a machine's network connections.", "netdb " NETDB_VERSION);
  std::vector<Command> commands = {
      Host::Commands::AddRun(program),    Host::Commands::AddImport(program),     Host::Commands::AddQuery(program),
      Host::Commands::AddShow(program),   Host::Commands::AddTop(program),        Host::Commands::AddNew(program),
      Host::Commands::AddSql(program),    Host::Commands::AddInspect(program),    Host::Commands::AddVerify(program),
      Host::Commands::AddPurge(program),  Host::Commands::AddStatus(program),     Host::Commands::AddPolicy(program),
      Host::Commands::AddReload(program), Host::Commands::AddReputation(program), Host::Commands::AddFilter(program),
      Host::Commands::AddEvent(program)};
  std::vector<std::string> topic;
  program.AddCommand("help", "Show how a command is used")
      .Texts("COMMAND", topic, "One of the commands, such as query or event table");
  const std::string overview = program.Help();
  commands.push_back({"help", [&] { return PrintHelp(program, overview, commands, topic); }, ""});

  const Program::Parsed parsed = program.Parse(argc, argv);
  switch (parsed.wish) {
    case Program::Wish::kRun:
      return FindCommand(commands, parsed.command[0])->run();
    case Program::Wish::kHelp:
      return PrintHelp(program, overview, commands, parsed.command);
    case Program::Wish::kVersion:
      std::cout << parsed.text << '\n';
      return Host::Commands::FinishOutput(std::cout) ? Host::Commands::kDone : Host::Commands::kFailed;
    default:
      return UsageError(parsed);
  }
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
