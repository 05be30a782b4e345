// ProcessesDB: its way into a store and back, its index arrays, and the walks over it.
#include <gtest/gtest.h>

#include "Velmar/Collections/ModuleMemory.h"
#include "platform/sim/Sim.h"
#include "tests/netdb_storage/Tables.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = ProcessesDBTestAccess;
using Lines = std::vector<std::string>;

std::vector<u32> Numbers(Array<u32>& array) {
  return {array.data, array.data + array.count};
}

class ProcessesDBStoreTest : public testing::Test {
 protected:
  void SetUp() override { SyncEmpty(processes); }

  u32 AddReferenced(const char* path) {
    const u32 index = processes.Add(MakeProcess(path));
    EXPECT_TRUE(processes.AddRef(index));
    return index;
  }

  ProcessesDB processes;
  MemoryStore store;
};

TEST_F(ProcessesDBStoreTest, TableRoundTripsWithItsFreeSlots) {
  AddReferenced("/z");
  AddReferenced("/m");
  AddReferenced("/a");
  ASSERT_TRUE(processes.Release(1));
  ASSERT_TRUE(processes.Flush(store));
  EXPECT_EQ(store.Get("p").size(), processes.GetSerializedSize());

  ProcessesDB loaded;
  ASSERT_TRUE(loaded.SyncWith(store));
  EXPECT_EQ(loaded.GetCount(), 3U);
  EXPECT_EQ(Numbers(Access::SortedIndex(loaded)), (std::vector<u32>{2, 0})) << "by process";
  EXPECT_EQ(Numbers(Access::FreeSlots(loaded)), (std::vector<u32>{1}));
  EXPECT_EQ(loaded.GetSerializedSize(), processes.GetSerializedSize());
  CheckInvariants(loaded);
  Process out;
  EXPECT_TRUE(loaded.Get(2, out));
  EXPECT_TRUE(out == MakeProcess("/a"));
  EXPECT_EQ(Access::Records(loaded).data[0].ref_count, 1);
}

TEST_F(ProcessesDBStoreTest, FrameHoldsCeilingAndFlags) {
  AddReferenced("/z");
  ASSERT_TRUE(processes.Flush(store));
  std::vector<u8> frame = store.Get("p");
  frame.resize(14);
  EXPECT_EQ(frame, (std::vector<u8>{1, 0, 1, 0, 0, 0, 0, 0, 2, 0, 0x64, 0, 0, 0x10}));
}

TEST_F(ProcessesDBStoreTest, StoreWithoutTheKeyEmptiesTheTable) {
  AddReferenced("/z");
  LogCapture log;
  ASSERT_TRUE(processes.SyncWith(store));
  EXPECT_EQ(processes.GetCount(), 0U);
  EXPECT_EQ(processes.GetSerializedSize(), 14U);
  EXPECT_EQ(log.Lines(), Lines{});
  CheckInvariants(processes);
}

TEST_F(ProcessesDBStoreTest, SyncAndReindexAreTimedForTheLog) {
  LogCapture log;
  ASSERT_TRUE(processes.SyncWith(store));
  EXPECT_EQ(log.Count("netdb_storage.ProcessSyncTimed"), 1);
  EXPECT_EQ(log.Count("netdb_storage.ReindexTimed"), 1);
}

// The index arrays must not point at rows that are gone.
TEST_F(ProcessesDBStoreTest, ValueThatCannotBeReadLeavesAnEmptyUsableTable) {
  AddReferenced("/z");
  ASSERT_TRUE(processes.Flush(store));
  const std::vector<u8> whole = store.Get("p");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    AddReferenced("/y");
    store.Put("p", {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
    LogCapture log;
    EXPECT_FALSE(processes.SyncWith(store)) << length;
    EXPECT_EQ(log.Names(5).back(), "netdb_storage.ProcessTableNotRead");
    EXPECT_EQ(processes.GetCount(), 0U);
    CheckInvariants(processes);
    EXPECT_EQ(processes.Add(MakeProcess("/x")), 0U);
  }
}

TEST_F(ProcessesDBStoreTest, VersionTwoIsRefused) {
  store.Put("p", {2, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0x64, 0, 0, 0x10});
  LogCapture log;
  EXPECT_FALSE(processes.SyncWith(store));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayVersionUnknown", "5 netdb_storage.ProcessTableNotRead"}));
}

TEST_F(ProcessesDBStoreTest, CountAboveTheCeilingIsRefused) {
  store.Put("p", {1, 0, 3, 0, 0, 0, 2, 0, 0, 0, 0x64, 0, 0, 0x10});
  LogCapture log;
  EXPECT_FALSE(processes.SyncWith(store));
  EXPECT_EQ(log.Lines(),
            (Lines{"3 velmar.ArrayCountAboveCeiling", "5 velmar.ArrayNotRead", "5 netdb_storage.ProcessTableNotRead"}));
}

// The value is longer than its text; the row's fields follow.
std::vector<u8> Rows(const std::vector<ProcessRecord>& rows, u32 ceiling) {
  Value bytes;
  EXPECT_NE(bytes->PushUInt16(1), kNone);
  EXPECT_NE(bytes->PushUInt32(static_cast<u32>(rows.size())), kNone);
  EXPECT_NE(bytes->PushUInt32(ceiling), kNone);
  EXPECT_NE(bytes->PushUInt32(0x10000064), kNone);
  for (const ProcessRecord& row : rows) {
    EXPECT_TRUE(row.Serialize(*bytes));
  }
  return Bytes(*bytes);
}

TEST_F(ProcessesDBStoreTest, MoreRowsThanAnIndexMayHoldAreRefused) {
  std::vector<ProcessRecord> rows(ProcessesDB::kMaxRecords + 1);
  store.Put("p", Rows(rows, 0x30000));
  ProcessesDB loaded;
  LogCapture log;
  EXPECT_FALSE(loaded.SyncWith(store));
  EXPECT_EQ(log.Names(5), (Lines{"netdb_storage.SortedIndexNotSetUp", "netdb_storage.ProcessTableNotIndexed"}));
  EXPECT_EQ(loaded.GetCount(), 0U);
}

// Past the ceiling that a file brings the next load would be refused.
TEST_F(ProcessesDBStoreTest, CeilingOfAFileHoldsBelowTheCapacity) {
  std::vector<ProcessRecord> rows(3);
  for (u32 i = 0; i < 3; ++i) {
    rows[i].proc_pid = i;
  }
  store.Put("p", Rows(rows, 3));
  ASSERT_TRUE(processes.SyncWith(store));
  LogCapture log;
  EXPECT_EQ(processes.Add(MakeProcess("/new")), kNone);
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.ProcessTableFull",
                                "5 netdb_storage.ProcessNotAdded"}));
  ASSERT_TRUE(processes.Flush(store));
  EXPECT_TRUE(processes.SyncWith(store));
  EXPECT_EQ(processes.GetCount(), 3U);
}

TEST_F(ProcessesDBStoreTest, FreeSlotWithContentIsNoticedAndStaysFree) {
  std::vector<ProcessRecord> rows(2);
  rows[0].ref_count = -1;
  rows[0].proc_pid = 5;
  rows[1].proc_pid = 6;
  store.Put("p", Rows(rows, 0x20000));
  LogCapture log;
  ASSERT_TRUE(processes.SyncWith(store));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FreeSlotNotEmpty"}));
  EXPECT_EQ(Numbers(Access::FreeSlots(processes)), (std::vector<u32>{0}));
  EXPECT_EQ(processes.Add(MakeProcess("/new")), 0U);
  CheckInvariants(processes);
}

TEST_F(ProcessesDBStoreTest, SetUpWithoutMemoryOrLockFails) {
  for (u32 step = 0; step < 3; ++step) {
    CountingAllocator allocator;
    Velmar::Collections::SetModuleAllocator(&allocator);
    auto* made = Velmar::Collections::New<ProcessesDB>();
    ASSERT_NE(made, nullptr);
    ProcessesDB& fresh = *made;
    LogCapture log;
    allocator.FailFrom(step);
    const bool good = fresh.SyncWith(store);
    if (step < 2) {
      EXPECT_FALSE(good);
      EXPECT_EQ(log.Names(5), step == 0 ? (Lines{"velmar.ArrayNoMemory", "netdb_storage.ProcessTableNotSetUp"})
                                        : (Lines{"velmar.ArrayNoMemory", "netdb_storage.SortedIndexNotSetUp",
                                                 "netdb_storage.ProcessTableNotIndexed"}));
    } else {
      EXPECT_TRUE(good) << "an empty table needs no free slots";
    }
    allocator.FailFrom(CountingAllocator::kNever);
    EXPECT_TRUE(fresh.SyncWith(store));
    EXPECT_EQ(fresh.Add(MakeProcess("/x")), 0U);
    Velmar::Collections::Delete(made);
    EXPECT_EQ(allocator.Out(), 0U);
    Velmar::Collections::SetModuleAllocator(nullptr);
  }
  for (u32 step = 0; step < 3; ++step) {
    ProcessesDB fresh;
    LogCapture log;
    Velmar::Sim::FailMutexCreate(3 - step);
    while (!fresh.SyncWith(store)) {
      EXPECT_EQ(log.Names(5).front(), "velmar.ArrayNoLock");
    }
    EXPECT_EQ(fresh.Add(MakeProcess("/x")), 0U);
  }
}

TEST_F(ProcessesDBStoreTest, FreeSlotsThatCannotBeSetUpFailTheSync) {
  std::vector<ProcessRecord> rows(3);
  for (ProcessRecord& row : rows) {
    row.ref_count = -1;
  }
  store.Put("p", Rows(rows, 0x20000));
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  {
    ProcessesDB fresh;
    LogCapture log;
    allocator.FailFrom(2);
    EXPECT_FALSE(fresh.SyncWith(store));
    EXPECT_EQ(log.Names(5), (Lines{"velmar.ArrayNoMemory", "netdb_storage.FreeSlotsNotSetUp",
                                   "netdb_storage.ProcessTableNotIndexed"}));
    EXPECT_TRUE(fresh.SyncWith(store));
    EXPECT_EQ(Numbers(Access::FreeSlots(fresh)), (std::vector<u32>{0, 1, 2}));
  }
  EXPECT_EQ(allocator.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

// Many free slots outgrow the room that their array starts with.
TEST_F(ProcessesDBStoreTest, RowNumberThatFindsNoMemoryFailsTheSync) {
  std::vector<ProcessRecord> rows(100);
  for (ProcessRecord& row : rows) {
    row.ref_count = -1;
  }
  store.Put("p", Rows(rows, 0x20000));
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  {
    ProcessesDB fresh;
    LogCapture log;
    allocator.FailFrom(4);  // behind records twice, sorted_index and free_slots
    EXPECT_FALSE(fresh.SyncWith(store));
    EXPECT_EQ(log.Names(5), (Lines{"velmar.ArrayNoMemory", "netdb_storage.RowNumberNotKept",
                                   "netdb_storage.ProcessTableNotIndexed"}));
    EXPECT_EQ(fresh.GetCount(), 0U);
    CheckInvariants(fresh);
    EXPECT_TRUE(fresh.SyncWith(store));
    CheckInvariants(fresh);
  }
  EXPECT_EQ(allocator.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

class ProcessesDBQueryTest : public ProcessesDBStoreTest {
 protected:
  void SetUp() override {
    ProcessesDBStoreTest::SetUp();
    // Row order and path order differ.
    for (const char* path : {"/m", "/c", "/x", "/a"}) {
      AddReferenced(path);
    }
    ASSERT_TRUE(paths.Create(0, 16, 4, false, GrowType::kFixedStep));
  }
  void Want(const char* path) { ASSERT_TRUE(paths.Add(String(path, true))); }
  // Filters by the function, which stays with the test.
  void FilterBy(bool (*filter)(const Process&)) { ASSERT_TRUE(filters.Add(ProcessFilter(filter))); }
  ProcessesDB::Sink Collect(u32 most = 100) {
    return [this, most](u32 index, const Process& process) {
      EXPECT_STREQ(process.proc_fpath.text, Access::Records(processes).data[index].proc_fpath.text);
      found.push_back(index);
      return found.size() < most;
    };
  }

  Array<String> paths;
  Array<ProcessFilter> filters;
  std::vector<u32> found;
};

TEST_F(ProcessesDBQueryTest, PathsFindTheirRowsInProcessOrder) {
  const u32 second = processes.Add(MakeProcess("/c", 77));
  Want("/a");
  Want("/c");
  Want("/zzz");
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0], 3U);
  EXPECT_EQ((std::vector<u32>{std::min(found[1], found[2]), std::max(found[1], found[2])}),
            (std::vector<u32>{1, second}));
}

TEST_F(ProcessesDBQueryTest, UnknownPathFindsNothing) {
  Want("/nothing");
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_EQ(found, std::vector<u32>{});
}

TEST_F(ProcessesDBQueryTest, CaseCountsByTheRuleOfTheFileSystem) {
  Want("/C");
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_EQ(found, std::vector<u32>{});
  Velmar::Sim::SetCaseSensitive(false);
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_EQ(found, (std::vector<u32>{1}));
}

// The index keeps the exact order, "/B" before "/a", and the walk has left "/a" behind when it is past "/B".
TEST_F(ProcessesDBQueryTest, WalkThatIgnoresCaseMayPassARowBy) {
  Velmar::Sim::SetCaseSensitive(false);
  AddReferenced("/B");
  Want("/a");
  Want("/b");
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_EQ(found, (std::vector<u32>{4})) << "/B, and not /a";
}

TEST_F(ProcessesDBQueryTest, FiltersSkipRowsAndTheFirstFalseDecides) {
  Want("/a");
  Want("/m");
  FilterBy([](const Process& process) { return !(process == MakeProcess("/m")); });
  FilterBy([](const Process& process) {
    EXPECT_STRNE(process.proc_fpath.text, "/m") << "the first filter has refused it";
    return true;
  });
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_EQ(found, (std::vector<u32>{3}));
}

TEST_F(ProcessesDBQueryTest, SinkThatRefusesFailsTheWalkOverPaths) {
  Want("/a");
  Want("/c");
  LogCapture log;
  EXPECT_FALSE(processes.Query(paths, filters, Collect(1)));
  EXPECT_EQ(found.size(), 1U);
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.MergeVisitEnded"}));
}

TEST_F(ProcessesDBQueryTest, AllLiveRowsComeInRowOrder) {
  ASSERT_TRUE(processes.Release(1));
  FilterBy([](const Process& process) { return process.proc_fpath.text[1] != 'm'; });
  EXPECT_TRUE(processes.Query(filters, Collect()));
  EXPECT_EQ(found, (std::vector<u32>{2, 3}));
}

TEST_F(ProcessesDBQueryTest, SinkThatRefusesEndsTheWalkOverAllRowsWithTrue) {
  LogCapture log;
  EXPECT_TRUE(processes.Query(filters, Collect(2)));
  EXPECT_EQ(found, (std::vector<u32>{0, 1}));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.ProcessWalkEnded"}));
}

TEST_F(ProcessesDBQueryTest, FreeRowThatIsNotEmptyIsNoticedAndSkipped) {
  ASSERT_TRUE(processes.Release(1));
  Access::Records(processes).data[1].proc_pid = 4;
  LogCapture log;
  EXPECT_TRUE(processes.Query(filters, Collect()));
  EXPECT_EQ(found, (std::vector<u32>{0, 2, 3}));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FreeSlotNotEmpty"}));
}

TEST_F(ProcessesDBQueryTest, TableWithoutLiveRowsIsNotWalked) {
  std::vector<ProcessRecord> rows(2);
  rows[0].ref_count = rows[1].ref_count = -1;
  store.Put("p", Rows(rows, 0x20000));
  ASSERT_TRUE(processes.SyncWith(store));
  Want("");
  EXPECT_TRUE(processes.Query(paths, filters, Collect()));
  EXPECT_TRUE(processes.Query(filters, Collect()));
  EXPECT_EQ(found, std::vector<u32>{});
}

}  // namespace
