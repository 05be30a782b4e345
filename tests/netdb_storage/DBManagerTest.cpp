// DBManager: folders, days, the file of a day and its dump.
#include "common/netdb_storage/DBManager.h"

#include <gtest/gtest.h>

#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = DBManagerTestAccess;
using Lines = std::vector<std::string>;

const IPv4 kAddress = Address(192, 0, 2, 1);

class DBManagerTest : public FolderTest {
 protected:
  void SetUp() override { ASSERT_TRUE(manager.SetFolder(kFolder)); }

  bool Add(u64 timestamp, u16 port = 443, const Process* process = nullptr) {
    return manager.Add(MakeMessage(timestamp, kAddress, port), process);
  }
  const Row& OnlyRow() {
    EXPECT_EQ(manager.GetRowCount(), 1U);
    return IPDBTestAccess<IPv4>::Rows(Access::Ips(manager)).data[0];
  }

  DBManager manager;
};

TEST_F(DBManagerTest, FolderLosesItsTrailingSeparators) {
  ASSERT_TRUE(manager.SetFolder("/data/netdb///"));
  EXPECT_STREQ(Access::Folder(manager).text, "/data/netdb");
}

TEST_F(DBManagerTest, FolderThatIsNotGivenIsRefused) {
  for (const char* folder : {static_cast<const char*>(nullptr), ""}) {
    ASSERT_TRUE(manager.SetFolder(kFolder));
    LogCapture log;
    EXPECT_FALSE(manager.SetFolder(folder));
    EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NoFolderGiven"}));
    EXPECT_EQ(Access::Folder(manager).length, 0);
  }
}

TEST_F(DBManagerTest, FolderThatIsMissingIsRefused) {
  LogCapture log;
  EXPECT_FALSE(manager.SetFolder("/data/other/"));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FolderMissing"}));
  EXPECT_EQ(log.Arguments("netdb_storage.FolderMissing"), (Lines{"/data/other/"}));
  EXPECT_EQ(Access::Folder(manager).length, 0);
}

TEST_F(DBManagerTest, FolderThatFindsNoMemoryIsRefused) {
  DBManager other;
  LogCapture log;
  Sim::FailAllocation(0);
  EXPECT_FALSE(other.SetFolder(kFolder));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FolderNotKept"}));
  EXPECT_EQ(Access::Folder(other).length, 0);
}

TEST_F(DBManagerTest, ManagerWithoutAFolderRefusesToAdd) {
  DBManager other;
  LogCapture log;
  EXPECT_FALSE(other.Add(MakeMessage(kDay, kAddress, 1), nullptr));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NoFolderForDay", "5 netdb_storage.DayNotSelected"}));
  EXPECT_EQ(other.GetRowCount(), 0U);
  EXPECT_EQ(other.GetDayStamp(), 0U);
}

TEST_F(DBManagerTest, NewConnectionBecomesARow) {
  BacklogMessage message = MakeMessage(kDay + 86399, kAddress, 8443);
  message.protocols = 0x0840;
  message.bytes_in = 11;
  message.bytes_out = 22;
  const Process process = MakeProcess("/bin/a");
  ASSERT_TRUE(manager.Add(message, &process));
  const Row& row = OnlyRow();
  EXPECT_TRUE(row.ip == kAddress);
  EXPECT_EQ(row.port, 8443U);
  EXPECT_EQ(row.proc_index, 0U);
  EXPECT_EQ(u64{row.first_seen}, 86399U);
  EXPECT_EQ(u64{row.last_seen}, 86399U);
  EXPECT_EQ(u64{row.protos}, 0x0840U);
  EXPECT_EQ(row.conns_total, 1U);
  EXPECT_EQ(row.conns_out, 1U);
  EXPECT_EQ(row.conns_in, 0U);
  EXPECT_EQ(row.bytes_in, 11U);
  EXPECT_EQ(row.bytes_out, 22U);
  CheckReferences(Access::Ips(manager), Access::Processes(manager));
}

TEST_F(DBManagerTest, InboundConnectionCountsAsInbound) {
  BacklogMessage message = MakeMessage(kDay, kAddress, 1);
  message.direction = Direction::kInbound;
  ASSERT_TRUE(manager.Add(message, nullptr));
  EXPECT_EQ(OnlyRow().conns_total, 1U);
  EXPECT_EQ(OnlyRow().conns_in, 1U);
  EXPECT_EQ(OnlyRow().conns_out, 0U);
  EXPECT_EQ(OnlyRow().proc_index, kNone);
}

TEST_F(DBManagerTest, UnknownDirectionCountsInTheTotalAlone) {
  for (const u8 direction : {u8{0}, u8{3}}) {
    BacklogMessage message = MakeMessage(kDay, kAddress, direction);
    message.direction = direction;
    LogCapture log;
    ASSERT_TRUE(manager.Add(message, nullptr));
    EXPECT_EQ(log.Lines(3), (Lines{"3 netdb_storage.DirectionUnknown"}));
    EXPECT_EQ(log.Arguments("netdb_storage.DirectionUnknown"), (Lines{std::to_string(direction)}));
  }
  auto& rows = IPDBTestAccess<IPv4>::Rows(Access::Ips(manager));
  for (u32 i = 0; i < 2; ++i) {
    EXPECT_EQ(rows.data[i].conns_total, 1U);
    EXPECT_EQ(rows.data[i].conns_in + rows.data[i].conns_out, 0U);
  }
}

TEST_F(DBManagerTest, MessageThatIsNoNewConnectionCountsNone) {
  BacklogMessage message = MakeMessage(kDay, kAddress, 1);
  message.is_new_connection = 0;
  message.direction = 9;
  LogCapture log;
  ASSERT_TRUE(manager.Add(message, nullptr));
  EXPECT_EQ(OnlyRow().conns_total, 0U);
  EXPECT_EQ(log.Lines(3), Lines{});
}

TEST_F(DBManagerTest, TopProtocolBitAloneMeansNone) {
  BacklogMessage message = MakeMessage(kDay, kAddress, 1);
  message.protocols = 0x8000;
  ASSERT_TRUE(manager.Add(message, nullptr));
  EXPECT_EQ(u64{OnlyRow().protos}, 0U);
  message.protocols = 0x8001;
  ASSERT_TRUE(manager.Add(message, nullptr));
  EXPECT_EQ(u64{OnlyRow().protos}, 0x8001U);
}

TEST_F(DBManagerTest, EmptyProcessIsNoProcess) {
  const Process process;
  ASSERT_TRUE(Add(kDay, 1, &process));
  EXPECT_EQ(OnlyRow().proc_index, kNone);
}

TEST_F(DBManagerTest, RefusedProcessCostsTheRowItsProcessOnly) {
  ASSERT_TRUE(Add(kDay, 1));
  ProcessesDBTestAccess::SetSerializedSize(Access::Processes(manager), 26000000);
  const Process process = MakeProcess("/bin/a");
  ASSERT_TRUE(Add(kDay, 2, &process));
  ProcessesDBTestAccess::SetSerializedSize(Access::Processes(manager), 14);
  auto& rows = IPDBTestAccess<IPv4>::Rows(Access::Ips(manager));
  EXPECT_EQ(rows.data[1].proc_index, kNone);
}

TEST_F(DBManagerTest, MessagesOfOneDayLoadItsFileOnce) {
  LogCapture log;
  ASSERT_TRUE(Add(kDay));
  ASSERT_TRUE(Add(kDay + 86399));
  EXPECT_EQ(log.Count("netdb_storage.DayOpened"), 1);
  EXPECT_EQ(log.Count("netdb_storage.DaySyncTimed"), 1);
  EXPECT_EQ(log.Arguments("netdb_storage.DayOpened").at(0), "1699920000.db");
}

TEST_F(DBManagerTest, FirstMessageAfterMidnightDumpsTheOldDayAndStartsTheNew) {
  ASSERT_TRUE(Add(1700006399));
  EXPECT_EQ(Files(), std::vector<std::string>{});
  ASSERT_TRUE(Add(1700006400));
  EXPECT_EQ(Files(), (std::vector<std::string>{"1699920000.db"}));
  EXPECT_EQ(manager.GetDayStamp(), 1700006400U);
  EXPECT_EQ(manager.GetRowCount(), 1U);
  ASSERT_TRUE(manager.Flush());
  EXPECT_EQ(Files(), (std::vector<std::string>{"1699920000.db", "1700006400.db"}));
}

TEST_F(DBManagerTest, StragglerGoesToItsOwnDayAndBack) {
  ASSERT_TRUE(Add(kNextDay, 1));
  ASSERT_TRUE(Add(kDay, 2));
  ASSERT_TRUE(Add(kNextDay, 3));
  EXPECT_EQ(manager.GetRowCount(), 2U);
  ASSERT_TRUE(manager.Flush());
  EXPECT_EQ(AllRows().SortedPorts(), (std::vector<u16>{1, 2, 3}));
}

TEST_F(DBManagerTest, FilteredFileOfTheDayIsPreferred) {
  WriteDay(kDay, {1});
  Sim::PutFile(DayPath(kDay, ".db.f"), Content(DayPath(kDay)));
  const std::string plain = Content(DayPath(kDay));
  ASSERT_TRUE(Add(kDay, 2));
  ASSERT_TRUE(manager.Flush());
  EXPECT_EQ(Content(DayPath(kDay)), plain);
  EXPECT_NE(Content(DayPath(kDay, ".db.f")), plain);
  EXPECT_EQ(manager.GetRowCount(), 2U);
}

TEST_F(DBManagerTest, NewDayHasNoFilterStampOfTheDayBefore) {
  ASSERT_TRUE(Add(kDay));
  Access::Cryptor(manager).SetFilterStamp(1700000000);
  ASSERT_TRUE(Add(kNextDay));
  EXPECT_EQ(Access::Cryptor(manager).GetFilterStamp(), 0U);
  ASSERT_TRUE(Add(kDay));
  EXPECT_EQ(Access::Cryptor(manager).GetFilterStamp(), 1700000000U);
}

TEST_F(DBManagerTest, DumpAndLoadGiveTheTablesBack) {
  const Process one = MakeProcess("/bin/a", 1);
  const Process two = MakeProcess("/bin/b", 2);
  for (u16 port = 0; port < 300; ++port) {
    ASSERT_TRUE(Add(kDay + port, port, port % 3 == 0 ? nullptr : (port % 3 == 1 ? &one : &two)));
  }
  ASSERT_TRUE(manager.Flush());

  DBManager reader;
  ASSERT_TRUE(reader.SetFolder(kFolder));
  ASSERT_TRUE(reader.SelectDay(kDay));
  ASSERT_EQ(reader.GetRowCount(), 300U);
  CheckInvariants(Access::Processes(reader));
  CheckReferences(Access::Ips(reader), Access::Processes(reader));
  CheckSorted(Access::Ips(reader));
  auto& written = IPDBTestAccess<IPv4>::Rows(Access::Ips(manager));
  auto& read = IPDBTestAccess<IPv4>::Rows(Access::Ips(reader));
  for (u32 i = 0; i < 300; ++i) {
    EXPECT_EQ(CompareRows(written.data[i], read.data[i]), 0);
    EXPECT_EQ(u64{written.data[i].first_seen}, u64{read.data[i].first_seen});
  }
}

TEST_F(DBManagerTest, FileCopiedToAnotherDayIsRefused) {
  WriteDay(kDay, {1});
  Sim::PutFile(DayPath(kNextDay), Content(DayPath(kDay)));
  LogCapture log;
  EXPECT_FALSE(manager.SelectDay(kNextDay));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.FileOfAnotherDay"}));
  EXPECT_EQ(log.Arguments("netdb_storage.FileOfAnotherDay"), (Lines{"1700006400", "1699920000"}));
}

// What arrives for a day whose file was refused must not reach the disk, least of all over that file.
TEST_F(DBManagerTest, RefusedFileIsNeverWrittenOver) {
  WriteDay(kDay, {1});
  const std::string refused = Content(DayPath(kDay));
  Sim::PutFile(DayPath(kNextDay), refused);
  EXPECT_FALSE(Add(kNextDay));
  EXPECT_EQ(manager.GetDayStamp(), kNextDay) << "the day that was asked for, not the one in the file";
  EXPECT_TRUE(Add(kNextDay)) << "the tables are as they are";
  {
    LogCapture log;
    EXPECT_FALSE(manager.Flush());
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreNotInitialised", "5 netdb_storage.ProcessesNotDumped"}));
  }
  EXPECT_EQ(Content(DayPath(kNextDay)), refused);
  LogCapture log;
  EXPECT_TRUE(Add(kDay, 7));
  EXPECT_EQ(log.Count("netdb_storage.OldDayNotDumped"), 1);
  EXPECT_EQ(log.Arguments("netdb_storage.OldDayNotDumped"), (Lines{"1700006400"}));
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(manager.GetRowCount(), 2U);
  EXPECT_EQ(Content(DayPath(kNextDay)), refused);
}

TEST_F(DBManagerTest, EveryFlippedByteOfAFileIsRefusedOrHarmless) {
  WriteDay(kDay, {1, 2, 3});
  const std::string good = Content(DayPath(kDay));
  for (std::size_t at = 0; at < good.size(); ++at) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ 0x40);
    Sim::PutFile(DayPath(kDay), bad);
    DBManager reader;
    ASSERT_TRUE(reader.SetFolder(kFolder));
    LogCapture log;
    EXPECT_FALSE(reader.SelectDay(kDay)) << at;
    EXPECT_EQ(log.Entries().empty(), false);
    EXPECT_EQ(log.Count("netdb_storage.FileNotOpened"), 1) << at;
  }
}

TEST_F(DBManagerTest, EveryCutFileIsRefused) {
  WriteDay(kDay, {1, 2, 3});
  const std::string good = Content(DayPath(kDay));
  for (std::size_t length = 0; length < good.size(); ++length) {
    Sim::PutFile(DayPath(kDay), good.substr(0, length));
    DBManager reader;
    ASSERT_TRUE(reader.SetFolder(kFolder));
    LogCapture log;
    EXPECT_FALSE(reader.SelectDay(kDay)) << length;
    EXPECT_EQ(log.Count("netdb_storage.FileNotOpened"), 1) << length;
  }
}

TEST_F(DBManagerTest, TablesThatCannotBeLoadedRefuseTheFile) {
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    ASSERT_TRUE(writer.Add(MakeMessage(kDay, kAddress, 1), nullptr));
    ASSERT_TRUE(writer.Flush());
    for (const char* key : {"p", "4"}) {
      ASSERT_TRUE(Access::Store(writer)->Apply(
          key, false, [](Buffer& value, bool, void*) { return value.Truncate(13); }, nullptr));
      ASSERT_TRUE(Access::Store(writer)->Save());
      LogCapture log;
      EXPECT_FALSE(manager.SyncWith(DayPath(kDay).c_str(), true));
      EXPECT_EQ(log.Names(5).back(), "netdb_storage.TablesNotLoaded");
      ASSERT_TRUE(writer.Add(MakeMessage(kDay, kAddress, 1), nullptr));
      ASSERT_TRUE(writer.Flush());
    }
  }
  EXPECT_TRUE(manager.SyncWith(DayPath(kDay).c_str(), true));
}

// What a file says about its arrays ends with it, or the next day's file could not be read again.
TEST_F(DBManagerTest, ParametersOfARefusedFileDoNotReachTheNextDay) {
  for (const char* key : {"p", "4"}) {
    for (const std::vector<u8>& frame : {std::vector<u8>{1, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0x10},     // no growth
                                         std::vector<u8>{1, 0, 9, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0x90}}) {  // too many
      Sim::RemoveFile(DayPath(kNextDay));
      {
        DBManager writer;
        ASSERT_TRUE(writer.SetFolder(kFolder));
        ASSERT_TRUE(writer.Add(MakeMessage(kDay, kAddress, 1), nullptr));
        ASSERT_TRUE(writer.Flush());
        ASSERT_TRUE(Access::Store(writer)->Apply(
            key, false,
            [&frame](Buffer& value, bool, void*) {
              value.Reset();
              return value.PushBuffer(frame.data(), 14) != kNone;
            },
            nullptr));
        ASSERT_TRUE(Access::Store(writer)->Save());
      }
      DBManager victim;
      ASSERT_TRUE(victim.SetFolder(kFolder));
      EXPECT_FALSE(victim.SelectDay(kDay));
      const Process one = MakeProcess("/bin/a");
      const Process two = MakeProcess("/bin/b");
      ASSERT_TRUE(victim.Add(MakeMessage(kNextDay, kAddress, 1), &one));
      ASSERT_TRUE(victim.Add(MakeMessage(kNextDay, kAddress, 2), &two));
      ASSERT_TRUE(victim.Flush());
      DBManager reader;
      EXPECT_TRUE(reader.SyncWith(DayPath(kNextDay).c_str(), true));
      EXPECT_EQ(reader.GetRowCount(), 2U);
      EXPECT_EQ(ProcessesDBTestAccess::Records(Access::Processes(reader)).flagWord, 0x10000064U);
      EXPECT_EQ(ProcessesDBTestAccess::Records(Access::Processes(reader)).maxCapacity, 0x20000U);
      EXPECT_EQ(IPDBTestAccess<IPv4>::Rows(Access::Ips(reader)).flagWord, 0x10000400U);
      EXPECT_EQ(IPDBTestAccess<IPv4>::Rows(Access::Ips(reader)).maxCapacity, 0x40000U);
      Sim::RemoveFile(DayPath(kDay));
    }
  }
}

TEST_F(DBManagerTest, NullPathIsRefused) {
  LogCapture log;
  EXPECT_FALSE(manager.SyncWith(nullptr, true));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.NoPathGiven"}));
}

TEST_F(DBManagerTest, PathThatTheStoreDoesNotTakeIsRefused) {
  LogCapture log;
  EXPECT_FALSE(manager.SyncWith((kFolder + std::string(200, 'x')).c_str(), false));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StorePathTooLong", "5 netdb_storage.FileNotOpened"}));
}

TEST_F(DBManagerTest, MissingFileOfTheOpenDayIsAnEmptyDay) {
  ASSERT_TRUE(manager.SelectDay(kDay));
  LogCapture log;
  EXPECT_TRUE(manager.SyncWith(DayPath(kDay).c_str(), false));
  EXPECT_EQ(manager.GetRowCount(), 0U);
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_FALSE(manager.SyncWith(DayPath(kNextDay).c_str(), false)) << "its day cannot be confirmed";
}

TEST_F(DBManagerTest, SyncDropsWhatWasNotDumped) {
  ASSERT_TRUE(Add(kDay));
  EXPECT_TRUE(Access::Dirty(manager));
  ASSERT_TRUE(manager.SyncWith(DayPath(kDay).c_str(), false));
  EXPECT_FALSE(Access::Dirty(manager));
  EXPECT_EQ(manager.GetRowCount(), 0U);
}

TEST_F(DBManagerTest, FlushWithoutAStoreHasNothingToDo) {
  LogCapture log;
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(log.Lines(), (Lines{"3 netdb_storage.NothingToDump"}));
}

TEST_F(DBManagerTest, FlushOfACleanManagerWritesNothing) {
  ASSERT_TRUE(Add(kDay));
  ASSERT_TRUE(manager.Flush());
  EXPECT_FALSE(Access::Dirty(manager));
  const u64 written = Sim::ModificationTime(DayPath(kDay));
  Sim::AdvanceTime(5000);
  const u64 operations = Sim::CountFileOperations();
  LogCapture log;
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(Sim::CountFileOperations(), operations);
  EXPECT_EQ(Sim::ModificationTime(DayPath(kDay)), written);
  EXPECT_EQ(log.Lines(1), (Lines{"1 netdb_storage.DumpNotNeeded"}));
}

TEST_F(DBManagerTest, SaveIsTriedFiveTimesWithPauses) {
  ASSERT_TRUE(Add(kDay));
  Sim::FailFileOperation(Sim::Operation::kCreate, 0, Sim::Fault::kFail, 5);
  {
    LogCapture log;
    EXPECT_FALSE(manager.Flush());
    Lines attempts;
    for (const LogCapture::Entry& entry : log.Entries()) {
      if (entry.name == "netdb_storage.SaveFailed") {
        EXPECT_EQ(entry.level, 3U);
        EXPECT_EQ(entry.arguments.at(0), "1699920000.db");
        attempts.push_back(entry.arguments.at(1));
      }
    }
    EXPECT_EQ(attempts, (Lines{"0", "1", "2", "3", "4"}));
    EXPECT_EQ(log.CountLevel(5), 0);
  }
  EXPECT_EQ(Sim::Sleeps(), (std::vector<u32>{100, 100, 100, 100}));
  EXPECT_TRUE(Access::Dirty(manager)) << "the next dump tries again";
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(AllRows().Ports(), (std::vector<u16>{443}));
}

TEST_F(DBManagerTest, FourthRepetitionOfTheSaveMaySucceed) {
  ASSERT_TRUE(Add(kDay));
  Sim::FailFileOperation(Sim::Operation::kCreate, 0, Sim::Fault::kFail, 4);
  LogCapture log;
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(log.Count("netdb_storage.SaveFailed"), 4);
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 1);
  EXPECT_EQ(Sim::Sleeps(), (std::vector<u32>{100, 100, 100, 100}));
}

TEST_F(DBManagerTest, OldDayThatCannotBeDumpedIsLeft) {
  ASSERT_TRUE(Add(kDay, 1));
  Sim::FailFileOperation(Sim::Operation::kCreate, 0, Sim::Fault::kFail, 5);
  LogCapture log;
  ASSERT_TRUE(Add(kNextDay, 2));
  EXPECT_EQ(log.Lines(3).back(), "3 netdb_storage.OldDayNotDumped");
  EXPECT_EQ(log.Count("netdb_storage.OldDayNotDumped"), 1);
  EXPECT_EQ(log.Arguments("netdb_storage.OldDayNotDumped"), (Lines{"1699920000"}));
  ASSERT_TRUE(manager.Flush());
  EXPECT_EQ(AllRows().Ports(), (std::vector<u16>{2})) << "what was not dumped is lost";
}

TEST_F(DBManagerTest, DestructorDoesTheLastDump) {
  WriteDay(kDay, {1});
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    ASSERT_TRUE(writer.Add(MakeMessage(kDay, kAddress, 9), nullptr));
  }
  EXPECT_EQ(AllRows().SortedPorts(), (std::vector<u16>{1, 9}));
}

TEST_F(DBManagerTest, LastDumpThatFailsIsReported) {
  LogCapture log;
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    ASSERT_TRUE(writer.Add(MakeMessage(kDay, kAddress, 9), nullptr));
    Sim::FailFileOperation(Sim::Operation::kCreate, 0, Sim::Fault::kFail, 5);
  }
  EXPECT_EQ(log.Count("netdb_storage.LastDumpFailed"), 1);
  EXPECT_EQ(log.Entries().back().name, "netdb_storage.LastDumpFailed");
  EXPECT_EQ(log.Entries().back().level, 3U);
  EXPECT_EQ(Files(), std::vector<std::string>{}) << "and no other save follows it";
}

TEST_F(DBManagerTest, TableThatIsFullRefusesTheMessage) {
  ASSERT_TRUE(Add(kDay, 1));
  auto& rows = IPDBTestAccess<IPv4>::Rows(Access::Ips(manager));
  const u32 capacity = rows.capacity;
  rows.capacity = rows.maxCapacity = 1;
  {
    LogCapture log;
    EXPECT_FALSE(Add(kDay, 2));
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.AddressTableFull",
                                  "5 netdb_storage.RowNotInserted", "5 netdb_storage.MessageNotAdded"}));
  }
  rows.capacity = rows.maxCapacity = capacity;
  EXPECT_TRUE(Add(kDay, 2)) << "the same message again";
}

TEST_F(DBManagerTest, TablesThatCannotBePutIntoTheStoreFailTheDump) {
  ASSERT_TRUE(Add(kDay, 1));
  for (const u64 failing : {0U, 1U}) {
    LogCapture log;
    ASSERT_TRUE(Add(kDay, static_cast<u16>(10 + failing)));
    auto* const store = Access::Store(manager);
    ASSERT_TRUE(store->Apply(
        failing == 0 ? "p" : "4", true,
        [](Buffer& value, bool, void*) { return value.Create(0, 10, 1, false, GrowType::kFixedStep); }, nullptr));
    EXPECT_FALSE(manager.Flush());
    EXPECT_EQ(log.Names(5).back(), failing == 0 ? "netdb_storage.ProcessesNotDumped" : "netdb_storage.RowsNotDumped");
    EXPECT_TRUE(Access::Dirty(manager));
    EXPECT_EQ(Files(), std::vector<std::string>{});
    ASSERT_TRUE(store->Apply(
        failing == 0 ? "p" : "4", true,
        [](Buffer& value, bool, void*) { return value.Create(0, 26214400, 100, false, GrowType::kPercent); }, nullptr));
  }
  EXPECT_TRUE(manager.Flush());
}

TEST_F(DBManagerTest, ReadOnlyFileIsNotWrittenByItsReader) {
  WriteDay(kDay, {1});
  Sim::AdvanceTime(1000);
  const u64 written = Sim::ModificationTime(DayPath(kDay));
  {
    DBManager reader;
    ASSERT_TRUE(reader.SyncWith(DayPath(kDay).c_str(), true));
    EXPECT_EQ(reader.GetDayStamp(), kDay);
    EXPECT_EQ(reader.GetRowCount(), 1U);
  }
  EXPECT_EQ(Sim::ModificationTime(DayPath(kDay)), written);
}

}  // namespace
