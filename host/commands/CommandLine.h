// CommandLine: the words behind "netdb": its commands with their options and arguments.
//
//   Program program("Keeps a history.", "netdb 1.0");
//   Options options = program.AddCommand("query", "Print the stored connections");
//   options.Text("--since", since, "Only what was seen then or later").Named("TIME");
//
// The parser's own header takes long to compile; only CommandLine.cpp includes it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Host::Commands {

// One option or argument, to be described further. Copies name the same one.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  // What the help calls the value.
  Option& Named(const std::string& valueName);
  // The help shows what the target holds now.
  Option& ShowDefault();
  Option& Required();
  Option& OneOf(const std::vector<std::string>& values);
  // An option of many values takes one each time it is given, so that arguments may follow it.
  Option& OneEachTime();
  // A script whose variable is not set gives an empty value, and must not get more than it meant to ask for.
  Option& NotEmpty();
  // `problemOf` gives a sentence about a bad value, and nothing about a good one.
  Option& Check(const std::function<std::string(const std::string&)>& problemOf);

 private:
  CLI::Option* option_;
};

// The options and arguments of one command, named "--since" or "FILE". Targets must outlive the parse. Copies name the
// same command.
class Options {
 public:
  explicit Options(CLI::App* app) : app_(app) {}

  Option Text(const std::string& name, std::string& target, const std::string& help);
  Option Texts(const std::string& name, std::vector<std::string>& target, const std::string& help);
  Option Flag(const std::string& name, bool& target, const std::string& help);
  // A command within this one, of which one must be given.
  Options AddCommand(const std::string& name, const std::string& description);

  [[nodiscard]] std::string Name() const;
  // Whether the command was given.
  [[nodiscard]] bool WasChosen() const;

 private:
  CLI::App* app_;
};

class Program {
 public:
  enum class Wish { kRun, kHelp, kVersion, kBadUse };
  struct Parsed {
    Wish wish = Wish::kBadUse;
    std::vector<std::string> command;  // as far as it was given: {}, {"query"}, {"event", "table"}
    std::string text;                  // kVersion: the version; kBadUse: what is wrong
  };

  Program(const std::string& description, const std::string& version);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  Options AddCommand(const std::string& name, const std::string& description);
  Parsed Parse(int argc, const char* const* argv);
  // Of the program; before Parse only.
  [[nodiscard]] std::string Help() const;
  // Of a command, named as in Parsed; nothing when there is none of that name.
  [[nodiscard]] std::optional<std::string> HelpOf(const std::vector<std::string>& command) const;

 private:
  std::unique_ptr<CLI::App> app_;
};

}  // namespace Host::Commands
