// Utf8: where a well-formed character ends.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Utils {

// Bytes of the well-formed character (Unicode Standard, table 3-7) that the `size` bytes at `text` start with; 0 when
// they do not start with one. Thread-safe.
RYL_API u32 Utf8Length(const char* text, u64 size);

}  // namespace Velmar::Utils
