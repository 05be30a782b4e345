// PolicyReport: the settings in force and where each comes from, as the daemon tells it and as people see it.
#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/Types.h"
#include "host/agent/Policy.h"

namespace Host::Commands {

// One value a setting, a switch being 0 or 1.
using SettingValues = std::array<u64, kSettingCount>;

SettingValues ValuesOf(const Policy& policy);
// true or false for a switch, else the number.
nlohmann::ordered_json ValueText(const SettingInfo& info, u64 value);

// The answer to a policy request: `inForce` beside what `policy` asks for.
nlohmann::ordered_json PolicyReport(const Policy& policy, const SettingValues& inForce);
// The answer to a reload request.
nlohmann::ordered_json ReloadReport(const Policy& policy, const SettingValues& before, const SettingValues& after);

// Aligned columns for either source of a report. Members that are missing or of another type show as a dash.
std::string PolicyTable(const nlohmann::ordered_json& report);
// A line for each change.
std::string ReloadLines(const nlohmann::ordered_json& report);
// A sentence for each setting that does not have the value that it was to have.
std::vector<std::string> NotFollowed(const nlohmann::ordered_json& report);

}  // namespace Host::Commands
