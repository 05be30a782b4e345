#include "host/import/SysmonReader.h"

#include <gtest/gtest.h>

#include <cstring>

#include "RYL/Events/Records.h"
#include "host/import/Identity.h"

namespace {

using namespace Host;
using namespace Host::Import;

constexpr char kGuid[] = "{B669E388-a0ef-5edf-4d00-000000000300}";
constexpr char kGuidKey[] = "b669e388-a0ef-5edf-4d00-000000000300";
constexpr char kMd5[] = "49D503CA73BABD8FCCF522A611B539D1";
constexpr char kOtherMd5[] = "06C66FF5CCDC2D22344A3EB761A4D38A";

// An event 3; later members replace earlier ones.
std::string Connection(const std::string& members = {}) {
  return std::string(R"({"EventID":3,"UtcTime":"2020-06-10 02:50:55.662","ProcessGuid":")") + kGuid +
         R"(","ProcessId":"3548","Image":"C:\\Windows\\dns.exe","Protocol":"tcp","Initiated":"true",)"
         R"("SourceIp":"192.168.5.2","SourcePort":"50000","DestinationIp":"203.0.113.5","DestinationPort":"443")" +
         (members.empty() ? "" : "," + members) + "}";
}

std::string Creation(const std::string& image, const std::string& md5, const std::string& time,
                     const std::string& members = {}) {
  return R"({"EventID":1,"UtcTime":")" + time + R"(","ProcessGuid":")" + kGuid + R"(","ProcessId":"77","Image":")" +
         image + R"(","Hashes":"SHA1=00,MD5=)" + md5 + R"(,IMPHASH=41577F20179B0B22CBA46170F1773F1D")" +
         (members.empty() ? "" : "," + members) + "}";
}

struct PublishedProcess {
  bool known = false;
  u32 pid = 0;
  std::string path;
};

class SysmonReaderTest : public testing::Test {
 protected:
  Finding Read(const std::string& line) { return reader_.Read(line, connection_); }

  void Learn(std::initializer_list<std::string> lines) {
    for (const std::string& line : lines) {
      reader_.Learn(line);
    }
    reader_.Publish(processes_, hashes_);
  }

  PublishedProcess Published(u64 puid) {
    namespace Layout = RYL::Events::ProcessEvent;
    u8 area[512];
    RYL::Events::GenericEventHolder holder(area, sizeof(area));
    PublishedProcess process;
    process.known = processes_.GetEventById(puid, &holder);
    if (process.known) {
      std::memcpy(&process.pid, holder.GetData() + Layout::kProcessPid, sizeof(process.pid));
      process.path = reinterpret_cast<const char*>(holder.GetData()) + Layout::kProcessPath;
    }
    return process;
  }

  // First byte of the MD5 digest, -1 when there is none.
  int Md5Of(const char* path) {
    RYL::Module::FileHashBlock block{};
    return hashes_.GetFileHashes(path, &block, 9) ? block.md5[0] : -1;
  }

  LocalNetworks local_ = LocalNetworks::Usual();
  SysmonReader reader_{local_};
  RecordedConnection connection_;
  ProcessRegistry processes_;
  RecordedHashes hashes_;
};

TEST_F(SysmonReaderTest, OutboundConnectionIsRead) {
  ASSERT_EQ(Read(Connection()), Finding::kConnection);
  EXPECT_EQ(connection_.startMs, 1591757455662U);
  EXPECT_EQ(connection_.endMs, std::nullopt);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 5}));
  EXPECT_EQ(connection_.port, 443);
  EXPECT_EQ(connection_.connsOut, 1U);
  EXPECT_EQ(connection_.connsIn, 0U);
  EXPECT_EQ(connection_.protocol, "tcp");
  EXPECT_EQ(connection_.puid, UniqueIdOf(kGuidKey));
}

TEST_F(SysmonReaderTest, InboundTcpHasItsRemoteSideAsSource) {
  ASSERT_EQ(Read(Connection(R"("Initiated":"false","SourceIp":"203.0.113.9","SourcePort":"50452",)"
                            R"("DestinationIp":"192.168.2.5","DestinationPort":"8080")")),
            Finding::kConnection);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 9}));
  EXPECT_EQ(connection_.port, 8080);
  EXPECT_EQ(connection_.connsIn, 1U);
  EXPECT_EQ(connection_.connsOut, 0U);
}

TEST_F(SysmonReaderTest, InboundUdpIsDecidedByTheLocalAddress) {
  ASSERT_EQ(Read(Connection(R"("Protocol":"udp","Initiated":"false","SourceIp":"172.18.38.5","SourcePort":"53",)"
                            R"("DestinationIp":"203.0.113.9","DestinationPort":"49246")")),
            Finding::kConnection);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 9}));
  EXPECT_EQ(connection_.port, 53);
  EXPECT_EQ(connection_.connsIn, 1U);
  EXPECT_EQ(connection_.protocol, "");
  ASSERT_EQ(Read(Connection(R"("Protocol":"udp","Initiated":"false","SourceIp":"203.0.113.9","SourcePort":"49246",)"
                            R"("DestinationIp":"172.18.38.5","DestinationPort":"53")")),
            Finding::kConnection);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 9}));
  EXPECT_EQ(connection_.port, 53);
}

TEST_F(SysmonReaderTest, OutboundUdpHasThePortOfTheRemoteSide) {
  ASSERT_EQ(Read(Connection(R"("Protocol":"udp","SourceIp":"203.0.113.9","SourcePort":"123",)"
                            R"("DestinationIp":"172.18.38.5","DestinationPort":"40000")")),
            Finding::kConnection);
  EXPECT_EQ(connection_.port, 123);
  EXPECT_EQ(connection_.connsOut, 1U);
}

TEST_F(SysmonReaderTest, BooleansAndNumbersAreAsGoodAsTexts) {
  ASSERT_EQ(Read(Connection(R"("EventID":"3","Initiated":true,"DestinationPort":8443,"SourcePort":1)")),
            Finding::kConnection);
  EXPECT_EQ(connection_.port, 8443);
}

TEST_F(SysmonReaderTest, OtherEventsAreNothing) {
  EXPECT_EQ(Read(Creation("C:\\\\a.exe", kMd5, "2020-06-10 02:00:00.000")), Finding::kNothing);
  EXPECT_EQ(Read(R"({"EventID":22})"), Finding::kNothing);
  EXPECT_EQ(Read(""), Finding::kNothing);
}

TEST_F(SysmonReaderTest, BadValuesAreMalformed) {
  for (const char* members :
       {R"("UtcTime":"yesterday")", R"("UtcTime":"")", R"("SourcePort":"-")", R"("DestinationPort":"70000")",
        R"("Initiated":"maybe")", R"("Initiated":"")", R"("SourceIp":"-")", R"("DestinationIp":"host")"}) {
    EXPECT_EQ(Read(Connection(members)), Finding::kMalformed) << members;
  }
  EXPECT_EQ(Read("garbage"), Finding::kMalformed);
  EXPECT_EQ(Read("{}"), Finding::kMalformed);
  EXPECT_EQ(Read(R"({"EventID":3})"), Finding::kMalformed);
  EXPECT_EQ(Read(R"({"EventID":"three"})"), Finding::kMalformed);
  EXPECT_EQ(Read(std::string("\0\xFF{", 3)), Finding::kMalformed);
}

TEST_F(SysmonReaderTest, SidesDecideWhatIsSkipped) {
  EXPECT_EQ(Read(Connection(R"("SourceIp":"fe80:0:0:0:1:2:3:4","DestinationIp":"ff02:0:0:0:0:0:0:1")")),
            Finding::kIPv6);
  EXPECT_EQ(Read(Connection(R"("DestinationIp":"192.168.7.7")")), Finding::kNotOneLocalSide);
}

TEST_F(SysmonReaderTest, FieldsInsideATextOfEventDataAreRead) {
  const std::string line =
      R"({"EventID":3,"TimeGenerated":"2022-05-13T08:54:06.347Z","EventData":"{\"UtcTime\":\"2022-05-13T08:54:05.1230000Z\",)"
      R"(\"ProcessGuid\":\"{f3329a35-1c6c-627e-e516-000000000600}\",\"ProcessId\":\"3936\",\"Image\":\"C:\\\\t.exe\",)"
      R"(\"Protocol\":\"tcp\",\"Initiated\":\"false\",\"SourceIp\":\"203.0.113.5\",\"SourcePort\":\"50452\",)"
      R"(\"DestinationIp\":\"192.168.2.5\",\"DestinationPort\":\"8080\"}"})";
  Learn({line});
  ASSERT_EQ(Read(line), Finding::kConnection);
  EXPECT_EQ(connection_.startMs, 1652432045123U);
  EXPECT_EQ(connection_.port, 8080);
  EXPECT_EQ(Published(connection_.puid).path, "C:\\t.exe");
  EXPECT_EQ(Published(connection_.puid).pid, 3936U);
}

TEST_F(SysmonReaderTest, FieldsInsideAnObjectOfEventDataAreRead) {
  ASSERT_EQ(Read(R"({"EventID":3,"EventData":{"UtcTime":"2022-05-13 08:54:05","Protocol":"udp","Initiated":"true",)"
                 R"("SourceIp":"10.0.0.1","SourcePort":"1","DestinationIp":"203.0.113.5","DestinationPort":"53"}})"),
            Finding::kConnection);
  EXPECT_EQ(connection_.port, 53);
  EXPECT_EQ(connection_.puid, 0U);
}

TEST_F(SysmonReaderTest, EventDataOfAnotherKindIsLeftAlone) {
  EXPECT_EQ(Read(Connection(R"("EventData":"<Data>x</Data>")")), Finding::kConnection);
}

TEST_F(SysmonReaderTest, UniqueIdIsTheStartOfTheGuidsDigest) {
  // sha256("b669e388-a0ef-5edf-4d00-000000000300")
  EXPECT_EQ(UniqueIdOf(kGuidKey), 1452940257655285178U);
}

TEST_F(SysmonReaderTest, OwnFieldTellsTheProcessIdBeforeAllElse) {
  const std::string line = Connection(R"("ProcessId":"11","ProcessID":22,"Message":"x\r\nProcessId: 33\r\n")");
  Learn({line});
  Read(line);
  EXPECT_EQ(Published(connection_.puid).pid, 11U);
}

// As Connection, but without "ProcessId".
std::string WithoutProcessId(const std::string& guid, const std::string& members) {
  return R"({"EventID":3,"UtcTime":"2020-06-10 02:50:55.662","ProcessGuid":")" + guid +
         R"(","Image":"C:\\Windows\\dns.exe","Protocol":"tcp","Initiated":"true","SourceIp":"192.168.5.2",)"
         R"("SourcePort":"50000","DestinationIp":"203.0.113.5","DestinationPort":"443",)" +
         members + "}";
}

TEST_F(SysmonReaderTest, MessageTellsTheProcessIdWhereACollectorPutItsOwn) {
  const std::string line = WithoutProcessId(
      "{a}", R"("ProcessID":3168,"Message":"Network:\r\nParentProcessId: 5\r\nProcessId: 716\r\nImage: x")");
  Learn({line});
  Read(line);
  EXPECT_EQ(Published(connection_.puid).pid, 716U);
}

TEST_F(SysmonReaderTest, NumberIsTheProcessIdWhereNothingElseTellsIt) {
  const std::string line = WithoutProcessId("{a}", R"("ProcessID":3168,"Message":"none")");
  Learn({line});
  Read(line);
  EXPECT_EQ(Published(connection_.puid).pid, 3168U);
}

TEST_F(SysmonReaderTest, LaterEventTellsTheProcessIdThatAnEarlierOneLacks) {
  const std::string without = WithoutProcessId("{a}", R"("X":1)");
  Learn({without, WithoutProcessId("{A}", R"("ProcessId":"5")")});
  Read(without);
  EXPECT_EQ(Published(connection_.puid).pid, 5U);
}

TEST_F(SysmonReaderTest, CreationTellsPathAndIdBeforeConnections) {
  Learn({Connection(R"("Image":"c:\\windows\\dns.exe")"),
         Creation("C:\\\\Windows\\\\dns.exe", kMd5, "2020-06-10 02:00:00")});
  const PublishedProcess process = Published(UniqueIdOf(kGuidKey));
  EXPECT_EQ(process.path, "C:\\Windows\\dns.exe");
  EXPECT_EQ(process.pid, 77U);
}

TEST_F(SysmonReaderTest, FirstConnectionTellsThePathOfAProcessWithoutCreation) {
  Learn({Connection(R"("Image":"first.exe")"), Connection(R"("Image":"second.exe")")});
  EXPECT_EQ(Published(UniqueIdOf(kGuidKey)).path, "first.exe");
}

TEST_F(SysmonReaderTest, ZeroGuidIsNoIdentity) {
  const std::string zero = R"("ProcessGuid":"{00000000-0000-0000-0000-000000000000}",)";
  const std::string first = Connection(zero + R"("ProcessId":"1","Image":"<unknown process>")");
  const std::string second = Connection(zero + R"("ProcessId":"2","Image":"<unknown process>")");
  Learn({first, second});
  Read(first);
  const u64 firstId = connection_.puid;
  Read(second);
  EXPECT_NE(firstId, connection_.puid);
  EXPECT_EQ(Published(firstId).path, "<unknown process>");
  EXPECT_EQ(Published(firstId).pid, 1U);
  EXPECT_EQ(Published(connection_.puid).pid, 2U);
}

TEST_F(SysmonReaderTest, ImageThatIsNoPathIsKeptAsItIs) {
  Learn({Connection(R"("Image":"System")")});
  EXPECT_EQ(Published(UniqueIdOf(kGuidKey)).path, "System");
}

TEST_F(SysmonReaderTest, MissingImageIsNoProcess) {
  for (const char* members : {R"("Image":"-")", R"("Image":"")"}) {
    Learn({Connection(members)});
    ASSERT_EQ(Read(Connection(members)), Finding::kConnection);
    EXPECT_EQ(connection_.puid, 0U);
  }
  EXPECT_FALSE(Published(UniqueIdOf(kGuidKey)).known);
}

TEST_F(SysmonReaderTest, LatestDigestsOfAPathCount) {
  Learn({Creation("C:\\\\a.exe", kMd5, "2020-06-10 03:00:00.500"),
         Creation("C:\\\\a.exe", kOtherMd5, "2020-06-10 03:00:00.499")});
  EXPECT_EQ(Md5Of("C:\\a.exe"), 0x49);
}

TEST_F(SysmonReaderTest, LatestDigestsOfAnySpellingServeTheOthers) {
  Learn({Creation("C:\\\\A.EXE", kMd5, "2020-06-10 03:00:00"),
         Creation("C:\\\\a.exe", kOtherMd5, "2020-06-10 02:00:00")});
  EXPECT_EQ(Md5Of("C:\\A.exe"), 0x49);
  EXPECT_EQ(Md5Of("C:\\a.exe"), 0x06);
}

TEST_F(SysmonReaderTest, BothDigestsAreRead) {
  const std::string sha = "AA097FD0386A42779F2B6CA23BDAEBBCA99C589B477E0C7AC63C2678214D242E";
  Learn({R"({"EventID":1,"UtcTime":"2020-06-10 03:00:00","ProcessGuid":"{1}","Image":"x","Hashes":"sha256=)" + sha +
         ",Md5=" + kMd5 + "\"}"});
  RYL::Module::FileHashBlock block{};
  ASSERT_TRUE(hashes_.GetFileHashes("x", &block, 9));
  EXPECT_EQ(block.md5[15], 0xD1);
  EXPECT_EQ(block.qid[0], 0xAA);
  EXPECT_EQ(block.qid[31], 0x2E);
}

TEST_F(SysmonReaderTest, HashesThatCannotBeReadAreNotKnown) {
  for (const char* hashes : {"", "MD5=", "MD5=12", "IMPHASH=41577F20179B0B22CBA46170F1773F1D", "MD5", "=,=,", ",,,"}) {
    Learn({std::string(R"({"EventID":1,"UtcTime":"2020-06-10 03:00:00","ProcessGuid":"{1}","Image":"y","Hashes":")") +
           hashes + "\"}"});
    EXPECT_EQ(Md5Of("y"), -1) << hashes;
  }
}

TEST_F(SysmonReaderTest, GarbageTeachesNothing) {
  Learn({"", "garbage", "{}", "[1]", R"({"EventID":1})", R"({"EventID":1,"Image":"z"})"});
  EXPECT_EQ(Md5Of("z"), -1);
}

}  // namespace
