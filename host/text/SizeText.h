// Numbers of bytes as people read them.
#pragma once

#include <string>

#include "host/Types.h"

namespace Host::Text {

// "812 bytes", "1.5 KiB", "128 MiB": three digits at most before a point, one behind it below a hundred. Thread-safe.
std::string FormatSize(u64 bytes);

}  // namespace Host::Text
