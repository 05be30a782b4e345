#include "Velmar/Memory.h"

#include <cstdlib>

namespace Velmar::Memory {

void* Allocate(std::size_t size) {
  return std::malloc(size);
}

void* Reallocate(void* memory, std::size_t size) {
  return std::realloc(memory, size);
}

void Free(void* memory) {
  std::free(memory);
}

}  // namespace Velmar::Memory
