// The two exports of the library.
#include "RYL/Module/Interface.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "platform/Export.h"

using RYL::Module::Interface;
using RYL::Module::ModuleAllocator;
using RYL::Module::NetDBManager;

// Builds the module object on the memory of `allocator`, which may be null for malloc and free. Null when there is no
// memory, with nothing changed. The host deletes the object.
extern "C" RYL_API Interface* Init(ModuleAllocator* allocator) {
  Velmar::Collections::SetModuleAllocator(allocator);
  Interface* manager = Velmar::Collections::New<NetDBManager>();
  if (manager == nullptr) {
    Velmar::Collections::SetModuleAllocator(nullptr);
  }
  return manager;
}

// Forgets the allocator. To be called when the module object is gone.
extern "C" RYL_API void Uninit() {
  Velmar::Collections::SetModuleAllocator(nullptr);
}
