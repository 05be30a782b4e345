#include "Velmar/Collections/ModuleMemory.h"

#include <cstdlib>

namespace Velmar::Collections {

namespace {
RYL::Module::ModuleAllocator* moduleAllocator = nullptr;
}  // namespace

void SetModuleAllocator(RYL::Module::ModuleAllocator* allocator) {
  moduleAllocator = allocator;
}

void* ModuleAllocate(std::size_t size) {
  return moduleAllocator != nullptr ? moduleAllocator->Allocate(size) : std::malloc(size);
}

void ModuleFree(void* memory) {
  if (memory == nullptr) {
    return;
  }
  if (moduleAllocator == nullptr) {
    std::free(memory);
    return;
  }
  void* scratch = nullptr;
  moduleAllocator->Free(memory, &scratch);
}

}  // namespace Velmar::Collections
