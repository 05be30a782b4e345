#include "common/libryl_netdb/FilterSchedule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "platform/sim/Sim.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogCapture.h"

namespace RYL::Module {

struct FilterScheduleTestAccess {
  static std::atomic<u8>& State(FilterSchedule& schedule) { return schedule.filter_state; }
  static void* Thread(const FilterSchedule& schedule) { return schedule.filter_thread; }
  static u64 NextTime(const FilterSchedule& schedule) { return schedule.next_filter_time; }
  static u64 Backoff(const FilterSchedule& schedule) { return schedule.filter_backoff; }
};

namespace {

using Access = FilterScheduleTestAccess;
using Lines = std::vector<std::string>;

constexpr u64 kStartMs = 1700000000000;
constexpr u32 kSeed = 42;

// What the steps do; one test runs in one process at a time.
struct Script {
  bool findSucceeds = true;
  bool fileExists = true;
  u8 jobResult = FilterState::kDone;
  int finds = 0;
  std::string folder;
  std::string jobFile;
  NetDB::CloudStatus<NetDB::IPv4>* jobCloud = nullptr;
  u8 stateOnEntry = 0xFF;
  Velmar::OS::Event* hold = nullptr;  // the job ends when this is signalled
};
Script* script = nullptr;

bool FindFile(const char* folder, Velmar::Utils::String& path, bool& found) {
  ++script->finds;
  script->folder = folder;
  found = script->fileExists;
  return script->findSucceeds && path.SetFormat("%s/%s", folder, "1699833600.db");
}

void Job(void* context) {
  auto* job = static_cast<FilterJobContext*>(context);
  script->stateOnEntry = job->status->exchange(FilterState::kRunning);
  script->jobFile = job->file->text;
  script->jobCloud = job->cloud;
  if (script->hold != nullptr) {
    script->hold->Wait(1000000);
  }
  job->status->exchange(script->jobResult);
}

class FilterScheduleTest : public ::testing::Test {
 protected:
  FilterScheduleTest() {
    Velmar::Sim::Reset();
    script = &steps;
  }
  // One turn at the present time, the job that it starts included.
  void Turn(bool cloud = true) {
    schedule.Advance(Now(), cloud);
    void* thread = Access::Thread(schedule);
    while (thread != nullptr && steps.hold == nullptr && Access::State(schedule) < FilterState::kDone) {
      std::this_thread::yield();
    }
  }
  static u64 Now() { return Velmar::OS::Time::GetEpochTime(nullptr); }

  LogCapture log;
  FakeHost host;
  Script steps;
  FilterScheduleParts Parts(const FilterJobSteps& jobSteps) {
    return {.host = &host, .folder = "/data/netdb", .cloud = &verdicts, .db = &db, .steps = jobSteps};
  }

  NetDB::CloudStatus<NetDB::IPv4> verdicts;
  NetDB::DBManager db;
  FilterSchedule schedule{Parts({&FindFile, &Job}), kSeed};
};

TEST_F(FilterScheduleTest, WithoutJitterTheFirstJobStartsAtOnce) {
  schedule.Begin(false);
  EXPECT_EQ(Access::NextTime(schedule), kStartMs);
  EXPECT_EQ(log.Lines(1), Lines{"1 ryl_netdb.FirstFilterTime"});
  EXPECT_TRUE(schedule.IsIdle());
  Turn();
  EXPECT_EQ(steps.jobFile, "/data/netdb/1699833600.db");
  EXPECT_EQ(steps.jobCloud, &verdicts);
  EXPECT_EQ(steps.stateOnEntry, FilterState::kLaunched);
  EXPECT_EQ(steps.folder, "/data/netdb");
  ASSERT_EQ(host.Threads().size(), 1U);
  EXPECT_EQ(host.Threads()[0].moduleNumber, 41U);
  EXPECT_EQ(host.Threads()[0].label, "fiterWorker");
  EXPECT_EQ(log.Arguments("ryl_netdb.FilterJobStarts"), Lines{"1699833600.db"});
  EXPECT_EQ(log.Lines()[0], "2 ryl_netdb.FilterJobStarts");
}

TEST_F(FilterScheduleTest, JitterDelaysTheFirstJobByUpToTwoHours) {
  u64 smallest = ~u64{0};
  u64 largest = 0;
  for (u32 seed = 0; seed < 200; ++seed) {
    FilterSchedule one(Parts({}), seed);
    one.Begin(true);
    const u64 delay = Access::NextTime(one) - kStartMs;
    ASSERT_LE(delay, 7200000U);
    smallest = std::min(smallest, delay);
    largest = std::max(largest, delay);
  }
  EXPECT_LT(smallest, 360000U);
  EXPECT_GT(largest, 6840000U);
}

TEST_F(FilterScheduleTest, NothingStartsBeforeItsTime) {
  schedule.Begin(false);
  schedule.Advance(kStartMs - 1, true);
  EXPECT_EQ(steps.finds, 0);
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(steps.finds, 1);
}

TEST_F(FilterScheduleTest, NoCloudNoJobAndTheScheduleStays) {
  schedule.Begin(false);
  log.Clear();
  Turn(false);
  Velmar::Sim::AdvanceTime(86400000);
  Turn(false);
  EXPECT_EQ(steps.finds, 0);
  EXPECT_TRUE(schedule.IsIdle());
  EXPECT_EQ(Access::NextTime(schedule), kStartMs);
  EXPECT_TRUE(log.Entries().empty());
  Turn(true);
  EXPECT_EQ(host.Threads().size(), 1U);
}

TEST_F(FilterScheduleTest, FailedSearchIsTriedAgainNextTurn) {
  steps.findSucceeds = false;
  schedule.Begin(false);
  Turn();
  Turn();
  EXPECT_EQ(steps.finds, 2);
  EXPECT_EQ(log.Lines(), (Lines{"5 ryl_netdb.FilterFileNotFound", "5 ryl_netdb.FilterFileNotFound"}));
  EXPECT_TRUE(schedule.IsIdle());
  EXPECT_EQ(Access::NextTime(schedule), kStartMs);
}

TEST_F(FilterScheduleTest, NoFileIsTriedAgainNextTurn) {
  steps.fileExists = false;
  schedule.Begin(false);
  Turn();
  Turn();
  EXPECT_EQ(steps.finds, 2);
  EXPECT_EQ(log.Lines(), (Lines{"2 ryl_netdb.NoFileToFilter", "2 ryl_netdb.NoFileToFilter"}));
  EXPECT_TRUE(schedule.IsIdle());
}

TEST_F(FilterScheduleTest, RunningJobIsOnlyLogged) {
  Velmar::OS::Event hold(false);
  steps.hold = &hold;
  schedule.Begin(false);
  schedule.Advance(kStartMs, true);
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_FALSE(schedule.IsIdle());
  log.Clear();
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(log.Lines(1), Lines{"1 ryl_netdb.FilterJobRuns"});
  EXPECT_EQ(log.Arguments("ryl_netdb.FilterJobRuns"), Lines{"1"});
  Access::State(schedule) = FilterState::kLaunched;
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(log.Arguments("ryl_netdb.FilterJobRuns"), Lines{"0"});
  EXPECT_EQ(host.Threads().size(), 1U);
  hold.Signal();
  schedule.WaitForJob();
}

TEST_F(FilterScheduleTest, UnknownStateDoesNothing) {
  schedule.Begin(false);
  log.Clear();
  Access::State(schedule) = 5;
  schedule.Advance(kStartMs, true);
  EXPECT_TRUE(log.Entries().empty());
  EXPECT_EQ(steps.finds, 0);
  EXPECT_EQ(Access::State(schedule), 5);
}

TEST_F(FilterScheduleTest, GoodJobIsFollowedBySixToEightHours) {
  schedule.Begin(false);
  Turn();
  EXPECT_FALSE(schedule.IsIdle());
  Velmar::Sim::AdvanceTime(1000);
  log.Clear();
  // The pause counts from a fresh reading of the clock, not from the turn's time.
  schedule.Advance(0, true);
  EXPECT_TRUE(schedule.IsIdle());
  const u64 pause = Access::NextTime(schedule) - (kStartMs + 1000);
  EXPECT_GE(pause, 21600000U);
  EXPECT_LE(pause, 21600000U + 7200000U);
  EXPECT_EQ(log.Lines(1), Lines{"1 ryl_netdb.FilterJobDone"});
  EXPECT_EQ(log.Arguments("ryl_netdb.FilterJobDone"), Lines{std::to_string(Access::NextTime(schedule))});
}

TEST_F(FilterScheduleTest, FinishedJobIsJoinedInTheIdleState) {
  schedule.Begin(false);
  Turn();
  Turn();
  EXPECT_NE(Access::Thread(schedule), nullptr);
  Turn();
  EXPECT_EQ(Access::Thread(schedule), nullptr);
  EXPECT_EQ(host.Threads().size(), 1U);
}

TEST_F(FilterScheduleTest, BackoffDoublesToADayAndOneGoodJobResetsIt) {
  steps.jobResult = FilterState::kFailed;
  schedule.Begin(false);
  for (const u64 backoff :
       {1800000U, 3600000U, 7200000U, 14400000U, 28800000U, 57600000U, 86400000U, 86400000U, 86400000U}) {
    SCOPED_TRACE(backoff);
    EXPECT_EQ(Access::Backoff(schedule), backoff);
    Turn();
    log.Clear();
    const u64 now = Now();
    Turn();
    EXPECT_EQ(log.Lines(1), Lines{"3 ryl_netdb.FilterJobFailed"});
    EXPECT_TRUE(schedule.IsIdle());
    const u64 pause = Access::NextTime(schedule) - now;
    EXPECT_GE(pause, backoff);
    EXPECT_LE(pause, backoff + 1800000);
    Velmar::Sim::AdvanceTime(pause);
  }
  steps.jobResult = FilterState::kDone;
  Turn();
  Turn();
  EXPECT_EQ(Access::Backoff(schedule), 1800000U);
}

TEST_F(FilterScheduleTest, NoThreadCountsAsAFailedJob) {
  host.givesThreads = false;
  schedule.Begin(false);
  log.Clear();
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(log.Lines(3), Lines{});
  EXPECT_EQ(Access::State(schedule), FilterState::kFailed);
  EXPECT_EQ(Access::Thread(schedule), nullptr);
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(log.Lines(3), Lines{"3 ryl_netdb.FilterJobFailed"});
  EXPECT_EQ(Access::Backoff(schedule), 3600000U);
}

TEST_F(FilterScheduleTest, OldestUnfilteredFileButTodaysIsTheNext) {
  FilterSchedule real(Parts({.job = &Job}), kSeed);
  real.Begin(false);
  Velmar::Sim::PutFile("/data/netdb/1699920000.db", "today");
  Velmar::Sim::PutFile("/data/netdb/1699660800.db.f", "filtered");
  real.Advance(kStartMs, true);
  EXPECT_EQ(log.Lines(), Lines{"2 ryl_netdb.NoFileToFilter"});
  Velmar::Sim::PutFile("/data/netdb/1699833600.db", "newer");
  Velmar::Sim::PutFile("/data/netdb/1699747200.db", "older");
  real.Advance(kStartMs, true);
  real.WaitForJob();
  EXPECT_EQ(steps.jobFile, "/data/netdb/1699747200.db");
}

// The day before the present one is still open when no event of today has come.
class OpenDayTest : public FilterScheduleTest {
 protected:
  OpenDayTest() {
    NetDB::BacklogMessage message;
    message.address = 0x09080706;
    message.timestamp = 1699833600 + 5;
    EXPECT_TRUE(Velmar::OS::FileSystem::CreateDirectory("/data/netdb"));
    EXPECT_TRUE(db.SetFolder("/data/netdb"));
    EXPECT_TRUE(db.Add(message, nullptr));
    schedule.Begin(false);
    log.Clear();
  }
};

TEST_F(OpenDayTest, IsDumpedBeforeItsFileIsHandedOut) {
  schedule.Advance(kStartMs, true);
  schedule.WaitForJob();
  EXPECT_EQ(steps.jobFile, "/data/netdb/1699833600.db");
  const Lines lines = log.Names(1);
  const auto dumped = std::find(lines.begin(), lines.end(), "netdb_storage.DayDumped");
  EXPECT_LT(dumped, std::find(lines.begin(), lines.end(), "ryl_netdb.FilterJobStarts"));
  EXPECT_GT(Velmar::Sim::ModificationTime("/data/netdb/1699833600.db"), 0U);
}

TEST_F(OpenDayTest, ThatCannotBeDumpedIsNotHandedOut) {
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kCreate, 0, Velmar::Sim::Fault::kFail, 5);
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.FilterFileNotFlushed");
  EXPECT_EQ(log.Arguments("ryl_netdb.FilterFileNotFlushed"), Lines{"/data/netdb/1699833600.db"});
  EXPECT_TRUE(schedule.IsIdle());
  EXPECT_TRUE(host.Threads().empty());
  schedule.Advance(kStartMs, true);
  EXPECT_EQ(host.Threads().size(), 1U);
  schedule.WaitForJob();
}

TEST_F(OpenDayTest, StaysInMemoryWhenTheFileIsOfAnotherDay) {
  Velmar::Sim::PutFile("/data/netdb/1699747200.db", "older");
  FilterSchedule real(Parts({.job = &Job}), kSeed);
  real.Begin(false);
  real.Advance(kStartMs, true);
  real.WaitForJob();
  EXPECT_EQ(steps.jobFile, "/data/netdb/1699747200.db");
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 0);
}

TEST_F(FilterScheduleTest, WaitForJobJoinsWithALog) {
  schedule.WaitForJob();
  EXPECT_TRUE(log.Entries().empty());
  Velmar::OS::Event hold(false);
  steps.hold = &hold;
  schedule.Begin(false);
  schedule.Advance(kStartMs, true);
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  log.Clear();
  hold.Signal();
  schedule.WaitForJob();
  EXPECT_EQ(log.Lines(1), Lines{"3 ryl_netdb.WaitingForFilterJob"});
  EXPECT_EQ(Access::Thread(schedule), nullptr);
  EXPECT_EQ(Access::State(schedule), FilterState::kDone);
}

}  // namespace
}  // namespace RYL::Module
