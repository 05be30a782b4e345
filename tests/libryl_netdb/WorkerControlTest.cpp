// Start and stop of the worker.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/Log.h"
#include "common/libryl_netdb/ModuleLog.h"
#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;

class WorkerControlTest : public ModuleTest {
 protected:
  // An initialised module with services, on a counting allocator for the worker's own parts.
  WorkerControlTest() {
    EXPECT_TRUE(Initialize());
    log.Clear();
  }
  void ExpectNothingLeft() {
    EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
    EXPECT_EQ(Access::GetWakeEvent(Manager()), nullptr);
    EXPECT_EQ(Access::GetWorkerThread(Manager()), nullptr);
    EXPECT_FALSE(Settings().netdb_enabled.Get());
  }
};

TEST_F(WorkerControlTest, SecondStartIsRefusedAndLeavesTheFirst) {
  ASSERT_TRUE(Access::StartWorker(Manager()));
  void* const worker = Access::GetWorkerThread(Manager());
  log.Clear();
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(3), Lines{"5 ryl_netdb.WorkerExists"});
  EXPECT_EQ(Access::GetWorkerThread(Manager()), worker);
  EXPECT_TRUE(Settings().netdb_enabled.Get());
}

TEST_F(WorkerControlTest, DisabledModuleDoesNotStart) {
  Settings().netdb_enabled.Set(false);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.WorkerDisabled"});
}

TEST_F(WorkerControlTest, NoMemoryForTheQueueFails) {
  for (const u64 failing : {0U, 1U}) {
    CountingAllocator memory;
    Velmar::Collections::SetModuleAllocator(&memory);
    Settings().netdb_enabled.Set(true);
    log.Clear();
    memory.FailFrom(failing);
    EXPECT_FALSE(Access::StartWorker(Manager()));
    EXPECT_EQ(log.Names(3).back(), "ryl_netdb.StopTurnsOff");
    EXPECT_EQ(log.Count("ryl_netdb.BacklogNotCreated"), 1);
    ExpectNothingLeft();
    EXPECT_EQ(memory.Out(), 0U);
    Velmar::Collections::SetModuleAllocator(nullptr);
  }
}

TEST_F(WorkerControlTest, NoLockForTheQueueFails) {
  Velmar::Sim::FailMutexCreate(1);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(3),
            (Lines{"5 ryl_netdb.BacklogNoLock", "5 ryl_netdb.BacklogNotCreated", "3 ryl_netdb.StopTurnsOff"}));
  ExpectNothingLeft();
}

TEST_F(WorkerControlTest, NoMemoryForTheSignalFails) {
  CountingAllocator memory;
  Velmar::Collections::SetModuleAllocator(&memory);
  memory.FailFrom(2);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.WakeEventNotCreated", "3 ryl_netdb.StopTurnsOff"}));
  ExpectNothingLeft();
  EXPECT_EQ(memory.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

TEST_F(WorkerControlTest, SystemWithoutSignalFails) {
  Velmar::Sim::FailEventCreate(1);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.WakeEventNotCreated", "3 ryl_netdb.StopTurnsOff"}));
  ExpectNothingLeft();
}

TEST_F(WorkerControlTest, NoThreadFails) {
  host.givesThreads = false;
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.WorkerThreadNotCreated", "3 ryl_netdb.StopTurnsOff"}));
  ExpectNothingLeft();
  // Nothing of the failed start is in the way of the next.
  host.givesThreads = true;
  Settings().netdb_enabled.Set(true);
  EXPECT_TRUE(Access::StartWorker(Manager()));
}

// The last thing that a start takes from the base library's memory.
TEST_F(WorkerControlTest, NoMemoryForTheFoldersNameFails) {
  const u64 before = Velmar::Sim::CountAllocations();
  host.givesThreads = false;
  EXPECT_FALSE(Access::StartWorker(Manager()));
  const u64 needed = Velmar::Sim::CountAllocations() - before;
  // Another folder, as the first name's memory stays for the next.
  Access::GetPath(Manager()).Set(std::string(200, 'x').c_str());
  host.givesThreads = true;
  Settings().netdb_enabled.Set(true);
  log.Clear();
  Velmar::Sim::FailAllocation(needed - 1);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.WorkerPathNotCopied", "3 ryl_netdb.StopTurnsOff"}));
  ExpectNothingLeft();
  EXPECT_EQ(host.Threads().size(), 1U);
}

TEST_F(WorkerControlTest, StopWithoutWorkerTurnsTheModuleOff) {
  Access::StopWorker(Manager());
  EXPECT_EQ(log.Lines(1), Lines{"3 ryl_netdb.StopTurnsOff"});
  ExpectNothingLeft();
  log.Clear();
  Access::StopWorker(Manager());
  EXPECT_TRUE(log.Entries().empty());
}

// Gives a thread that stops the module instead of working for it. A thread cannot wait for its own end.
class SelfStoppingHost : public FakeHost {
 public:
  explicit SelfStoppingHost(NetDBManager& module) : manager(module) {}
  void* CreateThread(u32, void (*)(void*), void*, const char* label) override {
    return Velmar::OS::Threading::StartThread(&SelfStoppingHost::StopModule, this, label);
  }
  std::atomic<bool> begin{false};
  std::atomic<bool> stopped{false};

 private:
  static void StopModule(void* context) {
    auto* self = static_cast<SelfStoppingHost*>(context);
    while (!self->begin) {
      std::this_thread::yield();
    }
    NetDBManagerTestAccess::StopWorker(self->manager);
    self->stopped = true;
  }
  NetDBManager& manager;
};

TEST_F(WorkerControlTest, StopThatCannotWaitIsLoggedAndTheNextStopWaits) {
  SelfStoppingHost stopping(Manager());
  Access::SetHost(Manager(), &stopping);
  ASSERT_TRUE(Access::StartWorker(Manager()));
  log.Clear();
  stopping.begin = true;
  while (!stopping.stopped) {
    std::this_thread::yield();
  }
  EXPECT_EQ(log.Lines(3), (Lines{"3 ryl_netdb.StopTurnsOff", "3 ryl_netdb.StopNotAwaited"}));
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
  EXPECT_EQ(Access::GetWakeEvent(Manager()), nullptr);
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
  log.Clear();
  EXPECT_TRUE(module->Stop());
  EXPECT_EQ(log.Lines(3), Lines{"3 ryl_netdb.StopNotSignalled"});
  EXPECT_EQ(Access::GetWorkerThread(Manager()), nullptr);
}

TEST_F(WorkerControlTest, StopFreesTheQueueWhenIntakeIsThroughWithIt) {
  // No worker holds the stop up: its thread ended on a folder that is not there.
  Access::GetPath(Manager()).Set("/nowhere");
  ASSERT_TRUE(Access::StartWorker(Manager()));
  std::thread control;
  {
    const IntakeGate::Passage passage(Access::GetGate(Manager()));
    control = std::thread([this] { Access::StopWorker(Manager()); });
    while (log.Count("ryl_netdb.StopTurnsOff") == 0) {
      std::this_thread::yield();
    }
    for (int i = 0; i < 2000; ++i) {
      std::this_thread::yield();
    }
    EXPECT_NE(Access::GetBacklog(Manager()), nullptr);
    EXPECT_NE(Access::GetWakeEvent(Manager()), nullptr);
  }
  control.join();
  ExpectNothingLeft();
}

// Holds each thread that logs EventStamped, which comes between intake's two readings of the switch.
class HeldIntake {
 public:
  HeldIntake() {
    reached = false;
    released = false;
    disabled = 0;
    Velmar::Log::fnLogCallback = &Receive;
  }
  ~HeldIntake() { Velmar::Log::fnLogCallback = nullptr; }

  static std::atomic<bool> reached;
  static std::atomic<bool> released;
  static std::atomic<int> disabled;  // records of a refusal

 private:
  static void Receive(const Velmar::Log::Record& record, std::va_list) {
    if (record.messageId == Messages::ryl_netdb::EventStamped::kId) {
      reached = true;
      while (!released) {
        std::this_thread::yield();
      }
    }
    disabled += record.messageId == Messages::ryl_netdb::ModuleDisabled::kId ? 1 : 0;
  }
};
std::atomic<bool> HeldIntake::reached{false};
std::atomic<bool> HeldIntake::released{false};
std::atomic<int> HeldIntake::disabled{0};

TEST_F(WorkerControlTest, EventOvertakenByAStopIsRefusedAsDisabled) {
  const HeldIntake held;
  ASSERT_TRUE(module->Start());
  bool result = false;
  std::thread intake([&] { result = Handle(Connection()); });
  while (!HeldIntake::reached) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(module->Stop());
  HeldIntake::released = true;
  intake.join();
  EXPECT_TRUE(result);
  EXPECT_EQ(HeldIntake::disabled, 1);
  EXPECT_TRUE(Velmar::Sim::ListFiles().empty());
}

// Counts what intake accepted: true from HandleEvent, without the record of a refusal on the way.
class AcceptedEvents {
 public:
  AcceptedEvents() { Velmar::Log::fnLogCallback = &Receive; }
  ~AcceptedEvents() { Velmar::Log::fnLogCallback = nullptr; }

  void Handle(Interface& module, const EventBuilder::Bytes& event) {
    refused = false;
    const bool handled = module.HandleEvent(event.data(), nullptr);
    if (handled && !refused) {
      accepted.fetch_add(1);
    }
  }
  std::atomic<u64> accepted{0};

 private:
  static void Receive(const Velmar::Log::Record& record, std::va_list) {
    refused = refused || record.messageId == Messages::ryl_netdb::ModuleDisabled::kId;
  }
  static thread_local bool refused;
};
thread_local bool AcceptedEvents::refused = false;

u64 StoredConnections(Interface& module) {
  u64 total = 0;
  auto* query = static_cast<Comm::Interfaces::INetDBQuery*>(module.QueryInterface(1007));
  EXPECT_TRUE(query->Iterate(
      [](const Comm::Interfaces::INetDBQuery::Record& row, void* context) {
        *static_cast<u64*>(context) += row.conns_total;
        return true;
      },
      &total, 0, ~u64{0}));
  return total;
}

TEST_F(WorkerControlTest, NothingAcceptedIsLostWhenTheSwitchChangesBesideIntake) {
  constexpr int kToggles = 1000;
  constexpr int kThreads = 4;
  host.hasLookup = false;
  AcceptedEvents events;
  ASSERT_TRUE(module->Start());
  std::atomic<bool> done{false};
  std::vector<std::thread> intake;
  for (int thread = 0; thread < kThreads; ++thread) {
    intake.emplace_back([&, thread] {
      const auto event = Connection("203.0.113." + std::to_string(thread)).Build();
      while (!done) {
        events.Handle(*module, event);
        std::this_thread::yield();
      }
    });
  }
  for (int toggle = 1; toggle <= kToggles; ++toggle) {
    policy.values[PolicyKey::kNetdbEnabled] = static_cast<u64>(1 - toggle % 2);
    // Most stops come when the worker is at work, and a few before it is.
    const u64 before = events.accepted;
    while (toggle % 2 == 1 && toggle % 10 != 1 && events.accepted - before < static_cast<u64>(toggle % 8)) {
      std::this_thread::yield();
    }
    module->ApplySettings(&policy);
  }
  // The count of toggles is even: the worker runs, and Stop comes beside intake too.
  EXPECT_TRUE(module->Stop());
  done = true;
  for (std::thread& thread : intake) {
    thread.join();
  }
  EXPECT_GT(events.accepted, 0U);
  EXPECT_EQ(StoredConnections(*module), events.accepted);
}

}  // namespace
}  // namespace RYL::Module
