// SimMemory: takes the module's memory from the simulated platform, so that one fault plan reaches all of it.
#pragma once

#include "RYL/Module/ModuleAllocator.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Memory.h"

// What is allocated while it lives must be freed before it ends.
class SimMemory : public RYL::Module::ModuleAllocator {
 public:
  SimMemory() { Velmar::Collections::SetModuleAllocator(this); }
  ~SimMemory() { Velmar::Collections::SetModuleAllocator(nullptr); }
  SimMemory(const SimMemory&) = delete;
  SimMemory& operator=(const SimMemory&) = delete;

  void* Allocate(std::size_t size) override { return Velmar::Memory::Allocate(size); }
  void Free(void* memory, void** /*scratch*/) override { Velmar::Memory::Free(memory); }
};
