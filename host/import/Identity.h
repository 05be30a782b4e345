// Unique process ids for logs that name processes by texts.
#pragma once

#include <string>

#include "host/Types.h"

namespace Host::Import {

// The first 8 bytes, little-endian, of the SHA-256 digest of `text`. Thread-safe.
u64 UniqueIdOf(const std::string& text);

}  // namespace Host::Import
