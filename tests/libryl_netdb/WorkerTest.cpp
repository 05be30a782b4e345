#include "common/libryl_netdb/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "platform/sim/Sim.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogCapture.h"

namespace RYL::Module {

struct WorkerTestAccess {
  static void Store(Worker& worker, NetDB::DBManager& db) { worker.StoreMessagesFromBacklog(db); }
};

namespace {

using Lines = std::vector<std::string>;
using Record = Comm::Interfaces::INetDBQuery::Record;

constexpr u64 kDay = 1699920000;
constexpr const char* kFolder = "/data/netdb";

// The parts of a module that a worker uses, without the module.
class WorkerTest : public ::testing::Test {
 protected:
  WorkerTest() {
    Velmar::Sim::Reset();
    Velmar::OS::FileSystem::CreateDirectory(kFolder);
    EXPECT_TRUE(backlog.Create(8, 1024, 8, true, false, Velmar::Collections::GrowType::kFixedStep));
  }

  WorkerSurroundings Parts() {
    return {.host = &host,
            .event_lookup = &host.lookup,
            .file_hash_service = &host.hashes,
            .settings = &settings,
            .gate = &gate,
            .backlog = &backlog,
            .wake_event = &wake,
            .db_path = kFolder,
            .verdict_cache = &verdicts,
            .filterSteps = {}};
  }
  void Push(u64 puid, bool hasProcess = true) {
    NetDB::BacklogMessage message;
    message.address = 0x09080706;
    message.port = 443;
    message.is_new_connection = 1;
    message.direction = NetDB::Direction::kOutbound;
    message.has_process = hasProcess ? 1 : 0;
    message.process_puid = puid;
    message.timestamp = kDay + 5;
    ASSERT_TRUE(backlog.Push(message));
  }
  // Empties the queue into the folder's day file.
  void Store(const WorkerSurroundings& parts) {
    NetDB::DBManager db;
    ASSERT_TRUE(db.SetFolder(kFolder));
    Worker worker(parts);
    WorkerTestAccess::Store(worker, db);
    ASSERT_TRUE(db.Flush());
  }
  static std::vector<Record> Rows() {
    std::vector<Record> rows;
    NetDB::QueryConstraints constraints(0, ~u64{0});
    EXPECT_TRUE(NetDB::DBManager::Query(kFolder, constraints, NetDB::QuerySink([&rows](const Record& row) {
                                          rows.push_back(row);
                                          return true;
                                        })));
    return rows;
  }
  static bool AllBytesAre(const u8* bytes, std::size_t size, u8 value) {
    return std::string(reinterpret_cast<const char*>(bytes), size) == std::string(size, static_cast<char>(value));
  }

  LogCapture log;
  FakeHost host;
  Settings settings;
  IntakeGate gate;
  NetDB::CloudStatus<NetDB::IPv4> verdicts;
  NetDB::Backlog backlog;
  Velmar::OS::Event wake{false};
};

TEST_F(WorkerTest, MissingPartsEndTheThread) {
  WorkerSurroundings parts = Parts();
  parts.backlog = nullptr;
  Worker(parts).Run();
  parts = Parts();
  parts.wake_event = nullptr;
  Worker(parts).Run();
  EXPECT_EQ(log.Lines(1), (Lines{"5 ryl_netdb.WorkerIncomplete", "5 ryl_netdb.WorkerIncomplete"}));
}

TEST_F(WorkerTest, MissingFolderEndsTheThread) {
  WorkerSurroundings parts = Parts();
  parts.db_path = "/nowhere";
  Worker(parts).Run();
  EXPECT_EQ(log.Lines(5), (Lines{"5 netdb_storage.FolderMissing", "5 ryl_netdb.WorkerFolderRefused"}));
  EXPECT_EQ(log.Count("ryl_netdb.WorkerTurn"), 0);
  EXPECT_TRUE(settings.netdb_enabled.Get());
}

TEST_F(WorkerTest, RunStoresWhatWasQueuedBeforeItEnds) {
  Push(1);
  Push(2);
  settings.netdb_enabled.Set(false);
  Worker(Parts()).Run();
  EXPECT_EQ(backlog.GetCount(), 0U);
  ASSERT_EQ(Rows().size(), 1U);
  EXPECT_EQ(Rows()[0].conns_total, 2U);
  EXPECT_EQ(log.Count("ryl_netdb.WorkerLeaves"), 1);
}

TEST_F(WorkerTest, TurnThatFindsTheModuleOffStillChecksTheFolder) {
  settings.netdb_enabled.Set(false);
  Velmar::Sim::PutFile("/data/netdb/1384300800.db", "too old");
  wake.Signal();
  Worker(Parts()).Run();
  EXPECT_EQ(log.Count("ryl_netdb.FootprintChecked"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.NoFileToFilter"), 0);
  EXPECT_TRUE(Velmar::Sim::ListFiles().empty());
}

TEST_F(WorkerTest, CacheFileEatsIntoTheAllowance) {
  settings.netdb_enabled.Set(false);
  settings.max_db_size.Set(0x40000);
  for (const auto& [cacheSize, allowance] : std::vector<std::pair<std::size_t, std::string>>{
           {0, "262144"}, {1, "262143"}, {0x3FFFF, "1"}, {0x40000, "0"}, {0x40001, "0"}}) {
    SCOPED_TRACE(cacheSize);
    ASSERT_TRUE(verdicts.Open(kFolder, true));
    Velmar::Sim::PutFile("/data/netdb/cache.4.db", std::string(cacheSize, 'x'));
    Velmar::Sim::PutFile("/data/netdb/1699920000.db", "x");
    wake.Signal();
    Worker(Parts()).Run();
    EXPECT_EQ(log.Arguments("ryl_netdb.FootprintChecked"), (Lines{allowance, "3653"}));
    // With an allowance of 0 no day stays, today's included; the cache's own file is no day.
    EXPECT_EQ(Velmar::Sim::ListFiles().size(), allowance == "0" ? 1U : 2U);
  }
}

// An event that found the module on may be pushed after the worker's last turn.
TEST_F(WorkerTest, RunWaitsForIntakeAndDrainsOnceMore) {
  settings.netdb_enabled.Set(false);
  wake.Signal();
  std::thread worker;
  {
    const IntakeGate::Passage passage(gate);
    worker = std::thread([this] { Worker(Parts()).Run(); });
    while (log.Count("ryl_netdb.WorkerLeaves") == 0) {
      std::this_thread::yield();
    }
    // A worker that did not wait would be through its last drain by then.
    for (int i = 0; i < 2000; ++i) {
      std::this_thread::yield();
    }
    EXPECT_EQ(log.Count("ryl_netdb.BacklogEmpty"), 1);
    Push(1);
  }
  worker.join();
  EXPECT_EQ(log.Count("ryl_netdb.BacklogEmpty"), 2);
  ASSERT_EQ(Rows().size(), 1U);
}

// A filter job that lasts until `hold` is signalled.
struct LongJob {
  static Velmar::OS::Event* hold;
  static std::atomic<bool> ended;

  static bool FindFile(const char*, Velmar::Utils::String& path, bool& found) {
    found = true;
    return path.Set("/data/netdb/1699833600.db");
  }
  static void Run(void* context) {
    hold->Wait(100000000);
    ended = true;
    static_cast<FilterJobContext*>(context)->status->exchange(FilterState::kDone);
  }
};
Velmar::OS::Event* LongJob::hold = nullptr;
std::atomic<bool> LongJob::ended{false};

// A worker on its own thread, beside a filter job that it started in its first turn.
class WorkerWithJobTest : public WorkerTest {
 protected:
  WorkerWithJobTest() {
    LongJob::hold = &hold;
    LongJob::ended = false;
    settings.jitter_first_filter.Set(false);
    thread = std::thread([this] { Run(); });
    wake.Signal();
    EXPECT_TRUE(Velmar::Sim::WaitUntilWaiting(2));
    EXPECT_EQ(log.Count("ryl_netdb.FilterJobStarts"), 1);
    log.Clear();
  }

  void Run() {
    WorkerSurroundings parts = Parts();
    parts.filterSteps = {&LongJob::FindFile, &LongJob::Run};
    try {
      Worker(parts).Run();
    } catch (const std::exception&) {
      threw = true;
    }
    jobHadEnded = LongJob::ended;
  }
  void AwaitRecord(const std::string& name) {
    while (log.Count(name) == 0) {
      std::this_thread::yield();
    }
  }

  Velmar::OS::Event hold{false};
  bool threw = false;
  bool jobHadEnded = false;
  std::thread thread;
};

TEST_F(WorkerWithJobTest, EndWaitsForTheJobAndDumpsAfterIt) {
  Push(1, false);
  settings.netdb_enabled.Set(false);
  wake.Signal();
  AwaitRecord("ryl_netdb.WaitingForFilterJob");
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 0);
  hold.Signal();
  thread.join();
  EXPECT_TRUE(jobHadEnded);
  EXPECT_FALSE(threw);
  EXPECT_EQ(log.Lines(3),
            (Lines{"3 ryl_netdb.BacklogEmpty", "3 ryl_netdb.BacklogEmpty", "3 ryl_netdb.WaitingForFilterJob"}));
  EXPECT_EQ(log.Count("netdb_storage.DayDumped"), 1);
}

TEST_F(WorkerWithJobTest, ExceptionWaitsForTheJobToo) {
  std::atomic<bool> lookedUp{false};
  host.lookup.onLookup = [&lookedUp] {
    lookedUp = true;
    throw std::runtime_error("look-up broke");
  };
  Push(1);
  wake.Signal();
  while (!lookedUp) {
    std::this_thread::yield();
  }
  hold.Signal();
  thread.join();
  EXPECT_TRUE(threw);
  EXPECT_TRUE(jobHadEnded);
}

// The first turn, before the job, has checked.
TEST_F(WorkerWithJobTest, FootprintCheckStandsAsideForTheJob) {
  const auto turn = [this](u64 milliseconds, u32 waiting) {
    log.Clear();
    Velmar::Sim::AdvanceTime(milliseconds);
    return Velmar::Sim::WaitUntilWaiting(waiting) && log.Count("ryl_netdb.WorkerTurn") == 1;
  };
  ASSERT_TRUE(turn(3600001, 2));
  EXPECT_EQ(log.Count("ryl_netdb.FilterJobRuns"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.FootprintChecked"), 0);
  hold.Signal();
  while (!LongJob::ended) {
    std::this_thread::yield();
  }
  // The job's result is taken in after the check's place in the turn.
  while (log.Count("ryl_netdb.FilterJobDone") == 0) {
    ASSERT_TRUE(turn(60000, 1));
    EXPECT_EQ(log.Count("ryl_netdb.FootprintChecked"), 0);
  }
  ASSERT_TRUE(turn(60000, 1));
  EXPECT_EQ(log.Count("ryl_netdb.FootprintChecked"), 1);
  settings.netdb_enabled.Set(false);
  wake.Signal();
  thread.join();
}

TEST_F(WorkerWithJobTest, TurnsGoOnBesideTheJob) {
  Push(1, false);
  wake.Signal();
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(2));
  EXPECT_EQ(log.Count("ryl_netdb.MessagesStored"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.FilterJobRuns"), 1);
  settings.netdb_enabled.Set(false);
  wake.Signal();
  hold.Signal();
  thread.join();
}

TEST_F(WorkerWithJobTest, CloudQueriesTurnedOffStopNoJob) {
  settings.cloud_query_enabled.Set(false);
  wake.Signal();
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(2));
  EXPECT_EQ(log.Count("ryl_netdb.FilterJobRuns"), 1);
  EXPECT_FALSE(LongJob::ended);
  hold.Signal();
  while (log.Count("ryl_netdb.FilterJobDone") == 0) {
    wake.Signal();
    ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  }
  settings.netdb_enabled.Set(false);
  wake.Signal();
  thread.join();
}

TEST_F(WorkerTest, EveryDrainEndsWithOneEmptyPop) {
  Store(Parts());
  EXPECT_EQ(log.Count("ryl_netdb.BacklogEmpty"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.MessagesStored"), 0);
  Push(1);
  Push(2);
  Push(3);
  Store(Parts());
  EXPECT_EQ(log.Count("ryl_netdb.BacklogEmpty"), 2);
  EXPECT_EQ(log.Count("ryl_netdb.MessagesStored"), 1);
  EXPECT_EQ(log.Arguments("ryl_netdb.MessagesStored")[0], "3");
}

TEST_F(WorkerTest, ProcessAndItsDigestsAreStored) {
  host.lookup.AddProcess(7, 0xFFFFFFFE, "/usr/bin/curl");
  host.hashes.files["/usr/bin/curl"] = {0x11, 0x22};
  Push(7);
  Store(Parts());
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_STREQ(rows[0].proc_fpath, "/usr/bin/curl");
  EXPECT_EQ(rows[0].proc_puid, 7U);
  EXPECT_EQ(rows[0].proc_pid, 0xFFFFFFFE);
  EXPECT_TRUE(AllBytesAre(rows[0].proc_md5, 16, 0x11));
  EXPECT_TRUE(AllBytesAre(rows[0].proc_qid, 32, 0x22));
  EXPECT_EQ(host.hashes.asked, std::vector<u32>{9});
  EXPECT_TRUE(host.hashes.blocksCameZeroed);
  EXPECT_EQ(log.Count("ryl_netdb.ProcessLookup"), 1);
}

TEST_F(WorkerTest, MessageWithoutProcessMarkIsNotLookedUp) {
  host.lookup.AddProcess(7, 1, "/usr/bin/curl");
  Push(7, false);
  Store(Parts());
  EXPECT_EQ(log.Count("ryl_netdb.ProcessLookup"), 0);
  EXPECT_EQ(Rows()[0].proc_pid, -1);
}

TEST_F(WorkerTest, WithoutLookupServiceThereIsNoProcess) {
  WorkerSurroundings parts = Parts();
  parts.event_lookup = nullptr;
  host.lookup.AddProcess(7, 1, "/usr/bin/curl");
  Push(7);
  Store(parts);
  EXPECT_EQ(log.Count("ryl_netdb.ProcessLookup"), 0);
  EXPECT_EQ(Rows()[0].proc_pid, -1);
  EXPECT_STREQ(Rows()[0].proc_fpath, "");
}

TEST_F(WorkerTest, UnknownProcessIsLoggedAndLeftOut) {
  Push(7);
  Store(Parts());
  EXPECT_EQ(log.Arguments("ryl_netdb.ProcessNotFound"), Lines{"7"});
  EXPECT_EQ(log.Count("ryl_netdb.ProcessNotFound"), 1);
  EXPECT_EQ(log.CountLevel(5), 0);
  ASSERT_EQ(Rows().size(), 1U);
  EXPECT_EQ(Rows()[0].proc_pid, -1);
}

TEST_F(WorkerTest, ProcessEventThatEndsInsideItsPathIsRefused) {
  auto record = EventBuilder::Process(7, 1, "/usr/bin/curl");
  for (const std::size_t size : {record.size() - 1, std::size_t{162}, std::size_t{161}, std::size_t{10}}) {
    SCOPED_TRACE(size);
    log.Clear();
    host.lookup.records[7] = {record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size)};
    Push(7);
    Store(Parts());
    EXPECT_EQ(log.Lines(5), Lines{"5 ryl_netdb.ProcessPathNotTaken"});
  }
  EXPECT_EQ(Rows()[0].proc_pid, -1);
}

TEST_F(WorkerTest, PathLongerThanTheAreasIsTakenWhole) {
  const std::string path = "/" + std::string(400, 'x');
  host.lookup.AddProcess(7, 1, path);
  Push(7);
  Store(Parts());
  EXPECT_EQ(Rows()[0].proc_fpath, path);
}

TEST_F(WorkerTest, PathWithoutMemoryLeavesTheProcessOut) {
  host.lookup.AddProcess(7, 1, "/" + std::string(300, 'x'));
  Push(7);
  NetDB::DBManager db;
  ASSERT_TRUE(db.SetFolder(kFolder));
  Worker worker(Parts());
  Velmar::Sim::FailAllocation(0);
  WorkerTestAccess::Store(worker, db);
  EXPECT_EQ(log.Lines(5), Lines{"5 ryl_netdb.ProcessPathNotTaken"});
  ASSERT_TRUE(db.Flush());
  EXPECT_EQ(Rows()[0].proc_pid, -1);
}

TEST_F(WorkerTest, FailedHashQueryStoresTheProcessWithZeroDigests) {
  host.lookup.AddProcess(7, 12, "/gone");
  Push(7);
  Store(Parts());
  EXPECT_EQ(log.Arguments("ryl_netdb.ProcessHashesMissing"), Lines{"/gone"});
  EXPECT_EQ(log.CountLevel(5), 0);
  const auto rows = Rows();
  EXPECT_STREQ(rows[0].proc_fpath, "/gone");
  EXPECT_EQ(rows[0].proc_puid, 7U);
  EXPECT_EQ(rows[0].proc_pid, 12);
  EXPECT_TRUE(AllBytesAre(rows[0].proc_md5, 16, 0));
  EXPECT_TRUE(AllBytesAre(rows[0].proc_qid, 32, 0));
}

TEST_F(WorkerTest, WithoutHashServiceDigestsAreZero) {
  WorkerSurroundings parts = Parts();
  parts.file_hash_service = nullptr;
  host.lookup.AddProcess(7, 12, "/bin/a");
  Push(7);
  Store(parts);
  EXPECT_EQ(log.Count("ryl_netdb.ProcessHashesMissing"), 0);
  EXPECT_STREQ(Rows()[0].proc_fpath, "/bin/a");
  EXPECT_TRUE(AllBytesAre(Rows()[0].proc_md5, 16, 0));
}

// The process value is reused from message to message.
TEST_F(WorkerTest, NothingOfOneProcessStaysInTheNext) {
  host.lookup.AddProcess(1, 11, "/a/long/path/of/a/program");
  host.lookup.AddProcess(2, 22, "/b");
  host.hashes.files["/a/long/path/of/a/program"] = {0x33, 0x44};
  Push(1);
  Push(2);
  Push(3);
  Store(Parts());
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 3U);
  std::map<std::string, const Record*> byPath;
  for (const Record& row : rows) {
    byPath[row.proc_fpath] = &row;
  }
  ASSERT_EQ(byPath.count("/b"), 1U);
  EXPECT_EQ(byPath["/b"]->proc_pid, 22);
  EXPECT_TRUE(AllBytesAre(byPath["/b"]->proc_md5, 16, 0));
  EXPECT_TRUE(AllBytesAre(byPath["/b"]->proc_qid, 32, 0));
  ASSERT_EQ(byPath.count(""), 1U);
  EXPECT_EQ(byPath[""]->proc_pid, -1);
  EXPECT_EQ(byPath[""]->proc_puid, 0U);
}

// A manager without a folder refuses every message.
TEST_F(WorkerTest, RefusedMessageIsTriedFourTimesAndLost) {
  Push(1, false);
  Push(2, false);
  NetDB::DBManager db;
  Worker worker(Parts());
  WorkerTestAccess::Store(worker, db);
  EXPECT_EQ(Velmar::Sim::Sleeps(), (std::vector<u32>{100, 100, 100, 100, 100, 100}));
  EXPECT_EQ(log.Count("ryl_netdb.AddRetry"), 8);
  EXPECT_EQ(log.Count("ryl_netdb.AddGivenUp"), 2);
  EXPECT_EQ(log.Count("netdb_storage.DayNotSelected"), 8);
  EXPECT_EQ(log.Arguments("ryl_netdb.AddGivenUp"), Lines{"3"});
  Lines retries;
  for (const auto& entry : log.Entries()) {
    if (entry.name == "ryl_netdb.AddRetry") {
      EXPECT_EQ(entry.level, 3U);
      retries.push_back(entry.arguments[0]);
    }
  }
  EXPECT_EQ(retries, (Lines{"0", "1", "2", "3", "0", "1", "2", "3"}));
  EXPECT_EQ(log.Lines(3).end()[-2], "5 ryl_netdb.AddGivenUp");
  EXPECT_EQ(backlog.GetCount(), 0U);
}

TEST_F(WorkerTest, RetryThatWorksKeepsTheMessage) {
  Push(1, false);
  // The first opening of the day's file fails, the next try finds the day selected.
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kOpenRead, 0, Velmar::Sim::Fault::kFail);
  Velmar::Sim::PutFile(std::string(kFolder) + "/1699920000.db", "damaged");
  NetDB::DBManager db;
  ASSERT_TRUE(db.SetFolder(kFolder));
  Worker worker(Parts());
  WorkerTestAccess::Store(worker, db);
  EXPECT_EQ(log.Count("ryl_netdb.AddRetry"), 1);
  EXPECT_EQ(log.Count("ryl_netdb.AddGivenUp"), 0);
  EXPECT_EQ(Velmar::Sim::Sleeps(), std::vector<u32>{100});
  EXPECT_EQ(db.GetRowCount(), 1U);
}

}  // namespace
}  // namespace RYL::Module
