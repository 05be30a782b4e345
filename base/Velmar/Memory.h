// Raw memory of the base library. Modules use their own pair of functions, which may lead to a host's allocator.
#pragma once

#include <cstddef>

#include "platform/Export.h"

namespace Velmar::Memory {

// As malloc, realloc and free; null on exhaustion, with the old memory as it was. Thread-safe.
RYL_API void* Allocate(std::size_t size);
RYL_API void* Reallocate(void* memory, std::size_t size);
RYL_API void Free(void* memory);

}  // namespace Velmar::Memory
