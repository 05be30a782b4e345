#include "host/agent/ModuleSession.h"

#include <gtest/gtest.h>

#include "host/Types.h"
#include "host/agent/ProcessRegistry.h"
#include "host/agent/ReplyReceiver.h"
#include "host/events/ConnectionRecord.h"
#include "host/events/NetDbQueryRecord.h"
#include "host/events/TableQueryRecord.h"
#include "tests/host/FakeModule.h"
#include "tests/host/StoredRecords.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using Outcome = ModuleSession::Outcome;

std::vector<u8> Event(u32 type, u16 port = 443) {
  ConnectionRecord record;
  record.type = type;
  record.timeMs = 1700000000000;
  record.address[0] = 203;
  record.address[2] = 113;
  record.address[3] = 1;
  record.port = port;
  record.directionCode = 1;
  record.protocol = "tcp";
  return PackConnection(record);
}

// A session with the fake module, open.
struct FakeSession {
  FakeSession() : session({}, FAKE_MODULE) {
    std::string error;
    EXPECT_TRUE(session.Open("/unused", error)) << error;
  }
  ModuleSession session;
};

TEST(ModuleSession, FullQueueIsToldFromOtherRefusals) {
  FakeSession fake;
  EXPECT_EQ(fake.session.Send(Event(185)), Outcome::kTaken);
  EXPECT_EQ(fake.session.Send(Event(kFakeFull, 1)), Outcome::kQueueFull);
  EXPECT_EQ(fake.session.Send(Event(kFakeRefuse)), Outcome::kRefused);
}

TEST(ModuleSession, SendWaitingTriesUntilTheQueueTakesIt) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.SendWaiting(Event(kFakeFull, 5)));
  EXPECT_TRUE(fake.session.Close());
}

TEST(ModuleSession, SendWaitingGivesOtherRefusalsBackAtOnce) {
  FakeSession fake;
  EXPECT_FALSE(fake.session.SendWaiting(Event(kFakeRefuse)));
}

TEST(ModuleSession, SendWaitingDoesNotWaitForAWorkerThatEnded) {
  FakeSession fake;
  EXPECT_FALSE(fake.session.SendWaiting(Event(kFakeWorkerEnds)));
  EXPECT_FALSE(fake.session.Close());
}

TEST(ModuleSession, QueuedEventWithoutWakeUpIsTaken) {
  FakeSession fake;
  EXPECT_EQ(fake.session.Send(Event(kFakeNoWakeUp)), Outcome::kTaken);
}

TEST(ModuleSession, LostEventMakesCloseFail) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.SendWaiting(Event(kFakeLose)));
  EXPECT_FALSE(fake.session.Close());
  EXPECT_EQ(fake.session.LostMessages(), 1U);
  ASSERT_EQ(fake.session.Errors().size(), 1U);
  EXPECT_EQ(fake.session.Errors()[0], "connection is lost after 3 retries");
}

TEST(ModuleSession, DumpThatIsMadeGoodLaterIsNoLoss) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.SendWaiting(Event(kFakeDumpFails)));
  EXPECT_TRUE(fake.session.Close());
  EXPECT_EQ(fake.session.FailedDumps(), 1U);
}

TEST(ModuleSession, FailedLastDumpMakesCloseFail) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.SendWaiting(Event(kFakeLastDumpFails)));
  EXPECT_FALSE(fake.session.Close());
  EXPECT_EQ(fake.session.FailedDumps(), 1U);
}

TEST(ModuleSession, FullQueueIsNoErrorToReport) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.SendWaiting(Event(kFakeFull, 3)));
  EXPECT_TRUE(fake.session.Errors().empty());
}

TEST(ModuleSession, ReplyThatIsAnEventReachesTheReceiver) {
  ReplyReceiver receiver;
  ModuleSession session({nullptr, nullptr, &receiver}, FAKE_MODULE);
  std::string error;
  ASSERT_TRUE(session.Open("/unused", error)) << error;
  EXPECT_EQ(session.Send(*PackNetDbQuery({"Iterate", 77, 78, {}}, error)), Outcome::kTaken);
  const auto reply = receiver.Take();
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(reply->kind, 8U);
  EXPECT_EQ(reply->tree.GetNodeValueUInt64(0, "start", 0, nullptr), 77U);
}

TEST(ModuleSession, WithoutAReceiverAQueryIsRefused) {
  FakeSession fake;
  std::string error;
  EXPECT_EQ(fake.session.Send(*PackNetDbQuery({"Iterate", 77, 78, {}}, error)), Outcome::kRefused);
}

TEST(ModuleSession, BinaryReplyIsKeptInTheExternalData) {
  FakeSession fake;
  std::string error;
  const auto query = *PackTableQuery(TableQueryRecord(), error);
  NamedBinaries binaries(1000);
  EXPECT_EQ(fake.session.Send(query, &binaries), Outcome::kTaken);
  ASSERT_NE(binaries.Find("events"), nullptr);
  EXPECT_EQ(*binaries.Find("events"), std::vector<u8>(query.begin(), query.begin() + 0x15));
  EXPECT_EQ(fake.session.Send(query), Outcome::kRefused);
}

TEST(ModuleSession, ClosedSessionRefuses) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.Close());
  EXPECT_TRUE(fake.session.Close());
  EXPECT_EQ(fake.session.Send(Event(185)), Outcome::kRefused);
}

// The value of a setting in the module's own report.
u64 DaysInForce(ModuleSession& session) {
  Velmar::Utils::TreeContainer report;
  EXPECT_TRUE(report.Create(64, 64, true, 8));
  Velmar::Collections::Array<Velmar::Utils::TreeContainer> history;
  EXPECT_TRUE(session.GetStatus(history, report));
  const u32 config = report.GetNodeChild(Velmar::Utils::TreeContainer::kRoot, "config");
  return report.GetNodeValueUInt64(config, "max_db_days", 0, nullptr);
}

Policy PolicyOf(const std::string& document) {
  std::string error;
  const auto policy = Policy::Parse(document, "test", error);
  EXPECT_TRUE(policy) << error;
  return *policy;
}

TEST(ModuleSession, OpensWithItsPolicyAndFollowsAnother) {
  const TemporaryFolder folder;
  ModuleSession session({});
  session.UsePolicy(PolicyOf("max_db_days = 30"));
  std::string error;
  ASSERT_TRUE(session.Open(folder.Path(), error)) << error;
  EXPECT_EQ(DaysInForce(session), 30U);
  session.Apply(PolicyOf("max_db_days = 40"));
  EXPECT_EQ(DaysInForce(session), 40U);
  session.Apply(Policy());
  EXPECT_EQ(DaysInForce(session), 3653U);
  EXPECT_TRUE(session.Close());
}

TEST(ModuleSession, WithoutAPolicyEverySettingHasItsDefault) {
  const TemporaryFolder folder;
  ModuleSession session({});
  std::string error;
  ASSERT_TRUE(session.Open(folder.Path(), error)) << error;
  EXPECT_EQ(DaysInForce(session), 3653U);
}

TEST(ModuleSession, DisabledModuleTakesAndLeavesOut) {
  const TemporaryFolder folder;
  ModuleSession session({});
  session.UsePolicy(PolicyOf("netdb_enabled = false"));
  std::string error;
  ASSERT_TRUE(session.Open(folder.Path(), error)) << error;
  EXPECT_EQ(session.Send(Event(185)), Outcome::kTaken);
  session.Apply(PolicyOf("netdb_enabled = true"));
  EXPECT_EQ(session.Send(Event(185)), Outcome::kTaken);
  EXPECT_TRUE(session.Close());
  const std::vector<StoredRecord> rows = StoredRecords(folder.Path());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].conns_total, 1U);
}

TEST(ModuleSession, OpenedToAskItAnswersAndRecordsNothing) {
  const TemporaryFolder folder;
  ReplyReceiver receiver;
  ModuleSession session({nullptr, nullptr, &receiver});
  session.UsePolicy(PolicyOf("max_db_size = 262144"));
  std::string error;
  ASSERT_TRUE(session.OpenToAsk(folder.Path(), error)) << error;
  EXPECT_EQ(session.Send(Event(185)), Outcome::kRefused);
  EXPECT_EQ(session.Send(*PackNetDbQuery({"Iterate", 0, ~u64{0}, {}}, error)), Outcome::kTaken);
  EXPECT_NE(receiver.Take(), nullptr);
  EXPECT_TRUE(session.Close());
  EXPECT_TRUE(StoredRecords(folder.Path()).empty());
}

TEST(ModuleSession, ClosedSessionReportsNothing) {
  FakeSession fake;
  EXPECT_TRUE(fake.session.Close());
  Velmar::Utils::TreeContainer tree;
  EXPECT_TRUE(tree.Create(8, 8, true, 8));
  EXPECT_FALSE(fake.session.SaveStatistics(tree));
  EXPECT_FALSE(fake.session.GetStatus({}, tree));
  fake.session.Apply(Policy());
  EXPECT_EQ(tree.GetNodeChildrenCount(Velmar::Utils::TreeContainer::kRoot), 0U);
}

TEST(ModuleSession, MissingLibraryIsAnError) {
  ModuleSession session({}, "/nowhere/libryl_netdb.so");
  std::string error;
  EXPECT_FALSE(session.Open("/unused", error));
  EXPECT_NE(error.find("cannot load the module"), std::string::npos) << error;
}

TEST(ModuleSession, LibraryThatIsNoModuleIsAnError) {
  ModuleSession session({}, BASE_LIBRARY);
  std::string error;
  EXPECT_FALSE(session.Open("/unused", error));
  EXPECT_NE(error.find("is not a module"), std::string::npos) << error;
}

TEST(ModuleSession, ModuleThatCannotStartSaysWhy) {
  const TemporaryFolder folder;
  ModuleSession session({});
  std::string error;
  EXPECT_FALSE(session.Open(folder.Put("file", ""), error));
  EXPECT_NE(error.find("cannot create the database folder"), std::string::npos) << error;
  EXPECT_FALSE(session.OpenToAsk(folder.Path("file"), error));
  EXPECT_NE(error.find("cannot create the database folder"), std::string::npos) << error;
}

TEST(ModuleSession, StoresWhatWasSentWithItsProcess) {
  const TemporaryFolder folder;
  ProcessRegistry processes;
  processes.Put(9, 1234, "/usr/bin/curl");
  RecordedHashes hashes;
  FileDigests digests;
  digests.md5.fill(0xAB);
  hashes.Put("/usr/bin/curl", digests);
  ConnectionRecord record;
  record.timeMs = 1700000000000;
  record.processPuid = 9;
  record.address[0] = 203;
  record.port = 443;
  record.directionCode = 0;

  ModuleSession session({&processes, &hashes});
  std::string error;
  ASSERT_TRUE(session.Open(folder.Path(), error)) << error;
  EXPECT_EQ(session.Send(PackConnection(record)), Outcome::kTaken);
  EXPECT_TRUE(session.Close());

  const std::vector<StoredRecord> rows = StoredRecords(folder.Path());
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_STREQ(rows[0].proc_fpath, "/usr/bin/curl");
  EXPECT_EQ(rows[0].proc_pid, 1234);
  EXPECT_EQ(rows[0].proc_puid, 9U);
  EXPECT_EQ(rows[0].proc_md5[15], 0xAB);
  EXPECT_EQ(rows[0].conns_in, 1U);
}

}  // namespace
