#include "host/commands/Daemon.h"

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "Velmar/Utils/String.h"
#include "host/text/Utf8.h"

namespace Host::Commands {
namespace {

using Control::Kind;
using Control::Message;
using nlohmann::ordered_json;
using Velmar::Utils::StringView;
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

ordered_json ValueOf(const SettingInfo& info, u64 value) {
  return info.isSwitch ? ordered_json(value != 0) : ordered_json(value);
}

std::size_t IndexOf(const SettingInfo& info) {
  return static_cast<std::size_t>(info.setting);
}

std::string Document(const Policy& policy) {
  return Text::ToValidUtf8(policy.Source());
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
      return {Kind::kAnswer, PolicyText()};
    case Kind::kReload:
      return Reload();
    default:
      return Control::Refusal("this is no request");
  }
}

Message Daemon::Reload() {
  std::string error;
  const std::optional<Policy> policy = Policy::LoadOrDefault(parts_.policyPath, error);
  if (!policy) {
    parts_.say("the policy stays as it is: " + error);
    return Control::Refusal(error);
  }
  const Values before = InForce();
  parts_.session.Apply(*policy);
  policy_ = *policy;
  const Values after = InForce();
  recording_ = after[static_cast<std::size_t>(Setting::kNetdbEnabled)] != 0;
  return {Kind::kAnswer, ReloadText(before, after)};
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

Daemon::Values Daemon::InForce() {
  Values values = {};
  bool complete = false;
  const auto report = Report(complete);
  const u32 config = report == nullptr ? TreeContainer::kError : report->GetNodeChild(TreeContainer::kRoot, "config");
  for (const SettingInfo& info : AllSettings()) {
    u64& value = values[IndexOf(info)];
    value = policy_.Get(info.setting).value;
    if (config != TreeContainer::kError) {
      const StringView name(info.name);
      value = info.isSwitch ? report->GetNodeValueBool(config, name, value != 0, nullptr)
                            : report->GetNodeValueUInt64(config, name, value, nullptr);
    }
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
        {"policy", Document(policy_)},
        {"recording", IsRecording()},
        {"sent", parts_.counts.sent.load()},
        {"refused", parts_.counts.refused.load()},
        {"left_out", parts_.counts.leftOut.load()},
        {"lost", parts_.session.LostMessages()}}},
      {"complete", complete},
      {"report", tree},
  };
  return status.dump();
}

std::string Daemon::PolicyText() {
  const Values values = InForce();
  ordered_json settings = ordered_json::array();
  for (const SettingInfo& info : AllSettings()) {
    const Policy::Value& wanted = policy_.Get(info.setting);
    settings.push_back({{"name", info.name},
                        {"value", ValueOf(info, values[IndexOf(info)])},
                        {"default", ValueOf(info, info.defaultValue)},
                        {"line", wanted.line},
                        {"wanted", ValueOf(info, wanted.value)}});
  }
  const ordered_json text = {{"policy", Document(policy_)}, {"settings", settings}};
  return text.dump();
}

std::string Daemon::ReloadText(const Values& before, const Values& after) {
  ordered_json changes = ordered_json::array();
  ordered_json notFollowed = ordered_json::array();
  for (const SettingInfo& info : AllSettings()) {
    const ordered_json from = ValueOf(info, before[IndexOf(info)]);
    const ordered_json to = ValueOf(info, after[IndexOf(info)]);
    const ordered_json wanted = ValueOf(info, policy_.Get(info.setting).value);
    const std::string name = info.name;
    if (from != to) {
      changes.push_back({{"name", name}, {"from", from}, {"to", to}});
      parts_.say("policy: " + name + " is now " + to.dump() + ", it was " + from.dump());
    }
    if (to != wanted) {
      notFollowed.push_back({{"name", name}, {"value", to}, {"wanted", wanted}});
      parts_.say("policy: " + name + " stays " + to.dump() + ", the module could not follow");
    }
  }
  if (changes.empty() && notFollowed.empty()) {
    parts_.say("policy: nothing changed");
  }
  const ordered_json text = {{"policy", Document(policy_)}, {"changes", changes}, {"not_followed", notFollowed}};
  return text.dump();
}

}  // namespace Host::Commands
