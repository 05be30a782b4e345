// Any bytes as the tables of a day and as its whole file: loading may refuse them, and what it takes must survive every
// operation.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Velmar/OS/FileSystem.h"
#include "common/netdb_storage/DBManager.h"
#include "platform/sim/Sim.h"

namespace {

using namespace RYL;
using namespace RYL::NetDB;
using Velmar::Collections::Array;
using Velmar::Collections::Buffer;
using Velmar::Utils::String;
namespace Sim = Velmar::Sim;
namespace StoreFlags = Velmar::Collections::DB::StoreFlags;

constexpr const char* kFolder = "/fuzz";
constexpr u64 kDay = 1700006400;
constexpr const char* kPath = "/fuzz/1700006400.db";

void Require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

void Open(DayStore& store, const char* path, NetDBCryptor* cryptor) {
  store.keyCompareFlag = 0;
  const u32 cipher = cryptor != nullptr ? StoreFlags::kCipherRequired : 0;
  Require(store.Init(path, 2, 3, 1, StoreFlags::kBinarySearch | StoreFlags::kNoLoadOnInit | cipher, 1,
                     &store.keyCompareFlag, cryptor, 0, -1, nullptr));
}

void Put(DayStore& store, const char* key, const std::string& bytes) {
  Require(store.Apply(
      key, true,
      [&bytes](Buffer& value, bool, void*) {
        value.Reset();
        return value.PushBuffer(bytes.data(), static_cast<u32>(bytes.size())) != kNone;
      },
      nullptr));
}

Process MakeProcess(u32 number) {
  static const char* const paths[] = {"", "/bin/a", "/bin/b", "/usr/bin/c"};
  Process process;
  Require(process.proc_fpath.Set(paths[number % 4]));
  process.proc_pid = static_cast<i64>(number);
  return process;
}

// Adds, references and releases; what is stored afterwards reads back as it was.
void ExerciseProcesses(const std::string& bytes) {
  DayStore store;
  Open(store, nullptr, nullptr);
  Put(store, "p", bytes);
  ProcessesDB processes;
  const bool taken = processes.SyncWith(store);
  Require(taken || processes.GetCount() == 0);
  for (u32 number = 0; number < 8; ++number) {
    const Process process = MakeProcess(number);
    const u32 index = processes.Add(process);
    Process copy;
    Require(index == kNone || (index < processes.GetCount() && processes.Get(index, copy) && copy == process));
    Require(processes.Add(process) == index);
    processes.AddRef(index);
  }
  const u32 count = processes.GetCount();
  for (u32 index = 0; index < count && index < 32; ++index) {
    processes.Release(index);
  }
  Array<String> paths;
  Require(paths.Add(String("/bin/a", true)) && paths.Add(String("/bin/b", true)));
  u32 visits = 0;
  const ProcessesDB::Sink sink([&visits](u32, const Process&) { return ++visits != 0; });
  Require(processes.Query(paths, Array<ProcessFilter>(), sink));
  Require(processes.Query(Array<ProcessFilter>(), sink));
  Require(visits <= 2 * processes.GetCount());
  if (processes.Flush(store)) {
    ProcessesDB copy;
    Require(copy.SyncWith(store));
    Require(copy.GetCount() == processes.GetCount());
    Require(copy.GetSerializedSize() == processes.GetSerializedSize());
  }
}

template <class T>
void ExerciseRows(const std::string& bytes, const char* key) {
  DayStore store;
  Open(store, nullptr, nullptr);
  Put(store, key, bytes);
  ProcessesDB processes;
  Require(processes.SyncWith(store));
  IPDB<T> table;
  const bool taken = table.SyncWith(store);
  Require(taken || table.GetCount() == 0);
  for (u32 number = 0; number < 8; ++number) {
    IPRecord<T> row;
    row.ip.bytes[0] = static_cast<u8>(number * 37);
    row.port = static_cast<u16>(number % 3);
    table.Add(row, processes);
  }
  Array<T> wanted;
  T address;
  address.bytes[0] = 37;
  Require(wanted.Add(T()) && wanted.Add(address));
  u32 visits = 0;
  const typename IPDB<T>::Sink sink([&visits](const IPRecord<T>&) { return ++visits != 0; });
  Require(table.Query(wanted, Array<typename IPDB<T>::Filter>(), sink));
  Require(visits <= table.GetCount());
  Require(table.Flush(store));
  IPDB<T> copy;
  Require(copy.SyncWith(store));
  Require(copy.GetCount() == table.GetCount());
}

// Whatever the day's file holds: queries, and a manager that adds to it and dumps it.
void ExerciseDay() {
  u32 rows = 0;
  QueryConstraints constraints(kDay, kDay + 3600);
  Require(constraints.paths_wanted.Add(String("/bin/a", true)));
  DBManager::Query(kFolder, constraints, [&rows](const QueryRecord& record) {
    Require(std::memchr(record.proc_fpath, '\0', sizeof(record.proc_fpath)) != nullptr);
    return ++rows < 100000;
  });
  Require(constraints.ip_filters.count == 0);
  QueryConstraints all(0, ~u64{0});
  DBManager::Query(kFolder, all, [](const QueryRecord& record) { return record.is_ipv6 == 0; });

  DBManager manager;
  Require(manager.SetFolder(kFolder));
  const bool opened = manager.SelectDay(kDay);
  const u32 before = manager.GetRowCount();
  u32 added = 0;
  for (u32 number = 0; number < 8; ++number) {
    BacklogMessage message;
    message.address = number;
    message.port = static_cast<u16>(number);
    message.timestamp = kDay + number;
    const Process process = MakeProcess(number);
    added += manager.Add(message, &process) ? 1U : 0U;
  }
  Require(manager.Flush() == opened || added == 0);
  Require(manager.GetRowCount() >= before);
  if (opened && added != 0) {
    DBManager reader;
    Require(reader.SyncWith(kPath, true) && reader.GetRowCount() == manager.GetRowCount());
  }
}

// The bytes as the two tables of a good file; the first two say where the second starts.
void PutTables(const std::string& bytes) {
  const std::size_t wanted = bytes.size() < 2 ? 0 : static_cast<u8>(bytes[0]) + 256U * static_cast<u8>(bytes[1]);
  const std::string tables = bytes.size() < 2 ? "" : bytes.substr(2);
  const std::size_t split = wanted < tables.size() ? wanted : tables.size();
  NetDBCryptor cryptor;
  cryptor.SetDayStamp(kDay);
  DayStore store;
  Open(store, kPath, &cryptor);
  Put(store, "p", tables.substr(0, split));
  Put(store, "4", tables.substr(split));
  Require(store.Save());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Sim::Reset();
  Require(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  ExerciseProcesses(bytes);
  ExerciseRows<IPv4>(bytes, "4");
  ExerciseRows<IPv6>(bytes, "6");
  Sim::PutFile(kPath, bytes);
  ExerciseDay();
  Require(Sim::RemoveFile(kPath));
  PutTables(bytes);
  ExerciseDay();
  return 0;
}
