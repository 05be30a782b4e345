// NetDBManager's start and stop of its worker.
#include <exception>

#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "common/libryl_netdb/Worker.h"

namespace RYL::Module {
namespace {

using Velmar::Collections::Delete;
using Velmar::Collections::New;
using Velmar::OS::Event;
using Velmar::OS::Threading;

constexpr u32 kBacklogCapacity = 1024;
constexpr u32 kBacklogCeiling = 0x100000;
constexpr u32 kBacklogGrowStep = 256;

// Null when there is no memory or no lock.
NetDB::Backlog* CreateBacklog() {
  auto* queue = New<NetDB::Backlog>();
  if (queue != nullptr && !queue->Create(kBacklogCapacity, kBacklogCeiling, kBacklogGrowStep, true, false,
                                         Velmar::Collections::GrowType::kFixedStep)) {
    Delete(queue);
    return nullptr;
  }
  return queue;
}

// Null when there is no memory or the system has no event to give.
Event* CreateWakeEvent() {
  auto* event = New<Event>(false);
  if (event != nullptr && !event->IsValid()) {
    Delete(event);
    return nullptr;
  }
  return event;
}

}  // namespace

bool NetDBManager::StartWorker() {
  if (worker_thread != nullptr) {
    RYL_LOG(ryl_netdb, WorkerExists);
    return false;
  }
  if (!settings.netdb_enabled.Get()) {
    RYL_LOG(ryl_netdb, WorkerDisabled);
    return false;
  }
  if (!CreateWorker()) {
    StopWorker();
    return false;
  }
  RYL_LOG(ryl_netdb, WorkerStarted);
  return true;
}

bool NetDBManager::CreateWorker() {
  NetDB::Backlog* queue = CreateBacklog();
  if (queue == nullptr) {
    RYL_LOG(ryl_netdb, BacklogNotCreated);
    return false;
  }
  // Intake uses what it finds here at once, so the queue comes last.
  wake_event = CreateWakeEvent();
  backlog = queue;
  if (wake_event == nullptr) {
    RYL_LOG(ryl_netdb, WakeEventNotCreated);
    return false;
  }
  ModuleHost* const moduleHost = host.load();
  if (moduleHost == nullptr) {
    RYL_LOG(ryl_netdb, WorkerWithoutHost);
    return false;
  }
  if (!worker_path.Set(&db_path)) {
    RYL_LOG(ryl_netdb, WorkerPathNotCopied);
    return false;
  }
  worker_thread = moduleHost->CreateThread(Velmar::kModuleNumber, &NetDBManager::WorkerThread, this, "worker");
  if (!Threading::IsValidThreadHandle(worker_thread)) {
    RYL_LOG(ryl_netdb, WorkerThreadNotCreated);
    return false;
  }
  return true;
}

void NetDBManager::StopWorker() {
  // The worker leaves its loop when it sees the setting off, so the setting goes first and the signal second.
  if (settings.netdb_enabled.Get()) {
    RYL_LOG(ryl_netdb, StopTurnsOff);
    settings.netdb_enabled.Set(false);
  }
  if (Threading::IsValidThreadHandle(worker_thread)) {
    // Null when an earlier stop could not wait for the thread.
    Event* event = wake_event.load();
    if (event == nullptr || !event->Signal()) {
      RYL_LOG(ryl_netdb, StopNotSignalled);
    }
    if (!Threading::WaitForThreadToEnd(worker_thread)) {
      RYL_LOG(ryl_netdb, StopNotAwaited);
    }
  }
  // Intake may still use the queue of a worker that never came up or ended early.
  gate.WaitUntilEmpty();
  Delete(wake_event.exchange(nullptr));
  Delete(backlog.exchange(nullptr));
}

void NetDBManager::WorkerThread(void* context) {
  auto* manager = static_cast<NetDBManager*>(context);
  try {
    Worker worker({.host = manager->host,
                   .event_lookup = manager->event_lookup,
                   .file_hash_service = manager->file_hash_service,
                   .settings = &manager->settings,
                   .gate = &manager->gate,
                   .backlog = manager->backlog,
                   .wake_event = manager->wake_event,
                   .db_path = manager->worker_path.text,
                   .verdict_cache = &manager->verdict_cache,
                   .filterSteps = {}});
    worker.Run();
  } catch (const std::exception& exception) {
    RYL_LOG(ryl_netdb, WorkerException, exception.what());
  }
}

}  // namespace RYL::Module
