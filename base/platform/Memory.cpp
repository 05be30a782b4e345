#include "Velmar/Memory.h"

#include <cstdlib>

namespace Velmar::Memory {

void* Allocate(std::size_t size) {
  return std::malloc(size);
}

void Free(void* memory) {
  std::free(memory);
}

}  // namespace Velmar::Memory
