// NetDBManager: the module object that the host drives.
#pragma once

#include <atomic>

#include "RYL/Comm/INetDBQuery.h"
#include "RYL/Events/Records.h"
#include "RYL/Module/EventLookup.h"
#include "RYL/Module/FileHashService.h"
#include "RYL/Module/Interface.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/Utils/String.h"
#include "common/Address.h"
#include "common/cloud/CloudStatus.h"
#include "common/libryl_netdb/Backlog.h"
#include "common/libryl_netdb/EventReader.h"
#include "common/libryl_netdb/EventTypes.h"
#include "common/libryl_netdb/IntakeGate.h"
#include "common/libryl_netdb/ProtocolTable.h"
#include "common/libryl_netdb/Settings.h"

namespace RYL::Module {

// Turns connection events into rows of day files under "${P}/netdb", on one worker thread.
//
// Lifetime and threads: those of Interface. Iterate from any thread after Initialize.
// Errors: false after a log record. A failed Initialize leaves an object that is fit only for deletion.
class NetDBManager final : public Interface, public Comm::Interfaces::INetDBQuery {
 public:
  NetDBManager() = default;
  ~NetDBManager() override;
  NetDBManager(const NetDBManager&) = delete;
  NetDBManager& operator=(const NetDBManager&) = delete;

  // The object lies on the module's memory (Exports.cpp).
  static void operator delete(void* memory) { Velmar::Collections::ModuleFree(memory); }

  bool HandleEvent(const void* event, Events::ExternalData* external) override;
  bool Start() override;
  bool Operation4() override { return true; }
  bool Operation5() override { return true; }
  bool Stop() override;
  void ApplySettings(SettingsSource* source) override;
  bool Operation8() override { return true; }
  void GetSubscribedEvents(SubscribedEvents& out) override;
  void* QueryInterface(i32 id) override;
  bool Initialize(ModuleHost* moduleHost, SettingsSource* source) override;
  // Takes the cloud's counters into `tree`, whose root is a dictionary; they live on only there. Always true.
  bool SaveStatistics(Velmar::Utils::TreeContainer* tree) override;
  // `history`: trees of SaveStatistics, in any order. Takes the counters too, into this report alone. False (level 5)
  // leaves a report that ends before what failed.
  bool GetStatus(const Velmar::Collections::Array<Velmar::Utils::TreeContainer>& history,
                 Velmar::Utils::TreeContainer* report) override;
  u32 Operation16() override { return 0; }

  bool Iterate(bool (*callback)(const Record& record, void* context), void* context, u64 from, u64 to) override;

 private:
  friend struct NetDBManagerTestAccess;

  // True when all eight values of the policy were taken. After a false the values before the bad one are in force.
  bool ReadSettings(SettingsSource* source);
  bool CreateDatabaseFolder();
  bool CreateProtocolTable();

  // A failure turns netdb_enabled off, unless the worker runs already.
  bool StartWorker();
  bool CreateWorker();
  // Returns when all that intake accepted is stored. Turns netdb_enabled off.
  void StopWorker();
  void ForgetHost();
  static void WorkerThread(void* context);

  // Answers a history question by an event of its own. True after a reply was sent and for a reversed range.
  bool HandleQuery(const Events::Objects::NetDbQuery* event, Events::ExternalData* external);
  // Answers a query of the table edr_netdb, into `external` or by an event of its own. True when the reply was
  // delivered, also one with an error code, and when the table is another.
  bool HandleOSQuery(const Events::Objects::StorageTableQuery* event, Events::ExternalData* external);
  // Sends a query's reply through the host. False, without a record, when there is no host or sender and when the
  // sender refuses.
  bool Dispatch(Velmar::Utils::TreeContainer& reply);

  // The record of a connection, whose type is known to be one.
  bool HandleConnection(const EventReader& reader, EventKind kind);
  // Whether connections to the address are recorded.
  bool IsWanted(u32 address);
  bool Enqueue(const NetDB::BacklogMessage& message, u32 type);

  bool AddVerdictCache(Velmar::Utils::TreeContainer& report);
  bool AddCloudRequests(const Velmar::Collections::Array<Velmar::Utils::TreeContainer>& history,
                        Velmar::Utils::TreeContainer& report);

  // Stop clears it, possibly beside a query.
  std::atomic<ModuleHost*> host{nullptr};
  EventLookup* event_lookup = nullptr;
  FileHashService* file_hash_service = nullptr;
  Settings settings;
  NetDB::CloudStatus<NetDB::IPv4> verdict_cache;
  std::atomic<NetDB::Backlog*> backlog{nullptr};
  Velmar::Utils::String db_path;
  NetDB::ProtocolTable protocol_table;
  void* worker_thread = nullptr;
  std::atomic<Velmar::OS::Event*> wake_event{nullptr};
  // The worker's copy of db_path, which Initialize may rewrite while the worker runs.
  Velmar::Utils::String worker_path;
  IntakeGate gate;
};

}  // namespace RYL::Module
