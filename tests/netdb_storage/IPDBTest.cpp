// IPDB: merging, insertion, ceilings, the way into a store and back, and the walks.
#include "common/netdb_storage/IPDB.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/sim/Sim.h"
#include "tests/netdb_storage/Tables.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = IPDBTestAccess<IPv4>;
using Lines = std::vector<std::string>;

class IPDBTest : public testing::Test {
 protected:
  void SetUp() override {
    SyncEmpty(table);
    SyncEmpty(processes);
  }
  void TearDown() override { CheckSorted(table); }

  Array<Row>& Rows() { return Access::Rows(table); }
  bool Add(IPv4 address, u16 port, u32 process = kNone) {
    return table.Add(MakeRow(address, process, port), processes);
  }
  std::vector<u16> Ports() {
    std::vector<u16> ports;
    for (u32 i = 0; i < Rows().count; ++i) {
      ports.push_back(Rows().data[i].port);
    }
    return ports;
  }

  IPDB<IPv4> table;
  ProcessesDB processes;
};

TEST_F(IPDBTest, FirstRowIsInsertedAtTheStartWithOneReference) {
  const u32 process = processes.Add(MakeProcess("/bin/a"));
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80, process));
  EXPECT_EQ(table.GetCount(), 1U);
  EXPECT_EQ(Rows().data[0].port, 80U);
  CheckReferences(table, processes);
}

TEST_F(IPDBTest, SecondMessageOfAKeyMergesWithoutAReference) {
  const u32 process = processes.Add(MakeProcess("/bin/a"));
  Row row = MakeRow(Address(10, 0, 0, 1), process, 80);
  row.first_seen = row.last_seen = 100;
  ASSERT_TRUE(table.Add(row, processes));
  row.first_seen = row.last_seen = 5000;
  ASSERT_TRUE(table.Add(row, processes));
  EXPECT_EQ(table.GetCount(), 1U);
  EXPECT_EQ(u64{Rows().data[0].first_seen}, 100U);
  EXPECT_EQ(u64{Rows().data[0].last_seen}, 5000U);
  EXPECT_EQ(Rows().data[0].conns_total, 2U);
  CheckReferences(table, processes);
}

TEST_F(IPDBTest, ProcessesOfOneAddressAndPortStandSideBySide) {
  const u32 a = processes.Add(MakeProcess("/bin/a"));
  const u32 b = processes.Add(MakeProcess("/bin/b"));
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80, b));
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80, a));
  ASSERT_EQ(table.GetCount(), 3U);
  EXPECT_EQ(Rows().data[0].proc_index, a);
  EXPECT_EQ(Rows().data[1].proc_index, b);
  EXPECT_EQ(Rows().data[2].proc_index, kNone) << "no process is the highest number, and never merges with process 0";
  CheckReferences(table, processes);
}

TEST_F(IPDBTest, AnyOrderOfArrivalGivesTheSortedTable) {
  std::mt19937 random(1);
  for (u32 i = 0; i < 5000; ++i) {
    const auto octet = static_cast<u8>(random() % 7);
    ASSERT_TRUE(Add(Address(octet, 0, static_cast<u8>(random() % 11), 1), static_cast<u16>(random() % 13)));
  }
  CheckSorted(table);
  EXPECT_LE(table.GetCount(), 7U * 11 * 13);
  u64 total = 0;
  for (u32 i = 0; i < table.GetCount(); ++i) {
    total += Rows().data[i].conns_total;
  }
  EXPECT_EQ(total, 5000U) << "each message counts once";
}

TEST_F(IPDBTest, InsertIsTimedForTheLogAndAMergeIsNot) {
  LogCapture log;
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  EXPECT_EQ(log.Lines(1), (Lines{"1 netdb_storage.RowInsertTimed"}));
  log.Clear();
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(IPDBTest, KnownKeyNeedsNoMemory) {
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  const u64 before = Velmar::Sim::CountAllocations();
  EXPECT_TRUE(Add(Address(10, 0, 0, 1), 80));
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(allocator.Allocations(), 0U);
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
}

TEST_F(IPDBTest, RowsThatAreNotThereAreRefused) {
  LogCapture log;
  Rows().count = Rows().capacity + 1;
  EXPECT_FALSE(Add(Address(10, 0, 0, 1), 80));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.RowMissing"}));
  Rows().count = 0;
}

TEST_F(IPDBTest, MergeOfAnotherKeyIsRefused) {
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  LogCapture log;
  EXPECT_FALSE(Access::Merge(table, 0, MakeRow(Address(10, 0, 0, 1), kNone, 81)));
  EXPECT_EQ(log.Lines(), (Lines{"3 netdb_storage.RowKeysDiffer", "5 netdb_storage.RowNotMerged"}));
}

TEST_F(IPDBTest, CeilingRefusesANewKeyAndKeepsTheRows) {
  for (u16 port = 0; port < 16; ++port) {
    ASSERT_TRUE(Add(Address(10, 0, 0, 1), port));
  }
  Rows().maxCapacity = 16;
  const std::vector<u16> before = Ports();
  LogCapture log;
  EXPECT_FALSE(Add(Address(10, 0, 0, 0), 99));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.AddressTableFull",
                                "5 netdb_storage.RowNotInserted"}));
  EXPECT_EQ(log.Arguments("velmar.ArrayCeilingReached"), (Lines{"16"}));
  EXPECT_EQ(Ports(), before);
  EXPECT_TRUE(Add(Address(10, 0, 0, 1), 3)) << "known keys go on";
}

TEST_F(IPDBTest, GrowthWithoutMemoryLeavesTheTable) {
  for (u16 port = 0; port < 16; ++port) {
    ASSERT_TRUE(Add(Address(10, 0, 0, 1), port));
  }
  const std::vector<u16> before = Ports();
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  allocator.FailFrom(0);
  LogCapture log;
  EXPECT_FALSE(Add(Address(10, 0, 0, 0), 99));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 netdb_storage.RowNotInserted"}));
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(Ports(), before);
  EXPECT_TRUE(Add(Address(10, 0, 0, 0), 99));
  EXPECT_EQ(table.GetCount(), 17U);
  EXPECT_EQ(Rows().capacity, 16U + 1024);
}

TEST_F(IPDBTest, FixedAreaIsNotLeft) {
  for (u16 port = 0; port < 16; ++port) {
    ASSERT_TRUE(Add(Address(10, 0, 0, 1), port));
  }
  Rows().flagWord |= Velmar::Collections::ArrayFlags::kFixedArea;
  LogCapture log;
  EXPECT_FALSE(Add(Address(10, 0, 0, 0), 99));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayAreaIsFixed", "5 netdb_storage.RowNotInserted"}));
  Rows().flagWord &= ~Velmar::Collections::ArrayFlags::kFixedArea;
}

TEST_F(IPDBTest, RowWhoseProcessIsMissingStaysWithoutItsReference) {
  LogCapture log;
  EXPECT_FALSE(Add(Address(10, 0, 0, 1), 80, 5));
  EXPECT_EQ(log.Lines(), (Lines{"3 netdb_storage.ProcessIndexOutOfRange", "5 netdb_storage.RowWithoutReference"}));
  EXPECT_EQ(log.Arguments("netdb_storage.RowWithoutReference"), (Lines{"5"}));
  EXPECT_EQ(table.GetCount(), 1U);
}

TEST_F(IPDBTest, TableRoundTripsUnderItsKey) {
  MemoryStore store;
  for (u16 port = 0; port < 40; ++port) {
    Row row = MakeRow(Address(10, 0, static_cast<u8>(port % 3), 1), kNone, port);
    row.bytes_in = port * 1000U;
    ASSERT_TRUE(table.Add(row, processes));
  }
  ASSERT_TRUE(table.Flush(store));
  EXPECT_EQ(store.Get("4").size(), 14U + 40 * 46);
  EXPECT_EQ(store.Get("6").size(), 0U);

  IPDB<IPv4> loaded;
  LogCapture log;
  ASSERT_TRUE(loaded.SyncWith(store));
  EXPECT_EQ(log.Count("netdb_storage.AddressSyncTimed"), 1);
  ASSERT_EQ(loaded.GetCount(), 40U);
  for (u32 i = 0; i < 40; ++i) {
    EXPECT_EQ(CompareRows(Access::Rows(loaded).data[i], Rows().data[i]), 0);
    EXPECT_EQ(Access::Rows(loaded).data[i].bytes_in, Rows().data[i].bytes_in);
  }
}

TEST_F(IPDBTest, StoreWithoutTheKeyEmptiesTheTable) {
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  MemoryStore store;
  LogCapture log;
  EXPECT_TRUE(table.SyncWith(store));
  EXPECT_EQ(table.GetCount(), 0U);
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(IPDBTest, ValueThatCannotBeReadLeavesAnEmptyTable) {
  MemoryStore store;
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  ASSERT_TRUE(table.Flush(store));
  const std::vector<u8> whole = store.Get("4");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    ASSERT_TRUE(Add(Address(10, 0, 0, 2), 80));
    store.Put("4", {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)});
    LogCapture log;
    EXPECT_FALSE(table.SyncWith(store)) << length;
    EXPECT_EQ(log.Names(5).back(), "netdb_storage.AddressTableNotRead");
    EXPECT_EQ(table.GetCount(), 0U);
  }
}

// A file may bring a ceiling below the room that the table has; past it the next load would be refused.
TEST_F(IPDBTest, CeilingOfAFileHoldsBelowTheCapacity) {
  MemoryStore store;
  for (u16 port = 0; port < 3; ++port) {
    ASSERT_TRUE(Add(Address(10, 0, 0, 1), port));
  }
  ASSERT_TRUE(table.Flush(store));
  std::vector<u8> bytes = store.Get("4");
  bytes[6] = 3;
  bytes[8] = 0;
  store.Put("4", bytes);
  ASSERT_TRUE(table.SyncWith(store));
  LogCapture log;
  EXPECT_FALSE(Add(Address(10, 0, 0, 1), 9));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.AddressTableFull",
                                "5 netdb_storage.RowNotInserted"}));
  ASSERT_TRUE(table.Flush(store));
  EXPECT_TRUE(table.SyncWith(store));
  EXPECT_EQ(table.GetCount(), 3U);
}

TEST_F(IPDBTest, SetUpWithoutMemoryFailsAndCanBeRepeated) {
  MemoryStore store;
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  {
    IPDB<IPv4> fresh;
    allocator.FailFrom(0);
    LogCapture log;
    EXPECT_FALSE(fresh.SyncWith(store));
    EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 netdb_storage.AddressArrayNotCreated",
                                  "5 netdb_storage.AddressTableNotSetUp"}));
    EXPECT_TRUE(fresh.SyncWith(store));
    EXPECT_EQ(Access::Rows(fresh).maxCapacity, 0x40000U);
    EXPECT_EQ(Access::Rows(fresh).capacity, 16U);
    EXPECT_EQ(Access::Rows(fresh).flagWord, 0x10000400U);
    EXPECT_EQ(Access::Rows(fresh).mutex, nullptr);
  }
  EXPECT_EQ(allocator.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

TEST_F(IPDBTest, FlushThatFindsNoMemoryFails) {
  MemoryStore store;
  ASSERT_TRUE(Add(Address(10, 0, 0, 1), 80));
  Velmar::Sim::FailAllocation(0, 100);
  EXPECT_FALSE(table.Flush(store));
  Velmar::Sim::FailAllocation(~u64{0});
  EXPECT_TRUE(table.Flush(store));
  EXPECT_EQ(store.Get("4").size(), 14U + 46);
}

class IPDBQueryTest : public IPDBTest {
 protected:
  void SetUp() override {
    IPDBTest::SetUp();
    for (u8 last = 1; last <= 5; ++last) {
      ASSERT_TRUE(Add(Address(10, 0, 0, last), last));
      ASSERT_TRUE(Add(Address(10, 0, 0, last), static_cast<u16>(100 + last)));
    }
    ASSERT_TRUE(wanted.Create(0, 128, 32, false, GrowType::kFixedStep));
  }
  void Want(IPv4 address) {
    ASSERT_TRUE(wanted.Add(address));
    wanted.Sort(true);
  }
  IPDB<IPv4>::Sink Collect(u32 most = 100) {
    return [this, most](const Row& row) {
      found.push_back(row.port);
      return found.size() < most;
    };
  }

  Array<IPv4> wanted;
  Array<IPDB<IPv4>::Filter> filters;
  std::vector<u16> found;
};

TEST_F(IPDBQueryTest, WantedAddressesComeInRowOrder) {
  Want(Address(10, 0, 0, 4));
  Want(Address(10, 0, 0, 2));
  EXPECT_TRUE(table.Query(wanted, filters, Collect()));
  EXPECT_EQ(found, (std::vector<u16>{2, 102, 4, 104}));
}

TEST_F(IPDBQueryTest, AddressThatIsWantedTwiceComesOnce) {
  Want(Address(10, 0, 0, 2));
  Want(Address(10, 0, 0, 2));
  EXPECT_TRUE(table.Query(wanted, filters, Collect()));
  EXPECT_EQ(found, (std::vector<u16>{2, 102}));
}

TEST_F(IPDBQueryTest, AddressAboveAllRowsFindsNothing) {
  Want(Address(10, 0, 0, 9));
  EXPECT_TRUE(table.Query(wanted, filters, Collect()));
  EXPECT_EQ(found, std::vector<u16>{});
}

TEST_F(IPDBQueryTest, FiltersSkipRowsInTheirOrder) {
  ASSERT_TRUE(filters.Add(IPDB<IPv4>::Filter([](const Row& row) { return row.port > 100; })));
  ASSERT_TRUE(filters.Add(IPDB<IPv4>::Filter([](const Row& row) {
    EXPECT_GT(row.port, 100) << "the first filter has refused it";
    return row.port % 2 == 0;
  })));
  EXPECT_TRUE(table.Query(filters, Collect()));
  EXPECT_EQ(found, (std::vector<u16>{102, 104}));
  found.clear();
  Want(Address(10, 0, 0, 4));
  EXPECT_TRUE(table.Query(wanted, filters, Collect()));
  EXPECT_EQ(found, (std::vector<u16>{104}));
}

TEST_F(IPDBQueryTest, AllRowsComeWithoutConditions) {
  EXPECT_TRUE(table.Query(filters, Collect()));
  EXPECT_EQ(found.size(), 10U);
}

TEST_F(IPDBQueryTest, SinkThatRefusesFailsBothWalks) {
  {
    LogCapture log;
    EXPECT_FALSE(table.Query(filters, Collect(3)));
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.AddressWalkEnded"}));
  }
  found.clear();
  Want(Address(10, 0, 0, 2));
  LogCapture log;
  EXPECT_FALSE(table.Query(wanted, filters, Collect(1)));
  EXPECT_EQ(found.size(), 1U);
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.MergeVisitEnded"}));
}

// The wide family has its own key, row size and order.
TEST(IPDBWide, TableWorksAsTheOtherOne) {
  IPDB<IPv6> table;
  ProcessesDB processes;
  SyncEmpty(table);
  SyncEmpty(processes);
  const u32 process = processes.Add(MakeProcess("/bin/a"));
  for (u8 i = 5; i > 0; --i) {
    IPRecord<IPv6> row;
    row.ip.bytes[0] = 0x20;
    row.ip.bytes[15] = i;
    row.proc_index = process;
    row.port = i;
    ASSERT_TRUE(table.Add(row, processes));
    ASSERT_TRUE(table.Add(row, processes));
  }
  EXPECT_EQ(table.GetCount(), 5U);
  CheckSorted(table);
  EXPECT_EQ(ProcessesDBTestAccess::Records(processes).data[process].ref_count, 5);

  MemoryStore store;
  ASSERT_TRUE(table.Flush(store));
  EXPECT_EQ(store.Get("6").size(), 14U + 5 * 58);
  IPDB<IPv6> loaded;
  ASSERT_TRUE(loaded.SyncWith(store));
  ASSERT_EQ(loaded.GetCount(), 5U);
  Array<IPv6> wanted;
  IPv6 address;
  address.bytes[0] = 0x20;
  address.bytes[15] = 3;
  ASSERT_TRUE(wanted.Add(address));
  u32 visits = 0;
  EXPECT_TRUE(loaded.Query(wanted, Array<IPDB<IPv6>::Filter>(), [&visits](const IPRecord<IPv6>& row) {
    EXPECT_EQ(row.port, 3);
    ++visits;
    return true;
  }));
  EXPECT_EQ(visits, 1U);
}

}  // namespace
