// The protocol names that the module knows, as events carry them and as rows show them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Types.h"

namespace Host::Import {

// The module's own name for a service as logs call it ("dce_rpc" is "rpc"), in any case. Nothing for one that the
// module has no name for.
std::optional<std::string> ServiceName(std::string_view service);

// The event names for a row's protocols, such as "HTTP,TCP". "ICMP" and "UDP" are read, but no event carries them.
// Nothing when a name is unknown.
std::optional<std::vector<std::string>> EventNamesOf(std::string_view displayNames);

}  // namespace Host::Import
