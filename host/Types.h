// The fixed-width integer names, in the host's namespace.
#pragma once

#include "Velmar/Types.h"

namespace Host {
using Velmar::i32;
using Velmar::i64;
using Velmar::u16;
using Velmar::u32;
using Velmar::u64;
using Velmar::u8;
}  // namespace Host
