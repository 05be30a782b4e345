// DBManager::Query: which rows of which files a query gives, and how it ends.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace StorageTest;
using Access = DBManagerTestAccess;
using Lines = std::vector<std::string>;
using Ports = std::vector<u16>;

class QueryTest : public FolderTest {
 protected:
  void SetUp() override { ASSERT_TRUE(writer.SetFolder(kFolder)); }

  void Add(u64 timestamp, IPv4 address, u16 port, const Process* process = nullptr) {
    ASSERT_TRUE(writer.Add(MakeMessage(timestamp, address, port), process));
  }
  // A row that is seen at both times.
  void AddLong(u64 first, u64 last, u16 port) {
    Add(first, Address(10, 0, 0, 1), port);
    Add(last, Address(10, 0, 0, 1), port);
  }
  bool Run(QueryConstraints& constraints) {
    EXPECT_TRUE(writer.Flush());
    rows.records.clear();
    return DBManager::Query(kFolder, constraints, rows.Sink());
  }
  Ports Between(u64 from, u64 to) {
    QueryConstraints constraints(from, to);
    EXPECT_TRUE(Run(constraints));
    return rows.SortedPorts();
  }

  DBManager writer;
  Rows rows;
};

TEST_F(QueryTest, NothingAskedGivesAllRowsOfAllFiles) {
  Add(kDay, Address(10, 0, 0, 1), 1);
  Add(kDay, Address(10, 0, 0, 2), 2);
  Add(kNextDay, Address(10, 0, 0, 1), 3);
  QueryConstraints constraints(0, kAllOnes64);
  LogCapture log;
  EXPECT_TRUE(Run(constraints));
  EXPECT_EQ(rows.SortedPorts(), (Ports{1, 2, 3}));
  EXPECT_EQ(constraints.ip_filters.count, 0U);
  EXPECT_EQ(log.Count("netdb_storage.QueryTimed"), 1);
  EXPECT_EQ(log.Count("netdb_storage.QueryFileTimed"), 2);
  EXPECT_EQ(log.Count("netdb_storage.QueryRowsTimed"), 2);
  EXPECT_EQ(log.Lines(3), Lines{});
  for (const LogCapture::Entry& entry : log.Entries()) {
    if (entry.name.rfind("netdb_storage.", 0) == 0) {
      EXPECT_EQ(entry.level, 1U) << entry.name << " only traces a dump or a query that went well";
    }
  }
}

// A filter of the caller's sees the list as it stands during the walk.
TEST_F(QueryTest, OnlyABoundedRangeAddsAFilter) {
  Add(kDay, Address(10, 0, 0, 1), 1);
  struct Range {
    u64 from;
    u64 to;
    u32 filters;
  };
  for (const Range& range : {Range{0, kAllOnes64, 1}, Range{1, kAllOnes64, 2}, Range{0, kAllOnes64 - 1, 2}}) {
    QueryConstraints constraints(range.from, range.to);
    u32 during = 0;
    ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([&constraints, &during](const Row&) {
      during = constraints.ip_filters.count;
      return true;
    })));
    ASSERT_TRUE(Run(constraints));
    EXPECT_EQ(rows.Ports(), (Ports{1}));
    EXPECT_EQ(during, range.filters) << range.from << " to " << range.to;
    EXPECT_EQ(constraints.ip_filters.count, 1U);
  }
}

TEST_F(QueryTest, RecordHoldsTheRowAndItsProcess) {
  Process process = MakeProcess("/usr/bin/curl", 42);
  BacklogMessage message = MakeMessage(kDay + 100, Address(192, 0, 2, 9), 8443);
  message.protocols = 0x0F01;
  message.bytes_in = u64{1} << 40;
  message.bytes_out = 5;
  ASSERT_TRUE(writer.Add(message, &process));
  message.timestamp = kDay + 200;
  message.direction = Direction::kInbound;
  ASSERT_TRUE(writer.Add(message, &process));
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  ASSERT_EQ(rows.records.size(), 1U);
  const QueryRecord& record = rows.records[0];
  EXPECT_EQ(record.is_ipv6, 0);
  const u8 address[16] = {192, 0, 2, 9};
  EXPECT_EQ(std::memcmp(record.address, address, 16), 0);
  EXPECT_EQ(record.first_seen, kDay + 100);
  EXPECT_EQ(record.last_seen, kDay + 200);
  EXPECT_EQ(record.protos, 0x0F01U);
  EXPECT_EQ(record.port, 8443U);
  EXPECT_EQ(record.conns_total, 2U);
  EXPECT_EQ(record.conns_in, 1U);
  EXPECT_EQ(record.conns_out, 1U);
  EXPECT_EQ(record.bytes_in, u64{1} << 41);
  EXPECT_EQ(record.bytes_out, 10U);
  EXPECT_EQ(std::memcmp(record.proc_md5, process.proc_md5, 16), 0);
  EXPECT_EQ(std::memcmp(record.proc_qid, process.proc_qid, 32), 0);
  EXPECT_EQ(record.proc_puid, process.proc_puid);
  EXPECT_EQ(record.proc_pid, 42);
  EXPECT_STREQ(record.proc_fpath, "/usr/bin/curl");
}

TEST_F(QueryTest, RowWithoutAProcessHasTheValuesOfNone) {
  const Process process = MakeProcess("/usr/bin/curl", 42);
  Add(kDay, Address(10, 0, 0, 1), 1, &process);
  Add(kDay, Address(10, 0, 0, 2), 2);
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  ASSERT_EQ(rows.records.size(), 2U);
  const QueryRecord& record = rows.records[1];
  EXPECT_EQ(record.port, 2U);
  EXPECT_EQ(record.proc_pid, -1);
  EXPECT_EQ(record.proc_puid, 0U);
  EXPECT_STREQ(record.proc_fpath, "");
  const u8 zero[32] = {};
  EXPECT_EQ(std::memcmp(record.proc_md5, zero, 16), 0);
  EXPECT_EQ(std::memcmp(record.proc_qid, zero, 32), 0);
}

TEST_F(QueryTest, RowsOfAFileComeByAddressProcessAndPort) {
  const Process one = MakeProcess("/bin/z", 1);
  const Process two = MakeProcess("/bin/a", 2);
  Add(kDay, Address(10, 0, 0, 2), 1, &one);
  Add(kDay, Address(10, 0, 0, 1), 9, &two);
  Add(kDay, Address(10, 0, 0, 1), 8, &one);
  Add(kDay, Address(10, 0, 0, 1), 7, &one);
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.Ports(), (Ports{7, 8, 9, 1}));
}

TEST_F(QueryTest, RangeWithinADayOpensThatFileAndCutsBySeconds) {
  for (u16 port = 0; port < 10; ++port) {
    Add(kDay + port, Address(10, 0, 0, 1), port);
    Add(kNextDay + port, Address(10, 0, 0, 1), static_cast<u16>(100 + port));
  }
  ASSERT_TRUE(writer.Flush());
  LogCapture log;
  EXPECT_EQ(Between(kDay + 3, kDay + 5), (Ports{3, 4, 5})) << "both ends count";
  EXPECT_EQ(log.Count("netdb_storage.QueryFileTimed"), 1);
  EXPECT_EQ(Between(kDay + 8, kNextDay + 1), (Ports{8, 9, 100, 101}));
}

TEST_F(QueryTest, RowThatSpansTheRangeIsNotInIt) {
  AddLong(kDay + 10, kDay + 90, 1);
  AddLong(kDay + 10, kDay + 50, 2);
  AddLong(kDay + 50, kDay + 90, 3);
  AddLong(kDay + 45, kDay + 55, 4);
  EXPECT_EQ(Between(kDay + 40, kDay + 60), (Ports{2, 3, 4}));
}

TEST_F(QueryTest, OpenRangeOnOneSideStillCuts) {
  AddLong(kDay + 10, kDay + 10, 1);
  AddLong(kDay + 90, kDay + 90, 2);
  EXPECT_EQ(Between(0, kDay + 50), (Ports{1}));
  EXPECT_EQ(Between(kDay + 50, kAllOnes64), (Ports{2}));
}

TEST_F(QueryTest, AddressesMayComeInAnyOrderAndTwice) {
  for (u8 last = 1; last <= 5; ++last) {
    Add(kDay, Address(10, 0, 0, last), last);
  }
  QueryConstraints constraints(0, kAllOnes64);
  for (const u8 last : {u8{4}, u8{2}, u8{4}, u8{9}}) {
    ASSERT_TRUE(constraints.ips_wanted.Add(Address(10, 0, 0, last)));
  }
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.Ports(), (Ports{2, 4}));
  EXPECT_TRUE(constraints.ips_wanted.data[0] == Address(10, 0, 0, 2)) << "comes back sorted";
}

class ProcessQueryTest : public QueryTest {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    const Process curl = MakeProcess("/usr/bin/curl", 1);
    const Process otherCurl = MakeProcess("/usr/bin/curl", 2);
    const Process ssh = MakeProcess("/usr/bin/ssh", 3);
    Add(kDay, Address(10, 0, 0, 1), 1, &curl);
    Add(kDay, Address(10, 0, 0, 1), 2, &otherCurl);
    Add(kDay, Address(10, 0, 0, 2), 3, &ssh);
    Add(kDay, Address(10, 0, 0, 3), 4);
    Add(kNextDay, Address(10, 0, 0, 1), 5, &ssh);
    ASSERT_TRUE(writer.Flush());
  }
  void Want(const char* path) { ASSERT_TRUE(constraints.paths_wanted.Add(String(path, true))); }

  QueryConstraints constraints{0, kAllOnes64};
};

TEST_F(ProcessQueryTest, PathFindsTheRowsOfAllItsProcesses) {
  Want("/usr/bin/ssh");
  Want("/usr/bin/curl");
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.SortedPorts(), (Ports{1, 2, 3, 5})) << "and never one without a process";
  EXPECT_EQ(constraints.ip_filters.count, 0U);
  EXPECT_STREQ(constraints.paths_wanted.data[0].text, "/usr/bin/curl") << "comes back sorted";
}

TEST_F(ProcessQueryTest, FileWithoutAWantedPathIsLeftAndTheNextIsRead) {
  Want("/usr/bin/curl");
  LogCapture log;
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.SortedPorts(), (Ports{1, 2}));
  EXPECT_EQ(log.Count("netdb_storage.NoProcessMatches"), 1);
  EXPECT_EQ(log.Arguments("netdb_storage.NoProcessMatches"), (Lines{"1700006400.db"}));
  EXPECT_EQ(log.Count("netdb_storage.QueryFileTimed"), 2);
  EXPECT_EQ(log.Lines(3), Lines{});
}

TEST_F(ProcessQueryTest, ProcessFiltersNarrowPathsAndStandAlone) {
  ASSERT_TRUE(
      constraints.process_filters.Add(ProcessFilter([](const Process& process) { return process.proc_pid != 1; })));
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.SortedPorts(), (Ports{2, 3, 5}));
  Want("/usr/bin/curl");
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.SortedPorts(), (Ports{2}));
}

TEST_F(ProcessQueryTest, CallersFiltersComeFirstAndStay) {
  int asked = 0;
  ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([&asked](const Row& row) {
    ++asked;
    return row.port != 1;
  })));
  Want("/usr/bin/curl");
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.Ports(), (Ports{2}));
  EXPECT_EQ(asked, 4) << "each row of the file with a wanted process, before its process is looked at";
  EXPECT_EQ(constraints.ip_filters.count, 1U);
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.Ports(), (Ports{2})) << "the same constraints again";
}

TEST_F(ProcessQueryTest, AllConditionsMustHold) {
  Want("/usr/bin/ssh");
  ASSERT_TRUE(constraints.ips_wanted.Add(Address(10, 0, 0, 1)));
  constraints.start_time = kNextDay;
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(rows.Ports(), (Ports{5}));
  EXPECT_EQ(constraints.ip_filters.count, 0U);
}

TEST_F(ProcessQueryTest, SinkThatRefusesEndsTheQuery) {
  int calls = 0;
  ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([](const Row&) { return true; })));
  constraints.end_time = kNextDay;
  Want("/usr/bin/curl");
  LogCapture log;
  EXPECT_FALSE(DBManager::Query(kFolder, constraints, [&calls](const QueryRecord&) {
    ++calls;
    return false;
  }));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.AddressWalkEnded", "5 netdb_storage.QueryEnded"}));
  EXPECT_EQ(constraints.ip_filters.count, 1U) << "cut back on this way out too";
}

TEST_F(ProcessQueryTest, SinkThatRefusesEndsAWalkByAddressToo) {
  ASSERT_TRUE(constraints.ips_wanted.Add(Address(10, 0, 0, 2)));
  int calls = 0;
  LogCapture log;
  EXPECT_FALSE(DBManager::Query(kFolder, constraints, [&calls](const QueryRecord&) {
    ++calls;
    return false;
  }));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.MergeVisitEnded", "5 netdb_storage.QueryEnded"}));
}

// Wanted paths are sorted as the process table is, or the walk over both would miss some.
TEST_F(QueryTest, PathsOfAnyBytesAreFound) {
  const std::vector<std::string> paths = {"/a", "/a/b", "/A", "/\xFF", "/\x01", "/a\xC3\xA9", "/~", "a", "/"};
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const Process process = MakeProcess(paths[i], static_cast<i64>(i + 1));
    Add(kDay, Address(10, 0, 0, static_cast<u8>(paths.size() - i)), static_cast<u16>(i), &process);
  }
  for (std::size_t first = 0; first < paths.size(); ++first) {
    for (std::size_t second = 0; second < first; ++second) {
      QueryConstraints constraints(0, kAllOnes64);
      ASSERT_TRUE(constraints.paths_wanted.Add(String(paths[first].c_str(), true)));
      ASSERT_TRUE(constraints.paths_wanted.Add(String(paths[second].c_str(), true)));
      ASSERT_TRUE(Run(constraints));
      EXPECT_EQ(rows.SortedPorts(), (Ports{static_cast<u16>(second), static_cast<u16>(first)}));
    }
  }
}

TEST_F(QueryTest, NewestFilterBeyondTheCeilingFailsTheQuery) {
  Add(kDay, Address(10, 0, 0, 1), 1);
  QueryConstraints constraints(kDay, kDay + 10);
  for (int i = 0; i < 128; ++i) {
    ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([](const Row&) { return true; })));
  }
  ASSERT_TRUE(writer.Flush());
  {
    LogCapture log;
    EXPECT_FALSE(Run(constraints));
    EXPECT_EQ(log.Lines(),
              (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.FilterNotAdded", "5 netdb_storage.QueryEnded"}));
  }
  EXPECT_EQ(rows.records.size(), 0U);
  EXPECT_EQ(constraints.ip_filters.count, 128U);
  ASSERT_TRUE(constraints.ip_filters.PopBack());
  EXPECT_TRUE(Run(constraints));
  EXPECT_EQ(constraints.ip_filters.count, 127U);
}

TEST_F(ProcessQueryTest, FilterForItsProcessesBeyondTheCeilingFailsTheQuery) {
  for (int i = 0; i < 128; ++i) {
    ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([](const Row&) { return true; })));
  }
  Want("/usr/bin/ssh");
  LogCapture log;
  EXPECT_FALSE(Run(constraints));
  EXPECT_EQ(log.Lines(),
            (Lines{"3 velmar.ArrayCeilingReached", "5 netdb_storage.FilterNotAdded", "5 netdb_storage.QueryEnded"}));
  EXPECT_EQ(rows.records.size(), 0U);
  EXPECT_EQ(constraints.ip_filters.count, 128U);
}

// A list that has lost its storage under the query costs a record, no more.
TEST_F(QueryTest, FilterThatCannotBeTakenOutIsReported) {
  Add(kDay, Address(10, 0, 0, 1), 1);
  ASSERT_TRUE(writer.Flush());
  QueryConstraints constraints(kDay, kDay + 10);
  LogCapture log;
  EXPECT_TRUE(DBManager::Query(kFolder, constraints, [&constraints](const QueryRecord&) {
    constraints.ip_filters.data = nullptr;
    return true;
  }));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayWithoutData", "5 netdb_storage.FilterNotRemoved"}));
  EXPECT_EQ(log.Arguments("netdb_storage.FilterNotRemoved"), (Lines{"1"}));
}

TEST_F(QueryTest, LongPathIsCutTo511Bytes) {
  const Process process = MakeProcess("/" + std::string(599, 'x'), 1);
  Add(kDay, Address(10, 0, 0, 1), 1, &process);
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  EXPECT_EQ(std::strlen(rows.records.at(0).proc_fpath), 511U);
  EXPECT_EQ(rows.records[0].proc_fpath[511], '\0');
}

TEST_F(QueryTest, LongPathIsCutBetweenCharacters) {
  // Two bytes a character from byte 1 on: the 511th byte is the first of a pair.
  std::string path = "/";
  for (int i = 0; i < 300; ++i) {
    path += "\xC3\xA9";
  }
  const Process even = MakeProcess(path, 1);
  Add(kDay, Address(10, 0, 0, 1), 1, &even);
  // Four bytes a character: three of the last are in front of byte 511.
  path = "";
  for (int i = 0; i < 200; ++i) {
    path += "\xF0\x9F\x98\x80";
  }
  const Process wide = MakeProcess(path, 2);
  Add(kDay, Address(10, 0, 0, 2), 2, &wide);
  // No text at all: only continuations.
  const Process broken = MakeProcess(std::string(600, '\x80'), 3);
  Add(kDay, Address(10, 0, 0, 3), 3, &broken);
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  ASSERT_EQ(rows.records.size(), 3U);
  EXPECT_EQ(std::strlen(rows.records[0].proc_fpath), 511U) << "byte 511 is the first of a pair, so nothing is split";
  EXPECT_EQ(std::strlen(rows.records[1].proc_fpath), 508U);
  EXPECT_EQ(std::strlen(rows.records[2].proc_fpath), 511U);
}

// Bytes around the limit that only look like the end of a character.
TEST_F(QueryTest, LongPathThatIsNoTextLosesNoByteBeforeTheLimit) {
  const std::string paths[] = {
      std::string(511, 'x') + "\x80",              // a continuation of nothing
      std::string(509, 'x') + "\xC3\xA9\x80",      // one too many
      std::string(508, 'x') + "\xF5\x80\x80\x80",  // no lead byte
      std::string(509, 'x') + "\xF0\x9F\x98",      // the text ends first
  };
  u8 number = 0;
  for (const std::string& path : paths) {
    const Process process = MakeProcess(path, ++number);
    Add(kDay, Address(10, 0, 0, number), number, &process);
  }
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  ASSERT_EQ(rows.records.size(), 4U);
  for (const QueryRecord& record : rows.records) {
    EXPECT_EQ(std::strlen(record.proc_fpath), 511U) << record.port;
  }
}

TEST_F(QueryTest, PathsOfChangingLengthDoNotShowThrough) {
  const Process longer = MakeProcess("/" + std::string(700, 'x'), 1);
  const Process shorter = MakeProcess("/s", 2);
  Add(kDay, Address(10, 0, 0, 1), 1, &longer);
  Add(kDay, Address(10, 0, 0, 2), 2, &shorter);
  Add(kDay, Address(10, 0, 0, 3), 3);
  QueryConstraints constraints(0, kAllOnes64);
  ASSERT_TRUE(Run(constraints));
  EXPECT_STREQ(rows.records.at(1).proc_fpath, "/s");
  EXPECT_STREQ(rows.records.at(2).proc_fpath, "");
}

TEST_F(QueryTest, BothFilesOfADayAreRead) {
  WriteDay(kDay, {1, 2});
  Sim::PutFile(DayPath(kDay, ".db.f"), Content(DayPath(kDay)));
  EXPECT_EQ(AllRows().SortedPorts(), (Ports{1, 1, 2, 2})) << "with no merging";
}

TEST_F(QueryTest, FileThatCannotBeOpenedIsPassedOver) {
  WriteDay(kDay, {1});
  WriteDay(kNextDay, {2});
  std::string bad = Content(DayPath(kDay));
  bad[bad.size() / 2] = static_cast<char>(bad[bad.size() / 2] ^ 1);
  Sim::PutFile(DayPath(kDay), bad);
  Sim::PutFile(DayPath(kNextDay + 86400), Content(DayPath(kNextDay)));
  Sim::PutFile(DayPath(kNextDay + 2 * 86400), "");
  LogCapture log;
  EXPECT_EQ(AllRows().Ports(), (Ports{2}));
  const Lines failures = log.Lines(5);
  EXPECT_EQ(std::count(failures.begin(), failures.end(), "5 netdb_storage.QueryFileSkipped"), 3);
  EXPECT_EQ(log.Count("netdb_storage.FileOfAnotherDay"), 1);
  EXPECT_EQ(log.Arguments("netdb_storage.QueryFileSkipped"), Lines{DayPath(kNextDay + 2 * 86400)});
}

// A file that goes between the listing and its opening has no day of its own any more.
TEST_F(QueryTest, FileThatVanishesIsPassedOver) {
  WriteDay(kDay, {1});
  WriteDay(kNextDay, {2});
  QueryConstraints constraints(0, kAllOnes64);
  Rows found;
  EXPECT_TRUE(DBManager::Query(kFolder, constraints, [&found](const QueryRecord& record) {
    found.records.push_back(record);
    Sim::RemoveFile(DayPath(kDay));
    Sim::RemoveFile(DayPath(kNextDay));
    return true;
  }));
  EXPECT_EQ(found.records.size(), 1U);
}

// The seed was made by a script from the description of the format, not by this library.
TEST_F(QueryTest, FileMadeByAnotherProgramIsRead) {
  std::ifstream seed(DAY_FILE_SEEDS "/day", std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(seed)), std::istreambuf_iterator<char>());
  ASSERT_FALSE(content.empty());
  Sim::PutFile(DayPath(kNextDay), content);
  LogCapture log;
  const Rows found = AllRows();
  EXPECT_EQ(log.Lines(3), Lines{});
  EXPECT_EQ(found.Ports(), (Ports{80, 80, 443, 22, 53}));
  const char* const paths[] = {"/bin/a", "/bin/b", "/bin/b", "/usr/bin/c", ""};
  for (std::size_t i = 0; i < found.records.size(); ++i) {
    const QueryRecord& record = found.records[i];
    EXPECT_STREQ(record.proc_fpath, paths[i]);
    EXPECT_EQ(record.first_seen, kNextDay + 10);
    EXPECT_EQ(record.last_seen, kNextDay + 20);
    EXPECT_EQ(record.protos, 1U);
    EXPECT_EQ(record.conns_total, 3U);
    EXPECT_EQ(record.conns_in, 1U);
    EXPECT_EQ(record.conns_out, 2U);
    EXPECT_EQ(record.bytes_in, 100U);
    EXPECT_EQ(record.bytes_out, 200U);
  }
  EXPECT_EQ(found.records[3].proc_pid, 7);
  EXPECT_EQ(found.records[3].proc_puid, 9U);
  EXPECT_EQ(found.records[4].address[0], 192);
}

TEST_F(QueryTest, NullAndMissingFoldersFail) {
  QueryConstraints constraints(0, kAllOnes64);
  {
    LogCapture log;
    EXPECT_FALSE(DBManager::Query(nullptr, constraints, rows.Sink()));
    EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkWithoutFolder"}));
  }
  LogCapture log;
  EXPECT_FALSE(DBManager::Query("/data/other", constraints, rows.Sink()));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.WalkFolderMissing"}));
  EXPECT_EQ(rows.records.size(), 0U);
}

TEST_F(QueryTest, SinkWithoutMemoryFails) {
  QueryConstraints constraints(0, kAllOnes64);
  LogCapture log;
  EXPECT_FALSE(DBManager::Query(kFolder, constraints, QuerySink()));
  EXPECT_EQ(log.Lines(), (Lines{"5 netdb_storage.QueryWithoutSink"}));
}

TEST_F(QueryTest, RowThatPointsAtAMissingProcessEndsTheQuery) {
  const Process process = MakeProcess("/bin/a", 1);
  Add(kDay, Address(10, 0, 0, 1), 1);
  Add(kDay, Address(10, 0, 0, 2), 2, &process);
  Add(kDay, Address(10, 0, 0, 3), 3);
  IPDBTestAccess<IPv4>::Rows(Access::Ips(writer)).data[1].proc_index = 9;
  QueryConstraints constraints(0, kAllOnes64);
  LogCapture log;
  EXPECT_FALSE(Run(constraints));
  EXPECT_EQ(rows.Ports(), (Ports{1})) << "what was given stays given";
  EXPECT_EQ(log.Lines(3), (Lines{"3 netdb_storage.ProcessIndexOutOfRange", "5 netdb_storage.RowPointsNowhere",
                                 "5 netdb_storage.AddressWalkEnded", "5 netdb_storage.QueryEnded"}));
}

TEST_F(QueryTest, RowThatPointsAtAFreeProcessRowEndsTheQuery) {
  const Process first = MakeProcess("/bin/a", 1);
  const Process second = MakeProcess("/bin/b", 2);
  Add(kDay, Address(10, 0, 0, 1), 1, &first);
  Add(kDay, Address(10, 0, 0, 2), 2, &second);
  ASSERT_TRUE(Access::Processes(writer).Release(0));
  QueryConstraints constraints(0, kAllOnes64);
  LogCapture log;
  EXPECT_FALSE(Run(constraints));
  EXPECT_EQ(rows.records.size(), 0U);
  EXPECT_EQ(log.Lines(3), (Lines{"3 netdb_storage.ProcessRowIsFree", "5 netdb_storage.RowPointsNowhere",
                                 "5 netdb_storage.AddressWalkEnded", "5 netdb_storage.QueryEnded"}));
}

TEST_F(QueryTest, RowsSinceTheLastDumpAreNotSeen) {
  Add(kDay, Address(10, 0, 0, 1), 1);
  ASSERT_TRUE(writer.Flush());
  Add(kDay, Address(10, 0, 0, 1), 2);
  EXPECT_EQ(AllRows().Ports(), (Ports{1}));
}

TEST_F(QueryTest, QueryWritesNothing) {
  WriteDay(kDay, {1, 2, 3});
  const std::vector<Sim::Operation> kWriting = {Sim::Operation::kCreate, Sim::Operation::kWrite,
                                                Sim::Operation::kDelete, Sim::Operation::kMove,
                                                Sim::Operation::kSync,   Sim::Operation::kCreateDirectory};
  std::vector<u64> before;
  for (const Sim::Operation kind : kWriting) {
    before.push_back(Sim::CountFileOperations(kind));
  }
  EXPECT_EQ(AllRows().Ports().size(), 3U);
  for (std::size_t i = 0; i < kWriting.size(); ++i) {
    EXPECT_EQ(Sim::CountFileOperations(kWriting[i]), before[i]) << i;
  }
}

TEST(QueryConstraints, ListsStartInlineWithTheirCeilingAndStep) {
  const QueryConstraints constraints(5, 6);
  EXPECT_EQ(constraints.start_time, 5U);
  EXPECT_EQ(constraints.end_time, 6U);
  EXPECT_EQ(constraints.ips_wanted.capacity, 4U);
  EXPECT_EQ(constraints.ips_wanted.maxCapacity, 128U);
  EXPECT_EQ(constraints.ips_wanted.flagWord, 0x40000020U);
  EXPECT_EQ(constraints.paths_wanted.maxCapacity, 128U);
  EXPECT_EQ(constraints.paths_wanted.flagWord, 0x40000020U);
  EXPECT_EQ(constraints.process_filters.flagWord, 0x40000020U);
  EXPECT_EQ(constraints.ip_filters.flagWord, 0x40000020U);
}

TEST(QueryConstraints, ListsOutgrowTheirInlineRoomUpToTheCeiling) {
  QueryConstraints constraints(0, kAllOnes64);
  for (int i = 0; i < 128; ++i) {
    ASSERT_TRUE(constraints.paths_wanted.Add(String("/bin/a-path-that-is-somewhat-long", true)));
    ASSERT_TRUE(constraints.ip_filters.Add(IPDB<IPv4>::Filter([i](const Row& row) { return row.port == i; })));
  }
  EXPECT_FALSE(constraints.paths_wanted.Add(String("/bin/b", true)));
  EXPECT_EQ(constraints.paths_wanted.count, 128U);
}

}  // namespace
