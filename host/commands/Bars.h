// Bars: shares as lengths of text.
#pragma once

#include <cstddef>
#include <string>

#include "host/Types.h"

namespace Host::Commands {

// A bar that is `width` characters long where `value` is `most`. With block characters it has eighths of a character,
// else it is made of '#'. Anything above 0 shows. Thread-safe.
std::string Bar(u64 value, u64 most, std::size_t width, bool withBlocks);

}  // namespace Host::Commands
