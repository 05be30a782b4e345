#include "common/netdb_storage/DBManager.h"

#include <new>

#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Time.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/netdb_storage/DayFileName.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::OS::FileSystem;
using Velmar::OS::Path;
using Velmar::Utils::ScopedDuration;
using Velmar::Utils::String;
namespace StoreFlags = Velmar::Collections::DB::StoreFlags;

constexpr u32 kFileFlags = StoreFlags::kBinarySearch | StoreFlags::kExactVersionOnly | StoreFlags::kCipherRequired;
constexpr u16 kDataVersion = 1;
constexpr u32 kInitialEntries = 2;
constexpr u32 kMaxEntries = 3;
constexpr u32 kEntriesStep = 1;
constexpr u32 kSaves = 5;
constexpr u32 kSavePauseMs = 100;
constexpr int kPathArea = 256;
// This mask says that the protocol is not known.
constexpr u16 kNoProtocols = 0x8000;

IPDB<IPv4>::IPRecord MakeRow(const BacklogMessage& message) {
  IPDB<IPv4>::IPRecord row;
  row.ip = IPv4::FromRaw(message.address);
  row.port = message.port;
  row.bytes_in = message.bytes_in;
  row.bytes_out = message.bytes_out;
  if (message.is_new_connection != 0) {
    row.conns_total = 1;
    if (message.direction == Direction::kInbound) {
      row.conns_in = 1;
    } else if (message.direction == Direction::kOutbound) {
      row.conns_out = 1;
    } else {
      RYL_LOG(netdb_storage, DirectionUnknown, u32{message.direction});
    }
  }
  if (message.protocols != kNoProtocols) {
    row.protos = message.protocols;
  }
  const u32 second = static_cast<u32>(message.timestamp % DBManager::kSecondsPerDay);
  row.first_seen = second & 0x1FFFF;
  row.last_seen = second & 0x1FFFF;
  return row;
}

}  // namespace

DBManager::~DBManager() {
  if (store == nullptr) {
    return;
  }
  if (!Flush()) {
    RYL_LOG(netdb_storage, LastDumpFailed, cryptor.GetDayStamp());
  }
  store->Uninit();
  Velmar::Collections::Delete(store);
}

bool DBManager::SetFolder(const char* databaseFolder) {
  folder.Clear();
  if (databaseFolder == nullptr || *databaseFolder == '\0') {
    RYL_LOG(netdb_storage, NoFolderGiven);
    return false;
  }
  if (!folder.Set(databaseFolder)) {
    RYL_LOG(netdb_storage, FolderNotKept);
    return false;
  }
  while (folder.length > 0 && Path::IsPathSeparator(folder.GetChar(-1))) {
    folder.Truncate(folder.length - 1);
  }
  if (!FileSystem::DirectoryExists(folder, false)) {
    RYL_LOG(netdb_storage, FolderMissing, databaseFolder);
    folder.Clear();
    return false;
  }
  return true;
}

bool DBManager::Add(const BacklogMessage& message, const Process* process) {
  const u64 day = message.timestamp / kSecondsPerDay * kSecondsPerDay;
  if (!SelectDay(day)) {
    RYL_LOG(netdb_storage, DayNotSelected, day);
    return false;
  }
  IPDB<IPv4>::IPRecord row = MakeRow(message);
  row.proc_index = process != nullptr ? processes.Add(*process) : kNone;
  if (!ips.Add(row, processes)) {
    RYL_LOG(netdb_storage, MessageNotAdded, day);
    return false;
  }
  dirty = true;
  return true;
}

bool DBManager::SelectDay(u64 day) {
  if (day == cryptor.GetDayStamp()) {
    return true;
  }
  if (cryptor.GetDayStamp() != 0 && !Flush()) {
    RYL_LOG(netdb_storage, OldDayNotDumped, cryptor.GetDayStamp());
  }
  if (folder.length == 0) {
    RYL_LOG(netdb_storage, NoFolderForDay, day);
    return false;
  }
  char area[kPathArea];
  String path;
  if (!path.Create(area, sizeof(area), true, true) || !MakeDayPath(day, path)) {
    RYL_LOG(netdb_storage, DayPathNotMade, day);
    return false;
  }
  cryptor.SetDayStamp(day);
  cryptor.SetFilterStamp(0);
  if (!SyncWith(path.text, false)) {
    // The day stays the one that was asked for, whatever stamp the refused file brought.
    cryptor.SetDayStamp(day);
    return false;
  }
  return true;
}

bool DBManager::MakeDayPath(u64 day, String& path) const {
  char nameArea[32];
  String name;
  if (!name.Create(nameArea, sizeof(nameArea), true, true)) {
    return false;
  }
  const auto number = static_cast<unsigned long long>(day);
  if (!name.SetFormat("%llu.db.f", number) || !Path::Join(path, folder, name, false)) {
    return false;
  }
  if (FileSystem::FileExists(path.text, false)) {
    return true;
  }
  return name.SetFormat("%llu.db", number) && Path::Join(path, folder, name, false);
}

bool DBManager::SyncWith(const char* path, bool readOnly) {
  if (path == nullptr) {
    RYL_LOG(netdb_storage, NoPathGiven);
    return false;
  }
  const char* const file = Path::GetFileName(path);
  const ScopedDuration timed(
      [file](double value, const char* unit) { RYL_LOG(netdb_storage, DaySyncTimed, file, value, unit); }, IsLogged());
  if (!RenewStore()) {
    return false;
  }
  store->keyCompareFlag = 0;
  const u32 flags = kFileFlags | (readOnly ? StoreFlags::kNoSaveOnClose : 0);
  if (!store->Init(path, kInitialEntries, kMaxEntries, kEntriesStep, flags, kDataVersion, &store->keyCompareFlag,
                   &cryptor, 0, -1, nullptr)) {
    RYL_LOG(netdb_storage, FileNotOpened, file);
    return RefuseFile();
  }
  u64 named = 0;
  ReadLeadingDigits(file, named);
  if (named != cryptor.GetDayStamp()) {
    RYL_LOG(netdb_storage, FileOfAnotherDay, named, cryptor.GetDayStamp());
    return RefuseFile();
  }
  if (!LoadTables(file)) {
    return RefuseFile();
  }
  dirty = false;
  return true;
}

bool DBManager::RenewStore() {
  if (store == nullptr) {
    store = Velmar::Collections::New<DayStore>();
    if (store == nullptr) {
      RYL_LOG(netdb_storage, NoStoreMemory);
      return false;
    }
    return true;
  }
  store->Uninit();
  store->~DayStore();
  ::new (static_cast<void*>(store)) DayStore();
  return true;
}

bool DBManager::LoadTables(const char* file) {
  if (!processes.SyncWith(*store) || !ips.SyncWith(*store)) {
    RYL_LOG(netdb_storage, TablesNotLoaded, file);
    return false;
  }
  RYL_LOG(netdb_storage, DayOpened, file, processes.GetCount(), ips.GetCount());
  return true;
}

bool DBManager::RefuseFile() {
  store->Uninit();
  return false;
}

bool DBManager::Flush() {
  if (store == nullptr) {
    RYL_LOG(netdb_storage, NothingToDump);
    return true;
  }
  const char* const file = Path::GetFileName(store->GetPath());
  if (!dirty) {
    RYL_LOG(netdb_storage, DumpNotNeeded, file);
    return true;
  }
  if (!processes.Flush(*store)) {
    RYL_LOG(netdb_storage, ProcessesNotDumped, file);
    return false;
  }
  if (!ips.Flush(*store)) {
    RYL_LOG(netdb_storage, RowsNotDumped, file);
    return false;
  }
  if (!Save(file)) {
    return false;
  }
  RYL_LOG(netdb_storage, DayDumped, file);
  dirty = false;
  return true;
}

bool DBManager::Save(const char* file) {
  for (u32 attempt = 0; attempt < kSaves; ++attempt) {
    if (store->Save()) {
      return true;
    }
    RYL_LOG(netdb_storage, SaveFailed, file, attempt);
    if (attempt + 1 < kSaves) {
      Velmar::OS::Time::Sleep(kSavePauseMs);
    }
  }
  return false;
}

}  // namespace RYL::NetDB
