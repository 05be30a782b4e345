#include "common/libryl_netdb/Worker.h"

#include <algorithm>
#include <cstring>

#include "RYL/Events/GenericEventHolder.h"
#include "RYL/Events/Records.h"
#include "Velmar/OS/Time.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/libryl_netdb/EventReader.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/RandomSeed.h"

namespace RYL::Module {
namespace {

using Velmar::OS::Time;

constexpr u32 kProcessEventArea = 512;
constexpr int kPathArea = 256;
constexpr double kMaxWaitSeconds = Worker::kMaxWaitMs / 1000.0;

// Copies path and identifiers. False when the record ends before its path does, or there is no memory for it.
bool TakeProcessEvent(const Events::GenericEventHolder& holder, NetDB::Process& process) {
  const u8* record = holder.GetData();
  const u32 size = holder.GetSize();
  if (record == nullptr || size <= Events::ProcessEvent::kProcessPath) {
    return false;
  }
  const u8* path = record + Events::ProcessEvent::kProcessPath;
  if (std::memchr(path, '\0', size - Events::ProcessEvent::kProcessPath) == nullptr ||
      !process.proc_fpath.Set(reinterpret_cast<const char*>(path))) {
    return false;
  }
  process.proc_pid = LoadPacked<u32>(record + Events::ProcessEvent::kProcessPid);
  process.proc_puid = LoadPacked<u64>(record + Events::ProcessEvent::kProcessPuid);
  return true;
}

}  // namespace

void Worker::Run() {
  if (parts.wake_event == nullptr || parts.backlog == nullptr) {
    RYL_LOG(ryl_netdb, WorkerIncomplete);
    return;
  }
  // The schedule goes first at the end, an exception's included: its job must be over before the last dump.
  NetDB::DBManager db;
  FilterSchedule schedule({.host = parts.host,
                           .folder = parts.db_path,
                           .cloud = parts.verdict_cache,
                           .db = &db,
                           .steps = parts.filterSteps},
                          DrawRandomSeed());
  schedule.Begin(parts.settings->jitter_first_filter.Get());
  if (!db.SetFolder(parts.db_path)) {
    RYL_LOG(ryl_netdb, WorkerFolderRefused, parts.db_path);
    return;
  }
  while (Turn(db, schedule)) {
  }
  RYL_LOG(ryl_netdb, WorkerLeaves);
  // An event that passed the test of netdb_enabled before it went off may have come in since the last drain.
  parts.gate->WaitUntilEmpty();
  StoreMessagesFromBacklog(db);
  schedule.WaitForJob();
}

bool Worker::Turn(NetDB::DBManager& db, FilterSchedule& schedule) {
  if (parts.backlog->GetCount() == 0) {
    parts.wake_event->Wait(kMaxWaitMs);
  }
  RYL_LOG(ryl_netdb, WorkerTurn, kMaxWaitSeconds);
  StoreMessagesFromBacklog(db);
  const u64 now = Time::GetEpochTime(nullptr);
  DumpWhenDue(db, now);
  CheckFootprintWhenDue(schedule, now);
  if (!parts.settings->netdb_enabled.Get()) {
    return false;
  }
  schedule.Advance(now, parts.settings->cloud_query_enabled.Get());
  return true;
}

void Worker::StoreMessagesFromBacklog(NetDB::DBManager& db) {
  NetDB::BacklogMessage message;
  char pathArea[kPathArea];
  NetDB::Process process;
  process.proc_fpath.Create(pathArea, kPathArea, true, true);
  u32 stored = 0;
  const Velmar::Utils::ScopedDuration timer([&stored](double value, const char* unit) {
    if (stored != 0) {
      RYL_LOG(ryl_netdb, MessagesStored, stored, value, unit);
    }
  });
  while (parts.backlog->Pop(message)) {
    ++stored;
    const bool hasProcess =
        message.has_process != 0 && parts.event_lookup != nullptr && LookUpProcess(message, process);
    AddWithRetries(db, message, hasProcess ? &process : nullptr);
  }
}

bool Worker::LookUpProcess(const NetDB::BacklogMessage& message, NetDB::Process& process) {
  RYL_LOG(ryl_netdb, ProcessLookup, message.process_puid);
  alignas(u64) u8 area[kProcessEventArea];
  Events::GenericEventHolder holder(area, sizeof(area));
  if (!parts.event_lookup->GetEventById(message.process_puid, &holder)) {
    RYL_LOG(ryl_netdb, ProcessNotFound, message.process_puid);
    return false;
  }
  if (!TakeProcessEvent(holder, process)) {
    RYL_LOG(ryl_netdb, ProcessPathNotTaken, message.process_puid);
    return false;
  }
  LookUpHashes(process);
  return true;
}

void Worker::LookUpHashes(NetDB::Process& process) {
  FileHashBlock block = {};
  if (parts.file_hash_service != nullptr &&
      !parts.file_hash_service->GetFileHashes(process.proc_fpath.text, &block, kDefaultFileHashes)) {
    RYL_LOG(ryl_netdb, ProcessHashesMissing, process.proc_fpath.text);
    block = {};
  }
  std::memcpy(process.proc_md5, block.md5, sizeof(process.proc_md5));
  std::memcpy(process.proc_qid, block.qid, sizeof(process.proc_qid));
}

void Worker::AddWithRetries(NetDB::DBManager& db, const NetDB::BacklogMessage& message, const NetDB::Process* process) {
  for (u32 attempt = 0; !db.Add(message, process); ++attempt) {
    RYL_LOG(ryl_netdb, AddRetry, attempt);
    if (attempt == kAddRetries) {
      RYL_LOG(ryl_netdb, AddGivenUp, kAddRetries);
      return;
    }
    Time::Sleep(kRetryPauseMs);
  }
}

void Worker::DumpWhenDue(NetDB::DBManager& db, u64 now) {
  if (now - last_dump_time <= parts.settings->db_dump_interval.Get()) {
    return;
  }
  if (db.Flush()) {
    last_dump_time = now;
  } else {
    RYL_LOG(ryl_netdb, DumpFailed);
  }
}

void Worker::CheckFootprintWhenDue(const FilterSchedule& schedule, u64 now) {
  if (now - last_footprint_time <= kFootprintIntervalMs || !schedule.IsIdle()) {
    return;
  }
  const u64 maxBytes = parts.settings->max_db_size.Get();
  const u64 maxDays = parts.settings->max_db_days.Get();
  const u64 allowance = maxBytes - std::min(maxBytes, parts.verdict_cache->GetCacheSizeOnDisk());
  if (NetDB::DBManager::EnsureDiskFootprintConstraints(parts.db_path, allowance, maxDays)) {
    RYL_LOG(ryl_netdb, FootprintChecked, allowance, maxDays);
    last_footprint_time = now;
  } else {
    RYL_LOG(ryl_netdb, FootprintCheckFailed);
  }
}

}  // namespace RYL::Module
