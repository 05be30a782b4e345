// netdb policy and netdb reload.
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/JsonField.h"
#include "host/commands/PolicyReport.h"
#include "host/control/Client.h"

namespace Host::Commands {
namespace {

using nlohmann::ordered_json;

constexpr char kPolicyExamples[] =
    "  netdb policy                        what the daemon on the usual folder goes by\n"
    "  netdb policy --format json | jq '.settings[] | select(.line > 0)'\n"
    "  netdb policy --policy netdb.toml    without a daemon: what that document gives\n";
constexpr char kReloadExamples[] =
    "  sudo netdb reload\n"
    "A document that is not right changes nothing; the message says what is wrong with it.\n";

struct Arguments {
  std::string dataFolder;
  std::string policyPath;
  std::string format = "table";
};

bool AskDocument(const std::string& policyPath, ordered_json& report) {
  std::string error;
  const std::optional<Policy> policy = Policy::LoadOrDefault(policyPath, error);
  if (!policy) {
    PrintError(error);
    return false;
  }
  report = PolicyReport(*policy, ValuesOf(*policy));
  return true;
}

void NoteOtherDocument(const std::string& policyPath, const ordered_json& report) {
  const std::string used = FieldText(report, "policy");
  if (!policyPath.empty() && Text::ToPrintable(std::filesystem::absolute(policyPath).string()) != used) {
    PrintNote("the daemon goes by " + (used.empty() ? "the defaults" : used) + ", not by " + policyPath);
  }
}

bool AskDaemon(const Arguments& arguments, ordered_json& report) {
  const Control::Reply reply = Control::Ask(arguments.dataFolder, Control::Kind::kPolicy);
  if (reply.outcome == Control::Outcome::kNoDaemon) {
    PrintNote(reply.text + "; this is what the policy gives");
    return AskDocument(arguments.policyPath, report);
  }
  if (reply.outcome != Control::Outcome::kAnswer) {
    PrintError(reply.text);
    return false;
  }
  report = ordered_json::parse(reply.text, nullptr, false);
  NoteOtherDocument(arguments.policyPath, report);
  return true;
}

int RunPolicy(const Arguments& arguments) {
  ordered_json report;
  if (!AskDaemon(arguments, report)) {
    return kFailed;
  }
  std::cout << (arguments.format == "json" ? report.dump(2) + "\n" : PolicyTable(report));
  return FinishOutput(std::cout) ? kDone : kFailed;
}

int RunReload(const std::string& dataFolder) {
  const Control::Reply reply = Control::Ask(dataFolder, Control::Kind::kReload);
  if (reply.outcome != Control::Outcome::kAnswer) {
    PrintError(reply.outcome == Control::Outcome::kRefused ? "the policy stays as it is: " + reply.text : reply.text);
    return kFailed;
  }
  const ordered_json report = ordered_json::parse(reply.text, nullptr, false);
  std::cout << ReloadLines(report);
  const std::vector<std::string> notFollowed = NotFollowed(report);
  for (const std::string& sentence : notFollowed) {
    PrintError(sentence);
  }
  return FinishOutput(std::cout) && notFollowed.empty() ? kDone : kFailed;
}

}  // namespace

Command AddPolicy(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("policy", "Show the settings in force and where each comes from");
  AddDataOption(options, arguments->dataFolder);
  AddPolicyOption(options, arguments->policyPath);
  options.Text("--format", arguments->format, "How they are shown").OneOf({"table", "json"}).ShowDefault();
  return {options.Name(), [arguments] { return RunPolicy(*arguments); }, kPolicyExamples};
}

Command AddReload(Program& program) {
  const auto dataFolder = std::make_shared<std::string>();
  Options options = program.AddCommand("reload", "Let the daemon read its policy again");
  AddDataOption(options, *dataFolder);
  return {options.Name(), [dataFolder] { return RunReload(*dataFolder); }, kReloadExamples};
}

}  // namespace Host::Commands
