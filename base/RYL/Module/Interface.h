// Interface: a module as its host sees it. docs/embedding.md shows a host.
#pragma once

#include "RYL/Events/ExternalData.h"
#include "RYL/Module/ModuleAllocator.h"
#include "RYL/Module/ModuleHost.h"
#include "RYL/Module/SettingsSource.h"
#include "Velmar/Types.h"

namespace Velmar::Collections {
template <class T>
class Array;
}
namespace Velmar::Utils {
class TreeContainer;
}

namespace RYL::Module {

// Event types that a module wants, in the module's own memory.
struct SubscribedEvents {
  const u32* types = nullptr;
  u32 count = 0;
};

// Eighteen operations whose order is fixed. The unnamed ones are answered with constants and have no use yet.
//
// Lifetime: Init, Initialize, Start, any number of HandleEvent and ApplySettings, Stop, delete, Uninit.
// Threads: HandleEvent from any thread between Start and Stop; GetStatus and SaveStatistics from any thread between
// Initialize and the deletion; all others from one control thread of the host. HandleEvent may run beside ApplySettings
// and beside the start of a Stop; the host must have no call under way when it deletes the module.
class Interface {
 public:
  // Operation 1. True: the event was dealt with, or rightly ignored. `event` is a packed record (RYL/Events).
  virtual bool HandleEvent(const void* event, Events::ExternalData* external) = 0;
  virtual bool Operation2() { return true; }
  virtual bool Start() = 0;
  virtual bool Operation4() = 0;
  virtual bool Operation5() = 0;
  virtual bool Stop() = 0;
  virtual void ApplySettings(SettingsSource* settings) = 0;
  virtual bool Operation8() = 0;
  virtual void GetSubscribedEvents(SubscribedEvents& out) = 0;
  // Operation 10: the same, returning `out`.
  virtual SubscribedEvents& ListSubscribedEvents(SubscribedEvents& out) {
    GetSubscribedEvents(out);
    return out;
  }
  // Operation 11. Null for an interface that the module does not have.
  virtual void* QueryInterface(i32 id) = 0;
  virtual bool Initialize(ModuleHost* host, SettingsSource* settings) = 0;
  virtual bool Operation13() { return true; }
  virtual bool SaveStatistics(Velmar::Utils::TreeContainer* /*tree*/) { return false; }
  virtual bool GetStatus(const Velmar::Collections::Array<Velmar::Utils::TreeContainer>& /*history*/,
                         Velmar::Utils::TreeContainer* /*report*/) {
    return false;
  }
  virtual u32 Operation16() = 0;
  virtual bool Operation17() { return false; }
  // Operation 18. The object returns its memory to where Init took it from.
  virtual ~Interface() = default;
};

// The two exports of a module.
using InitFunction = Interface* (*)(ModuleAllocator* allocator);
using UninitFunction = void (*)();

}  // namespace RYL::Module
