// The values of a history query: what each kind takes, and what it refuses.
#include <string>
#include <vector>

#include "common/HashKind.h"
#include "common/HexText.h"
#include "common/libryl_netdb/QueryFilters.h"
#include "tests/libryl_netdb/QueryFixture.h"
#include "tests/support/CountingAllocator.h"

namespace RYL::Module {
namespace {

using NetDB::IPv4;
using NetDB::Process;
using NetDB::QueryConstraints;
using Lines = std::vector<std::string>;
using Values = QueryEventBuilder::Values;

constexpr u64 kAllOnes = ~u64{0};
const std::string kMd5(32, 'a');
const std::string kIdentity(64, 'b');

TEST(QueryKinds, TextsHashToTheNumbersOfTheModule) {
  EXPECT_EQ(NetDB::HashKind("FindIPv4"), 0x2C457A39U);
  EXPECT_EQ(NetDB::HashKind("FindProcessesPath"), 0x1AD02EE8U);
  EXPECT_EQ(NetDB::HashKind("FindPorts"), 0x1EDFDC12U);
  EXPECT_EQ(NetDB::HashKind("FindProtos"), 0xF65CAED9U);
  EXPECT_EQ(NetDB::HashKind("FindProcessesMD5"), 0x1556E329U);
  EXPECT_EQ(NetDB::HashKind("FindProcessesQID"), 0xBB8B66B7U);
  EXPECT_EQ(NetDB::HashKind("Iterate"), 0x81998A35U);
}

TEST(QueryKinds, HashIsThatOfFnv1aWithCaseFolded) {
  EXPECT_EQ(NetDB::HashKind(""), 0x811C9DC5U);
  EXPECT_EQ(NetDB::HashKind("a"), 0xE40C292CU);
  EXPECT_EQ(NetDB::HashKind("A"), 0xE40C292CU);
  EXPECT_EQ(NetDB::HashKind("foobar"), 0xBF9CF968U);
  EXPECT_EQ(NetDB::HashKind("FooBar"), 0xBF9CF968U);
  EXPECT_NE(NetDB::HashKind("@"), NetDB::HashKind("`")) << "only letters have a case";
  EXPECT_NE(NetDB::HashKind("["), NetDB::HashKind("{"));
  EXPECT_NE(NetDB::HashKind("\xC0"), NetDB::HashKind("\xE0"));
}

TEST(HexText, ReadsDigitsOfBothCasesPairwise) {
  u8 bytes[4] = {};
  EXPECT_TRUE(NetDB::ParseHex("00fF9aA0", bytes, 4));
  EXPECT_EQ(std::vector<u8>(bytes, bytes + 4), (std::vector<u8>{0x00, 0xFF, 0x9A, 0xA0}));
  for (const char* text : {"", "0", "00fF9aA", "00fF9aA00", "00fF9aAg", "00fF9a/0", "00fF9a:0", "00fF9a@0", "00fF9a`0",
                           "0x00fF9a", " 0fF9aA0"}) {
    EXPECT_FALSE(NetDB::ParseHex(text, bytes, 4)) << text;
  }
}

TEST(QueryEventReader, ReadsTheRecord) {
  const auto record = QueryEventBuilder("Kind", {"one", "", "three"}).Range(5, 0x0102030405060708).NoText(2).Build();
  const QueryEventReader reader(reinterpret_cast<const Events::Objects::NetDbQuery*>(record.data()));
  EXPECT_EQ(reader.GetStartTime(), 5U);
  EXPECT_EQ(reader.GetEndTime(), 0x0102030405060708U);
  EXPECT_STREQ(reader.GetKind(), "Kind");
  EXPECT_EQ(reader.GetValueCount(), 3U);
  EXPECT_STREQ(reader.GetValue(0), "one");
  EXPECT_STREQ(reader.GetValue(1), "");
  EXPECT_EQ(reader.GetValue(2), nullptr) << "offset 0 is no text";
  EXPECT_EQ(reader.GetValue(3), nullptr) << "the walk over the values never asks past the count";
}

TEST(QueryEventReader, RecordWithoutATableHasNoValues) {
  const auto record = QueryEventBuilder("Kind", {"one"}).NoTable().Build();
  const QueryEventReader reader(reinterpret_cast<const Events::Objects::NetDbQuery*>(record.data()));
  EXPECT_EQ(reader.GetValueCount(), 1U);
  EXPECT_EQ(reader.GetValue(0), nullptr);
}

// The constraints of one query at a time.
class QueryFiltersTest : public ::testing::Test {
 protected:
  QueryFiltersTest() {
    Velmar::Sim::Reset();
    protocols.SetCaseFold(true);
    EXPECT_TRUE(protocols.Create(13, 13, 1, true, Velmar::Collections::GrowType::kFixedStep));
    EXPECT_TRUE(protocols.InsertKnownNames());
  }

  bool Add(const QueryEventBuilder& query) { return AddTo(constraints, query); }
  bool AddTo(QueryConstraints& target, const QueryEventBuilder& query) {
    log.Clear();
    const auto record = query.Build();
    const QueryEventReader reader(reinterpret_cast<const Events::Objects::NetDbQuery*>(record.data()));
    QueryFilters filters(reader, protocols);
    return filters.AddTo(target);
  }
  void ExpectRefused(const std::string& kind, const Values& values, const std::string& refused) {
    SCOPED_TRACE(kind + " " + refused);
    QueryConstraints own(0, kAllOnes);
    EXPECT_FALSE(AddTo(own, QueryEventBuilder(kind, values)));
    EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.QueryValueRefused"});
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryValueRefused"), Lines{refused});
    EXPECT_EQ(own.ip_filters.count + own.process_filters.count, 0U);
  }
  void ExpectTaken(const std::string& kind, const Values& values) {
    SCOPED_TRACE(kind);
    QueryConstraints own(0, kAllOnes);
    EXPECT_TRUE(AddTo(own, QueryEventBuilder(kind, values)));
    EXPECT_EQ(log.Lines(), Lines{});
  }

  LogCapture log;
  NetDB::ProtocolTable protocols;
  QueryConstraints constraints{0, kAllOnes};
};

TEST_F(QueryFiltersTest, EachKindMakesItsConstraint) {
  struct Expected {
    const char* kind;
    std::string value;
    u32 ips, paths, ipFilters, processFilters;
  };
  const Expected table[] = {{"FindIPv4", "192.0.2.1", 1, 0, 0, 0},   {"FindProcessesPath", "/bin/a", 0, 1, 0, 0},
                            {"FindPorts", "443", 0, 0, 1, 0},        {"FindProtos", "tcp", 0, 0, 1, 0},
                            {"FindProcessesMD5", kMd5, 0, 0, 0, 1},  {"FindProcessesQID", kIdentity, 0, 0, 0, 1},
                            {"Iterate", "not looked at", 0, 0, 0, 0}};
  for (const Expected& row : table) {
    SCOPED_TRACE(row.kind);
    QueryConstraints own(0, kAllOnes);
    EXPECT_TRUE(AddTo(own, QueryEventBuilder(row.kind, {row.value})));
    EXPECT_EQ(own.ips_wanted.count, row.ips);
    EXPECT_EQ(own.paths_wanted.count, row.paths);
    EXPECT_EQ(own.ip_filters.count, row.ipFilters);
    EXPECT_EQ(own.process_filters.count, row.processFilters);
    EXPECT_EQ(log.Lines(), Lines{});
  }
}

TEST_F(QueryFiltersTest, ManyValuesMakeOneFilter) {
  EXPECT_TRUE(Add(QueryEventBuilder("FindPorts", {"1", "2", "3"})));
  EXPECT_TRUE(Add(QueryEventBuilder("FindProtos", {"tcp", "ssh"})));
  EXPECT_TRUE(Add(QueryEventBuilder("FindProcessesMD5", {kMd5, kMd5})));
  EXPECT_TRUE(Add(QueryEventBuilder("FindProcessesQID", {kIdentity, kIdentity})));
  EXPECT_EQ(constraints.ip_filters.count, 2U);
  EXPECT_EQ(constraints.process_filters.count, 2U);
}

TEST_F(QueryFiltersTest, KindWithoutValuesIsRefused) {
  for (const std::string kind :
       {"FindIPv4", "FindProcessesPath", "FindPorts", "FindProtos", "FindProcessesMD5", "FindProcessesQID"}) {
    SCOPED_TRACE(kind);
    EXPECT_FALSE(Add(QueryEventBuilder(kind)));
    EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.QueryWithoutValues"});
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryWithoutValues"), Lines{kind});
  }
  EXPECT_TRUE(Add(QueryEventBuilder("Iterate")));
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(QueryFiltersTest, ValueWithoutATextIsRefused) {
  struct Row {
    const char* kind;
    std::string value;
  };
  for (const Row& row : {Row{"FindIPv4", "192.0.2.1"}, Row{"FindProcessesPath", "/bin/a"}, Row{"FindPorts", "443"},
                         Row{"FindProtos", "tcp"}, Row{"FindProcessesMD5", kMd5}, Row{"FindProcessesQID", kIdentity}}) {
    SCOPED_TRACE(row.kind);
    EXPECT_FALSE(Add(QueryEventBuilder(row.kind, {row.value, row.value}).NoText(1)));
    EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.QueryValueMissing"});
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryValueMissing"), (Lines{"1", "2"}));
  }
  EXPECT_EQ(constraints.ip_filters.count + constraints.process_filters.count, 0U);
}

TEST_F(QueryFiltersTest, PortsAreDecimalNumbersOf16Bits) {
  ExpectTaken("FindPorts", {"0", "1", "443", "00443", "65535"});
  for (const std::string value :
       {"65536", "", "443x", " 443", "443 ", "-1", "+443", "0x1BB", "4.43", "99999999999999999999"}) {
    ExpectRefused("FindPorts", {value}, value);
    ExpectRefused("FindPorts", {"443", value, "80"}, value);
  }
}

TEST_F(QueryFiltersTest, AddressesAreIPv4Texts) {
  ExpectTaken("FindIPv4", {"0.0.0.0", "255.255.255.255", "10.0.0.1"});
  for (const std::string value : {"2001:db8::1", "::ffff:192.0.2.1", "", "192.0.2", "192.0.2.256", "192.0.2.1/24",
                                  " 192.0.2.1", "192.0.2.1 ", "192.0.2.01", "example.org"}) {
    ExpectRefused("FindIPv4", {value}, value);
    ExpectRefused("FindIPv4", {"192.0.2.1", value}, value);
  }
}

TEST_F(QueryFiltersTest, FileHashesAre32HexDigits) {
  ExpectTaken("FindProcessesMD5", {kMd5, std::string(32, '0'), "0123456789ABCDEFabcdef9876543210"});
  for (const std::string& value : {std::string(), kMd5.substr(1), kMd5 + "a", kMd5 + " ", kMd5.substr(1) + "g",
                                   " " + kMd5.substr(1), "g" + kMd5.substr(1), kMd5 + kMd5}) {
    ExpectRefused("FindProcessesMD5", {value}, value);
    ExpectRefused("FindProcessesMD5", {kMd5, value}, value);
  }
}

TEST_F(QueryFiltersTest, IdentitiesAre64HexDigits) {
  ExpectTaken("FindProcessesQID", {kIdentity, std::string(64, 'F')});
  for (const std::string& value :
       {std::string(), kMd5, kIdentity.substr(1), kIdentity + "b", kIdentity.substr(1) + "x"}) {
    ExpectRefused("FindProcessesQID", {value}, value);
    ExpectRefused("FindProcessesQID", {kIdentity, value}, value);
  }
}

TEST_F(QueryFiltersTest, ProtocolsAreNamesThatEventsCarry) {
  ExpectTaken("FindProtos", {"tcp", "ssl", "https", "http(s)", "http", "ftp", "ftps", "smb", "ssh", "rdp", "telnet",
                             "wmi", "rpc", "TCP", "Http(S)"});
  for (const std::string value : {"udp", "icmp", "", "tcp ", "quic", "2048"}) {
    ExpectRefused("FindProtos", {value}, value);
    ExpectRefused("FindProtos", {"tcp", value}, value);
  }
}

TEST_F(QueryFiltersTest, PathsAreTakenAsTheyAre) {
  EXPECT_TRUE(Add(QueryEventBuilder("FindProcessesPath", {"/bin/b", "", "C:\\a b.exe", "\xFF"})));
  ASSERT_EQ(constraints.paths_wanted.count, 4U);
  EXPECT_STREQ(constraints.paths_wanted.data[0].text, "/bin/b");
  EXPECT_STREQ(constraints.paths_wanted.data[1].text, "");
  EXPECT_STREQ(constraints.paths_wanted.data[2].text, "C:\\a b.exe");
  EXPECT_STREQ(constraints.paths_wanted.data[3].text, "\xFF");
}

TEST_F(QueryFiltersTest, UnknownKindIsToldBeforeItsValues) {
  EXPECT_FALSE(Add(QueryEventBuilder("FindIPv6")));
  EXPECT_EQ(log.Lines(), Lines{"5 ryl_netdb.QueryKindUnknown"});
  EXPECT_EQ(log.Arguments("ryl_netdb.QueryKindUnknown"), Lines{"FindIPv6"});
}

// A kind and a way to make as many different values of it as one likes.
struct ListKind {
  const char* kind;
  std::string (*value)(u32 number);
};
std::string PaddedTo(std::size_t digits, u32 number) {
  const std::string text = std::to_string(number);
  return std::string(digits - text.size(), '0') + text;
}
const ListKind kListKinds[] = {
    {"FindIPv4", [](u32 number) { return "192.0.2." + std::to_string(number); }},
    {"FindProcessesPath", [](u32 number) { return "/bin/" + std::to_string(number); }},
    {"FindPorts", [](u32 number) { return std::to_string(number); }},
    {"FindProcessesMD5", [](u32 number) { return PaddedTo(32, number); }},
    {"FindProcessesQID", [](u32 number) { return PaddedTo(64, number); }},
};
Values ValuesOf(const ListKind& kind, u32 count) {
  Values values;
  for (u32 i = 0; i < count; ++i) {
    // From the largest down, so that sorting has work to do.
    values.push_back(kind.value(count - 1 - i));
  }
  return values;
}

TEST_F(QueryFiltersTest, ListsHold128Values) {
  for (const ListKind& kind : kListKinds) {
    SCOPED_TRACE(kind.kind);
    QueryConstraints own(0, kAllOnes);
    EXPECT_TRUE(AddTo(own, QueryEventBuilder(kind.kind, ValuesOf(kind, 128))));
    EXPECT_EQ(log.Lines(), Lines{});
  }
}

TEST_F(QueryFiltersTest, The129thValueIsRefused) {
  for (const ListKind& kind : kListKinds) {
    SCOPED_TRACE(kind.kind);
    QueryConstraints own(0, kAllOnes);
    EXPECT_FALSE(AddTo(own, QueryEventBuilder(kind.kind, ValuesOf(kind, 129))));
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 ryl_netdb.QueryValueNotKept"}));
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryValueNotKept"), Lines{kind.value(0)});
    EXPECT_EQ(own.ip_filters.count + own.process_filters.count, 0U);
  }
}

TEST_F(QueryFiltersTest, ProtocolsAreAMaskAndMayBeMany) {
  ExpectTaken("FindProtos", Values(1000, "tcp"));
}

TEST_F(QueryFiltersTest, FilterFindsEachOf128Ports) {
  const auto record = QueryEventBuilder("FindPorts", ValuesOf(kListKinds[2], 128)).Build();
  const QueryEventReader reader(reinterpret_cast<const Events::Objects::NetDbQuery*>(record.data()));
  QueryFilters filters(reader, protocols);
  ASSERT_TRUE(filters.AddTo(constraints));
  NetDB::IPDB<IPv4>::IPRecord row;
  for (u32 port = 0; port <= 0xFFFF; ++port) {
    row.port = static_cast<u16>(port);
    ASSERT_EQ(constraints.ip_filters.data[0](row), port < 128) << port;
  }
}

TEST_F(QueryFiltersTest, ProtocolFilterLooksAtTheMaskAlone) {
  ASSERT_TRUE(Add(QueryEventBuilder("FindProtos", {"ssh", "rpc"})));
  NetDB::IPDB<IPv4>::IPRecord row;
  for (u32 bit = 0; bit < 16; ++bit) {
    row.protos = u64{1} << bit;
    EXPECT_EQ(constraints.ip_filters.data[0](row), bit == 5 || bit == 8) << bit;
  }
  row.protos = 0;
  EXPECT_FALSE(constraints.ip_filters.data[0](row));
  row.protos = 0xFFFF;
  EXPECT_TRUE(constraints.ip_filters.data[0](row));
}

TEST_F(QueryFiltersTest, FilterThatFindsNoPlaceIsRefused) {
  for (int i = 0; i < 128; ++i) {
    ASSERT_TRUE(constraints.ip_filters.Add(NetDB::IPDB<IPv4>::Filter([](const auto&) { return true; })));
    ASSERT_TRUE(constraints.process_filters.Add(NetDB::ProcessFilter([](const auto&) { return true; })));
  }
  struct Row {
    const char* kind;
    std::string value;
  };
  for (const Row& row : {Row{"FindPorts", "443"}, Row{"FindProtos", "tcp"}, Row{"FindProcessesMD5", kMd5},
                         Row{"FindProcessesQID", kIdentity}}) {
    SCOPED_TRACE(row.kind);
    EXPECT_FALSE(Add(QueryEventBuilder(row.kind, {row.value})));
    EXPECT_EQ(log.Lines(), (Lines{"3 velmar.ArrayCeilingReached", "5 ryl_netdb.QueryFilterNotAdded"}));
  }
}

TEST_F(QueryFiltersTest, ListWithoutALockIsRefused) {
  for (const char* kind : {"FindPorts", "FindProcessesMD5", "FindProcessesQID"}) {
    SCOPED_TRACE(kind);
    Velmar::Sim::FailMutexCreate(1);
    EXPECT_FALSE(Add(QueryEventBuilder(kind, {"0"})));
    EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoLock", "5 ryl_netdb.QueryListNotCreated"}));
  }
}

// Lists grow on the module's memory, after 64 values a second time; four addresses or paths need none.
TEST_F(QueryFiltersTest, EachFailedModuleAllocationIsToldWithItsValue) {
  for (const ListKind& kind : kListKinds) {
    for (u64 failing = 0;; ++failing) {
      SCOPED_TRACE(std::string(kind.kind) + " " + std::to_string(failing));
      CountingAllocator memory;
      Velmar::Collections::SetModuleAllocator(&memory);
      memory.FailFrom(failing);
      bool added = false;
      {
        QueryConstraints own(0, kAllOnes);
        added = AddTo(own, QueryEventBuilder(kind.kind, ValuesOf(kind, 128)));
      }
      Velmar::Collections::SetModuleAllocator(nullptr);
      EXPECT_EQ(memory.Out(), 0U);
      EXPECT_EQ(added, memory.Failures() == 0);
      if (added) {
        EXPECT_GE(failing, 2U);
        break;
      }
      EXPECT_EQ(log.Lines(), (Lines{"5 velmar.ArrayNoMemory", "5 ryl_netdb.QueryValueNotKept"}));
    }
  }
}

// Paths are texts of the base library's memory.
TEST_F(QueryFiltersTest, EachFailedBaseAllocationOfPathsIsTold) {
  const Values paths = {"/bin/" + std::string(600, 'x'), "/bin/" + std::string(600, 'y')};
  for (u64 failing = 0;; ++failing) {
    SCOPED_TRACE(failing);
    QueryConstraints own(0, kAllOnes);
    Velmar::Sim::FailAllocation(failing);
    const u64 before = Velmar::Sim::CountAllocations();
    const bool added = AddTo(own, QueryEventBuilder("FindProcessesPath", paths));
    const bool reached = Velmar::Sim::CountAllocations() - before > failing;
    Velmar::Sim::FailAllocation(~u64{0});
    EXPECT_NE(added, reached);
    if (added) {
      EXPECT_GE(failing, 4U);
      break;
    }
    EXPECT_EQ(log.Lines(5).back(), "5 ryl_netdb.QueryValueNotKept");
    EXPECT_EQ(log.Arguments("ryl_netdb.QueryValueNotKept"), Lines{paths[failing < 2 ? 0 : 1]});
  }
}

}  // namespace
}  // namespace RYL::Module
