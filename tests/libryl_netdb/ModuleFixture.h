// ModuleTest: a module object on the simulated platform, with a fake host; its test access.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/Path.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "platform/sim/Sim.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogCapture.h"

namespace RYL::Module {

struct NetDBManagerTestAccess {
  static Settings& GetSettings(NetDBManager& manager) { return manager.settings; }
  static std::atomic<NetDB::Backlog*>& GetBacklog(NetDBManager& manager) { return manager.backlog; }
  static std::atomic<Velmar::OS::Event*>& GetWakeEvent(NetDBManager& manager) { return manager.wake_event; }
  static void* GetWorkerThread(NetDBManager& manager) { return manager.worker_thread; }
  static NetDB::ProtocolTable& GetProtocolTable(NetDBManager& manager) { return manager.protocol_table; }
  static IntakeGate& GetGate(NetDBManager& manager) { return manager.gate; }
  static Velmar::Utils::String& GetPath(NetDBManager& manager) { return manager.db_path; }
  static ModuleHost* GetHost(NetDBManager& manager) { return manager.host; }
  static EventLookup* GetEventLookup(NetDBManager& manager) { return manager.event_lookup; }
  static FileHashService* GetFileHashService(NetDBManager& manager) { return manager.file_hash_service; }
  static bool ReadSettings(NetDBManager& manager, SettingsSource* source) { return manager.ReadSettings(source); }
  static bool StartWorker(NetDBManager& manager) { return manager.StartWorker(); }
  static void StopWorker(NetDBManager& manager) { manager.StopWorker(); }
};

}  // namespace RYL::Module

// The exports of the library, linked in.
extern "C" RYL::Module::Interface* Init(RYL::Module::ModuleAllocator* allocator);
extern "C" void Uninit();

// Policy keys, as a host knows them.
namespace PolicyKey {
inline constexpr Velmar::u32 kNetdbEnabled = 0xD9C2B241;
inline constexpr Velmar::u32 kCloudQueryEnabled = 0x558350A9;
inline constexpr Velmar::u32 kKeepPrivateAddresses = 0x5CA94F63;
inline constexpr Velmar::u32 kJitterFirstFilter = 0x31A4214F;
inline constexpr Velmar::u32 kMaxDbSize = 0xE175E104;
inline constexpr Velmar::u32 kMaxDbDays = 0x6F09981C;
inline constexpr Velmar::u32 kMaxQueryBytes = 0xADB4BD19;
inline constexpr Velmar::u32 kMaxQueryRows = 0xEF380598;
}  // namespace PolicyKey

// A module object that Init made on malloc. "${P}" is /data.
class ModuleTest : public ::testing::Test {
 protected:
  using Access = RYL::Module::NetDBManagerTestAccess;

  static constexpr Velmar::u64 kStartMs = 1700000000000;
  static constexpr Velmar::u64 kDay = 1699920000;  // of kStartMs

  ModuleTest() {
    Velmar::Sim::Reset();
    Velmar::OS::Path::SetVariable("P", "/data");
    module.reset(Init(nullptr));
  }
  ~ModuleTest() override {
    module.reset();
    Uninit();
  }

  RYL::Module::NetDBManager& Manager() { return static_cast<RYL::Module::NetDBManager&>(*module); }
  RYL::Module::Settings& Settings() { return Access::GetSettings(Manager()); }
  bool Initialize() { return module->Initialize(&host, &policy); }
  void InitializeAndStart() {
    ASSERT_TRUE(Initialize());
    ASSERT_TRUE(module->Start());
  }
  bool Handle(const EventBuilder& event) { return module->HandleEvent(event.Build().data(), nullptr); }

  static EventBuilder Connection(const std::string& address = "203.0.113.9") {
    return EventBuilder(185).Address(address).Port(443).Protocol("https").Direction(1).Puid(77);
  }

  LogCapture log;
  FakeHost host;
  FakeSettings policy;
  std::unique_ptr<RYL::Module::Interface> module;
};
