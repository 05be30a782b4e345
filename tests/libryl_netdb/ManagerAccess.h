// What tests, fuzzers and benchmarks reach of a NetDBManager, and the library's exports, linked in.
#pragma once

#include "common/libryl_netdb/NetDBManager.h"

namespace RYL::Module {

struct NetDBManagerTestAccess {
  static Settings& GetSettings(NetDBManager& manager) { return manager.settings; }
  static std::atomic<NetDB::Backlog*>& GetBacklog(NetDBManager& manager) { return manager.backlog; }
  static std::atomic<Velmar::OS::Event*>& GetWakeEvent(NetDBManager& manager) { return manager.wake_event; }
  static void* GetWorkerThread(NetDBManager& manager) { return manager.worker_thread; }
  static NetDB::ProtocolTable& GetProtocolTable(NetDBManager& manager) { return manager.protocol_table; }
  static NetDB::CloudStatus<NetDB::IPv4>& GetVerdicts(NetDBManager& manager) { return manager.verdict_cache; }
  static IntakeGate& GetGate(NetDBManager& manager) { return manager.gate; }
  static Velmar::Utils::String& GetPath(NetDBManager& manager) { return manager.db_path; }
  static ModuleHost* GetHost(NetDBManager& manager) { return manager.host; }
  static void SetHost(NetDBManager& manager, ModuleHost* host) { manager.host = host; }
  static EventLookup* GetEventLookup(NetDBManager& manager) { return manager.event_lookup; }
  static FileHashService* GetFileHashService(NetDBManager& manager) { return manager.file_hash_service; }
  static bool HandleOSQuery(NetDBManager& manager, const Events::Objects::StorageTableQuery* event,
                            Events::ExternalData* external) {
    return manager.HandleOSQuery(event, external);
  }
  static bool ReadSettings(NetDBManager& manager, SettingsSource* source) { return manager.ReadSettings(source); }
  static bool HandleQuery(NetDBManager& manager, const Events::Objects::NetDbQuery* event) {
    return manager.HandleQuery(event, nullptr);
  }
  static bool StartWorker(NetDBManager& manager) { return manager.StartWorker(); }
  static void StopWorker(NetDBManager& manager) { manager.StopWorker(); }
};

}  // namespace RYL::Module

// The exports of the library, linked in.
extern "C" RYL::Module::Interface* Init(RYL::Module::ModuleAllocator* allocator);
extern "C" void Uninit();
