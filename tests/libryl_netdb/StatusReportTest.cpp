// GetStatus and SaveStatistics, through the interface that the host has.
#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/TreeContainer.h"
#include "tests/cloud/CloudStatusTestAccess.h"
#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;
using Velmar::Utils::TreeContainer;
using Velmar::Utils::TreeNodeType;
using Verdicts = NetDB::CloudStatusTestAccess;

constexpr u32 kRoot = TreeContainer::kRoot;

std::string TextOf(const Velmar::Utils::StringView& view) {
  return {view.text == nullptr ? "" : view.text, view.length};
}

std::string ValueOf(const TreeContainer& tree, u32 node) {
  switch (tree.GetNodeType(node)) {
    case TreeNodeType::kBool:
      return tree.GetCurrentNodeValueBool(node, false, nullptr) ? "bool true" : "bool false";
    case TreeNodeType::kUInt32:
      return "u32 " + std::to_string(tree.GetCurrentNodeValueUInt32(node, 0, nullptr));
    case TreeNodeType::kUInt64:
      return "u64 " + std::to_string(tree.GetCurrentNodeValueUInt64(node, 0, nullptr));
    case TreeNodeType::kFloat64:
      return "float " + std::to_string(tree.GetCurrentNodeValueFloat64(node, 0, nullptr));
    case TreeNodeType::kString:
      return "text " + TextOf(tree.GetCurrentNodeValueString(node, {}, nullptr));
    case TreeNodeType::kDictionary:
      return "dictionary";
    default:
      return "something else";
  }
}

// "db/total_sz: u64 1000" of each node, in order.
void AddLines(const TreeContainer& tree, u32 parent, const std::string& prefix, Lines& lines) {
  for (u32 i = 0; i < tree.GetNodeChildrenCount(parent); ++i) {
    const u32 child = tree.GetNodeChild(parent, i);
    const std::string path = prefix + TextOf(tree.GetNodeName(child));
    lines.push_back(path + ": " + ValueOf(tree, child));
    AddLines(tree, child, path + "/", lines);
  }
}

Lines LinesOf(const TreeContainer& tree) {
  Lines lines;
  AddLines(tree, kRoot, "", lines);
  return lines;
}

class StatusReportTest : public ModuleTest {
 protected:
  StatusReportTest() {
    EXPECT_TRUE(Initialize());
    EXPECT_TRUE(history.Create(0, 8, 8, false, Velmar::Collections::GrowType::kFixedStep));
    log.Clear();
  }

  NetDB::CloudStatus<NetDB::IPv4>& VerdictCache() { return Access::GetVerdicts(Manager()); }
  void CountRequests(u32 total, u32 successful) {
    for (u32 i = 0; i < total; ++i) {
      Verdicts::CountRequest(VerdictCache(), i < successful);
    }
  }
  void AddHistory(u32 total, u32 successful) {
    TreeContainer tree;
    ASSERT_TRUE(tree.Create(4, 4, true, 4));
    tree.AddUInt32(kRoot, "total_requests_v4", total, false);
    tree.AddUInt32(kRoot, "total_successful_requests_v4", successful, false);
    ASSERT_TRUE(history.Add(tree));
  }
  // The whole report; empty, with a failure, when there is none.
  Lines Report() {
    TreeContainer tree;
    EXPECT_TRUE(tree.Create(4, 4, true, 4));
    EXPECT_TRUE(module->GetStatus(history, &tree));
    return LinesOf(tree);
  }
  // "12 successful, 3 failed" of the next report.
  std::string Requests() {
    TreeContainer tree;
    EXPECT_TRUE(tree.Create(4, 4, true, 4));
    EXPECT_TRUE(module->GetStatus(history, &tree));
    const u32 cloud = tree.GetNodeChild(kRoot, "cloud_v4");
    return std::to_string(tree.GetNodeValueUInt32(cloud, "total_successful_requests", 999, nullptr)) + " successful, " +
           std::to_string(tree.GetNodeValueUInt32(cloud, "total_failed_requests", 999, nullptr)) + " failed";
  }
  static void PutDay(const std::string& name, std::size_t size) {
    Velmar::Sim::PutFile("/data/netdb/" + name, std::string(size, 'x'));
  }

  Velmar::Collections::Array<TreeContainer> history;
};

TEST_F(StatusReportTest, EmptyFolderHasTwoCountsAndNoMore) {
  EXPECT_EQ(Report(), (Lines{"cache_v4: dictionary", "cache_v4/size_on_disk: u64 0", "cache_v4/total_items: u64 0",
                             "cloud_v4: dictionary", "cloud_v4/total_successful_requests: u32 0",
                             "cloud_v4/total_failed_requests: u32 0", "db: dictionary", "db/total_filtered: u64 0",
                             "db/total_unfiltered: u64 0", "config: dictionary", "config/max_db_size: u64 134217728",
                             "config/max_db_days: u64 3653", "config/db_dump_interval: u64 60000",
                             "config/netdb_enabled: bool true", "config/cloud_query_enabled: bool true"}));
  EXPECT_EQ(log.CountLevel(5), 0);
}

TEST_F(StatusReportTest, OneFileIsSmallestLargestOldestAndNewest) {
  PutDay("1699833600.db", 1000);
  const Lines report = Report();
  ASSERT_EQ(report.size(), 22U);
  EXPECT_EQ(Lines(report.begin() + 6, report.begin() + 16),
            (Lines{"db: dictionary", "db/total_filtered: u64 0", "db/total_unfiltered: u64 1", "db/min_sz: u64 1000",
                   "db/max_sz: u64 1000", "db/total_sz: u64 1000", "db/avg_sz: float 1000.000000",
                   "db/newest_db_sz: u64 1000", "db/oldest: text 2023-11-13 00:00:00",
                   "db/newest: text 2023-11-13 00:00:00"}));
  EXPECT_EQ(report[16], "config: dictionary");
}

TEST_F(StatusReportTest, SeveralFilesAreSummedUp) {
  PutDay("1699747200.db.f", 300);
  PutDay("1699833600.db", 1000);
  PutDay("1699660800.db.f", 500);
  PutDay("cache.6.db", 77);
  const Lines report = Report();
  EXPECT_EQ(
      Lines(report.begin() + 7, report.begin() + 16),
      (Lines{"db/total_filtered: u64 2", "db/total_unfiltered: u64 1", "db/min_sz: u64 300", "db/max_sz: u64 1000",
             "db/total_sz: u64 1800", "db/avg_sz: float 600.000000", "db/newest_db_sz: u64 1000",
             "db/oldest: text 2023-11-11 00:00:00", "db/newest: text 2023-11-13 00:00:00"}));
}

TEST_F(StatusReportTest, FilteredFilesAloneAreFilesToo) {
  PutDay("1699747200.db.f", 300);
  const Lines report = Report();
  EXPECT_EQ(report[7], "db/total_filtered: u64 1");
  EXPECT_EQ(report[8], "db/total_unfiltered: u64 0");
  EXPECT_EQ(report[9], "db/min_sz: u64 300");
}

TEST_F(StatusReportTest, CacheCountsItsEntriesAndItsFile) {
  ASSERT_TRUE(Verdicts::StoreVerdict(VerdictCache(), NetDB::IPv4::FromRaw(0x01020304), true));
  ASSERT_TRUE(Verdicts::StoreVerdict(VerdictCache(), NetDB::IPv4::FromRaw(0x01020305), false));
  PutDay("cache.4.db", 4321);
  const Lines report = Report();
  EXPECT_EQ(report[1], "cache_v4/size_on_disk: u64 4321");
  EXPECT_EQ(report[2], "cache_v4/total_items: u64 2");
}

TEST_F(StatusReportTest, ConfigurationIsThePresentOne) {
  policy.values = {{PolicyKey::kCloudQueryEnabled, 0},
                   {PolicyKey::kNetdbEnabled, 0},
                   {PolicyKey::kKeepPrivateAddresses, 1},
                   {PolicyKey::kMaxDbSize, 0x40000},
                   {PolicyKey::kMaxDbDays, 7}};
  module->ApplySettings(&policy);
  Settings().db_dump_interval.Set(1234);
  const Lines report = Report();
  EXPECT_EQ(Lines(report.end() - 6, report.end()),
            (Lines{"config: dictionary", "config/max_db_size: u64 262144", "config/max_db_days: u64 7",
                   "config/db_dump_interval: u64 1234", "config/netdb_enabled: bool false",
                   "config/cloud_query_enabled: bool false"}));
}

TEST_F(StatusReportTest, ReportConsumesTheLiveCounters) {
  CountRequests(9, 5);
  EXPECT_EQ(Requests(), "5 successful, 4 failed");
  EXPECT_EQ(Requests(), "0 successful, 0 failed");
}

TEST_F(StatusReportTest, HistoryIsSummed) {
  AddHistory(5, 3);
  AddHistory(2, 2);
  EXPECT_EQ(Requests(), "5 successful, 2 failed");
  CountRequests(10, 1);
  EXPECT_EQ(Requests(), "6 successful, 11 failed");
  EXPECT_EQ(Requests(), "5 successful, 2 failed");
}

TEST_F(StatusReportTest, HistoryWithoutTheKeysAddsNothing) {
  AddHistory(5, 3);
  TreeContainer other;
  ASSERT_TRUE(other.Create(4, 4, true, 4));
  other.AddUInt32(kRoot, "total_requests_v6", 7, false);
  other.AddString(kRoot, "total_requests_v4", "8", static_cast<u32>(-1), false);
  ASSERT_TRUE(history.Add(other));
  EXPECT_EQ(Requests(), "3 successful, 2 failed");
}

TEST_F(StatusReportTest, SumsWrap) {
  AddHistory(1, 3);
  EXPECT_EQ(Requests(), "3 successful, 4294967294 failed");
  AddHistory(0xFFFFFFFF, 0xFFFFFFFE);
  EXPECT_EQ(Requests(), "1 successful, 4294967295 failed");
}

TEST_F(StatusReportTest, StatisticsTakeTheCountersAndComeBackAsHistory) {
  CountRequests(9, 5);
  TreeContainer kept;
  ASSERT_TRUE(kept.Create(4, 4, true, 4));
  EXPECT_TRUE(module->SaveStatistics(&kept));
  EXPECT_EQ(LinesOf(kept), (Lines{"total_requests_v4: u32 9", "total_successful_requests_v4: u32 5"}));
  EXPECT_EQ(Requests(), "0 successful, 0 failed");
  ASSERT_TRUE(history.Add(kept));
  EXPECT_EQ(Requests(), "5 successful, 4 failed");
  EXPECT_EQ(Requests(), "5 successful, 4 failed");
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(StatusReportTest, StatisticsAreTrueEvenWhenTheTreeTakesNothing) {
  CountRequests(9, 5);
  TreeContainer unusable;
  EXPECT_TRUE(module->SaveStatistics(&unusable));
  EXPECT_TRUE(log.Entries().empty());
  EXPECT_EQ(Requests(), "0 successful, 0 failed");
}

TEST_F(StatusReportTest, NullTreeCostsNoCounters) {
  CountRequests(9, 5);
  EXPECT_TRUE(module->SaveStatistics(nullptr));
  EXPECT_FALSE(module->GetStatus(history, nullptr));
  EXPECT_EQ(log.Lines(1), (Lines{"5 ryl_netdb.NoTree", "5 ryl_netdb.NoTree"}));
  EXPECT_EQ(Requests(), "5 successful, 4 failed");
}

TEST_F(StatusReportTest, FolderThatCannotBeWalkedEndsTheReportThere) {
  CountRequests(9, 5);
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 4));
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kEnumerate, 0, Velmar::Sim::Fault::kFail);
  EXPECT_FALSE(module->GetStatus(history, &tree));
  EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.StatisticsNotComputed");
  EXPECT_EQ(log.Arguments("ryl_netdb.StatisticsNotComputed"), Lines{"/data/netdb"});
  EXPECT_EQ(LinesOf(tree), (Lines{"cache_v4: dictionary", "cache_v4/size_on_disk: u64 0", "cache_v4/total_items: u64 0",
                                  "cloud_v4: dictionary", "cloud_v4/total_successful_requests: u32 5",
                                  "cloud_v4/total_failed_requests: u32 4", "db: dictionary"}));
  EXPECT_EQ(Requests(), "0 successful, 0 failed");
}

TEST_F(StatusReportTest, FolderThatBeginsWithAFileOfNoClassEndsTheReportToo) {
  PutDay("1699920000.DB", 1000);
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 4));
  EXPECT_FALSE(module->GetStatus(history, &tree));
  EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.StatisticsNotComputed");
  EXPECT_EQ(LinesOf(tree).back(), "db: dictionary");
}

TEST_F(StatusReportTest, TreeThatTakesNothingIsNamedByItsFirstKey) {
  CountRequests(9, 5);
  TreeContainer unusable;
  EXPECT_FALSE(module->GetStatus(history, &unusable));
  EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.StatusNotAdded"});
  EXPECT_EQ(log.Arguments("ryl_netdb.StatusNotAdded"), Lines{"size_on_disk"});
  // The report did not come as far as the counters.
  EXPECT_EQ(Requests(), "5 successful, 4 failed");
}

// A report of one file of each class, made with each allocation failing in turn.
class StatusAllocationTest : public StatusReportTest {
 protected:
  StatusAllocationTest() {
    PutDay("1699747200.db.f", 300);
    PutDay("1699833600.db", 1000);
    whole = Report();
  }
  // The key of a line that holds a value; empty for a dictionary.
  static std::string KeyOf(const std::string& line) {
    const std::size_t slash = line.find('/');
    return slash == std::string::npos ? "" : line.substr(slash + 1, line.find(':') - slash - 1);
  }
  // The first value that `lines`, the beginning of the whole report, lacks. A missing dictionary is told by it.
  std::string NextKey(const Lines& lines) const {
    std::size_t next = lines.size();
    while (KeyOf(whole.at(next)).empty()) {
      ++next;
    }
    return KeyOf(whole[next]);
  }
  void ExpectCut(const Lines& lines) {
    ASSERT_LT(lines.size(), whole.size());
    EXPECT_TRUE(std::equal(lines.begin(), lines.end(), whole.begin()));
    EXPECT_EQ(log.Lines(3), Lines{"5 ryl_netdb.StatusNotAdded"});
    EXPECT_EQ(log.Arguments("ryl_netdb.StatusNotAdded"), Lines{NextKey(lines)});
    cutAt.insert(NextKey(lines));
  }
  // Into a tree with room for `capacity` nodes.
  void FailEach(u32 capacity) {
    for (u64 failing = 0;; ++failing) {
      SCOPED_TRACE(failing);
      TreeContainer tree;
      EXPECT_TRUE(tree.Create(capacity, 1, true, 1));
      log.Clear();
      Velmar::Sim::FailAllocation(failing);
      const u64 before = Velmar::Sim::CountAllocations();
      const bool done = module->GetStatus(history, &tree);
      const bool reached = Velmar::Sim::CountAllocations() - before > failing;
      Velmar::Sim::FailAllocation(~u64{0});
      EXPECT_NE(done, reached);
      if (!reached) {
        EXPECT_EQ(LinesOf(tree), whole);
        return;
      }
      ExpectCut(LinesOf(tree));
    }
  }

  Lines whole;
  std::set<std::string> cutAt;
};

TEST_F(StatusAllocationTest, EachValueThatIsNotAddedEndsTheReportThere) {
  // Each size of the tree makes another value the one that finds no room.
  for (u32 capacity = 1; capacity <= whole.size() + 1; ++capacity) {
    SCOPED_TRACE(capacity);
    FailEach(capacity);
  }
  std::set<std::string> values;
  for (const std::string& line : whole) {
    if (!KeyOf(line).empty()) {
      values.insert(KeyOf(line));
    }
  }
  EXPECT_EQ(values.size(), 18U);
  EXPECT_EQ(cutAt, values);
}

TEST_F(StatusReportTest, ReportTakesNothingOfTheHostsMemory) {
  PutDay("1699833600.db", 1000);
  AddHistory(5, 3);
  CountingAllocator memory;
  Velmar::Collections::SetModuleAllocator(&memory);
  const Lines report = Report();
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(report.size(), 22U);
  EXPECT_EQ(memory.Allocations(), 0U);
}

TEST_F(StatusReportTest, EachRequestIsToldOnce) {
  constexpr u32 kThreads = 3;
  constexpr u32 kRounds = 300;
  std::atomic<u64> taken{0};
  std::vector<std::thread> askers;
  for (u32 thread = 0; thread < kThreads; ++thread) {
    askers.emplace_back([&, thread] {
      const Velmar::Collections::Array<TreeContainer> none;
      for (u32 round = 0; round < kRounds; ++round) {
        TreeContainer tree;
        ASSERT_TRUE(tree.Create(16, 16, true, 8));
        if (thread == 0) {
          EXPECT_TRUE(module->GetStatus(none, &tree));
          const u32 cloud = tree.GetNodeChild(kRoot, "cloud_v4");
          taken += tree.GetNodeValueUInt32(cloud, "total_failed_requests", 0, nullptr);
        } else {
          EXPECT_TRUE(module->SaveStatistics(&tree));
          taken += tree.GetNodeValueUInt32(kRoot, "total_requests_v4", 0, nullptr);
        }
        Verdicts::CountRequest(VerdictCache(), false);
      }
    });
  }
  for (std::thread& asker : askers) {
    asker.join();
  }
  TreeContainer rest;
  ASSERT_TRUE(rest.Create(4, 4, true, 4));
  EXPECT_TRUE(module->SaveStatistics(&rest));
  taken += rest.GetNodeValueUInt32(kRoot, "total_requests_v4", 0, nullptr);
  EXPECT_EQ(taken, u64{kThreads} * kRounds);
}

TEST_F(StatusReportTest, ReportsBesideTheWorkerAndAfterStop) {
  ASSERT_TRUE(module->Start());
  EXPECT_TRUE(Handle(Connection()));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_EQ(Report()[8], "db/total_unfiltered: u64 1");
  ASSERT_TRUE(module->Stop());
  const Lines report = Report();
  EXPECT_EQ(report[8], "db/total_unfiltered: u64 1");
  EXPECT_EQ(report[report.size() - 2], "config/netdb_enabled: bool false");
}

class StatusBeforeInitializeTest : public ModuleTest {};

TEST_F(StatusBeforeInitializeTest, ThereIsNoFolderToReportOn) {
  TreeContainer tree;
  ASSERT_TRUE(tree.Create(4, 4, true, 4));
  const Velmar::Collections::Array<TreeContainer> none;
  EXPECT_FALSE(module->GetStatus(none, &tree));
  EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.StatisticsNotComputed");
  EXPECT_EQ(LinesOf(tree).back(), "db: dictionary");
  TreeContainer statistics;
  ASSERT_TRUE(statistics.Create(4, 4, true, 4));
  EXPECT_TRUE(module->SaveStatistics(&statistics));
  EXPECT_EQ(LinesOf(statistics), (Lines{"total_requests_v4: u32 0", "total_successful_requests_v4: u32 0"}));
}

}  // namespace
}  // namespace RYL::Module
