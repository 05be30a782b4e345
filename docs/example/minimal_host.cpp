// The smallest useful host of the module: loads it, feeds one connection, and reads it back. docs/embedding.md explains
// it.
//
// usage: minimal_host MODULE DATA_FOLDER
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "RYL/Comm/INetDBQuery.h"
#include "RYL/Events/EventSender.h"
#include "RYL/Events/ExternalData.h"
#include "RYL/Events/Records.h"
#include "RYL/Module/EventLookup.h"
#include "RYL/Module/FileHashService.h"
#include "RYL/Module/Interface.h"
#include "Velmar/Collections/Array.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Network.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "Velmar/Utils/TreeContainer.h"

namespace {

using RYL::u32;
using RYL::u64;
using RYL::u8;
using Velmar::Utils::TreeContainer;
namespace Layout = RYL::Events::ConnectionEvent;

constexpr u64 kExamplePuid = 0x1234;

// Service 23: the module asks who a process identifier is.
class Processes final : public RYL::Module::EventLookup {
 public:
  bool GetEventById(u64 processPuid, RYL::Events::GenericEventHolder* holder) override {
    if (processPuid != kExamplePuid) {
      return false;
    }
    namespace Process = RYL::Events::ProcessEvent;
    const char path[] = "/usr/bin/example";
    const u32 pid = 4321;
    u8 record[Process::kProcessPath + sizeof(path)] = {};
    std::memcpy(record + Process::kProcessPuid, &processPuid, sizeof(processPuid));
    std::memcpy(record + Process::kProcessPid, &pid, sizeof(pid));
    std::memcpy(record + Process::kProcessPath, path, sizeof(path));
    return holder->Set(record, sizeof(record));
  }
};

// Gets the module's own events: here, the answers to history queries.
class ReplyPrinter final : public RYL::Events::EventSender {
 public:
  bool Dispatch(u32 /*kind*/, TreeContainer* tree, u32, u32, u32) override {
    Velmar::Utils::String json;
    if (!tree->AppendJson(json)) {
      return false;
    }
    std::printf("%s\n", json.text);
    return true;
  }
};

// What the module asks of its host. A host without file digests leaves service 1000 out.
class ExampleHost final : public RYL::Module::ModuleHost {
 public:
  void* GetInterface(u32 number) override {
    return number == RYL::Module::kEventLookupServiceNumber ? static_cast<RYL::Module::EventLookup*>(&processes_)
                                                            : nullptr;
  }
  RYL::Events::EventSender* GetEventSender() override { return &replies_; }
  void* CreateThread(u32 /*moduleNumber*/, void (*entry)(void*), void* context, const char* label) override {
    return Velmar::OS::Threading::StartThread(entry, context, label);
  }

 private:
  Processes processes_;
  ReplyPrinter replies_;
};

// A policy that holds nothing: every setting has its default.
class DefaultSettings final : public RYL::Module::SettingsSource {
 public:
  bool GetUInt64(u32 /*key*/, u64* out, u64 defaultValue, u32 /*reserved*/) override {
    *out = defaultValue;
    return true;
  }
  bool GetBool(u32 /*key*/, bool* out, bool defaultValue, u32 /*reserved*/) override {
    *out = defaultValue;
    return true;
  }
};

template <class T>
void Put(u8* record, u32 offset, T value) {
  std::memcpy(record + offset, &value, sizeof(value));
}

// Packs one event about 192.0.2.7, port 443, over TCP, and hands it to the module.
bool SendEvent(RYL::Module::Interface* module, u32 type, u32 bytesIn) {
  const u8 remote[4] = {192, 0, 2, 7};
  const char protocol[] = "tcp";
  constexpr u32 kAddressAt = Layout::kFixedSize;
  constexpr u32 kProtocolAt = kAddressAt + RYL::Events::AddressBlock::kSizeIPv4;

  u8 record[kProtocolAt + sizeof(protocol)] = {};
  Put<u32>(record, Layout::kHeader, type);
  Put<u64>(record, Layout::kEventTimeMs, Velmar::OS::Time::GetEpochTime(nullptr));
  Put<u64>(record, Layout::kProcessPuid, kExamplePuid);
  Put<RYL::u16>(record, Layout::kPort, 443);
  Put<u8>(record, Layout::kDirectionCode, 1);
  Put<RYL::u16>(record, Layout::kAddressOffset, kAddressAt);
  Put<RYL::u16>(record, Layout::kProtocolOffset, kProtocolAt);
  Put<u32>(record, Layout::kBytesIn, bytesIn);
  std::memcpy(record + kAddressAt + RYL::Events::AddressBlock::kAddress, remote, sizeof(remote));
  std::memcpy(record + kProtocolAt, protocol, sizeof(protocol));
  return module->HandleEvent(record, nullptr);
}

// Asks which connections of the whole history went to port 443. The answer has come when HandleEvent returns.
bool AskForPort(RYL::Module::Interface* module) {
  namespace Query = RYL::Events::QueryEvent;
  const char kind[] = "FindPorts";
  const char port[] = "443";
  constexpr u32 kTableAt = Query::kKind + sizeof(kind);
  constexpr u32 kPortAt = kTableAt + sizeof(RYL::u16);

  u8 record[kPortAt + sizeof(port)] = {};
  Put<u32>(record, Query::kHeader, RYL::Events::kNetDbQuery);
  Put<u64>(record, Query::kStartTime, 0);
  Put<u64>(record, Query::kEndTime, ~u64{0});
  Put<RYL::u16>(record, Query::kValueTableOffset, kTableAt);
  Put<RYL::u16>(record, Query::kValueCount, 1);
  std::memcpy(record + Query::kKind, kind, sizeof(kind));
  Put<RYL::u16>(record, kTableAt, kPortAt);
  std::memcpy(record + kPortAt, port, sizeof(port));
  return module->HandleEvent(record, nullptr);
}

// Takes the binary result of a table query. The rows, each a message behind its u32 length, begin at byte 9.
class TableResult final : public RYL::Events::ExternalData {
 public:
  bool SetBinary(const char* /*name*/, const void* data, u32 size) override {
    const auto* bytes = static_cast<const u8*>(data);
    u32 error = 0;
    u32 rows = 0;
    std::memcpy(&error, bytes + 1, sizeof(error));
    std::memcpy(&rows, bytes + 5, sizeof(rows));
    std::printf("edr_netdb: error %u, %u rows in %u bytes\n", error, rows, size);
    return true;
  }
};

// Asks the table for the connections to 192.0.2.7. The result has come when HandleEvent returns.
bool AskForRows(RYL::Module::Interface* module) {
  namespace Query = RYL::Events::TableQueryEvent;
  const char table[] = "edr_netdb";
  const char columns[] = "first_seen,port,proc_fpath";
  const char constraints[] = R"({"ip":{"affinity":"TEXT","list":[{"op":2,"expr":"192.0.2.7"}]}})";
  constexpr u32 kColumnsAt = Query::kTableName + sizeof(table);
  constexpr u32 kConstraintsAt = kColumnsAt + sizeof(columns);

  u8 record[kConstraintsAt + sizeof(constraints)] = {};
  Put<u32>(record, Query::kHeader, RYL::Events::kTableQuery);
  Put<u8>(record, Query::kReplyAsEvent, 0);
  Put<RYL::u16>(record, Query::kColumnsOffset, kColumnsAt);
  Put<RYL::u16>(record, Query::kConstraintsOffset, kConstraintsAt);
  std::memcpy(record + Query::kTableName, table, sizeof(table));
  std::memcpy(record + kColumnsAt, columns, sizeof(columns));
  std::memcpy(record + kConstraintsAt, constraints, sizeof(constraints));
  TableResult result;
  return module->HandleEvent(record, &result);
}

// One run of the module: start, two questions, two events, stop. Stop stores and dumps everything that was accepted.
bool RecordOneConnection(RYL::Module::Interface* module, RYL::Module::ModuleHost* host) {
  DefaultSettings settings;
  if (!module->Initialize(host, &settings) || !module->Start()) {
    return false;
  }
  // What earlier runs have stored.
  const bool asked = AskForPort(module) && AskForRows(module);
  const bool sent = SendEvent(module, RYL::Events::kNewConnection, 0) && SendEvent(module, RYL::Events::kTraffic, 1500);
  return module->Stop() && asked && sent;
}

// Called for each stored row, on the caller's thread.
bool PrintRow(const RYL::Comm::Interfaces::INetDBQuery::Record& row, void* /*context*/) {
  u32 raw = 0;
  char address[16];
  std::memcpy(&raw, row.address, sizeof(raw));
  Velmar::OS::Network::ConvertIPv4BinaryToString(raw, address, sizeof(address));
  std::printf("%s port %u: %u connections, %llu bytes in, by %s\n", address, row.port, row.conns_total,
              static_cast<unsigned long long>(row.bytes_in), row.proc_fpath);
  return true;
}

bool PrintHistory(RYL::Module::Interface* module) {
  auto* query = static_cast<RYL::Comm::Interfaces::INetDBQuery*>(
      module->QueryInterface(RYL::Comm::Interfaces::kNetDBQueryInterface));
  return query != nullptr && query->Iterate(&PrintRow, nullptr, 0, ~u64{0});
}

// What the module says of itself, as JSON. A host that runs for longer keeps the trees of SaveStatistics and hands all
// of them back.
bool PrintStatus(RYL::Module::Interface* module) {
  Velmar::Collections::Array<TreeContainer> history;
  TreeContainer statistics;
  TreeContainer report;
  Velmar::Utils::String json;
  if (!statistics.Create(4, 4, true, 2) || !module->SaveStatistics(&statistics) || !history.Add(statistics) ||
      !report.Create(32, 32, true, 4) || !module->GetStatus(history, &report) || !report.AppendJson(json)) {
    return false;
  }
  std::printf("%s\n", json.text);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: minimal_host MODULE DATA_FOLDER\n");
    return 2;
  }
  // "${P}" is where the module keeps its folder "netdb".
  if (!Velmar::OS::FileSystem::CreateDirectory(argv[2]) || !Velmar::OS::Path::SetVariable("P", argv[2])) {
    return 1;
  }
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  const auto init = reinterpret_cast<RYL::Module::InitFunction>(dlsym(library, "Init"));
  const auto uninit = reinterpret_cast<RYL::Module::UninitFunction>(dlsym(library, "Uninit"));
  ExampleHost host;
  RYL::Module::Interface* module = init != nullptr && uninit != nullptr ? init(nullptr) : nullptr;
  if (module == nullptr) {
    return 1;
  }
  const bool done = RecordOneConnection(module, &host) && PrintHistory(module) && PrintStatus(module);
  delete module;
  uninit();
  dlclose(library);
  return done ? 0 : 1;
}
