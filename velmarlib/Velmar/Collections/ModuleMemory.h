// The one pair of functions that stores, arrays and the module take their memory from.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include "RYL/Module/ModuleAllocator.h"

namespace Velmar::Collections {

// The allocator that all later calls use; null means malloc and free. Set by the module's Init and Uninit, while
// nothing else of the module runs. What one allocator gave must be freed while it is set.
void SetModuleAllocator(RYL::Module::ModuleAllocator* allocator);

// Thread-safe as far as the allocator is. Null on exhaustion.
void* ModuleAllocate(std::size_t size);
void ModuleFree(void* memory);  // takes null

// One object; null on exhaustion.
template <class T, class... Arguments>
T* New(Arguments&&... arguments) {
  void* memory = ModuleAllocate(sizeof(T));
  return memory == nullptr ? nullptr : ::new (memory) T(std::forward<Arguments>(arguments)...);
}

template <class T>
void Delete(T* object) {
  if (object != nullptr) {
    object->~T();
    ModuleFree(object);
  }
}

}  // namespace Velmar::Collections
