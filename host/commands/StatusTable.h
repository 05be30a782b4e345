// StatusTable: the answer to a status request as people read it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Host::Commands {

// A heading and lines for each part that `status` has, "daemon" and "report" both being optional. Members that are
// missing or of another type show as a dash.
std::string StatusTable(const nlohmann::ordered_json& status);

}  // namespace Host::Commands
