// Worker: the body of the module's one writing thread.
#pragma once

#include "RYL/Module/EventLookup.h"
#include "RYL/Module/FileHashService.h"
#include "RYL/Module/ModuleHost.h"
#include "Velmar/OS/Threading.h"
#include "common/Address.h"
#include "common/cloud/CloudStatus.h"
#include "common/libryl_netdb/Backlog.h"
#include "common/libryl_netdb/FilterSchedule.h"
#include "common/libryl_netdb/IntakeGate.h"
#include "common/libryl_netdb/Settings.h"
#include "common/netdb_storage/DBManager.h"

namespace RYL::Module {

// What the worker uses of its module; all of it outlives the thread.
struct WorkerSurroundings {
  ModuleHost* host;
  EventLookup* event_lookup;           // may be null
  FileHashService* file_hash_service;  // may be null
  const Settings* settings;
  const IntakeGate* gate;
  NetDB::Backlog* backlog;
  Velmar::OS::Event* wake_event;
  const char* db_path;
  NetDB::CloudStatus<NetDB::IPv4>* verdict_cache;
  FilterJobSteps filterSteps;
};

// Stores what intake queued, dumps at an interval, keeps the folder within its limits, and advances the filter
// schedule, until netdb_enabled goes off. Threads: one thread, the worker's. Effects on disk: writes the day files of
// `db_path`, the last time when Run ends; deletes the oldest ones.
class Worker {
 public:
  static constexpr u32 kMaxWaitMs = 60000;
  static constexpr u64 kFootprintIntervalMs = 3600000;
  static constexpr u32 kAddRetries = 3;
  static constexpr u32 kRetryPauseMs = 100;

  explicit Worker(const WorkerSurroundings& moduleParts) : parts(moduleParts) {}

  // Returns when the worker is to end, or cannot begin (level 5). What was queued by then is stored.
  void Run();

 private:
  friend struct WorkerTestAccess;

  // One turn; false: leave the loop.
  bool Turn(NetDB::DBManager& db, FilterSchedule& schedule);
  void StoreMessagesFromBacklog(NetDB::DBManager& db);
  // False: store the message without a process.
  bool LookUpProcess(const NetDB::BacklogMessage& message, NetDB::Process& process);
  void LookUpHashes(NetDB::Process& process);
  void AddWithRetries(NetDB::DBManager& db, const NetDB::BacklogMessage& message, const NetDB::Process* process);
  void DumpWhenDue(NetDB::DBManager& db, u64 now);
  // Never beside a filter job, whose file it might delete.
  void CheckFootprintWhenDue(const FilterSchedule& schedule, u64 now);

  WorkerSurroundings parts;
  u64 last_dump_time = 0;       // of the last good dump; 0 makes the first turn dump
  u64 last_footprint_time = 0;  // of the last good check; 0 makes the first turn check
};

}  // namespace RYL::Module
