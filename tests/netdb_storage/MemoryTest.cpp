// Each allocation in turn fails under the operations of a day: nothing leaks, the tables stay whole, and the operation
// can be repeated.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>

#include "Velmar/Collections/ModuleMemory.h"
#include "tests/netdb_storage/Folder.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = DBManagerTestAccess;

// Which of the two memories fails: the module's, or the base library's.
enum class Memory { kModule, kBase };

void PrintTo(Memory memory, std::ostream* out) {
  *out << (memory == Memory::kModule ? "module" : "base");
}

class MemoryTest : public FolderTest, public testing::WithParamInterface<Memory> {
 protected:
  MemoryTest() { Velmar::Collections::SetModuleAllocator(&allocator); }
  ~MemoryTest() override {
    EXPECT_EQ(allocator.Out(), 0U);
    Velmar::Collections::SetModuleAllocator(nullptr);
  }

  // Allocation number `n` of the operation that follows fails.
  void Arm(u64 n) {
    if (GetParam() == Memory::kModule) {
      allocator.FailFrom(n);
    } else {
      Sim::FailAllocation(n);
    }
    start = Count();
    failing = n;
  }
  // Ends that; true if the operation came as far as the failure.
  bool Disarm() {
    allocator.FailFrom(CountingAllocator::kNever);
    Sim::FailAllocation(kAllOnes64);
    return Count() - start > failing;
  }

  static BacklogMessage Message(u16 number) {
    return MakeMessage(kDay + number, Address(10, 0, static_cast<u8>(number / 200), static_cast<u8>(number % 200)),
                       number);
  }
  static Process ProcessOf(u16 number) {
    return MakeProcess("/usr/bin/a/program/with/a/path/that/needs/memory/" + std::to_string(number), number);
  }
  static void Fill(DBManager& manager, u16 number) {
    for (u16 i = 0; i < number; ++i) {
      const Process process = ProcessOf(i);
      ASSERT_TRUE(manager.Add(Message(i), &process));
    }
  }
  static void CheckTables(DBManager& manager) {
    CheckInvariants(Access::Processes(manager));
    CheckReferences(Access::Ips(manager), Access::Processes(manager));
    CheckSorted(Access::Ips(manager));
  }

  CountingAllocator allocator;

 private:
  u64 Count() const { return GetParam() == Memory::kModule ? allocator.Allocations() : Sim::CountAllocations(); }

  u64 start = 0;
  u64 failing = 0;
};

// The 32nd process and the 16th row make their arrays grow.
TEST_P(MemoryTest, AddOnAnOpenDayCanBeRepeated) {
  int failures = 0;
  bool reached = true;
  for (u64 n = 0; reached; ++n) {
    DBManager manager;
    ASSERT_TRUE(manager.SetFolder(kFolder));
    Fill(manager, 32);
    auto& rows = IPDBTestAccess<IPv4>::Rows(Access::Ips(manager));
    while (rows.count < rows.capacity) {
      ASSERT_TRUE(manager.Add(Message(static_cast<u16>(rows.count)), nullptr));
    }
    const auto last = static_cast<u16>(rows.count);
    const Process process = ProcessOf(last);
    LogCapture log;
    Arm(n);
    const bool added = manager.Add(Message(last), &process);
    reached = Disarm();
    CheckTables(manager);
    if (reached) {
      ++failures;
      EXPECT_GT(log.CountLevel(5), 0) << n;
      const bool withoutProcess = added && rows.data[rows.count - 1].proc_index == kNone;
      EXPECT_TRUE(!added || withoutProcess) << n;
      EXPECT_TRUE(manager.Add(Message(last), &process)) << "the same message again";
      CheckTables(manager);
      EXPECT_EQ(rows.data[rows.count - (withoutProcess ? 2U : 1U)].proc_index, 32U);
    } else {
      EXPECT_TRUE(added);
    }
    ASSERT_TRUE(manager.Flush());
    Sim::RemoveFile(DayPath(kDay));
  }
  EXPECT_GE(failures, GetParam() == Memory::kModule ? 3 : 1);
}

TEST_P(MemoryTest, FlushCanBeRepeated) {
  int failures = 0;
  bool reached = true;
  for (u64 n = 0; reached; ++n) {
    DBManager manager;
    ASSERT_TRUE(manager.SetFolder(kFolder));
    Fill(manager, 50);
    Arm(n);
    const bool flushed = manager.Flush();
    reached = Disarm();
    CheckTables(manager);
    failures += reached ? 1 : 0;
    EXPECT_EQ(Access::Dirty(manager), !flushed);
    if (!flushed) {
      EXPECT_TRUE(reached) << n;
      EXPECT_EQ(Files(), std::vector<std::string>{}) << "nothing half made";
    }
    EXPECT_TRUE(manager.Flush());
    EXPECT_EQ(AllRows().records.size(), 50U);
    Sim::RemoveFile(DayPath(kDay));
  }
  EXPECT_GT(failures, 0);
}

TEST_P(MemoryTest, SyncCanBeRepeated) {
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    Fill(writer, 50);
  }
  const std::string file = Content(DayPath(kDay));
  int failures = 0;
  bool reached = true;
  for (u64 n = 0; reached; ++n) {
    DBManager manager;
    LogCapture log;
    Arm(n);
    const bool synced = manager.SyncWith(DayPath(kDay).c_str(), false);
    reached = Disarm();
    failures += reached ? 1 : 0;
    CheckInvariants(Access::Processes(manager));
    if (!synced) {
      EXPECT_TRUE(reached) << n;
      EXPECT_GT(log.CountLevel(5), 0) << n;
      EXPECT_TRUE(manager.Flush()) << "there is nothing to dump";
    }
    EXPECT_TRUE(manager.SyncWith(DayPath(kDay).c_str(), false)) << n;
    EXPECT_EQ(manager.GetRowCount(), 50U);
    CheckTables(manager);
  }
  EXPECT_GT(failures, 5);
  EXPECT_EQ(Content(DayPath(kDay)), file);
}

// With the two filters of the query itself the list leaves its inline room.
void Constrain(QueryConstraints& constraints) {
  ASSERT_TRUE(
      constraints.process_filters.Add(ProcessFilter([](const Process& process) { return process.proc_pid >= 10; })));
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([](const Row&) { return true; })));
  }
}

// Rows may go missing only with a record of it at level 5 or a false.
TEST_P(MemoryTest, QueryNeverLosesRowsInSilence) {
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    Fill(writer, 50);
  }
  std::set<std::string> met;
  bool reached = true;
  for (u64 n = 0; reached; ++n) {
    QueryConstraints constraints(kDay, kDay + 86399);
    Constrain(constraints);
    Rows rows;
    LogCapture log;
    Arm(n);
    const bool good = DBManager::Query(kFolder, constraints, rows.Sink());
    reached = Disarm();
    if (!good || rows.records.size() != 40) {
      EXPECT_TRUE(reached) << n;
      EXPECT_GT(log.CountLevel(5), 0) << n;
    }
    for (const LogCapture::Entry& entry : log.Entries()) {
      met.insert(entry.name);
    }
    EXPECT_EQ(constraints.ip_filters.count, 3U) << n;
    rows.records.clear();
    EXPECT_TRUE(DBManager::Query(kFolder, constraints, rows.Sink()));
    EXPECT_EQ(rows.records.size(), 40U) << n;
  }
  EXPECT_EQ(met.count("netdb_storage.QueryFileSkipped"), 1U);
  if (GetParam() == Memory::kModule) {
    for (const char* name : {"MatchedArrayNotCreated", "MatchedNotSetUp", "ProcessMatchFailed", "ProcessWalkEnded",
                             "FilterNotAdded", "QueryEnded"}) {
      EXPECT_EQ(met.count(std::string("netdb_storage.") + name), 1U) << name;
    }
  }
}

// A path that outgrows the scratch area of a query needs memory for each file.
TEST_P(MemoryTest, LongPathThatFindsNoMemoryEndsTheQuery) {
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    const Process process = MakeProcess(std::string(2000, 'x'), 1);
    ASSERT_TRUE(writer.Add(Message(1), &process));
  }
  QueryConstraints constraints(0, kAllOnes64);
  std::set<std::string> met;
  bool reached = true;
  for (u64 n = 0; reached; ++n) {
    Rows rows;
    LogCapture log;
    Arm(n);
    const bool good = DBManager::Query(kFolder, constraints, rows.Sink());
    reached = Disarm();
    EXPECT_TRUE(rows.records.size() == 1 || log.CountLevel(5) > 0) << n;
    EXPECT_TRUE(good || reached) << n;
    for (const LogCapture::Entry& entry : log.Entries()) {
      met.insert(entry.name);
    }
  }
  EXPECT_EQ(met.count("netdb_storage.RowPointsNowhere"), GetParam() == Memory::kBase ? 1U : 0U);
}

std::string NameOf(const testing::TestParamInfo<Memory>& info) {
  return info.param == Memory::kModule ? "Module" : "Base";
}

INSTANTIATE_TEST_SUITE_P(Memories, MemoryTest, testing::Values(Memory::kModule, Memory::kBase), &NameOf);

// The second file's match of processes fails; the rows of the first stay given.
TEST(QueryMemory, MatchThatCannotBeSetUpEndsTheQueryAfterTheRowsBefore) {
  Sim::Reset();
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  for (const u64 day : {kDay, kNextDay}) {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    const Process process = MakeProcess("/bin/a");
    ASSERT_TRUE(writer.Add(MakeMessage(day, Address(10, 0, 0, 1), 1), &process));
  }
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  bool met = false;
  for (u64 n = 0; !met; ++n) {
    QueryConstraints constraints(0, kAllOnes64);
    ASSERT_TRUE(constraints.process_filters.Add(ProcessFilter([](const Process&) { return true; })));
    Rows rows;
    LogCapture log;
    const u64 failures = allocator.Failures();
    allocator.FailFrom(n);
    const bool good = DBManager::Query(kFolder, constraints, rows.Sink());
    allocator.FailFrom(CountingAllocator::kNever);
    ASSERT_GT(allocator.Failures(), failures) << "no such failure in the whole query";
    met = rows.records.size() == 1 && log.Count("netdb_storage.MatchedNotSetUp") == 1;
    if (met) {
      EXPECT_FALSE(good);
      EXPECT_EQ(log.Lines(),
                (std::vector<std::string>{"5 velmar.ArrayNoMemory", "5 netdb_storage.MatchedArrayNotCreated",
                                          "5 netdb_storage.MatchedNotSetUp", "5 netdb_storage.QueryEnded"}));
    }
  }
  EXPECT_EQ(allocator.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

TEST(QueryMemory, RowsOfAQueryNeedNoMemory) {
  Sim::Reset();
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  const auto allocationsOfAQuery = [](u16 number) {
    {
      DBManager writer;
      EXPECT_TRUE(writer.SetFolder(kFolder));
      const Process process = MakeProcess("/bin/a");
      for (u16 i = 0; i < number; ++i) {
        EXPECT_TRUE(writer.Add(MakeMessage(kDay, Address(10, 0, 0, 1), i), &process));
      }
    }
    CountingAllocator allocator;
    Velmar::Collections::SetModuleAllocator(&allocator);
    const u64 base = Sim::CountAllocations();
    u32 rows = 0;
    QueryConstraints constraints(kDay, kNextDay);
    EXPECT_TRUE(DBManager::Query(kFolder, constraints, [&rows](const QueryRecord&) {
      ++rows;
      return true;
    }));
    EXPECT_EQ(rows, number);
    Velmar::Collections::SetModuleAllocator(nullptr);
    Sim::RemoveFile(DayPath(kDay));
    return allocator.Allocations() + Sim::CountAllocations() - base;
  };
  const u64 few = allocationsOfAQuery(1000);
  const u64 many = allocationsOfAQuery(1001);
  EXPECT_EQ(few, many);
}

}  // namespace
