// Cell: one value of a result.
#pragma once

#include <string>
#include <variant>

#include "host/Types.h"

namespace Host {

// Nothing (SQL's NULL), a whole number, a real number, or a text (bytes as they are).
using Cell = std::variant<std::monostate, i64, double, std::string>;

}  // namespace Host
