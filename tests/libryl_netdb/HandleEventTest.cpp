#include <string>
#include <vector>

#include "tests/cloud/CloudStatusTestAccess.h"
#include "tests/libryl_netdb/ModuleFixture.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

using Verdicts = NetDB::CloudStatusTestAccess;

using NetDB::Backlog;
using NetDB::BacklogMessage;

// An initialised module with a queue and a signal, and no worker that would empty them.
class HandleEventTest : public ModuleTest {
 protected:
  HandleEventTest() {
    EXPECT_TRUE(Initialize());
    queue = Velmar::Collections::New<Backlog>();
    EXPECT_TRUE(queue->Create(4, 8, 4, true, false, Velmar::Collections::GrowType::kFixedStep));
    wake = Velmar::Collections::New<Velmar::OS::Event>(false);
    Access::GetBacklog(Manager()) = queue;
    Access::GetWakeEvent(Manager()) = wake;
    log.Clear();
  }

  // The one message that was queued; all zero, with a failure, when there is none.
  BacklogMessage Queued() {
    EXPECT_EQ(queue->GetCount(), 1U);
    BacklogMessage message;
    queue->Pop(message);
    return message;
  }
  void ExpectIgnored(const EventBuilder& event, bool result, const std::vector<std::string>& lines) {
    log.Clear();
    EXPECT_EQ(Handle(event), result);
    EXPECT_EQ(log.Lines(), lines);
    EXPECT_EQ(queue->GetCount(), 0U);
    EXPECT_FALSE(wake->Wait(0));
  }

  Backlog* queue = nullptr;           // the module's
  Velmar::OS::Event* wake = nullptr;  // the module's
};

TEST_F(HandleEventTest, NullEventIsAnError) {
  EXPECT_FALSE(module->HandleEvent(nullptr, nullptr));
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.NullEvent"});
}

TEST_F(HandleEventTest, NewConnectionIsQueuedWhole) {
  EXPECT_TRUE(Handle(EventBuilder(185)
                         .Address("198.51.100.7")
                         .Port(8080)
                         .Protocol("http")
                         .Direction(1)
                         .Time(1699999999999)
                         .Puid(0x1122334455667788)
                         .Traffic(5, 6)));
  const BacklogMessage message = Queued();
  EXPECT_EQ(message.address, 0x076433C6U);
  EXPECT_EQ(message.port, 8080);
  EXPECT_EQ(message.protocols, 1);
  EXPECT_EQ(message.direction, 2);
  EXPECT_EQ(message.is_new_connection, 1);
  EXPECT_EQ(message.has_process, 1);
  EXPECT_EQ(message.process_puid, 0x1122334455667788U);
  EXPECT_EQ(message.bytes_in, 0U);
  EXPECT_EQ(message.bytes_out, 0U);
  EXPECT_EQ(message.timestamp, 1699999999U);
  EXPECT_TRUE(wake->Wait(0));
}

// Addresses of these tests, first octet in the low byte.
constexpr u32 kPublic = 0x097100CB;   // 203.0.113.9
constexpr u32 kPrivate = 0x0100000A;  // 10.0.0.1

TEST_F(HandleEventTest, HarmlessAddressIsDroppedInSilence) {
  ASSERT_TRUE(Verdicts::StoreVerdict(Access::GetVerdicts(Manager()), NetDB::IPv4::FromRaw(kPublic), true));
  ExpectIgnored(Connection("203.0.113.9"), true, {});
  // A policy that stops cloud queries does not stop the use of what is known.
  Settings().cloud_query_enabled.Set(false);
  ExpectIgnored(Connection("203.0.113.9"), true, {});
  EXPECT_TRUE(Handle(Connection("203.0.113.8")));
  EXPECT_EQ(queue->GetCount(), 1U);
}

TEST_F(HandleEventTest, HarmlessAddressIsRecordedAgainWhenItsVerdictHasExpired) {
  ASSERT_TRUE(Verdicts::StoreVerdict(Access::GetVerdicts(Manager()), NetDB::IPv4::FromRaw(kPublic), true));
  Velmar::Sim::AdvanceTime(172800000);
  ExpectIgnored(Connection("203.0.113.9"), true, {});
  Velmar::Sim::AdvanceTime(1);
  EXPECT_TRUE(Handle(Connection("203.0.113.9")));
  EXPECT_EQ(queue->GetCount(), 1U);
}

TEST_F(HandleEventTest, AddressKnownAsNotHarmlessIsQueued) {
  ASSERT_TRUE(Verdicts::StoreVerdict(Access::GetVerdicts(Manager()), NetDB::IPv4::FromRaw(kPublic), false));
  EXPECT_TRUE(Handle(Connection("203.0.113.9")));
  EXPECT_EQ(queue->GetCount(), 1U);
}

TEST_F(HandleEventTest, PrivateAddressThatIsKeptIsNotAskedFor) {
  ASSERT_TRUE(Verdicts::StoreVerdict(Access::GetVerdicts(Manager()), NetDB::IPv4::FromRaw(kPrivate), true));
  Settings().keep_private_addresses.Set(true);
  EXPECT_TRUE(Handle(Connection("10.0.0.1")));
  EXPECT_EQ(Queued().address, kPrivate);
  wake->Wait(0);
  ExpectIgnored(Connection("127.0.0.1"), true, {});
  ExpectIgnored(Connection("169.254.1.1"), true, {});
}

TEST_F(HandleEventTest, EveryQueuedEventLogsItsProcessAtLevelOne) {
  EXPECT_TRUE(Handle(Connection().Puid(4711)));
  ASSERT_EQ(log.Entries().size(), 1U);
  EXPECT_EQ(log.Entries()[0].name, "ryl_netdb.EventStamped");
  EXPECT_EQ(log.Entries()[0].level, 1U);
  EXPECT_EQ(log.Entries()[0].arguments, std::vector<std::string>{"4711"});
}

TEST_F(HandleEventTest, TrafficReportCarriesItsBytes) {
  EXPECT_TRUE(Handle(EventBuilder(70).Address("198.51.100.7").Protocol("tcp").Traffic(0xFFFFFFFF, 0x80000000)));
  const BacklogMessage message = Queued();
  EXPECT_EQ(message.bytes_in, 4294967295U);
  EXPECT_EQ(message.bytes_out, 0x80000000U);
  EXPECT_EQ(message.is_new_connection, 0);
}

TEST_F(HandleEventTest, OnlyType185IsANewConnectionAndOnlyType70HasBytes) {
  for (const u32 type : {73U, 75U, 71U, 72U, 85U, 92U, 93U, 98U, 99U, 100U, 101U, 104U}) {
    SCOPED_TRACE(type);
    EXPECT_TRUE(Handle(EventBuilder(type).Address("198.51.100.7").Protocol("tcp").Traffic(9, 9)));
    const BacklogMessage message = Queued();
    EXPECT_EQ(message.is_new_connection, 0);
    EXPECT_EQ(message.bytes_in, 0U);
    EXPECT_EQ(message.bytes_out, 0U);
    EXPECT_EQ(message.has_process, 1);
  }
}

TEST_F(HandleEventTest, TypeIsInTheLowTenBits) {
  EXPECT_TRUE(Handle(Connection().Header(0xABCDEC00U | 185U)));
  EXPECT_EQ(Queued().is_new_connection, 1);
}

TEST_F(HandleEventTest, UnknownTypeIsRefused) {
  for (const u32 type : {0U, 69U, 74U, 184U, 186U, 1023U}) {
    SCOPED_TRACE(type);
    ExpectIgnored(EventBuilder(type).Address("198.51.100.7"), false, {"5 ryl_netdb.EventTypeRefused"});
    EXPECT_EQ(log.Arguments("ryl_netdb.EventTypeRefused"),
              (std::vector<std::string>{std::to_string(type), std::to_string(type)}));
  }
}

TEST_F(HandleEventTest, DisabledModuleIgnoresEventsAndQueries) {
  Settings().netdb_enabled.Set(false);
  for (const u32 type : {185U, 68U, 221U, 5U}) {
    SCOPED_TRACE(type);
    ExpectIgnored(EventBuilder(type).Address("198.51.100.7"), true, {"3 ryl_netdb.ModuleDisabled"});
    EXPECT_EQ(log.Arguments("ryl_netdb.ModuleDisabled"), std::vector<std::string>{std::to_string(type)});
  }
  EXPECT_FALSE(module->HandleEvent(nullptr, nullptr));
}

TEST_F(HandleEventTest, MissingAddressIsIgnoredWithALog) {
  ExpectIgnored(EventBuilder(185).Address("0.0.0.0"), true, {"5 ryl_netdb.AddressMissing"});
  EXPECT_EQ(log.Arguments("ryl_netdb.AddressMissing"), (std::vector<std::string>{"185", "185"}));
  ExpectIgnored(EventBuilder(70).Address("0.0.0.0"), true, {"5 ryl_netdb.AddressMissing"});
  for (const u32 type : {71U, 72U, 85U, 92U, 93U, 98U, 99U, 100U, 101U, 104U}) {
    SCOPED_TRACE(type);
    ExpectIgnored(EventBuilder(type).Address("::"), true, {"5 ryl_netdb.AddressMissing"});
  }
  ExpectIgnored(EventBuilder(73).Address("0.0.0.0"), true, {"3 ryl_netdb.ActivityAddressMissing"});
  ExpectIgnored(EventBuilder(75).Address("0.0.0.0"), true, {"3 ryl_netdb.ActivityAddressMissing"});
  EXPECT_EQ(log.Arguments("ryl_netdb.ActivityAddressMissing"), (std::vector<std::string>{"75", "75"}));
}

TEST_F(HandleEventTest, IPv6EventIsIgnoredWithoutAnyLog) {
  EXPECT_TRUE(Handle(EventBuilder(185).Address("2001:db8::7").Protocol("nonsense").Direction(9).Time(5)));
  EXPECT_TRUE(log.Entries().empty());
  EXPECT_EQ(queue->GetCount(), 0U);
}

TEST_F(HandleEventTest, UnknownProtocolAndDirectionAreKeptAsZero) {
  EXPECT_TRUE(Handle(Connection().Protocol("gopher").Direction(7)));
  const BacklogMessage message = Queued();
  EXPECT_EQ(message.protocols, 0);
  EXPECT_EQ(message.direction, 0);
  EXPECT_EQ(log.Lines(3), (std::vector<std::string>{"3 ryl_netdb.ProtocolUnknown", "3 ryl_netdb.DirectionUnknown"}));
}

TEST_F(HandleEventTest, UpperCaseProtocolNameIsTheSame) {
  EXPECT_TRUE(Handle(Connection().Protocol("HTTPS")));
  EXPECT_EQ(Queued().protocols, 1);
}

TEST_F(HandleEventTest, ImpossibleTimeBecomesNow) {
  const u64 now = kStartMs / 1000;
  struct {
    u64 ms, stored;
  } const cases[] = {
      {999999999999, now},     {(now + 1) * 1000, now},   {0, now}, {~u64{0}, now}, {1000000000000, 1000000000},
      {now * 1000 + 999, now}, {now * 1000 - 1, now - 1},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.ms);
    log.Clear();
    EXPECT_TRUE(Handle(Connection().Time(one.ms)));
    EXPECT_EQ(Queued().timestamp, one.stored);
    const bool repaired = one.ms / 1000 != one.stored;
    EXPECT_EQ(log.Count("ryl_netdb.ImpossibleTime"), repaired ? 1 : 0);
    EXPECT_EQ(log.Count("ryl_netdb.ImpossibleEventTime"), repaired ? 1 : 0);
    EXPECT_EQ(log.CountLevel(3), repaired ? 2 : 0);
    EXPECT_EQ(log.Count("ryl_netdb.EventStamped"), 1);
  }
}

TEST_F(HandleEventTest, ImpossibleTimeLogsBothTimesAndTheRecord) {
  EXPECT_TRUE(Handle(Connection().Time(999999999999)));
  EXPECT_EQ(log.Arguments("ryl_netdb.ImpossibleTime"), (std::vector<std::string>{"999999999", "1700000000"}));
  EXPECT_EQ(log.Arguments("ryl_netdb.ImpossibleEventTime"), (std::vector<std::string>{"185", "185", "999999999999"}));
}

TEST_F(HandleEventTest, FilteredAddressesAreDroppedSilently) {
  for (const char* address : {"10.0.0.1", "172.16.0.1", "172.31.9.9", "192.168.1.1", "169.254.1.1", "127.0.0.1"}) {
    SCOPED_TRACE(address);
    ExpectIgnored(Connection(address), true, {});
  }
}

TEST_F(HandleEventTest, AddressesBesideTheFilteredAreQueued) {
  for (const char* address : {"172.15.0.1", "172.32.0.1", "169.253.1.1", "126.0.0.1", "192.169.1.1"}) {
    SCOPED_TRACE(address);
    EXPECT_TRUE(Handle(Connection(address)));
    Queued();
  }
}

TEST_F(HandleEventTest, KeptPrivateAddressesAreQueuedAndLocalOnesAreNot) {
  Settings().keep_private_addresses.Set(true);
  EXPECT_TRUE(Handle(Connection("10.0.0.1")));
  EXPECT_EQ(Queued().address, 0x0100000AU);
  ASSERT_TRUE(wake->Wait(0));
  ExpectIgnored(Connection("127.0.0.1"), true, {});
  ExpectIgnored(Connection("169.254.1.1"), true, {});
}

TEST_F(HandleEventTest, FullQueueLosesTheMessage) {
  for (int i = 0; i < 8; ++i) {
    EXPECT_TRUE(Handle(Connection()));
  }
  log.Clear();
  EXPECT_FALSE(Handle(Connection()));
  EXPECT_EQ(log.Lines(3), (std::vector<std::string>{"5 ryl_netdb.BacklogFull", "5 ryl_netdb.EventNotQueued"}));
  EXPECT_EQ(queue->GetCount(), 8U);
}

TEST_F(HandleEventTest, QueueThatCannotGrowLosesTheMessage) {
  for (u64 puid = 0; puid < 4; ++puid) {
    EXPECT_TRUE(Handle(Connection().Puid(puid)));
  }
  CountingAllocator memory;
  memory.FailFrom(0);
  Velmar::Collections::SetModuleAllocator(&memory);
  log.Clear();
  EXPECT_FALSE(Handle(Connection().Puid(4)));
  Velmar::Collections::SetModuleAllocator(nullptr);
  EXPECT_EQ(log.Lines(3), (std::vector<std::string>{"5 ryl_netdb.BacklogNoMemory", "5 ryl_netdb.BacklogNotGrown",
                                                    "5 ryl_netdb.EventNotQueued"}));
  BacklogMessage message;
  for (u64 puid = 0; puid < 4; ++puid) {
    EXPECT_TRUE(queue->Pop(message));
    EXPECT_EQ(message.process_puid, puid);
  }
  EXPECT_EQ(queue->GetCount(), 0U);
}

TEST_F(HandleEventTest, FailedSignalKeepsTheMessage) {
  Velmar::Sim::FailEventSignal(1);
  EXPECT_FALSE(Handle(Connection()));
  EXPECT_EQ(log.Lines(3), std::vector<std::string>{"5 ryl_netdb.WorkerNotSignalled"});
  Queued();
}

TEST_F(HandleEventTest, EventWithoutQueueIsAnError) {
  Access::GetBacklog(Manager()) = nullptr;
  EXPECT_FALSE(Handle(Connection()));
  EXPECT_EQ(log.Lines(3), std::vector<std::string>{"5 ryl_netdb.NoBacklog"});
  Access::GetBacklog(Manager()) = queue;
}

TEST_F(HandleEventTest, NothingIsAllocatedWhileTheQueueHasRoom) {
  const u64 before = Velmar::Sim::CountAllocations();
  CountingAllocator memory;
  Velmar::Collections::SetModuleAllocator(&memory);
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(Handle(Connection().Protocol("unknown").Time(1)));
  }
  EXPECT_TRUE(Handle(Connection("10.0.0.1")));
  EXPECT_EQ(memory.Allocations(), 0U);
  EXPECT_EQ(Velmar::Sim::CountAllocations(), before);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

}  // namespace
}  // namespace RYL::Module
