// Tables at their ceilings: what is refused there, and that a day of that size can be stored and read.
#include <gtest/gtest.h>

#include <memory>

#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = DBManagerTestAccess;
using Lines = std::vector<std::string>;

// Rows in ascending order, so that each insertion is at the end.
BacklogMessage MessageNumber(u32 number) {
  return MakeMessage(kDay + number % 86400,
                     Address(10, static_cast<u8>(number >> 16), static_cast<u8>(number >> 8), static_cast<u8>(number)),
                     443);
}

class BigTablesTest : public FolderTest {
 protected:
  void SetUp() override { ASSERT_TRUE(manager.SetFolder(kFolder)); }

  DBManager manager;
};

TEST_F(BigTablesTest, FullAddressTableRefusesOneMoreAndIsStored) {
  for (u32 i = 0; i < IPDB<IPv4>::kMaxRows; ++i) {
    ASSERT_TRUE(manager.Add(MessageNumber(i), nullptr));
  }
  EXPECT_EQ(manager.GetRowCount(), 262144U);
  {
    LogCapture log;
    EXPECT_FALSE(manager.Add(MessageNumber(IPDB<IPv4>::kMaxRows), nullptr));
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.AddressTableFull",
                                  "5 netdb_storage.RowNotInserted", "5 netdb_storage.MessageNotAdded"}));
    EXPECT_EQ(log.Arguments("velmar.ArrayCeilingReached"), (Lines{"262144"}));
  }
  EXPECT_EQ(manager.GetRowCount(), 262144U);
  EXPECT_TRUE(manager.Add(MessageNumber(77), nullptr)) << "known keys go on";
  CheckSorted(Access::Ips(manager));
  ASSERT_TRUE(manager.Flush());

  QueryConstraints constraints(0, kAllOnes64);
  u32 rows = 0;
  u64 connections = 0;
  EXPECT_TRUE(DBManager::Query(kFolder, constraints, [&rows, &connections](const QueryRecord& record) {
    ++rows;
    connections += record.conns_total;
    return true;
  }));
  EXPECT_EQ(rows, 262144U);
  EXPECT_EQ(connections, 262145U);
}

// A stored table of `count` processes of one path, numbered from 1.
std::vector<u8> StoredProcesses(u32 count) {
  Array<ProcessRecord> records;
  EXPECT_TRUE(records.Create(count, ProcessesDB::kMaxRecords, 100, true, GrowType::kFixedStep));
  ProcessRecord record;
  EXPECT_TRUE(record.proc_fpath.Set("/bin/a"));
  for (u32 i = 0; i < count; ++i) {
    record.proc_pid = i + 1;
    EXPECT_TRUE(records.Add(record));
  }
  Value value;
  EXPECT_TRUE(records.Serialize(*value));
  return Bytes(*value);
}

// Growing from nothing to the ceiling by 100 rows at a time would cost minutes under a sanitizer; the last rows do it
// as well.
TEST_F(BigTablesTest, FullProcessTableRefusesOneMoreAndIsStored) {
  constexpr u32 kStored = ProcessesDB::kMaxRecords - 150;
  MemoryStore store;
  store.Put("p", StoredProcesses(kStored));
  ProcessesDB processes;
  ASSERT_TRUE(processes.SyncWith(store));
  Process process;
  ASSERT_TRUE(process.proc_fpath.Set("/bin/a"));
  for (u32 i = kStored; i < ProcessesDB::kMaxRecords; ++i) {
    process.proc_pid = i + 1;
    ASSERT_EQ(processes.Add(process), i);
  }
  process.proc_pid = 0;
  {
    LogCapture log;
    EXPECT_EQ(processes.Add(process), kNone);
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.ProcessTableFull",
                                  "5 netdb_storage.ProcessNotAdded"}));
  }
  process.proc_pid = 5;
  EXPECT_EQ(processes.Add(process), 4U) << "known ones are found";
  CheckInvariants(processes);

  ASSERT_TRUE(processes.Flush(store));
  ProcessesDB loaded;
  ASSERT_TRUE(loaded.SyncWith(store));
  EXPECT_EQ(loaded.GetCount(), ProcessesDB::kMaxRecords);
  CheckInvariants(loaded);
}

// Paths so long that the stored table, not the number of its rows, is the limit.
TEST_F(BigTablesTest, LargestStorableProcessTableIsSavedAndRead) {
  u32 refused = 0;
  u32 number = 0;
  for (; refused == 0; ++number) {
    Process process = MakeProcess(std::string(30000, 'p') + std::to_string(number), number);
    BacklogMessage message = MessageNumber(number);
    ASSERT_TRUE(manager.Add(message, &process));
    auto& rows = IPDBTestAccess<IPv4>::Rows(Access::Ips(manager));
    refused += rows.data[rows.count - 1].proc_index == kNone ? 1 : 0;
  }
  auto& processes = Access::Processes(manager);
  EXPECT_LE(processes.GetSerializedSize(), ProcessesDB::kMaxSerializedSize);
  EXPECT_GT(processes.GetSerializedSize(), ProcessesDB::kMaxSerializedSize - 31000);
  CheckInvariants(processes);
  ASSERT_TRUE(manager.Flush()) << "it fits one block";

  DBManager reader;
  ASSERT_TRUE(reader.SyncWith(DayPath(kDay).c_str(), true));
  EXPECT_EQ(reader.GetRowCount(), number);
  EXPECT_EQ(Access::Processes(reader).GetSerializedSize(), processes.GetSerializedSize());
  CheckReferences(Access::Ips(reader), Access::Processes(reader));
}

}  // namespace
