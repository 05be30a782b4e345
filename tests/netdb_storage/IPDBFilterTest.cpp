// IPDB: which rows a filter takes out, what becomes of the others and of the processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Velmar/Collections/ModuleMemory.h"
#include "tests/cloud/CloudStatusTestAccess.h"
#include "tests/netdb_storage/Tables.h"
#include "tests/support/CountingAllocator.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SimCloud.h"

namespace {

using namespace StorageTest;
using Access = DBManagerTestAccess;
using Lines = std::vector<std::string>;

// A platform that nobody has used, and a module memory that is empty again at the end.
class FreshPlatformTest : public testing::Test {
 protected:
  FreshPlatformTest() {
    Velmar::Sim::Reset();
    Velmar::Collections::SetModuleAllocator(&allocator);
  }
  ~FreshPlatformTest() override {
    EXPECT_EQ(allocator.Out(), 0U);
    Velmar::Collections::SetModuleAllocator(nullptr);
  }

  CountingAllocator allocator;
};

class IPDBFilterTest : public FreshPlatformTest {
 protected:
  IPDBFilterTest() {
    EXPECT_TRUE(status.Open(nullptr, false));
    SyncEmpty(table);
    SyncEmpty(processes);
  }
  void TearDown() override {
    CheckSorted(table);
    CheckInvariants(processes);
    CheckReferences(table, processes);
  }

  void Add(IPv4 address, u16 port, u32 process = kNone) {
    ASSERT_TRUE(table.Add(MakeRow(address, process, port), processes));
  }
  u32 AddProcess(const std::string& path) { return processes.Add(MakeProcess(path)); }
  void Learn(IPv4 address, bool harmless) {
    ASSERT_TRUE(CloudStatusTestAccess::StoreVerdict(status, address, harmless));
  }
  bool Filter() { return table.FilterWhitelisted(&status, &db); }
  std::vector<u16> Ports() {
    std::vector<u16> ports;
    for (u32 i = 0; i < Rows().count; ++i) {
      ports.push_back(Rows().data[i].port);
    }
    return ports;
  }
  Array<Row>& Rows() { return IPDBTestAccess<IPv4>::Rows(table); }
  i32 References(u32 process) { return ProcessesDBTestAccess::Records(processes).data[process].ref_count; }

  SimCloud cloud;
  CloudStatus<IPv4> status;
  DBManager db;
  IPDB<IPv4>& table = Access::Ips(db);
  ProcessesDB& processes = Access::Processes(db);
};

TEST_F(IPDBFilterTest, EmptyTableAsksNobody) {
  LogCapture log;
  EXPECT_TRUE(Filter());
  EXPECT_TRUE(cloud.Requests().empty());
  EXPECT_TRUE(log.Entries().empty());
}

TEST_F(IPDBFilterTest, RowsThatAreNotThereAreRefused) {
  Add(Address(203, 0, 113, 1), 1);
  Row* const rows = std::exchange(Rows().data, nullptr);
  LogCapture log;
  EXPECT_FALSE(Filter());
  EXPECT_EQ(log.Lines(1), Lines{"5 netdb_storage.RowMissing"});
  EXPECT_EQ(log.Arguments("netdb_storage.RowMissing"), Lines{"1"});
  EXPECT_TRUE(cloud.Requests().empty());
  Rows().data = rows;
}

TEST_F(IPDBFilterTest, HarmlessRowsGoAndTheOthersKeepTheirOrder) {
  for (u16 port = 0; port < 40; ++port) {
    Add(Address(203, 0, 113, static_cast<u8>(port / 4)), port);
  }
  cloud.harmless = {"203.0.113.0", "203.0.113.3", "203.0.113.4", "203.0.113.9"};
  LogCapture log;
  EXPECT_TRUE(Filter());
  std::vector<u16> expected;
  for (u16 port = 0; port < 40; ++port) {
    if (cloud.harmless.count("203.0.113." + std::to_string(port / 4)) == 0) {
      expected.push_back(port);
    }
  }
  EXPECT_EQ(Ports(), expected);
  EXPECT_EQ(log.Lines(), Lines{"2 netdb_storage.RowsFiltered"});
  EXPECT_EQ(log.Arguments("netdb_storage.RowsFiltered"), Lines{"16"});
}

TEST_F(IPDBFilterTest, AllRowsMayGoOrNone) {
  Add(Address(203, 0, 113, 1), 1);
  Add(Address(203, 0, 113, 2), 2);
  LogCapture log;
  EXPECT_TRUE(Filter());
  EXPECT_EQ(Ports(), (std::vector<u16>{1, 2}));
  EXPECT_EQ(log.Arguments("netdb_storage.RowsFiltered"), Lines{"0"});
  ASSERT_TRUE(status.SetPersistent(false));
  Velmar::Sim::AdvanceTime(CloudStatus<IPv4>::kTimeToLiveMs + 1);
  cloud.harmless = {"203.0.113.1", "203.0.113.2"};
  EXPECT_TRUE(Filter());
  EXPECT_EQ(Ports(), std::vector<u16>{});
}

TEST_F(IPDBFilterTest, EachAddressIsAskedAboutOnce) {
  for (u16 port = 0; port < 30; ++port) {
    Add(Address(203, 0, 113, static_cast<u8>(port % 3)), port);
  }
  EXPECT_TRUE(Filter());
  EXPECT_EQ(cloud.Asked(), (Lines{"203.0.113.0", "203.0.113.1", "203.0.113.2"}));
}

TEST_F(IPDBFilterTest, KnownAddressesCostNoRequest) {
  Add(Address(203, 0, 113, 1), 1);
  Add(Address(203, 0, 113, 2), 2);
  Learn(Address(203, 0, 113, 1), true);
  Learn(Address(203, 0, 113, 2), false);
  EXPECT_TRUE(Filter());
  EXPECT_TRUE(cloud.Requests().empty());
  EXPECT_EQ(Ports(), std::vector<u16>{2});
}

TEST_F(IPDBFilterTest, PrivateAddressesStayUnaskedAndLoopbackGoesToTheCloud) {
  Add(Address(10, 0, 0, 1), 1);
  Add(Address(127, 0, 0, 1), 2);
  Add(Address(172, 31, 255, 255), 3);
  Add(Address(192, 168, 0, 1), 4);
  cloud.harmless = {"10.0.0.1", "127.0.0.1", "172.31.255.255", "192.168.0.1"};
  EXPECT_TRUE(Filter());
  EXPECT_EQ(cloud.Asked(), Lines{"127.0.0.1"});
  EXPECT_EQ(Ports(), (std::vector<u16>{1, 3, 4}));
}

// A third row of the address has no process.
TEST_F(IPDBFilterTest, EachHarmlessRowReleasesItsProcess) {
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(AddProcess("/bin/other" + std::to_string(i)), static_cast<u32>(i));
    Add(Address(198, 51, 100, static_cast<u8>(i)), 80, static_cast<u32>(i));
  }
  ASSERT_EQ(AddProcess("/bin/five"), 5U);
  Add(Address(203, 0, 113, 1), 80, 5);
  Add(Address(203, 0, 113, 1), 443, 5);
  Add(Address(203, 0, 113, 1), 443, kNone);
  Add(Address(203, 0, 113, 2), 443, 5);
  ASSERT_EQ(References(5), 3);
  cloud.harmless = {"203.0.113.1"};
  EXPECT_TRUE(Filter());
  EXPECT_EQ(table.GetCount(), 6U);
  EXPECT_EQ(References(5), 1);
}

TEST_F(IPDBFilterTest, ProcessWithoutRowsLeavesTheTable) {
  const u32 stays = AddProcess("/bin/stays");
  const u32 goes = AddProcess("/bin/goes");
  Add(Address(203, 0, 113, 1), 80, goes);
  Add(Address(203, 0, 113, 1), 443, goes);
  Add(Address(203, 0, 113, 1), 443, stays);
  Add(Address(203, 0, 113, 2), 443, stays);
  cloud.harmless = {"203.0.113.1"};
  EXPECT_TRUE(Filter());
  EXPECT_EQ(References(stays), 1);
  EXPECT_EQ(processes.GetCount(), 1U);
}

// The 32 processes of a first table fill its list of free slots, so the release of more needs memory.
TEST_F(IPDBFilterTest, RowsStayWhenTheirProcessesCouldNot) {
  for (u8 i = 0; i < 100; ++i) {
    Add(Address(203, 0, 113, i), 80, AddProcess("/bin/" + std::to_string(i)));
    Learn(Address(203, 0, 113, i), true);
  }
  LogCapture log;
  int runs = 0;
  for (bool filtered = false; !filtered; ++runs) {
    allocator.FailFrom(static_cast<u64>(runs));
    filtered = Filter();
    allocator.FailFrom(CountingAllocator::kNever);
    EXPECT_EQ(table.GetCount(), filtered ? 0U : 100U);
    CheckReferences(table, processes);
  }
  EXPECT_GT(runs, 1);
  EXPECT_EQ(log.Count("netdb_storage.ReleasesNotPrepared"), runs - 1);
  EXPECT_EQ(log.Arguments("netdb_storage.ReleasesNotPrepared"), Lines{"100"});
  EXPECT_EQ(processes.GetCount(), 0U);
}

// What the cloud said until it failed holds, and so does what was known before.
TEST_F(IPDBFilterTest, HalfAnswerTakesOutWhatItTold) {
  for (u16 i = 0; i < 120; ++i) {
    Add(Address(203, 0, 113, static_cast<u8>(i)), i);
    cloud.harmless.insert("203.0.113." + std::to_string(i));
  }
  Learn(Address(203, 0, 113, 110), true);
  cloud.failsFrom = 1;
  LogCapture log;
  EXPECT_FALSE(Filter());
  EXPECT_EQ(log.Lines(), (Lines{"5 cloud.CloudRefused", "5 cloud.ResolveStopped",
                                "5 netdb_storage.AddressesNotResolved", "2 netdb_storage.RowsFiltered"}));
  EXPECT_EQ(log.Arguments("netdb_storage.RowsFiltered"), Lines{"51"});
  std::vector<u16> expected;
  for (u16 i = 50; i < 120; ++i) {
    if (i != 110) {
      expected.push_back(i);
    }
  }
  EXPECT_EQ(Ports(), expected);
  cloud.failsFrom = SimCloud::kNever;
  EXPECT_TRUE(Filter());
  EXPECT_EQ(table.GetCount(), 0U);
  EXPECT_EQ(cloud.Requests().size(), 4U);
}

// Each run of an address once, whatever stands in front and behind.
TEST(UniqIPIterator, GivesTheAddressOfTheLastRowOfEachRun) {
  const std::vector<std::vector<u8>> tables = {{}, {1}, {1, 1, 1}, {1, 2, 2}, {1, 1, 2, 3, 3}, {1, 2, 3}};
  for (const std::vector<u8>& lastOctets : tables) {
    std::vector<Row> rows;
    for (const u8 octet : lastOctets) {
      rows.push_back(MakeRow(Address(203, 0, 113, octet), kNone, 1));
    }
    const Row* const begin = rows.data();
    IPDB<IPv4>::UniqIPIterator addresses(begin, begin + rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (i + 1 == rows.size() || lastOctets[i + 1] != lastOctets[i]) {
        ASSERT_TRUE(addresses.HasNext());
        EXPECT_EQ(addresses.Next(), &rows[i].ip);
      }
    }
    EXPECT_FALSE(addresses.HasNext());
  }
}

// The other family's table filters the same way.
TEST(IPDBFilter, IPv6RowsAreFilteredToo) {
  Velmar::Sim::Reset();
  SimCloud cloud;
  CloudStatus<IPv6> status;
  ASSERT_TRUE(status.Open(nullptr, false));
  DBManager db;
  IPDB<IPv6> table;
  SyncEmpty(table);
  SyncEmpty(Access::Processes(db));
  const u32 process = Access::Processes(db).Add(MakeProcess("/bin/a"));
  const auto add = [&](u8 last, u16 port, u32 owner) {
    IPRecord<IPv6> row;
    row.ip.bytes[0] = 0x20;
    row.ip.bytes[1] = 0x01;
    row.ip.bytes[15] = last;
    row.port = port;
    row.proc_index = owner;
    EXPECT_TRUE(table.Add(row, Access::Processes(db)));
  };
  add(1, 80, kNone);
  add(2, 80, process);
  add(2, 443, process);
  add(3, 80, process);
  cloud.harmless = {"2001::2"};
  EXPECT_TRUE(table.FilterWhitelisted(&status, &db));
  EXPECT_EQ(cloud.Asked(), (Lines{"2001::1", "2001::2", "2001::3"}));
  ASSERT_EQ(table.GetCount(), 2U);
  const auto& rows = IPDBTestAccess<IPv6>::Rows(table);
  EXPECT_EQ(rows.data[0].ip.bytes[15], 1);
  EXPECT_EQ(rows.data[1].ip.bytes[15], 3);
  EXPECT_EQ(ProcessesDBTestAccess::Records(Access::Processes(db)).data[process].ref_count, 1);
}

}  // namespace
