// ModuleHost: what a host gives to a module in Initialize.
#pragma once

#include "RYL/Events/EventSender.h"
#include "Velmar/Types.h"

namespace RYL::Module {

// Threads: thread-safe. It must outlive the module's Stop and the queries that run beside it.
class ModuleHost {
 public:
  // The service of that number, null when the host has none. The pointer's type is that of the service's header.
  virtual void* GetInterface(u32 number) = 0;
  virtual Events::EventSender* GetEventSender() = 0;
  // Starts a thread that runs entry(context). The handle is one of Velmar::OS::Threading, null on failure.
  virtual void* CreateThread(u32 moduleNumber, void (*entry)(void* context), void* context, const char* label) = 0;

 protected:
  ~ModuleHost() = default;
};

}  // namespace RYL::Module
