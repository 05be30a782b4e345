// ModuleTest: a module object on the simulated platform, with a fake host.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/OS/Path.h"
#include "platform/sim/Sim.h"
#include "tests/libryl_netdb/ManagerAccess.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogCapture.h"

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
