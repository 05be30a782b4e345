#include "host/commands/PolicyReport.h"

#include <algorithm>

#include "host/commands/JsonField.h"
#include "host/text/Utf8.h"

namespace Host::Commands {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t kColumns = 5;
using Line = std::array<std::string, kColumns>;

std::size_t IndexOf(const SettingInfo& info) {
  return static_cast<std::size_t>(info.setting);
}

const char* MeaningOf(const std::string& name) {
  for (const SettingInfo& info : AllSettings()) {
    if (name == info.name) {
      return info.meaning;
    }
  }
  return "";
}

std::string OriginOf(const ordered_json& setting, const std::string& document) {
  const u64 line = FieldNumber(setting, "line");
  std::string origin = line == 0 ? "default" : document + ":" + std::to_string(line);
  if (Field(setting, "wanted") != Field(setting, "value")) {
    origin += " (asks for " + FieldText(setting, "wanted") + ")";
  }
  return origin;
}

std::string Aligned(const std::vector<Line>& lines) {
  std::array<std::size_t, kColumns> widths = {};
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      widths[i] = std::max(widths[i], Text::CountCharacters(line[i]));
    }
  }
  std::string text;
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      const bool isLast = i + 1 == kColumns;
      text += line[i] + (isLast ? "\n" : std::string(widths[i] - Text::CountCharacters(line[i]) + 2, ' '));
    }
  }
  return text;
}

const ordered_json& ListOf(const ordered_json& report, const char* name) {
  static const ordered_json kEmpty = ordered_json::array();
  const ordered_json& list = Field(report, name);
  return list.is_array() ? list : kEmpty;
}

}  // namespace

SettingValues ValuesOf(const Policy& policy) {
  SettingValues values = {};
  for (const SettingInfo& info : AllSettings()) {
    values[IndexOf(info)] = policy.Get(info.setting).value;
  }
  return values;
}

ordered_json ValueText(const SettingInfo& info, u64 value) {
  return info.isSwitch ? ordered_json(value != 0) : ordered_json(value);
}

ordered_json PolicyReport(const Policy& policy, const SettingValues& inForce) {
  ordered_json settings = ordered_json::array();
  for (const SettingInfo& info : AllSettings()) {
    const Policy::Value& wanted = policy.Get(info.setting);
    settings.push_back({{"name", info.name},
                        {"value", ValueText(info, inForce[IndexOf(info)])},
                        {"default", ValueText(info, info.defaultValue)},
                        {"line", wanted.line},
                        {"wanted", ValueText(info, wanted.value)}});
  }
  return {{"policy", Text::ToValidUtf8(policy.Source())}, {"settings", settings}};
}

ordered_json ReloadReport(const Policy& policy, const SettingValues& before, const SettingValues& after) {
  ordered_json changes = ordered_json::array();
  ordered_json notFollowed = ordered_json::array();
  for (const SettingInfo& info : AllSettings()) {
    const ordered_json from = ValueText(info, before[IndexOf(info)]);
    const ordered_json to = ValueText(info, after[IndexOf(info)]);
    const ordered_json wanted = ValueText(info, policy.Get(info.setting).value);
    if (from != to) {
      changes.push_back({{"name", info.name}, {"from", from}, {"to", to}});
    }
    if (to != wanted) {
      notFollowed.push_back({{"name", info.name}, {"value", to}, {"wanted", wanted}});
    }
  }
  return {{"policy", Text::ToValidUtf8(policy.Source())}, {"changes", changes}, {"not_followed", notFollowed}};
}

std::string PolicyTable(const ordered_json& report) {
  std::vector<Line> lines = {{"SETTING", "IN FORCE", "DEFAULT", "FROM", "MEANING"}};
  const std::string document = FieldText(report, "policy");
  for (const ordered_json& setting : ListOf(report, "settings")) {
    const std::string name = FieldText(setting, "name");
    lines.push_back({name, FieldText(setting, "value"), FieldText(setting, "default"), OriginOf(setting, document),
                     MeaningOf(name)});
  }
  return Aligned(lines);
}

std::string ReloadLines(const ordered_json& report) {
  std::string text;
  for (const ordered_json& change : ListOf(report, "changes")) {
    text += FieldText(change, "name") + ": " + FieldText(change, "from") + " -> " + FieldText(change, "to") + "\n";
  }
  return text.empty() ? "nothing changed\n" : text;
}

std::vector<std::string> NotFollowed(const ordered_json& report) {
  std::vector<std::string> sentences;
  for (const ordered_json& setting : ListOf(report, "not_followed")) {
    sentences.push_back(FieldText(setting, "name") + " was to be " + FieldText(setting, "wanted") + " and is " +
                        FieldText(setting, "value") + ": the module could not follow");
  }
  return sentences;
}

}  // namespace Host::Commands
