// ProcessesDB: row numbers, references, free slots and what refuses.
#include "common/netdb_storage/ProcessesDB.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/sim/Sim.h"
#include "tests/netdb_storage/Tables.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = ProcessesDBTestAccess;
using Lines = std::vector<std::string>;

class ProcessesDBTest : public testing::Test {
 protected:
  void SetUp() override { SyncEmpty(processes); }
  void TearDown() override { CheckInvariants(processes); }

  // Rows 0 to number - 1, each with one reference.
  void AddReferenced(u32 number) {
    for (u32 i = 0; i < number; ++i) {
      const u32 index = processes.Add(MakeProcess("/bin/" + std::to_string(i), i));
      ASSERT_EQ(index, i);
      ASSERT_TRUE(processes.AddRef(index));
    }
  }
  std::vector<u32> Free() {
    auto& slots = Access::FreeSlots(processes);
    return {slots.data, slots.data + slots.count};
  }
  i32 References(u32 index) { return Access::Records(processes).data[index].ref_count; }

  ProcessesDB processes;
};

TEST_F(ProcessesDBTest, SameProcessTwiceGetsOneRow) {
  EXPECT_EQ(processes.Add(MakeProcess("/bin/a")), 0U);
  EXPECT_EQ(processes.Add(MakeProcess("/bin/a")), 0U);
  EXPECT_EQ(processes.GetCount(), 1U);
  EXPECT_EQ(References(0), 0) << "a look-up is no reference";
}

TEST_F(ProcessesDBTest, ProcessesThatDifferInTheirNumberAloneGetTwoRows) {
  Process one = MakeProcess("/bin/a");
  EXPECT_EQ(processes.Add(one), 0U);
  one.proc_pid = 99;
  EXPECT_EQ(processes.Add(one), 1U);
  EXPECT_EQ(processes.GetCount(), 2U);
}

TEST_F(ProcessesDBTest, EmptyProcessGetsNoRow) {
  LogCapture log;
  EXPECT_EQ(processes.Add(Process()), kNone);
  EXPECT_EQ(processes.GetCount(), 0U);
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(ProcessesDBTest, RowsKeepTheirNumbersInAnyOrderOfArrival) {
  const u32 kNumber = 500;
  for (u32 i = 0; i < kNumber; ++i) {
    EXPECT_EQ(processes.Add(MakeProcess("/bin/" + std::to_string(i * 7919 % kNumber), i % 3)), i);
  }
  CheckInvariants(processes);
  for (u32 i = 0; i < kNumber; ++i) {
    EXPECT_EQ(processes.Add(MakeProcess("/bin/" + std::to_string(i * 7919 % kNumber), i % 3)), i);
  }
  EXPECT_EQ(processes.GetCount(), kNumber);
}

TEST_F(ProcessesDBTest, AddIsTimedForTheLog) {
  LogCapture log;
  processes.Add(MakeProcess("/bin/a"));
  ASSERT_EQ(log.Count("netdb_storage.ProcessAddTimed"), 1);
  EXPECT_EQ(log.Entries().back().level, 1U);
}

TEST_F(ProcessesDBTest, GetCopiesALiveRow) {
  processes.Add(MakeProcess("/bin/a", 5));
  Process out;
  ASSERT_TRUE(processes.Get(0, out));
  EXPECT_TRUE(out == MakeProcess("/bin/a", 5));
}

TEST_F(ProcessesDBTest, BadIndexIsRefused) {
  AddReferenced(3);
  ASSERT_TRUE(processes.Release(1));
  Process out;
  const std::pair<u32, const char*> kCases[] = {
      {kNone, "3 netdb_storage.NoProcessIndex"},
      {3, "3 netdb_storage.ProcessIndexOutOfRange"},
      {1, "3 netdb_storage.ProcessRowIsFree"},
  };
  for (const auto& [index, line] : kCases) {
    LogCapture log;
    EXPECT_FALSE(processes.AddRef(index));
    EXPECT_FALSE(processes.Release(index));
    EXPECT_FALSE(processes.Get(index, out));
    EXPECT_EQ(log.Lines(), (Lines{line, line, line}));
    if (index != kNone) {
      EXPECT_EQ(log.Entries().back().arguments, (Lines{std::to_string(index)}));
    }
  }
}

TEST_F(ProcessesDBTest, FreeSlotThatIsNotEmptyIsNoticed) {
  AddReferenced(2);
  ASSERT_TRUE(processes.Release(0));
  Access::Records(processes).data[0].proc_pid = 9;
  LogCapture log;
  EXPECT_FALSE(processes.AddRef(0));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FreeSlotNotEmpty", "3 netdb_storage.ProcessRowIsFree"}));
  Access::Records(processes).data[0].proc_pid = -1;
}

TEST_F(ProcessesDBTest, ReferenceCountStopsAtItsLargestValue) {
  processes.Add(MakeProcess("/bin/a"));
  Access::Records(processes).data[0].ref_count = std::numeric_limits<i32>::max();
  LogCapture log;
  EXPECT_FALSE(processes.AddRef(0));
  EXPECT_EQ(log.Lines(), (Lines{"3 netdb_storage.ReferencesAtLimit"}));
  EXPECT_EQ(References(0), std::numeric_limits<i32>::max());
}

TEST_F(ProcessesDBTest, ReleaseWithoutReferenceIsRefused) {
  processes.Add(MakeProcess("/bin/a"));
  LogCapture log;
  EXPECT_FALSE(processes.Release(0));
  EXPECT_EQ(log.Lines(), (Lines{"3 netdb_storage.NoReferenceToRelease"}));
  EXPECT_EQ(References(0), 0);
}

TEST_F(ProcessesDBTest, RowStaysWhileItHasReferences) {
  AddReferenced(1);
  ASSERT_TRUE(processes.AddRef(0));
  EXPECT_TRUE(processes.Release(0));
  EXPECT_EQ(References(0), 1);
  EXPECT_EQ(processes.GetCount(), 1U);
}

TEST_F(ProcessesDBTest, MiddleRowIsReusedByTheNextNewProcess) {
  AddReferenced(3);
  LogCapture log;
  EXPECT_TRUE(processes.Release(1));
  EXPECT_EQ(processes.GetCount(), 3U);
  EXPECT_EQ(Free(), (std::vector<u32>{1}));
  EXPECT_EQ(log.Lines(), Lines{});
  CheckInvariants(processes);
  EXPECT_EQ(processes.Add(MakeProcess("/usr/bin/new")), 1U);
  EXPECT_EQ(References(1), 0);
  EXPECT_EQ(Free(), std::vector<u32>{});
  EXPECT_EQ(processes.Add(MakeProcess("/usr/bin/newer")), 3U);
}

TEST_F(ProcessesDBTest, FreeSlotsAreReusedFromTheEnd) {
  AddReferenced(5);
  for (const u32 index : {1U, 3U, 0U}) {
    EXPECT_TRUE(processes.Release(index));
  }
  EXPECT_EQ(processes.Add(MakeProcess("/x")), 0U);
  EXPECT_EQ(processes.Add(MakeProcess("/y")), 3U);
  EXPECT_EQ(processes.Add(MakeProcess("/z")), 1U);
}

TEST_F(ProcessesDBTest, LastRowGoesAndTheFreeOnesBelowItGoToo) {
  AddReferenced(5);
  ASSERT_TRUE(processes.Release(3));
  ASSERT_TRUE(processes.Release(1));
  ASSERT_TRUE(processes.Release(2));
  LogCapture log;
  EXPECT_TRUE(processes.Release(4));
  EXPECT_EQ(processes.GetCount(), 1U);
  EXPECT_EQ(Free(), std::vector<u32>{});
  EXPECT_EQ(log.Lines(), (Lines{"2 netdb_storage.RowsTrimmed"}));
  EXPECT_EQ(log.Arguments("netdb_storage.RowsTrimmed"), (Lines{"4"}));
}

TEST_F(ProcessesDBTest, ReleaseOfTheOnlyRowEmptiesTheTable) {
  AddReferenced(1);
  EXPECT_TRUE(processes.Release(0));
  EXPECT_EQ(processes.GetCount(), 0U);
  EXPECT_EQ(processes.GetSerializedSize(), 14U);
}

TEST_F(ProcessesDBTest, ReleaseOfARowThatIsNotIndexedFails) {
  AddReferenced(2);
  auto& sorted = Access::SortedIndex(processes);
  ASSERT_TRUE(sorted.RemoveAt(0));
  LogCapture log;
  EXPECT_FALSE(processes.Release(0));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.ReleasedRowNotIndexed"}));
  ASSERT_TRUE(sorted.InsertAt(0, 0));
}

TEST_F(ProcessesDBTest, TrimmedRowThatIsNotAFreeSlotFails) {
  AddReferenced(3);
  ASSERT_TRUE(processes.Release(1));
  auto& free = Access::FreeSlots(processes);
  ASSERT_TRUE(free.PopBack());
  LogCapture log;
  EXPECT_FALSE(processes.Release(2));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.TrimmedRowNotFree"}));
  ASSERT_TRUE(free.Add(1));
}

TEST_F(ProcessesDBTest, ReleaseWithoutMemoryForTheFreeSlotChangesNothing) {
  AddReferenced(2);
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  allocator.FailFrom(0);
  LogCapture log;
  EXPECT_FALSE(processes.Release(0));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 netdb_storage.FreeSlotNotKept"}));
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(References(0), 1);
  CheckInvariants(processes);
  EXPECT_TRUE(processes.Release(0));
}

TEST_F(ProcessesDBTest, FreeSlotOutsideTheTableIsRefused) {
  AddReferenced(1);
  auto& free = Access::FreeSlots(processes);
  ASSERT_TRUE(free.Add(7));
  LogCapture log;
  EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FreeSlotOutOfRange"}));
  EXPECT_EQ(log.Arguments("netdb_storage.FreeSlotOutOfRange"), (Lines{"7"}));
  EXPECT_EQ(processes.Add(MakeProcess("/new")), 1U);
}

TEST_F(ProcessesDBTest, FreeSlotsWithoutStorageAreRefused) {
  AddReferenced(1);
  auto& free = Access::FreeSlots(processes);
  ASSERT_EQ(free.data, nullptr) << "an empty table reserves none";
  free.count = 1;
  {
    LogCapture log;
    EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
    EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayWithoutData", "5 netdb_storage.FreeSlotNotTaken"}));
  }
  free.count = 0;
  EXPECT_EQ(processes.Add(MakeProcess("/new")), 1U);
}

// The path has no memory: a reused slot goes back, a new row is never made.
TEST_F(ProcessesDBTest, PathThatCannotBeCopiedLeavesNoTrace) {
  AddReferenced(3);
  ASSERT_TRUE(processes.Release(1));
  const Process added = MakeProcess(std::string(300, 'x'));
  {
    LogCapture log;
    Velmar::Sim::FailAllocation(0);
    EXPECT_EQ(processes.Add(added), kNone);
    EXPECT_EQ(log.Names(5), (Lines{"netdb_storage.ProcessNotCopied"}));
  }
  EXPECT_EQ(Free(), (std::vector<u32>{1}));
  CheckInvariants(processes);
  EXPECT_EQ(processes.Add(added), 1U);

  const Process another = MakeProcess(std::string(300, 'y'));
  LogCapture log;
  Velmar::Sim::FailAllocation(0);
  EXPECT_EQ(processes.Add(another), kNone);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.ProcessNotCopied"}));
  EXPECT_EQ(processes.GetCount(), 3U);
  CheckInvariants(processes);
  EXPECT_EQ(processes.Add(another), 3U);
}

TEST(ProcessesDBMemory, IndexThatCannotGrowUndoesTheRow) {
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  {
    ProcessesDB processes;
    SyncEmpty(processes);
    for (u32 i = 0; i < 32; ++i) {
      ASSERT_EQ(processes.Add(MakeProcess("/bin/" + std::to_string(i))), i);
    }
    allocator.FailFrom(1);  // the rows grow, their index does not
    LogCapture log;
    EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
    EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 netdb_storage.ProcessNotIndexed",
                                  "3 netdb_storage.ProcessAddUndone", "3 netdb_storage.UndoneRowNotIndexed"}));
    EXPECT_EQ(log.Arguments("netdb_storage.ProcessNotIndexed"), (Lines{"32"}));
    EXPECT_EQ(processes.GetCount(), 32U) << "the undone row was the last one";
    CheckInvariants(processes);
    EXPECT_EQ(processes.Add(MakeProcess("/new")), 32U);
    CheckInvariants(processes);
  }
  EXPECT_EQ(allocator.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

TEST_F(ProcessesDBTest, UndoPutsAReusedSlotBack) {
  AddReferenced(33);
  ASSERT_TRUE(processes.Release(4));
  auto& sorted = Access::SortedIndex(processes);
  const u32 ceiling = sorted.maxCapacity;
  const u32 capacity = sorted.capacity;
  sorted.maxCapacity = sorted.count;
  sorted.capacity = sorted.count;
  {
    LogCapture log;
    EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.ProcessNotIndexed",
                                  "3 netdb_storage.ProcessAddUndone", "3 netdb_storage.UndoneRowNotIndexed"}));
  }
  EXPECT_EQ(Free(), (std::vector<u32>{4}));
  EXPECT_EQ(processes.GetCount(), 33U);
  CheckInvariants(processes);
  sorted.maxCapacity = ceiling;
  sorted.capacity = capacity;
  EXPECT_EQ(processes.Add(MakeProcess("/new")), 4U);
}

TEST_F(ProcessesDBTest, TableAtItsCeilingRefusesANewProcessAndFindsTheOldOnes) {
  AddReferenced(32);
  Access::Records(processes).maxCapacity = 32;
  LogCapture log;
  EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.ProcessTableFull",
                                "5 netdb_storage.ProcessNotAdded"}));
  EXPECT_EQ(processes.Add(MakeProcess("/bin/7", 7)), 7U);
}

TEST_F(ProcessesDBTest, TableThatWouldNotBeStorableRefusesANewProcess) {
  AddReferenced(2);
  const u32 size = processes.GetSerializedSize();
  const Process added = MakeProcess("/new");  // 76 bytes
  Access::SetSerializedSize(processes, 26000000 - 75);
  {
    LogCapture log;
    EXPECT_EQ(processes.Add(added), kNone);
    EXPECT_EQ(log.Lines(), (Lines{"3 netdb_storage.ProcessTableTooLarge", "5 netdb_storage.ProcessTableFull",
                                  "5 netdb_storage.ProcessNotAdded"}));
  }
  EXPECT_EQ(processes.Add(MakeProcess("/bin/0", 0)), 0U);
  Access::SetSerializedSize(processes, 26000000 - 76);
  EXPECT_EQ(processes.Add(added), 2U);
  EXPECT_EQ(processes.GetSerializedSize(), 26000000U);
  Access::SetSerializedSize(processes, size + 76);
}

// A free slot is stored already; only its path is new.
TEST_F(ProcessesDBTest, ReusedSlotCostsItsPathAlone) {
  AddReferenced(2);
  ASSERT_TRUE(processes.Release(0));
  const u32 size = processes.GetSerializedSize();
  Access::SetSerializedSize(processes, 26000000 - 3);
  EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
  Access::SetSerializedSize(processes, 26000000 - 4);
  EXPECT_EQ(processes.Add(MakeProcess("/new")), 0U);
  Access::SetSerializedSize(processes, size + 4);
}

TEST_F(ProcessesDBTest, SizeFollowsEveryChange) {
  AddReferenced(40);
  for (u32 i = 0; i < 40; i += 3) {
    ASSERT_TRUE(processes.Release(i));
    CheckInvariants(processes);
  }
  for (u32 i = 0; i < 20; ++i) {
    ASSERT_NE(processes.Add(MakeProcess(std::string(i + 1, 'z'))), kNone);
    CheckInvariants(processes);
  }
}

}  // namespace
