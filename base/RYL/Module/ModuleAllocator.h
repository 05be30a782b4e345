// ModuleAllocator: the host's memory, offered to a module.
#pragma once

#include <cstddef>

namespace RYL::Module {

// Threads: the host makes it thread-safe. It must outlive the module's objects.
class ModuleAllocator {
 public:
  // As malloc: aligned for any object, null on exhaustion.
  virtual void* Allocate(std::size_t size) = 0;
  // `scratch` is the address of a zeroed pointer-sized local of the caller, for the allocator's own use in the call.
  virtual void Free(void* memory, void** scratch) = 0;

 protected:
  ~ModuleAllocator() = default;
};

}  // namespace RYL::Module
