// The filter job: what it leaves of a day, under which name, and what it reports, however it ends.
#include "common/cloud/filter_job/FilterJob.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

#include "host/render/LogText.h"
#include "tests/cloud/CloudStatusTestAccess.h"
#include "tests/cloud/FilterJobFixture.h"

namespace FilterJobTest {
namespace {

class FilterJobTest : public FilterJobFixture {
 protected:
  void SetUp() override { StartDisk(); }
};

TEST_F(FilterJobTest, DayLosesItsHarmlessRowsAndGetsItsFilteredName) {
  const u64 before = Content(path).size();
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kDone);
  EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
  EXPECT_EQ(AllRows().SortedPorts(), kHarmfulPorts);
  EXPECT_EQ(log.Lines(), (Lines{"2 netdb_storage.RowsFiltered", "2 cloud.JobDone"}));
  const u64 after = Content(path + ".f").size();
  EXPECT_EQ(log.Arguments("cloud.JobDone"),
            (Lines{"1699920000.db", std::to_string(before), std::to_string(after), std::to_string(before - after)}));
  EXPECT_LT(after, before);
  EXPECT_EQ(FilterStamp(path + ".f"), Velmar::OS::Time::GetEpochTime(nullptr) / 1000);
}

TEST_F(FilterJobTest, StatusIsRunningMeanwhile) {
  u8 meanwhile = 0xFF;
  cloud->onRequest = [this, &meanwhile] { meanwhile = status.load(); };
  EXPECT_EQ(Run(), FilterState::kDone);
  EXPECT_EQ(meanwhile, FilterState::kRunning);
}

TEST_F(FilterJobTest, DayWhoseAddressesAreKnownCostsNoRequest) {
  for (u8 i = 0; i < kRows; ++i) {
    ASSERT_TRUE(CloudStatusTestAccess::StoreVerdict(*verdicts, AddressOf(i), IsHarmless(i)));
  }
  Sim::AdvanceTime(5000);
  EXPECT_EQ(Run(), FilterState::kDone);
  EXPECT_TRUE(cloud->Requests().empty());
  EXPECT_EQ(AllRows().SortedPorts(), kHarmfulPorts);
}

TEST_F(FilterJobTest, DayWithoutHarmlessRowsIsWrittenAndRenamedAllTheSame) {
  cloud->harmless.clear();
  Sim::AdvanceTime(5000);
  EXPECT_EQ(Run(), FilterState::kDone);
  EXPECT_EQ(AllRows().records.size(), kRows);
  EXPECT_EQ(Sim::ModificationTime(path + ".f"), Velmar::OS::Time::GetEpochTime(nullptr));
}

TEST_F(FilterJobTest, DayWithoutRowsAsksNobodyAndIsRenamed) {
  cloud->harmless = AllAddresses();
  {
    DBManager writer;
    ASSERT_TRUE(writer.SyncWith(path.c_str(), false));
    ASSERT_TRUE(writer.FilterIPs(verdicts.get()));
    ASSERT_EQ(writer.GetRowCount(), 0U);
  }
  const std::size_t requests = cloud->Requests().size();
  FreshVerdicts();
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kDone);
  EXPECT_EQ(cloud->Requests().size(), requests);
  EXPECT_EQ(log.Lines(), Lines{"2 cloud.JobDone"});
  EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
}

TEST_F(FilterJobTest, FileThatGrowsIsReportedWithALossOfBytes) {
  // A file of no bytes stands for one that something cut between the looks at its size.
  Sim::FailFileOperation(Sim::Operation::kSize, 0, Sim::Fault::kDrop);
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kDone);
  const Lines arguments = log.Arguments("cloud.JobDone");
  EXPECT_EQ(arguments[1], "0");
  EXPECT_EQ(arguments[3], "-" + arguments[2]);
}

TEST_F(FilterJobTest, DamagedFileStaysAsItIs) {
  std::string damaged = Content(path);
  damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 1);
  Sim::PutFile(path, damaged);
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Lines(3).back(), "3 cloud.JobFileNotOpened");
  EXPECT_EQ(log.Arguments("cloud.JobFileNotOpened"), Lines{"1699920000.db"});
  EXPECT_EQ(log.Count("netdb_storage.FileNotOpened"), 1);
  EXPECT_EQ(Content(path), damaged);
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  EXPECT_TRUE(cloud->Requests().empty());
}

TEST_F(FilterJobTest, MissingFileIsNotMade) {
  Sim::RemoveFile(path);
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Lines(3), (Lines{"5 netdb_storage.FileOfAnotherDay", "3 cloud.JobFileNotOpened"}));
  EXPECT_EQ(Files(), Lines{});
}

TEST_F(FilterJobTest, FileUnderTheNameOfAnotherDayIsRefused) {
  const std::string other = DayPath(kDay - 86400);
  Sim::PutFile(other, Content(path));
  Sim::RemoveFile(path);
  const std::string content = Content(other);
  ASSERT_TRUE(file.Set(other.c_str()));
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Lines(3), (Lines{"5 netdb_storage.FileOfAnotherDay", "3 cloud.JobFileNotOpened"}));
  EXPECT_EQ(Content(other), content);
  EXPECT_EQ(Files(), Lines{"1699833600.db"});
}

TEST_F(FilterJobTest, WithoutTheCloudTheFileLosesWhatIsKnownAndKeepsItsName) {
  cloud->failsFrom = 0;
  ASSERT_TRUE(CloudStatusTestAccess::StoreVerdict(*verdicts, AddressOf(0), true));
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Lines(),
            (Lines{"5 cloud.CloudRefused", "5 cloud.ResolveStopped", "5 netdb_storage.AddressesNotResolved",
                   "2 netdb_storage.RowsFiltered", "5 netdb_storage.DayNotFiltered", "3 cloud.JobNotFiltered"}));
  EXPECT_EQ(log.Arguments("cloud.JobNotFiltered"), Lines{"1699920000.db"});
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  std::vector<u16> ports = AllRows().SortedPorts();
  EXPECT_EQ(ports.size(), kRows - 1U);
  EXPECT_EQ(ports.front(), 1U);
  EXPECT_EQ(FilterStamp(path), 0U);
  NextJobCompletes();
}

// 50 of 120 addresses are answered.
TEST_F(FilterJobTest, HalfAConversationLeavesNothingThatItCalledHarmless) {
  cloud->failsFrom = 1;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  std::vector<u16> expected;
  for (u8 i = 0; i < kRows; ++i) {
    if (i >= 50 || !IsHarmless(i)) {
      expected.push_back(i);
    }
  }
  EXPECT_EQ(AllRows().SortedPorts(), expected);
  cloud->failsFrom = SimCloud::kNever;
  EXPECT_EQ(Run(), FilterState::kDone) << "the same cache";
  EXPECT_EQ(AllRows().SortedPorts(), kHarmfulPorts);
  std::vector<std::string> asked = cloud->Asked();
  std::sort(asked.begin(), asked.begin() + 50);
  EXPECT_EQ(std::unique(asked.begin(), asked.begin() + 50), asked.begin() + 50);
  EXPECT_EQ(asked.size(), 50U + 50U + 70U) << "what was answered is not asked about again";
}

TEST_F(FilterJobTest, FilteredFileThatExistsStaysAndFailsEachJob) {
  Sim::PutFile(path + ".f", "filtered before");
  for (int i = 0; i < 2; ++i) {
    LogCapture log;
    EXPECT_EQ(Run(), FilterState::kFailed);
    EXPECT_EQ(log.Lines(3), (Lines{"5 netdb_storage.MarkedFileExists", "3 cloud.JobNotMarked"}));
    EXPECT_EQ(log.Arguments("cloud.JobNotMarked"), Lines{"1699920000.db"});
    EXPECT_EQ(Content(path + ".f"), "filtered before");
    EXPECT_EQ(PortsOf(path), kHarmfulPorts);
  }
}

// The first move of a job is the one that ends its dump.
TEST_F(FilterJobTest, RenameThatFailsLeavesTheFilteredDayToTheNextJob) {
  Sim::FailFileOperation(Sim::Operation::kMove, 1, Sim::Fault::kFail, 5);
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Lines(3), (Lines{"3 netdb_storage.MarkRetry", "3 netdb_storage.MarkRetry", "3 netdb_storage.MarkRetry",
                                 "3 netdb_storage.MarkRetry", "3 cloud.JobNotMarked"}));
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  EXPECT_EQ(AllRows().SortedPorts(), kHarmfulPorts);
  log.Clear();
  Sim::ClearFaults();
  EXPECT_EQ(Run(), FilterState::kDone);
  EXPECT_EQ(log.Arguments("netdb_storage.RowsFiltered"), Lines{"0"});
  EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
}

TEST_F(FilterJobTest, DumpThatFailsIsTriedOnceMoreByTheManager) {
  const std::string old = Content(path);
  Sim::FailFileOperation(Sim::Operation::kCreate, 0, Sim::Fault::kFail, 10);
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Count("netdb_storage.SaveFailed"), 10);
  EXPECT_EQ(log.Lines(3).back(), "3 netdb_storage.LastDumpFailed");
  EXPECT_EQ(log.Arguments("cloud.JobNotDumped"), Lines{"1699920000.db"});
  EXPECT_EQ(log.CountLevel(5), 0);
  EXPECT_EQ(Content(path), old);
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  NextJobCompletes();
}

TEST_F(FilterJobTest, DumpThatTheManagerGetsThroughIsFilteredButNotRenamed) {
  Sim::FailFileOperation(Sim::Operation::kCreate, 0, Sim::Fault::kFail, 5);
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  EXPECT_EQ(AllRows().SortedPorts(), kHarmfulPorts);
  NextJobCompletes();
}

TEST_F(FilterJobTest, ExceptionIsAFailedJobWithAllRows) {
  cloud->onRequest = [] { throw std::runtime_error("the network broke"); };
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Lines(3), Lines{"5 cloud.JobException"});
  EXPECT_EQ(log.Arguments("cloud.JobException"), (Lines{"1699920000.db", "the network broke"}));
  EXPECT_EQ(Files(), Lines{"1699920000.db"});
  EXPECT_EQ(AllRows().records.size(), kRows);
  NextJobCompletes();
}

// Whoever sees the end may open the file: the manager's own dump is over by then.
TEST_F(FilterJobTest, ManagerIsGoneBeforeTheStatusIsStored) {
  static std::atomic<u8>* watched = nullptr;
  static std::vector<u8> atDumps;
  watched = &status;
  cloud->failsFrom = 0;
  Velmar::Log::fnLogCallback = [](const Velmar::Log::Record& record, std::va_list) {
    if (std::string(Host::Render::FindLogText(record.messageId)->name) == "netdb_storage.DayDumped") {
      atDumps.push_back(watched->load());
    }
  };
  EXPECT_EQ(Run(), FilterState::kFailed);
  Velmar::Log::fnLogCallback = nullptr;
  EXPECT_EQ(atDumps, std::vector<u8>{FilterState::kRunning});
}

TEST_F(FilterJobTest, HundredAndTwentyAddressesAreThreePacedRequests) {
  EXPECT_EQ(Run(), FilterState::kDone);
  const auto requests = cloud->Requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[0].addresses.size(), 50U);
  EXPECT_EQ(requests[1].addresses.size(), 50U);
  EXPECT_EQ(requests[2].addresses.size(), 20U);
  EXPECT_GE(requests[1].timeMs - requests[0].timeMs, 1000U);
  EXPECT_GE(requests[2].timeMs - requests[1].timeMs, 1000U);
}

TEST_F(FilterJobTest, FullDiskKeepsTheOldFileForTheNextJob) {
  const std::string old = Content(path);
  Sim::SetDiskLimit(old.size() + 100);
  LogCapture log;
  EXPECT_EQ(Run(), FilterState::kFailed);
  EXPECT_EQ(log.Count("cloud.JobNotDumped"), 1);
  EXPECT_EQ(Content(path), old);
  EXPECT_EQ(Files(), Lines{"1699920000.db"}) << "the partial file is gone";
  Sim::SetDiskLimit(0);
  NextJobCompletes();
}

}  // namespace
}  // namespace FilterJobTest
