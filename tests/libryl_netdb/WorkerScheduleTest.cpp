// Days of a worker's life under virtual time, with a filter job that a test can follow.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Time.h"
#include "common/libryl_netdb/Worker.h"
#include "platform/sim/Sim.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogCapture.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;

constexpr const char* kFolder = "/data/netdb";
constexpr u64 kToday = 1699920000;
constexpr u64 kStepMs = 600000;
constexpr u64 kHourMs = 3600000;

// Gives its file the name of a filtered one, or fails.
struct ScheduledJob {
  struct Run {
    u64 startMs;
    std::string file;
  };
  static std::vector<Run> runs;
  static bool fails;
  static std::atomic<u32> ended;

  static void Entry(void* context) {
    auto* job = static_cast<FilterJobContext*>(context);
    job->status->exchange(FilterState::kRunning);
    runs.push_back({Velmar::OS::Time::GetEpochTime(nullptr), job->file->text});
    const std::string name = runs.back().file;
    const bool done = !fails && Velmar::OS::FileSystem::MoveFile(name.c_str(), (name + ".f").c_str());
    job->status->exchange(done ? FilterState::kDone : FilterState::kFailed);
    ++ended;
  }
};
std::vector<ScheduledJob::Run> ScheduledJob::runs;
bool ScheduledJob::fails = false;
std::atomic<u32> ScheduledJob::ended{0};

class WorkerScheduleTest : public ::testing::Test {
 protected:
  WorkerScheduleTest() {
    Velmar::Sim::Reset();
    ScheduledJob::runs.clear();
    ScheduledJob::fails = false;
    ScheduledJob::ended = 0;
    for (u64 age = 0; age <= 20; ++age) {
      const std::string name = std::to_string(kToday - age * 86400) + ".db";
      Velmar::Sim::PutFile(std::string(kFolder) + "/" + name, "x");
    }
    EXPECT_TRUE(backlog.Create(8, 1024, 8, true, false, Velmar::Collections::GrowType::kFixedStep));
  }
  // The worker's turns for that long, one every ten minutes.
  void Live(u64 milliseconds) {
    std::thread thread([this] {
      Worker({.host = &host,
              .event_lookup = nullptr,
              .file_hash_service = nullptr,
              .settings = &settings,
              .gate = &gate,
              .backlog = &backlog,
              .wake_event = &wake,
              .db_path = kFolder,
              .verdict_cache = &verdicts,
              .filterSteps = {.job = &ScheduledJob::Entry}})
          .Run();
    });
    EXPECT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
    for (u64 passed = 0; passed < milliseconds; passed += kStepMs) {
      Velmar::Sim::AdvanceTime(kStepMs);
      EXPECT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
      while (ScheduledJob::ended < host.Threads().size()) {
        std::this_thread::yield();
      }
    }
    settings.netdb_enabled.Set(false);
    wake.Signal();
    thread.join();
  }
  // Times between the starts of one job and the next.
  static std::vector<u64> Pauses() {
    std::vector<u64> pauses;
    for (std::size_t i = 1; i < ScheduledJob::runs.size(); ++i) {
      pauses.push_back(ScheduledJob::runs[i].startMs - ScheduledJob::runs[i - 1].startMs);
    }
    return pauses;
  }

  LogCapture log;
  FakeHost host;
  Settings settings;
  IntakeGate gate;
  NetDB::CloudStatus<NetDB::IPv4> verdicts;
  NetDB::Backlog backlog;
  Velmar::OS::Event wake{false};
};

TEST_F(WorkerScheduleTest, OldestDaysAreFilteredFirstSixToEightHoursApart) {
  const u64 began = Velmar::OS::Time::GetEpochTime(nullptr);
  Live(72 * kHourMs);
  ASSERT_GE(ScheduledJob::runs.size(), 8U);
  EXPECT_LE(ScheduledJob::runs.size(), 12U);
  EXPECT_LE(ScheduledJob::runs[0].startMs - began, 2 * kHourMs + kStepMs);
  for (const u64 pause : Pauses()) {
    // The end is seen one turn late, and the next start up to one.
    EXPECT_GE(pause, 6 * kHourMs + kStepMs);
    EXPECT_LE(pause, 8 * kHourMs + 2 * kStepMs);
  }
  for (std::size_t i = 0; i < ScheduledJob::runs.size(); ++i) {
    EXPECT_EQ(ScheduledJob::runs[i].file, "/data/netdb/" + std::to_string(kToday - (20 - i) * 86400) + ".db");
  }
}

TEST_F(WorkerScheduleTest, FolderIsCheckedEveryHourAndNeverBesideAJob) {
  Live(72 * kHourMs);
  bool jobRuns = false;
  int checks = 0;
  for (const auto& entry : log.Entries()) {
    jobRuns = (jobRuns || entry.name == "ryl_netdb.FilterJobStarts") && entry.name != "ryl_netdb.FilterJobDone";
    if (entry.name == "ryl_netdb.FootprintChecked") {
      EXPECT_FALSE(jobRuns);
      ++checks;
    }
  }
  // More than an hour apart is every seventh turn, and one turn later beside a job.
  EXPECT_GE(checks, 72 * 6 / 8);
  EXPECT_LE(checks, 72 * 6 / 7 + 1);
}

TEST_F(WorkerScheduleTest, FailingJobIsTriedLessAndLessOftenOnTheSameFile) {
  ScheduledJob::fails = true;
  settings.jitter_first_filter.Set(false);
  Live(240 * kHourMs);
  const std::vector<u64> pauses = Pauses();
  ASSERT_GE(pauses.size(), 9U);
  u64 backoff = kHourMs / 2;
  for (const u64 pause : pauses) {
    EXPECT_GE(pause, backoff + kStepMs);
    EXPECT_LE(pause, backoff + kHourMs / 2 + 2 * kStepMs);
    backoff = std::min(2 * backoff, 24 * kHourMs);
  }
  for (const ScheduledJob::Run& run : ScheduledJob::runs) {
    EXPECT_EQ(run.file, ScheduledJob::runs[0].file);
  }
}

TEST_F(WorkerScheduleTest, FolderWithNothingLeftToFilterIsLookedAtEachTurn) {
  for (const std::string& file : Velmar::Sim::ListFiles()) {
    Velmar::Sim::RemoveFile(file);
  }
  settings.jitter_first_filter.Set(false);
  Live(2 * kHourMs);
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 12);
  EXPECT_TRUE(ScheduledJob::runs.empty());
}

}  // namespace
}  // namespace RYL::Module
