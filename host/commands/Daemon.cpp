#include "host/commands/Daemon.h"

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

#include "Velmar/Utils/String.h"
#include "host/text/Utf8.h"

namespace Host::Commands {
namespace {

using Control::Kind;
using Control::Message;
using nlohmann::ordered_json;
using Velmar::Utils::TreeContainer;

constexpr u32 kReportNodes = 64;
constexpr u32 kStatisticsNodes = 8;

std::unique_ptr<TreeContainer> MakeTree(u32 nodes) {
  auto tree = std::make_unique<TreeContainer>();
  return tree->Create(nodes, nodes, true, kStatisticsNodes) ? std::move(tree) : nullptr;
}

bool IsRequestText(const std::string& text) {
  return text.empty() || nlohmann::json::parse(text, nullptr, false).is_object();
}

}  // namespace

Daemon::Daemon(const Parts& parts, const Policy& policy) : parts_(parts), policy_(policy) {
  recording_ = policy.Get(Setting::kNetdbEnabled).value != 0;
}

Message Daemon::Answer(const Message& request) {
  if (!IsRequestText(request.text)) {
    return Control::Refusal("the text of a request is a JSON object");
  }
  switch (request.kind) {
    case Kind::kStatus:
      return {Kind::kAnswer, StatusText()};
    case Kind::kPolicy:
      return {Kind::kAnswer, PolicyReport(policy_, InForce()).dump()};
    case Kind::kReload:
      return Reload();
    default:
      return Control::Refusal("this is no request");
  }
}

Message Daemon::Reload() {
  std::string error;
  const std::optional<Policy> policy = Policy::LoadOrDefault(parts_.policyPath, error);
  if (!policy || !ConfigureCloud(policy->Cloud(), policy->Source(), error)) {
    parts_.say("the policy stays as it is: " + error);
    return Control::Refusal(error);
  }
  const SettingValues before = InForce();
  parts_.session.Apply(*policy);
  policy_ = *policy;
  const SettingValues after = InForce();
  recording_ = after[static_cast<std::size_t>(Setting::kNetdbEnabled)] != 0;
  const ordered_json report = ReloadReport(policy_, before, after);
  SayChanges(report);
  return {Kind::kAnswer, report.dump()};
}

void Daemon::SaveStatistics() {
  const auto tree = MakeTree(kStatisticsNodes);
  if (tree != nullptr && parts_.session.SaveStatistics(*tree)) {
    parts_.statistics.Add(*tree);
  }
  std::string error;
  if (!parts_.statistics.Store(error)) {
    parts_.say(error);
  }
}

std::unique_ptr<TreeContainer> Daemon::Report(bool& complete) {
  complete = false;
  // A report takes the counters out of the module for good, so they are kept first.
  SaveStatistics();
  auto report = MakeTree(kReportNodes);
  Velmar::Collections::Array<TreeContainer> history;
  if (report != nullptr && parts_.statistics.FillHistory(history)) {
    complete = parts_.session.GetStatus(history, *report);
  }
  return report;
}

SettingValues Daemon::InForce() {
  SettingValues values = ValuesOf(policy_);
  bool complete = false;
  const auto report = Report(complete);
  const u32 config = report == nullptr ? TreeContainer::kError : report->GetNodeChild(TreeContainer::kRoot, "config");
  if (config == TreeContainer::kError) {
    return values;
  }
  for (const SettingInfo& info : AllSettings()) {
    u64& value = values[static_cast<std::size_t>(info.setting)];
    value = info.isSwitch ? report->GetNodeValueBool(config, info.name, value != 0, nullptr)
                          : report->GetNodeValueUInt64(config, info.name, value, nullptr);
  }
  return values;
}

std::string Daemon::StatusText() {
  bool complete = false;
  const auto report = Report(complete);
  Velmar::Utils::String text;
  complete = report != nullptr && report->AppendJson(text) && complete;
  ordered_json tree = ordered_json::parse(text.text, nullptr, false);
  if (!tree.is_object()) {
    tree = ordered_json::object();
  }
  const ordered_json status = {
      {"daemon",
       {{"process", getpid()},
        {"started", parts_.startedSeconds},
        {"policy", Text::ToValidUtf8(policy_.Source())},
        {"recording", IsRecording()},
        {"sent", parts_.counts.sent.load()},
        {"refused", parts_.counts.refused.load()},
        {"left_out", parts_.counts.leftOut.load()},
        {"lost", parts_.session.LostMessages()},
        {"failed_saves", parts_.session.FailedDumps()}}},
      {"complete", complete},
      {"report", tree},
  };
  return status.dump();
}

void Daemon::SayChanges(const ordered_json& report) {
  std::istringstream lines(ReloadLines(report));
  for (std::string line; std::getline(lines, line);) {
    parts_.say("policy: " + line);
  }
  for (const std::string& sentence : NotFollowed(report)) {
    parts_.say("policy: " + sentence);
  }
}

}  // namespace Host::Commands
