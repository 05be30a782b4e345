// The worker's turns, on the module's own thread and under virtual time.
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/libryl_netdb/ModuleFixture.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;
using Velmar::Sim::AdvanceTime;
using Velmar::Sim::WaitUntilWaiting;

class WorkerLoopTest : public ModuleTest {
 protected:
  static constexpr const char* kFile = "/data/netdb/1699920000.db";

  void StartIdle() {
    InitializeAndStart();
    ASSERT_TRUE(WaitUntilWaiting(1));
    log.Clear();
  }
  // Lets the worker's next turn come by time-out, and end.
  void NextTurn() {
    AdvanceTime(60000);
    ASSERT_TRUE(WaitUntilWaiting(1));
  }
  int Turns() { return log.Count("ryl_netdb.WorkerTurn"); }
  int Checks() { return log.Count("ryl_netdb.FootprintChecked"); }
  // A dump of an open day, or of none: either way the worker asked for one.
  int Dumps() { return log.Count("netdb_storage.NothingToDump") + log.Count("netdb_storage.DumpNotNeeded"); }
};

TEST_F(WorkerLoopTest, TurnComesAfterAMinuteWithoutTraffic) {
  StartIdle();
  EXPECT_EQ(Turns(), 0);
  AdvanceTime(59999);
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(Turns(), 0);
  AdvanceTime(1);
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(Turns(), 1);
  EXPECT_EQ(std::stod(log.Arguments("ryl_netdb.WorkerTurn")[0]), 60.0);
}

TEST_F(WorkerLoopTest, EventWakesTheWorkerAtOnce) {
  StartIdle();
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(Turns(), 1);
  EXPECT_EQ(log.Arguments("ryl_netdb.MessagesStored")[0], "1");
  EXPECT_GT(Velmar::Sim::ModificationTime(kFile), 0U);
}

TEST_F(WorkerLoopTest, FirstTurnDumps) {
  StartIdle();
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 1);
}

TEST_F(WorkerLoopTest, GapOfExactlyTheIntervalDoesNotDump) {
  StartIdle();
  NextTurn();
  EXPECT_EQ(Dumps(), 1);
  NextTurn();
  EXPECT_EQ(Turns(), 2);
  EXPECT_EQ(Dumps(), 1);
  NextTurn();
  EXPECT_EQ(Dumps(), 2);
}

TEST_F(WorkerLoopTest, GapOfOneMillisecondMoreDumps) {
  StartIdle();
  NextTurn();
  EXPECT_EQ(Dumps(), 1);
  Settings().db_dump_interval.Set(59999);
  NextTurn();
  EXPECT_EQ(Dumps(), 2);
}

TEST_F(WorkerLoopTest, FailedDumpIsTriedAgainNextTurn) {
  StartIdle();
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kCreate, 0, Velmar::Sim::Fault::kFail, 5);
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Count("ryl_netdb.DumpFailed"), 1);
  EXPECT_EQ(log.Count("netdb_storage.SaveFailed"), 5);
  // Any signal gives a turn; the interval has not passed.
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Count("ryl_netdb.DumpFailed"), 1);
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 1);
}

TEST_F(WorkerLoopTest, FirstTurnChecksTheFolder) {
  policy.values = {{PolicyKey::kMaxDbSize, 0x40000}, {PolicyKey::kMaxDbDays, 30}};
  Velmar::Sim::PutFile("/data/netdb/1699833600.db", std::string(0x20000, 'x'));
  Velmar::Sim::PutFile("/data/netdb/1699747200.db.f", std::string(0x20000, 'x'));
  Velmar::Sim::PutFile("/data/netdb/1699660800.db", std::string(0x20000, 'x'));
  StartIdle();
  NextTurn();
  EXPECT_EQ(log.Arguments("ryl_netdb.FootprintChecked"), (Lines{"262144", "30"}));
  EXPECT_EQ(Velmar::Sim::ListFiles(), (Lines{"/data/netdb/1699747200.db.f", "/data/netdb/1699833600.db"}));
}

TEST_F(WorkerLoopTest, ChecksAreMoreThanAnHourApart) {
  StartIdle();
  NextTurn();
  EXPECT_EQ(Checks(), 1);
  for (int minute = 1; minute <= 60; ++minute) {
    NextTurn();
  }
  EXPECT_EQ(Turns(), 61);
  EXPECT_EQ(Checks(), 1);
  NextTurn();
  EXPECT_EQ(Checks(), 2);
  AdvanceTime(3600001);
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(Checks(), 3);
}

TEST_F(WorkerLoopTest, FailedCheckIsTriedAgainNextTurn) {
  StartIdle();
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kEnumerate, 0, Velmar::Sim::Fault::kFail, 2);
  NextTurn();
  NextTurn();
  EXPECT_EQ(log.Count("ryl_netdb.FootprintCheckFailed"), 2);
  EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.FootprintCheckFailed");
  EXPECT_EQ(Checks(), 0);
  NextTurn();
  EXPECT_EQ(Checks(), 1);
  NextTurn();
  EXPECT_EQ(Checks(), 1);
  EXPECT_EQ(log.Count("ryl_netdb.FootprintCheckFailed"), 2);
}

TEST_F(WorkerLoopTest, NewLimitsHoldFromTheNextCheck) {
  StartIdle();
  NextTurn();
  policy.values = {{PolicyKey::kMaxDbSize, 0x50000}, {PolicyKey::kMaxDbDays, 9}};
  module->ApplySettings(&policy);
  NextTurn();
  EXPECT_EQ(log.Arguments("ryl_netdb.FootprintChecked"), (Lines{"134217728", "3653"}));
  AdvanceTime(3600000);
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Arguments("ryl_netdb.FootprintChecked"), (Lines{"327680", "9"}));
}

TEST_F(WorkerLoopTest, SecondInitializeDoesNotMoveARunningWorker) {
  StartIdle();
  Velmar::OS::Path::SetVariable("P", "/elsewhere/with/a/longer/name/than/before");
  EXPECT_FALSE(Initialize());
  EXPECT_TRUE(Handle(Connection()));
  NextTurn();
  EXPECT_EQ(Checks(), 1);
  EXPECT_EQ(Velmar::Sim::ListFiles(), Lines{kFile});
}

// The file is none, which the job finds out.
TEST_F(WorkerLoopTest, WithoutJitterTheFirstTurnStartsAJobOnAnOldFile) {
  policy.values[PolicyKey::kJitterFirstFilter] = 0;
  Velmar::Sim::PutFile("/data/netdb/1699833600.db", "x");
  StartIdle();
  NextTurn();
  EXPECT_EQ(log.Arguments("ryl_netdb.FilterJobStarts"), Lines{"1699833600.db"});
  ASSERT_EQ(host.Threads().size(), 2U);
  EXPECT_EQ(host.Threads()[1].label, "fiterWorker");
  module->Stop();
  EXPECT_EQ(log.Arguments("cloud.JobFileNotOpened"), Lines{"1699833600.db"});
}

TEST_F(WorkerLoopTest, WithoutJitterAFileIsLookedForInTheFirstTurn) {
  policy.values[PolicyKey::kJitterFirstFilter] = 0;
  StartIdle();
  NextTurn();
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 1);
  NextTurn();
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 2);
  EXPECT_EQ(host.Threads().size(), 1U);
}

TEST_F(WorkerLoopTest, WithoutCloudQueriesNoFileIsLookedFor) {
  policy.values[PolicyKey::kJitterFirstFilter] = 0;
  policy.values[PolicyKey::kCloudQueryEnabled] = 0;
  StartIdle();
  NextTurn();
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 0);
  policy.values[PolicyKey::kCloudQueryEnabled] = 1;
  module->ApplySettings(&policy);
  NextTurn();
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 1);
}

TEST_F(WorkerLoopTest, JitterHoldsTheFirstSearchBackForTwoHoursAtMost) {
  StartIdle();
  AdvanceTime(7200000);
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 1);
}

TEST_F(WorkerLoopTest, NewJitterHoldsFromTheNextStart) {
  const auto apply = [this](u32 key, u64 value) {
    policy.values[key] = value;
    module->ApplySettings(&policy);
  };
  StartIdle();
  apply(PolicyKey::kJitterFirstFilter, 0);
  NextTurn();
  EXPECT_EQ(log.Count("ryl_netdb.FirstFilterTime"), 0);
  apply(PolicyKey::kNetdbEnabled, 0);
  apply(PolicyKey::kNetdbEnabled, 1);
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Arguments("ryl_netdb.FirstFilterTime"), Lines{std::to_string(kStartMs + 60000)});
}

TEST_F(WorkerLoopTest, StopStoresWhatIsQueuedAndDumps) {
  StartIdle();
  EXPECT_TRUE(Handle(Connection("203.0.113.1")));
  EXPECT_TRUE(Handle(Connection("203.0.113.2")));
  EXPECT_TRUE(module->Stop());
  std::string content;
  EXPECT_TRUE(Velmar::Sim::GetFile(kFile, content));
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 1);
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(WorkerLoopTest, StopWithAFailedSignalWaitsForTheTurn) {
  StartIdle();
  Velmar::Sim::FailEventSignal(1);
  std::thread control([this] { EXPECT_TRUE(module->Stop()); });
  while (log.Count("ryl_netdb.StopNotSignalled") == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 0);
  AdvanceTime(60000);
  control.join();
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 1);
  EXPECT_EQ(log.Lines(3)[1], "3 ryl_netdb.StopNotSignalled");
}

TEST_F(WorkerLoopTest, StopWaitsForATurnThatIsUnderWay) {
  Velmar::OS::Event hold(false);
  host.lookup.onLookup = [&hold] { hold.Wait(1000000); };
  StartIdle();
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(WaitUntilWaiting(1));
  std::thread control([this] { EXPECT_TRUE(module->Stop()); });
  while (log.Count("ryl_netdb.StopTurnsOff") == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 0);
  hold.Signal();
  control.join();
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 1);
  EXPECT_EQ(log.Arguments("ryl_netdb.MessagesStored")[0], "1");
}

TEST_F(WorkerLoopTest, RestartBeginsAnew) {
  StartIdle();
  NextTurn();
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  module->ApplySettings(&policy);
  policy.values[PolicyKey::kNetdbEnabled] = 1;
  module->ApplySettings(&policy);
  ASSERT_TRUE(WaitUntilWaiting(1));
  log.Clear();
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(WaitUntilWaiting(1));
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 1);
  EXPECT_EQ(Checks(), 1);
}

TEST_F(WorkerLoopTest, EventsWhileDisabledAreNeverQueued) {
  StartIdle();
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  module->ApplySettings(&policy);
  EXPECT_TRUE(Handle(Connection()));
  policy.values[PolicyKey::kNetdbEnabled] = 1;
  module->ApplySettings(&policy);
  ASSERT_TRUE(module->Stop());
  EXPECT_TRUE(Velmar::Sim::ListFiles().empty());
}

TEST_F(WorkerLoopTest, RefusedFolderEndsTheThreadAndIntakeFillsTheQueue) {
  ASSERT_TRUE(Initialize());
  Access::GetPath(Manager()).Set("/nowhere");
  ASSERT_TRUE(module->Start());
  while (log.Count("ryl_netdb.WorkerFolderRefused") == 0) {
    std::this_thread::yield();
  }
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
  EXPECT_TRUE(Handle(Connection()));
  EXPECT_EQ(Access::GetBacklog(Manager()).load()->GetCount(), 1U);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Count("ryl_netdb.WorkerExists"), 1);
  EXPECT_TRUE(module->Stop());
  EXPECT_EQ(Access::GetBacklog(Manager()), nullptr);
}

TEST_F(WorkerLoopTest, ExceptionEndsTheThreadAndStaysStopped) {
  host.lookup.onLookup = [] { throw std::runtime_error("look-up broke"); };
  StartIdle();
  EXPECT_TRUE(Handle(Connection()));
  while (log.Count("ryl_netdb.WorkerException") == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(log.Arguments("ryl_netdb.WorkerException"), Lines{"look-up broke"});
  EXPECT_EQ(log.Lines(5), Lines{"5 ryl_netdb.WorkerException"});
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 0);
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
  EXPECT_FALSE(Access::StartWorker(Manager()));
  EXPECT_EQ(log.Count("ryl_netdb.WorkerExists"), 1);

  host.lookup.onLookup = nullptr;
  Access::StopWorker(Manager());
  EXPECT_EQ(Access::GetWorkerThread(Manager()), nullptr);
  module->ApplySettings(&policy);
  EXPECT_NE(Access::GetWorkerThread(Manager()), nullptr);
}

}  // namespace
}  // namespace RYL::Module
