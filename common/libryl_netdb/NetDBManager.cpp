#include "common/libryl_netdb/NetDBManager.h"

#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Path.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "common/netdb_storage/DBManager.h"
#include "osquery/osquery/RowLibrary.h"

namespace RYL::Module {
namespace {

const char* ActivationWord(bool enabled) {
  return enabled ? "Activated" : "Deactivated";
}

}  // namespace

NetDBManager::~NetDBManager() {
  StopWorker();
  ForgetHost();
  NetDB::OSQuery::EndRowLibrary();
}

bool NetDBManager::Initialize(ModuleHost* moduleHost, SettingsSource* source) {
  if (moduleHost == nullptr) {
    RYL_LOG(ryl_netdb, InitializeWithoutHost);
    return false;
  }
  host = moduleHost;
  if (!CreateDatabaseFolder()) {
    return false;
  }
  if (!verdict_cache.Open(db_path.text, true)) {
    RYL_LOG(ryl_netdb, InitializeVerdictsFailed);
    return false;
  }
  if (!ReadSettings(source)) {
    RYL_LOG(ryl_netdb, InitializeSettingsFailed);
    return false;
  }
  if (!CreateProtocolTable()) {
    RYL_LOG(ryl_netdb, InitializeProtocolsFailed);
    return false;
  }
  return true;
}

bool NetDBManager::CreateDatabaseFolder() {
  db_path.Clear();
  if (!Velmar::OS::Path::Join(db_path, "${P}", "netdb", true)) {
    RYL_LOG(ryl_netdb, DatabaseFolderNotNamed);
    return false;
  }
  if (!Velmar::OS::FileSystem::DirectoryExists(db_path, false) &&
      !Velmar::OS::FileSystem::CreateDirectory(db_path.text)) {
    RYL_LOG(ryl_netdb, DatabaseFolderNotCreated, db_path.text);
    return false;
  }
  RYL_LOG(ryl_netdb, DatabaseFolder, db_path.text);
  return true;
}

bool NetDBManager::CreateProtocolTable() {
  protocol_table.SetCaseFold(true);
  return protocol_table.Create(NetDB::ProtocolTable::kKnownNames, NetDB::ProtocolTable::kKnownNames, 1, true,
                               Velmar::Collections::GrowType::kFixedStep) &&
         protocol_table.InsertKnownNames();
}

bool NetDBManager::Start() {
  ModuleHost* const moduleHost = host.load();
  if (moduleHost == nullptr) {
    RYL_LOG(ryl_netdb, StartWithoutHost);
    return false;
  }
  file_hash_service = static_cast<FileHashService*>(moduleHost->GetInterface(kFileHashServiceNumber));
  if (file_hash_service == nullptr) {
    RYL_LOG(ryl_netdb, NoFileHashService);
  }
  event_lookup = static_cast<EventLookup*>(moduleHost->GetInterface(kEventLookupServiceNumber));
  if (event_lookup == nullptr) {
    RYL_LOG(ryl_netdb, NoEventLookup);
  }
  if (settings.netdb_enabled.Get() && !StartWorker()) {
    RYL_LOG(ryl_netdb, StartWorkerFailed);
    return false;
  }
  return true;
}

bool NetDBManager::Stop() {
  StopWorker();
  ForgetHost();
  return true;
}

void NetDBManager::ForgetHost() {
  host = nullptr;
  event_lookup = nullptr;
  file_hash_service = nullptr;
}

void NetDBManager::ApplySettings(SettingsSource* source) {
  const bool before = settings.netdb_enabled.Get();
  if (!ReadSettings(source)) {
    RYL_LOG(ryl_netdb, ApplySettingsFailed);
  }
  const bool after = settings.netdb_enabled.Get();
  if (before == after) {
    return;
  }
  RYL_LOG(ryl_netdb, EnabledChanged, ActivationWord(before), ActivationWord(after));
  if (!after) {
    RYL_LOG(ryl_netdb, StoppingWorker);
    StopWorker();
    return;
  }
  RYL_LOG(ryl_netdb, StartingWorker);
  if (!StartWorker()) {
    RYL_LOG(ryl_netdb, RestartWorkerFailed);
  }
}

void NetDBManager::GetSubscribedEvents(SubscribedEvents& out) {
  out.types = kSubscribedTypes;
  out.count = kSubscribedTypeCount;
}

void* NetDBManager::QueryInterface(i32 id) {
  return id == Comm::Interfaces::kNetDBQueryInterface ? static_cast<Comm::Interfaces::INetDBQuery*>(this) : nullptr;
}

bool NetDBManager::Dispatch(Velmar::Utils::TreeContainer& reply) {
  constexpr u32 kReplyKind = 8;
  ModuleHost* const moduleHost = host.load();
  Events::EventSender* const sender = moduleHost == nullptr ? nullptr : moduleHost->GetEventSender();
  return sender != nullptr && sender->Dispatch(kReplyKind, &reply, 0, 0, 0);
}

bool NetDBManager::Iterate(bool (*callback)(const Record& record, void* context), void* context, u64 from, u64 to) {
  NetDB::QueryConstraints constraints(from, to);
  return NetDB::DBManager::Query(db_path.text, constraints, NetDB::QuerySink([callback, context](const Record& record) {
                                   return callback(record, context);
                                 }));
}

}  // namespace RYL::Module
