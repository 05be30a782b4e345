#include <string>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "tests/cloud/CloudStatusTestAccess.h"
#include "tests/libryl_netdb/ModuleFixture.h"

namespace RYL::Module {
namespace {

using Verdicts = NetDB::CloudStatusTestAccess;

using Lines = std::vector<std::string>;
using NetDBManagerTest = ModuleTest;

TEST_F(NetDBManagerTest, InitTouchesNothing) {
  EXPECT_NE(module, nullptr);
  EXPECT_TRUE(Velmar::Sim::ListFiles().empty());
  EXPECT_TRUE(host.Threads().empty());
  EXPECT_EQ(Velmar::Sim::CountFileOperations(), 0U);
}

TEST_F(NetDBManagerTest, QueryInterfaceKnowsOneNumber) {
  EXPECT_EQ(module->QueryInterface(1007), static_cast<Comm::Interfaces::INetDBQuery*>(&Manager()));
  EXPECT_EQ(module->QueryInterface(1006), nullptr);
  EXPECT_EQ(module->QueryInterface(0), nullptr);
  EXPECT_EQ(module->QueryInterface(-1), nullptr);
}

TEST_F(NetDBManagerTest, SixteenEventTypesAreSubscribedInOrder) {
  const std::vector<u32> expected = {185, 73, 75, 71, 72, 85, 92, 93, 98, 99, 100, 101, 104, 70, 68, 221};
  SubscribedEvents events;
  module->GetSubscribedEvents(events);
  EXPECT_EQ(std::vector<u32>(events.types, events.types + events.count), expected);
  SubscribedEvents again;
  EXPECT_EQ(&module->ListSubscribedEvents(again), &again);
  EXPECT_EQ(again.types, events.types);
  EXPECT_EQ(again.count, 16U);
}

TEST_F(NetDBManagerTest, EverySubscribedTypeIsKnownToIntake) {
  for (const u32 type : kSubscribedTypes) {
    EXPECT_NE(ClassifyEvent(type), EventKind::kUnknown) << type;
  }
  u32 known = 0;
  for (u32 type = 0; type <= Events::kEventTypeMask; ++type) {
    known += ClassifyEvent(type) == EventKind::kUnknown ? 0 : 1;
  }
  EXPECT_EQ(known, kSubscribedTypeCount);
}

TEST_F(NetDBManagerTest, UnnamedOperationsAnswerWithConstants) {
  EXPECT_TRUE(module->Operation2());
  EXPECT_TRUE(module->Operation4());
  EXPECT_TRUE(module->Operation5());
  EXPECT_TRUE(module->Operation8());
  EXPECT_TRUE(module->Operation13());
  EXPECT_EQ(module->Operation16(), 0U);
  EXPECT_FALSE(module->Operation17());
}

TEST_F(NetDBManagerTest, InitializeWithoutHostFails) {
  EXPECT_FALSE(module->Initialize(nullptr, &policy));
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.InitializeWithoutHost"});
}

TEST_F(NetDBManagerTest, InitializeMakesTheFolder) {
  EXPECT_TRUE(Initialize());
  EXPECT_TRUE(Velmar::OS::FileSystem::DirectoryExists("/data/netdb", false));
  EXPECT_STREQ(Access::GetPath(Manager()).text, "/data/netdb");
  EXPECT_EQ(log.Arguments("ryl_netdb.DatabaseFolder"), Lines{"/data/netdb"});
  EXPECT_EQ(log.Lines()[0], "2 ryl_netdb.DatabaseFolder");
  EXPECT_EQ(Access::GetHost(Manager()), &host);
}

TEST_F(NetDBManagerTest, InitializeTakesAFolderThatIsThere) {
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory("/data/netdb"));
  const u64 before = Velmar::Sim::CountFileOperations(Velmar::Sim::Operation::kCreateDirectory);
  EXPECT_TRUE(Initialize());
  EXPECT_EQ(Velmar::Sim::CountFileOperations(Velmar::Sim::Operation::kCreateDirectory), before);
}

TEST_F(NetDBManagerTest, InitializeFailsWhenTheFolderCannotBeMade) {
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kCreateDirectory, 0, Velmar::Sim::Fault::kFail);
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.DatabaseFolderNotCreated"});
}

TEST_F(NetDBManagerTest, InitializeFailsWhenThePathCannotBeMade) {
  Velmar::Sim::FailAllocation(0);
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.DatabaseFolderNotNamed"});
}

TEST_F(NetDBManagerTest, InitializeFailsBeforeThePolicyWhenTheVerdictsCannotBeOpened) {
  // The first look makes the folder; the second is the cache's.
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kExists, 1, Velmar::Sim::Fault::kFail);
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log.Lines(3), (Lines{"5 cloud.CacheFolderMissing", "5 ryl_netdb.InitializeVerdictsFailed"}));
  EXPECT_TRUE(policy.questions.empty());
}

TEST_F(NetDBManagerTest, VerdictsAreKeptInAFileAboveEightMebibytesOnly) {
  constexpr const char* kCacheFile = "/data/netdb/cache.4.db";
  const auto endsWithFile = [this](u64 bytes) {
    policy.values[PolicyKey::kMaxDbSize] = bytes;
    module.reset(Init(nullptr));
    EXPECT_TRUE(Initialize());
    EXPECT_TRUE(Verdicts::StoreVerdict(Access::GetVerdicts(Manager()), NetDB::IPv4::FromRaw(0x09080706), true));
    module.reset();
    return Velmar::Sim::ModificationTime(kCacheFile) != 0;
  };
  EXPECT_TRUE(endsWithFile(0x800001));
  EXPECT_FALSE(endsWithFile(0x800000));
  EXPECT_TRUE(endsWithFile(0x8000000));
}

TEST_F(NetDBManagerTest, PolicyThatMakesTheDatabaseSmallForgetsTheVerdicts) {
  ASSERT_TRUE(Initialize());
  auto& verdicts = Access::GetVerdicts(Manager());
  const NetDB::IPv4 address = NetDB::IPv4::FromRaw(0x09080706);
  ASSERT_TRUE(Verdicts::StoreVerdict(verdicts, NetDB::IPv4::FromRaw(0x09080706), true));
  policy.values[PolicyKey::kMaxDbSize] = 0x800001;
  module->ApplySettings(&policy);
  EXPECT_TRUE(verdicts.IsWhitelisted(&address));
  policy.values[PolicyKey::kMaxDbSize] = 0x800000;
  module->ApplySettings(&policy);
  EXPECT_FALSE(verdicts.IsWhitelisted(&address));
  EXPECT_TRUE(Velmar::Sim::ListFiles().empty());
}

TEST_F(NetDBManagerTest, FailedSwitchOfTheCacheLeavesDaysAndQueryLimits) {
  InitializeAndStart();
  log.Clear();
  policy.values = {{PolicyKey::kMaxDbSize, 0x800000},
                   {PolicyKey::kMaxDbDays, 9},
                   {PolicyKey::kMaxQueryBytes, 9},
                   {PolicyKey::kMaxQueryRows, 9}};
  // The first deletion belongs to the cache's last save.
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kDelete, 1, Velmar::Sim::Fault::kFail);
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Lines(3), (Lines{"5 cloud.CacheFileNotDeleted", "5 ryl_netdb.VerdictPersistenceFailed",
                                 "3 ryl_netdb.ApplySettingsFailed"}));
  EXPECT_EQ(Settings().max_db_size.Get(), 0x800000U);
  EXPECT_EQ(Settings().max_db_days.Get(), 3653U);
  EXPECT_EQ(Settings().max_query_bytes.Get(), 0xA00000U);
  EXPECT_EQ(Settings().max_query_rows.Get(), 10240U);
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
  // Without a cache every address is unknown, and connections are recorded.
  EXPECT_TRUE(Handle(Connection()));
}

TEST_F(NetDBManagerTest, InitializeFailsWhenTheCacheCannotBeSwitched) {
  policy.values[PolicyKey::kMaxDbSize] = 0x800000;
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kDelete, 1, Velmar::Sim::Fault::kFail);
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log.Lines(3), (Lines{"5 cloud.CacheFileNotDeleted", "5 ryl_netdb.VerdictPersistenceFailed",
                                 "5 ryl_netdb.InitializeSettingsFailed"}));
}

TEST_F(NetDBManagerTest, InitializeFailsOnABadPolicy) {
  policy.values[PolicyKey::kMaxDbDays] = 0;
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log.Lines(5), (Lines{"5 ryl_netdb.SettingRefused", "5 ryl_netdb.SettingMaxDbDaysRefused",
                                 "5 ryl_netdb.InitializeSettingsFailed"}));
  log.Clear();
  EXPECT_FALSE(module->Initialize(&host, nullptr));
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.NoSettingsSource", "5 ryl_netdb.InitializeSettingsFailed"}));
}

TEST_F(NetDBManagerTest, InitializeFillsTheProtocolTable) {
  EXPECT_TRUE(Initialize());
  u16 mask = 0;
  EXPECT_TRUE(Access::GetProtocolTable(Manager()).LookupProtocol("RPC", mask));
  EXPECT_EQ(mask, 0x0100);
}

TEST_F(NetDBManagerTest, SecondInitializeFails) {
  EXPECT_TRUE(Initialize());
  log.Clear();
  EXPECT_FALSE(Initialize());
  EXPECT_EQ(log.Lines(3), (Lines{"3 ryl_netdb.ProtocolTableExists", "5 ryl_netdb.InitializeProtocolsFailed"}));
}

TEST_F(NetDBManagerTest, StartBeforeInitializeStartsNothing) {
  EXPECT_FALSE(module->Start());
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.StartWithoutHost"});
  EXPECT_TRUE(host.Threads().empty());
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
}

TEST_F(NetDBManagerTest, StartTakesServicesAndStartsTheWorker) {
  ASSERT_TRUE(Initialize());
  log.Clear();
  EXPECT_TRUE(module->Start());
  EXPECT_EQ(host.asked, (std::vector<u32>{1000, 23}));
  EXPECT_EQ(Access::GetEventLookup(Manager()), &host.lookup);
  EXPECT_EQ(Access::GetFileHashService(Manager()), &host.hashes);
  ASSERT_EQ(host.Threads().size(), 1U);
  EXPECT_EQ(host.Threads()[0].moduleNumber, 41U);
  EXPECT_EQ(host.Threads()[0].label, "worker");
  EXPECT_EQ(log.Count("ryl_netdb.WorkerStarted"), 1);
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(NetDBManagerTest, MissingServicesAreNoError) {
  host.hasLookup = false;
  host.hasHashes = false;
  ASSERT_TRUE(Initialize());
  log.Clear();
  EXPECT_TRUE(module->Start());
  EXPECT_EQ(log.Lines(3), (Lines{"3 ryl_netdb.NoFileHashService", "3 ryl_netdb.NoEventLookup"}));
}

TEST_F(NetDBManagerTest, StartWhileDisabledRunsWithoutWorker) {
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  InitializeAndStart();
  EXPECT_TRUE(host.Threads().empty());
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
  EXPECT_TRUE(Handle(Connection()));
  EXPECT_EQ(log.Count("ryl_netdb.ModuleDisabled"), 1);
}

TEST_F(NetDBManagerTest, StartFailsWhenTheWorkerDoes) {
  ASSERT_TRUE(Initialize());
  host.givesThreads = false;
  log.Clear();
  EXPECT_FALSE(module->Start());
  EXPECT_EQ(log.Lines(3),
            (Lines{"5 ryl_netdb.WorkerThreadNotCreated", "3 ryl_netdb.StopTurnsOff", "5 ryl_netdb.StartWorkerFailed"}));
  EXPECT_FALSE(Settings().netdb_enabled.Get());
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
  EXPECT_EQ(Access::GetWakeEvent(Manager()), nullptr);
}

TEST_F(NetDBManagerTest, StopForgetsTheHost) {
  InitializeAndStart();
  EXPECT_TRUE(module->Stop());
  EXPECT_EQ(Access::GetHost(Manager()), nullptr);
  EXPECT_EQ(Access::GetEventLookup(Manager()), nullptr);
  EXPECT_EQ(Access::GetFileHashService(Manager()), nullptr);
  EXPECT_EQ(Access::GetWorkerThread(Manager()), nullptr);
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
  EXPECT_EQ(Access::GetWakeEvent(Manager()), nullptr);
  EXPECT_FALSE(Settings().netdb_enabled.Get());
}

TEST_F(NetDBManagerTest, StopWithoutWorkerIsTrue) {
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  InitializeAndStart();
  log.Clear();
  EXPECT_TRUE(module->Stop());
  EXPECT_TRUE(log.Entries().empty());
  EXPECT_TRUE(module->Stop());
}

TEST_F(NetDBManagerTest, DestructorAfterStopFindsNothingToStop) {
  InitializeAndStart();
  ASSERT_TRUE(module->Stop());
  log.Clear();
  module.reset();
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(NetDBManagerTest, DestructorStopsARunningWorker) {
  InitializeAndStart();
  EXPECT_TRUE(Handle(Connection()));
  log.Clear();
  module.reset();
  EXPECT_EQ(log.Count("ryl_netdb.StopTurnsOff"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 1);
  EXPECT_EQ(Velmar::Sim::ListFiles(), (Lines{"/data/netdb/1699920000.db", "/data/netdb/cache.4.db"}));
}

TEST_F(NetDBManagerTest, ApplySettingsWithoutAChangeOfTheSwitchDoesNothingMore) {
  InitializeAndStart();
  void* const worker = Access::GetWorkerThread(Manager());
  log.Clear();
  policy.values[PolicyKey::kKeepPrivateAddresses] = 1;
  module->ApplySettings(&policy);
  EXPECT_TRUE(Settings().keep_private_addresses.Get());
  EXPECT_EQ(Access::GetWorkerThread(Manager()), worker);
  EXPECT_EQ(log.Count("ryl_netdb.EnabledChanged"), 0);
}

TEST_F(NetDBManagerTest, ApplySettingsStopsAndStartsTheWorker) {
  InitializeAndStart();
  log.Clear();
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Arguments("ryl_netdb.EnabledChanged"), (Lines{"Activated", "Deactivated"}));
  EXPECT_EQ(log.Count("ryl_netdb.StoppingWorker"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.StopTurnsOff"), 0);
  EXPECT_EQ(Access::GetWorkerThread(Manager()), nullptr);
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);

  log.Clear();
  policy.values[PolicyKey::kNetdbEnabled] = 1;
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Arguments("ryl_netdb.EnabledChanged"), (Lines{"Deactivated", "Activated"}));
  EXPECT_EQ(log.Count("ryl_netdb.StartingWorker"), 1);
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
  EXPECT_EQ(host.Threads().size(), 2U);
}

TEST_F(NetDBManagerTest, BadSizeThatComesWithTheSwitchOffStillStops) {
  InitializeAndStart();
  log.Clear();
  policy.values = {{PolicyKey::kNetdbEnabled, 0}, {PolicyKey::kMaxDbSize, 1}};
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Count("ryl_netdb.ApplySettingsFailed"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.SettingMaxDbSizeRefused"), 1);
  EXPECT_EQ(Access::GetWorkerThread(Manager()), nullptr);
  EXPECT_EQ(Settings().max_db_size.Get(), 0x8000000U);
}

TEST_F(NetDBManagerTest, BadSizeThatComesWithTheSwitchOnStillStarts) {
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  InitializeAndStart();
  policy.values = {{PolicyKey::kNetdbEnabled, 1}, {PolicyKey::kMaxDbSize, 1}};
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Count("ryl_netdb.ApplySettingsFailed"), 1);
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
}

TEST_F(NetDBManagerTest, NullPolicyChangesNothing) {
  InitializeAndStart();
  log.Clear();
  module->ApplySettings(nullptr);
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.NoSettingsSource", "3 ryl_netdb.ApplySettingsFailed"}));
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
}

TEST_F(NetDBManagerTest, FailedRestartEndsQuietlyAndLeavesTheModuleOff) {
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  InitializeAndStart();
  host.givesThreads = false;
  log.Clear();
  policy.values[PolicyKey::kNetdbEnabled] = 1;
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.WorkerThreadNotCreated", "3 ryl_netdb.StopTurnsOff",
                                 "3 ryl_netdb.RestartWorkerFailed"}));
  EXPECT_FALSE(Settings().netdb_enabled.Get());
}

TEST_F(NetDBManagerTest, ApplySettingsAfterStopCannotStart) {
  InitializeAndStart();
  ASSERT_TRUE(module->Stop());
  log.Clear();
  module->ApplySettings(&policy);
  EXPECT_EQ(log.Lines(3),
            (Lines{"5 ryl_netdb.WorkerWithoutHost", "3 ryl_netdb.StopTurnsOff", "3 ryl_netdb.RestartWorkerFailed"}));
  EXPECT_FALSE(Settings().netdb_enabled.Get());
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
}

TEST_F(NetDBManagerTest, ChangeOfTheFilterTakesEffectAtTheNextEvent) {
  InitializeAndStart();
  EXPECT_TRUE(Handle(Connection("10.0.0.1")));
  policy.values[PolicyKey::kKeepPrivateAddresses] = 1;
  module->ApplySettings(&policy);
  EXPECT_TRUE(Handle(Connection("10.0.0.2")));
  ASSERT_TRUE(module->Stop());
  EXPECT_EQ(log.Arguments("ryl_netdb.MessagesStored")[0], "1");
}

// A host of the Itanium C++ ABI finds the operations by their place in the table, the destructor in two places.
TEST_F(NetDBManagerTest, OperationsStandInTheirOrder) {
  Interface* const object = module.get();
  void* const* table = *reinterpret_cast<void* const**>(object);
  const auto constant = [&](int slot) { return reinterpret_cast<bool (*)(Interface*)>(table[slot])(object); };

  EXPECT_FALSE(reinterpret_cast<bool (*)(Interface*, const void*, void*)>(table[0])(object, nullptr, nullptr));
  EXPECT_EQ(log.Count("ryl_netdb.NullEvent"), 1);
  EXPECT_TRUE(constant(1));
  EXPECT_FALSE(constant(2));
  EXPECT_EQ(log.Count("ryl_netdb.StartWithoutHost"), 1);
  EXPECT_TRUE(constant(3));
  EXPECT_TRUE(constant(4));
  EXPECT_TRUE(constant(7));
  SubscribedEvents events;
  reinterpret_cast<void (*)(Interface*, SubscribedEvents&)>(table[8])(object, events);
  EXPECT_EQ(events.count, 16U);
  SubscribedEvents again;
  EXPECT_EQ(reinterpret_cast<SubscribedEvents* (*)(Interface*, SubscribedEvents&)>(table[9])(object, again), &again);
  EXPECT_NE(reinterpret_cast<void* (*)(Interface*, i32)>(table[10])(object, 1007), nullptr);
  EXPECT_FALSE(reinterpret_cast<bool (*)(Interface*, void*, void*)>(table[11])(object, nullptr, nullptr));
  EXPECT_EQ(log.Count("ryl_netdb.InitializeWithoutHost"), 1);
  EXPECT_TRUE(constant(12));
  EXPECT_TRUE(reinterpret_cast<bool (*)(Interface*, void*)>(table[13])(object, nullptr));
  EXPECT_EQ(log.Count("ryl_netdb.NoTree"), 1);
  EXPECT_FALSE(reinterpret_cast<bool (*)(Interface*, void*, void*)>(table[14])(object, nullptr, nullptr));
  EXPECT_EQ(log.Count("ryl_netdb.NoTree"), 2);
  EXPECT_EQ(reinterpret_cast<u32 (*)(Interface*)>(table[15])(object), 0U);
  EXPECT_FALSE(constant(16));
  reinterpret_cast<void (*)(Interface*, void*)>(table[6])(object, nullptr);
  EXPECT_EQ(log.Count("ryl_netdb.ApplySettingsFailed"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.StopTurnsOff"), 0);
  EXPECT_TRUE(constant(5));
  EXPECT_EQ(log.Count("ryl_netdb.StopTurnsOff"), 1);
  reinterpret_cast<void (*)(Interface*)>(table[18])(module.release());
}

}  // namespace
}  // namespace RYL::Module
