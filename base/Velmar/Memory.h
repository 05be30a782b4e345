// Raw memory of the base library. Modules use their own pair of functions, which may lead to a host's allocator.
#pragma once

#include <cstddef>

#include "platform/Export.h"

namespace Velmar::Memory {

// As malloc and free; null on exhaustion. Thread-safe.
RYL_API void* Allocate(std::size_t size);
RYL_API void Free(void* memory);

}  // namespace Velmar::Memory
