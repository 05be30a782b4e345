// Filter jobs of a whole module under virtual time: from stored events to filtered files, verdicts that outlive the
// module, and what the host sees of it.
#include <algorithm>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/netdb_storage/DBManager.h"
#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/support/SimCloud.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;
using Velmar::Sim::AdvanceTime;
using Velmar::Sim::WaitUntilWaiting;
using Velmar::Utils::TreeContainer;

constexpr u64 kDayMs = 86400000;
constexpr u64 kHourMs = 3600000;

// The module starts without leave to ask the cloud, so that a test can lay down its days in peace.
class FilterRunTest : public ModuleTest {
 protected:
  static constexpr u64 kYesterday = kDay - 86400;
  static constexpr u64 kDayBefore = kDay - 2 * 86400;
  static constexpr char kCacheFile[] = "/data/netdb/cache.4.db";

  FilterRunTest() {
    policy.values[PolicyKey::kJitterFirstFilter] = 0;
    policy.values[PolicyKey::kCloudQueryEnabled] = 0;
    Begin();
  }

  void Begin() {
    InitializeAndStart();
    ASSERT_TRUE(WaitUntilWaiting(1));
  }
  // The module as the next process of the host has it.
  void Restart() {
    module->Stop();
    module.reset();
    Uninit();
    module.reset(Init(nullptr));
    log.Clear();
    Begin();
  }
  void AllowCloud(bool allowed) {
    policy.values[PolicyKey::kCloudQueryEnabled] = allowed ? 1 : 0;
    module->ApplySettings(&policy);
  }

  // One connection of the day to each address 203.0.113.N, stored.
  void Store(u64 day, u32 first, u32 count) {
    for (u32 number = first; number < first + count; ++number) {
      ASSERT_TRUE(Handle(Connection(Text(number)).Time((day + number) * 1000)));
    }
    ASSERT_TRUE(WaitUntilWaiting(1));
  }
  void NextTurn(u64 milliseconds = 60000) {
    AdvanceTime(milliseconds);
    ASSERT_TRUE(WaitUntilWaiting(1));
  }
  // Time goes on, in turns of a minute, until so many jobs of this module have ended.
  void LiveUntilJobs(int jobs) {
    AllowCloud(true);
    for (int minute = 0; JobsEnded() < jobs && minute < 3000; ++minute) {
      NextTurn();
      // A job takes no virtual time but its own, so the clock stands while it is at work beside the worker.
      while (host.RunningThreads() > 1) {
        std::this_thread::yield();
      }
    }
    ASSERT_EQ(JobsEnded(), jobs);
    // The worker takes the result in.
    NextTurn();
    NextTurn();
    AllowCloud(false);
  }
  int JobsEnded() {
    return log.Count("cloud.JobDone") + log.Count("cloud.JobNotMarked") + log.Count("cloud.JobNotFiltered");
  }

  static std::string Text(u32 number) { return "203.0.113." + std::to_string(number); }
  // Names in the folder, but for the verdicts' file.
  static Lines DayFiles() {
    Lines names;
    for (const std::string& path : Velmar::Sim::ListFiles()) {
      if (path != kCacheFile) {
        names.push_back(path.substr(path.rfind('/') + 1));
      }
    }
    return names;
  }
  // Last octets of what a question to the folder gives, sorted; one entry a row.
  static std::vector<u32> StoredNumbers() {
    std::vector<u32> numbers;
    NetDB::QueryConstraints constraints(0, ~u64{0});
    EXPECT_TRUE(NetDB::DBManager::Query("/data/netdb", constraints, [&numbers](const NetDB::QueryRecord& row) {
      numbers.push_back(row.address[3]);
      return true;
    }));
    std::sort(numbers.begin(), numbers.end());
    return numbers;
  }
  static bool CacheFileExists() {
    std::string content;
    return Velmar::Sim::GetFile(kCacheFile, content);
  }

  SimCloud cloud;
};

TEST_F(FilterRunTest, FinishedDaysAreFilteredOneAfterTheOther) {
  Store(kDayBefore, 1, 4);
  Store(kYesterday, 3, 4);
  Store(kDay, 5, 3);
  NextTurn();
  NextTurn();
  EXPECT_EQ(DayFiles(), (Lines{"1699747200.db", "1699833600.db", "1699920000.db"}));
  cloud.harmless = {Text(2), Text(3), Text(5)};
  LiveUntilJobs(1);
  EXPECT_EQ(DayFiles(), (Lines{"1699747200.db.f", "1699833600.db", "1699920000.db"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{1, 3, 4, 4, 5, 5, 6, 6, 7}));
  LiveUntilJobs(2);
  // Today is over by the third job's time, but still the day that the worker has open.
  LiveUntilJobs(3);
  EXPECT_EQ(DayFiles(), (Lines{"1699747200.db.f", "1699833600.db.f", "1699920000.db.f"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{1, 4, 4, 6, 6, 7}));
  const auto requests = cloud.Requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[1].addresses, (Lines{Text(5), Text(6)})) << "the others are known";
  EXPECT_EQ(requests[2].addresses, Lines{Text(7)});
  for (std::size_t i = 1; i < requests.size(); ++i) {
    const u64 pause = requests[i].timeMs - requests[i - 1].timeMs;
    EXPECT_GE(pause, 6 * kHourMs);
    EXPECT_LE(pause, 8 * kHourMs + 300000);
  }
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(FilterRunTest, NewEventsToHarmlessAddressesAreDroppedAtIntake) {
  Store(kYesterday, 1, 2);
  Store(kDay, 9, 1);
  cloud.harmless = {Text(1)};
  LiveUntilJobs(1);
  EXPECT_TRUE(Handle(Connection(Text(1)).Time(kDay * 1000))) << "dropped, and that is no failure";
  EXPECT_TRUE(Handle(Connection(Text(2)).Time(kDay * 1000)));
  EXPECT_TRUE(Handle(Connection(Text(3)).Time(kDay * 1000))) << "unknown";
  ASSERT_TRUE(WaitUntilWaiting(1));
  NextTurn();
  NextTurn();
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{2, 2, 3, 9}));
  // Two days after the answer nothing is known of it any more.
  AdvanceTime(2 * kDayMs + 1);
  EXPECT_TRUE(Handle(Connection(Text(1)).Time(kDay * 1000)));
  ASSERT_TRUE(WaitUntilWaiting(1));
  NextTurn();
  NextTurn();
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{1, 2, 2, 3, 9}));
}

TEST_F(FilterRunTest, VerdictsSurviveARestart) {
  Store(kYesterday, 1, 2);
  cloud.harmless = {Text(1)};
  LiveUntilJobs(1);
  EXPECT_FALSE(CacheFileExists()) << "it is written when the module ends";
  Restart();
  EXPECT_TRUE(CacheFileExists());
  EXPECT_EQ(log.CountLevel(5), 0);
  EXPECT_EQ(Access::GetVerdicts(Manager()).GetItemCount(), 2U);
  Store(kDay, 1, 2);
  NextTurn();
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{2, 2})) << "1 is still known as harmless";
}

TEST_F(FilterRunTest, DamagedVerdictsAreAskedForAgain) {
  Store(kYesterday, 1, 2);
  cloud.harmless = {Text(1)};
  LiveUntilJobs(1);
  module->Stop();
  module.reset();
  std::string content;
  ASSERT_TRUE(Velmar::Sim::GetFile(kCacheFile, content));
  std::string damaged = content;
  damaged[damaged.size() - 1] = static_cast<char>(damaged[damaged.size() - 1] ^ 1);
  Velmar::Sim::PutFile(kCacheFile, damaged);
  Uninit();
  module.reset(Init(nullptr));
  log.Clear();
  Begin();
  EXPECT_EQ(log.Count("cloud.CacheFileGivenUp"), 1);
  EXPECT_FALSE(CacheFileExists());
  EXPECT_EQ(Access::GetVerdicts(Manager()).GetItemCount(), 0U);
  Store(kDayBefore, 1, 2);
  Store(kDay, 9, 1);
  LiveUntilJobs(1);
  EXPECT_EQ(cloud.Asked(), (Lines{Text(1), Text(2), Text(1), Text(2)}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{2, 2, 9}));
  module->Stop();
  module.reset();
  EXPECT_TRUE(CacheFileExists());
  module.reset(Init(nullptr));
  Begin();
  EXPECT_EQ(Access::GetVerdicts(Manager()).GetItemCount(), 2U) << "rebuilt";
}

TEST_F(FilterRunTest, HundredAndTwentyUnknownAddressesAreThreePacedRequests) {
  Store(kYesterday, 1, 120);
  LiveUntilJobs(1);
  const auto requests = cloud.Requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[0].addresses.size(), 50U);
  EXPECT_EQ(requests[1].addresses.size(), 50U);
  EXPECT_EQ(requests[2].addresses.size(), 20U);
  EXPECT_GE(requests[1].timeMs - requests[0].timeMs, 1000U);
  EXPECT_GE(requests[2].timeMs - requests[1].timeMs, 1000U);
  EXPECT_EQ(StoredNumbers().size(), 120U);
}

TEST_F(FilterRunTest, WithoutTheCloudTheDayWaitsForTheNextJob) {
  Store(kYesterday, 1, 3);
  Store(kDay, 9, 1);
  NextTurn();
  cloud.harmless = {Text(1)};
  cloud.failsFrom = 0;
  LiveUntilJobs(1);
  EXPECT_EQ(log.Count("ryl_netdb.FilterJobFailed"), 1);
  EXPECT_EQ(DayFiles(), (Lines{"1699833600.db", "1699920000.db"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{1, 2, 3, 9}));
  cloud.failsFrom = SimCloud::kNever;
  LiveUntilJobs(2);
  const auto requests = cloud.Requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_GE(requests[1].timeMs - requests[0].timeMs, kHourMs / 2);
  EXPECT_LE(requests[1].timeMs - requests[0].timeMs, kHourMs + 300000);
  EXPECT_EQ(DayFiles(), (Lines{"1699833600.db.f", "1699920000.db"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{2, 3, 9}));
}

TEST_F(FilterRunTest, ReportsShowTheRequests) {
  Store(kYesterday, 1, 120);
  cloud.failsFrom = 2;
  LiveUntilJobs(1);
  Velmar::Collections::Array<TreeContainer> history;
  ASSERT_TRUE(history.Create(0, 8, 8, false, Velmar::Collections::GrowType::kFixedStep));
  TreeContainer saved;
  ASSERT_TRUE(saved.Create(4, 4, true, 4));
  ASSERT_TRUE(module->SaveStatistics(&saved));
  EXPECT_EQ(saved.GetNodeValueUInt32(TreeContainer::kRoot, "total_requests_v4", 99, nullptr), 3U);
  EXPECT_EQ(saved.GetNodeValueUInt32(TreeContainer::kRoot, "total_successful_requests_v4", 99, nullptr), 2U);
  ASSERT_TRUE(history.Add(saved));
  cloud.failsFrom = SimCloud::kNever;
  LiveUntilJobs(2);
  TreeContainer report;
  ASSERT_TRUE(report.Create(4, 4, true, 4));
  ASSERT_TRUE(module->GetStatus(history, &report));
  const u32 requests = report.GetNodeChild(TreeContainer::kRoot, "cloud_v4");
  EXPECT_EQ(report.GetNodeValueUInt32(requests, "total_successful_requests", 99, nullptr), 3U);
  EXPECT_EQ(report.GetNodeValueUInt32(requests, "total_failed_requests", 99, nullptr), 1U);
  const u32 cache = report.GetNodeChild(TreeContainer::kRoot, "cache_v4");
  EXPECT_EQ(report.GetNodeValueUInt64(cache, "total_items", 999, nullptr), 120U);
  const u32 folder = report.GetNodeChild(TreeContainer::kRoot, "db");
  EXPECT_EQ(report.GetNodeValueUInt64(folder, "total_filtered", 99, nullptr), 1U);
  EXPECT_EQ(report.GetNodeValueUInt64(folder, "total_unfiltered", 99, nullptr), 0U);
}

// A job that is held within its first request, beside the worker.
class HeldJobTest : public FilterRunTest {
 protected:
  void StartHeldJob() {
    cloud.harmless = {Text(1)};
    cloud.onRequest = [this] { hold.Wait(1000000000); };
    AllowCloud(true);
    AdvanceTime(60000);
    ASSERT_TRUE(WaitUntilWaiting(2));
    ASSERT_EQ(cloud.Requests().size(), 1U);
    AllowCloud(false);
  }
  void EndJob() {
    hold.Signal();
    while (JobsEnded() == 0) {
      std::this_thread::yield();
    }
  }

  Velmar::OS::Event hold{false};
};

TEST_F(HeldJobTest, StopWaitsForTheJob) {
  Store(kYesterday, 1, 2);
  Store(kDay, 9, 1);
  StartHeldJob();
  log.Clear();
  std::thread stopper([this] { module->Stop(); });
  while (log.Count("ryl_netdb.WaitingForFilterJob") == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(JobsEnded(), 0);
  hold.Signal();
  stopper.join();
  EXPECT_EQ(log.Count("cloud.JobDone"), 1);
  const Lines lines = log.Lines(3);
  EXPECT_NE(std::find(lines.begin(), lines.end(), "3 ryl_netdb.WaitingForFilterJob"), lines.end());
  EXPECT_EQ(DayFiles(), (Lines{"1699833600.db.f", "1699920000.db"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{2, 9}));
}

TEST_F(HeldJobTest, IntakeGoesOnBesideARequest) {
  Store(kYesterday, 1, 2);
  Store(kDay, 9, 1);
  StartHeldJob();
  EXPECT_TRUE(Handle(Connection(Text(10)).Time(kDay * 1000)));
  ASSERT_TRUE(WaitUntilWaiting(2));
  AdvanceTime(60001);
  ASSERT_TRUE(WaitUntilWaiting(2));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{1, 2, 9, 10}));
  EndJob();
}

// The accepted cost of a late event: nothing is lost, but the day has two files, and rows of it come twice.
TEST_F(HeldJobTest, StragglerOfTheJobsDayLeavesASecondFile) {
  Store(kYesterday, 1, 2);
  Store(kDay, 9, 1);
  StartHeldJob();
  EXPECT_TRUE(Handle(Connection(Text(20)).Time(kYesterday * 1000)));
  ASSERT_TRUE(WaitUntilWaiting(2));
  EndJob();
  EXPECT_TRUE(Handle(Connection(Text(21)).Time(kYesterday * 1000)));
  ASSERT_TRUE(WaitUntilWaiting(1));
  NextTurn();
  NextTurn();
  EXPECT_EQ(DayFiles(), (Lines{"1699833600.db", "1699833600.db.f", "1699920000.db"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{1, 2, 2, 9, 20, 21}));
  cloud.onRequest = nullptr;
  LiveUntilJobs(2);
  EXPECT_EQ(log.Count("netdb_storage.MarkedFileExists"), 1);
  EXPECT_EQ(DayFiles(), (Lines{"1699833600.db", "1699833600.db.f", "1699920000.db"}));
  EXPECT_EQ(StoredNumbers(), (std::vector<u32>{2, 2, 9, 20, 21}));
}

}  // namespace
}  // namespace RYL::Module
