#include "host/import/JsonlReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "RYL/Events/Records.h"

namespace {

using namespace Host;
using namespace Host::Import;

class JsonlReaderTest : public testing::Test {
 protected:
  Finding Read(std::string_view line) { return reader_.Read(line, connection_); }

  // Path of the process that the module would get, "(none)" without one.
  std::string PathOf(u64 puid) {
    u8 area[512];
    RYL::Events::GenericEventHolder holder(area, sizeof(area));
    return processes_.GetEventById(puid, &holder)
               ? reinterpret_cast<const char*>(holder.GetData()) + RYL::Events::ProcessEvent::kProcessPath
               : "(none)";
  }
  // First byte of the MD5 digest that the module would get for it, right after it asked for the process.
  int Md5Of(u64 puid) {
    RYL::Module::FileHashBlock block{};
    return hashes_.GetFileHashes(PathOf(puid).c_str(), &block, 9) ? block.md5[0] : -1;
  }

  LocalNetworks local_ = LocalNetworks::Usual();
  ProcessRegistry processes_;
  RecordedHashes hashes_{&processes_};
  JsonlReader reader_{local_, processes_, hashes_};
  RecordedConnection connection_;
};

TEST_F(JsonlReaderTest, RowOfAQueryIsRead) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":1700000001000,"last_seen":1700000099000,"port":443,)"
                 R"("protos":"HTTP,SSL,TCP","conns_total":6,"conns_in":1,"conns_out":3,"bytes_in":5000000000,)"
                 R"("bytes_out":7,"proc_fpath":"/usr/bin/curl","proc_md5":"0102030405060708090a0b0c0d0e0f10",)"
                 R"("proc_qid":"","proc_puid":18446744073709551615,"proc_pid":4321})"),
            Finding::kConnection);
  EXPECT_EQ(connection_.startMs, 1700000001000U);
  EXPECT_EQ(connection_.endMs, 1700000099000U);
  EXPECT_EQ(connection_.remote, (Address{203, 0, 113, 9}));
  EXPECT_EQ(connection_.port, 443);
  EXPECT_EQ(connection_.connsIn, 1U);
  EXPECT_EQ(connection_.connsOut, 3U);
  EXPECT_EQ(connection_.connsUnknown, 2U);
  EXPECT_EQ(connection_.protocol, "tcp");
  EXPECT_THAT(connection_.services, testing::ElementsAre("http", "ssl"));
  EXPECT_EQ(connection_.bytesIn, 5000000000U);
  EXPECT_EQ(connection_.bytesOut, 7U);
  EXPECT_EQ(connection_.puid, ~u64{0});
  EXPECT_EQ(PathOf(connection_.puid), "/usr/bin/curl");
  EXPECT_EQ(Md5Of(connection_.puid), 1);
}

TEST_F(JsonlReaderTest, AddressAndTimeAreEnough) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":"2023-11-14T22:13:21Z"})"), Finding::kConnection);
  EXPECT_EQ(connection_.startMs, 1700000001000U);
  EXPECT_EQ(connection_.endMs, std::nullopt);
  EXPECT_EQ(connection_.connsUnknown, 1U);
  EXPECT_EQ(connection_.connsIn + connection_.connsOut, 0U);
  EXPECT_EQ(connection_.port, 0);
  EXPECT_EQ(connection_.protocol, "");
  EXPECT_EQ(connection_.puid, 0U);
}

TEST_F(JsonlReaderTest, DirectionsMakeTheTotalWhereItIsMissing) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":1,"conns_out":2})"), Finding::kConnection);
  EXPECT_EQ(connection_.connsOut, 2U);
  EXPECT_EQ(connection_.connsUnknown, 0U);
}

TEST_F(JsonlReaderTest, BytesWithoutAnEndAreOfTheStart) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"bytes_out":1})"), Finding::kConnection);
  EXPECT_EQ(connection_.endMs, 5U);
}

TEST_F(JsonlReaderTest, RowWithoutConnectionsKeepsItsProtocolsAsActivity) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"conns_total":0,"protos":"SSH,TCP"})"), Finding::kConnection);
  EXPECT_EQ(connection_.protocol, "");
  EXPECT_THAT(connection_.services, testing::ElementsAre("ssh", "tcp"));
  EXPECT_EQ(connection_.endMs, std::nullopt);
}

TEST_F(JsonlReaderTest, RowWithoutAnythingStillStands) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"conns_total":0})"), Finding::kConnection);
  EXPECT_EQ(connection_.endMs, 5U);
}

TEST_F(JsonlReaderTest, BadValuesAreMalformed) {
  for (const char* members :
       {R"("first_seen":-1)", R"("first_seen":1.5)", R"("first_seen":"soon")", R"("first_seen":5,"last_seen":4)",
        R"("first_seen":5,"port":65536)", R"("first_seen":5,"port":-1)", R"("first_seen":5,"protos":"DNS")",
        R"("first_seen":5,"conns_total":1,"conns_in":1,"conns_out":1)", R"("first_seen":5,"conns_total":1000001)",
        R"("first_seen":5,"bytes_in":18446744073709551616)", R"("first_seen":5,"bytes_in":"many")",
        R"("first_seen":5,"proc_fpath":"/a","proc_md5":"12")", R"("first_seen":5,"proc_fpath":"/a","proc_qid":"zz")",
        R"("first_seen":5,"proc_pid":-2)", R"("first_seen":5,"proc_pid":4294967296)",
        R"("first_seen":5,"proc_puid":-1)", R"("last_seen":5)"}) {
    EXPECT_EQ(Read(std::string(R"({"ip":"203.0.113.9",)") + members + "}"), Finding::kMalformed) << members;
  }
  for (const char* line :
       {"x", "{}", "[]", R"({"ip":"203.0.113","first_seen":5})", R"({"ip":5,"first_seen":5})", R"({"first_seen":5})"}) {
    EXPECT_EQ(Read(line), Finding::kMalformed) << line;
  }
}

TEST_F(JsonlReaderTest, AddressDecidesWhatIsSkipped) {
  EXPECT_EQ(Read(R"({"ip":"2001:db8::1","first_seen":5})"), Finding::kIPv6);
  EXPECT_EQ(Read(R"({"ip":"192.168.1.1","first_seen":5})"), Finding::kNotOneLocalSide);
  EXPECT_EQ(Read(""), Finding::kNothing);
}

TEST_F(JsonlReaderTest, ProcessWithoutAnIdentifierGetsOne) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"proc_fpath":"/bin/a","proc_pid":7})"), Finding::kConnection);
  const u64 first = connection_.puid;
  EXPECT_NE(first, 0U);
  EXPECT_EQ(PathOf(first), "/bin/a");
  ASSERT_EQ(Read(R"({"ip":"203.0.113.8","first_seen":5,"proc_fpath":"/bin/a","proc_pid":7})"), Finding::kConnection);
  EXPECT_EQ(connection_.puid, first);
  ASSERT_EQ(Read(R"({"ip":"203.0.113.8","first_seen":5,"proc_fpath":"/bin/a","proc_pid":8})"), Finding::kConnection);
  EXPECT_NE(connection_.puid, first);
}

TEST_F(JsonlReaderTest, IdentifierOfTwoProgramsIsToldApart) {
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"proc_fpath":"/bin/sh","proc_puid":3})"), Finding::kConnection);
  EXPECT_EQ(connection_.puid, 3U);
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"proc_fpath":"/bin/ls","proc_puid":3})"), Finding::kConnection);
  EXPECT_NE(connection_.puid, 3U);
  EXPECT_EQ(PathOf(connection_.puid), "/bin/ls");
  ASSERT_EQ(Read(R"({"ip":"203.0.113.9","first_seen":5,"proc_fpath":"/bin/sh","proc_puid":3})"), Finding::kConnection);
  EXPECT_EQ(connection_.puid, 3U);
  EXPECT_EQ(PathOf(3), "/bin/sh");
}

TEST_F(JsonlReaderTest, SamePathKeepsTheDigestsOfEachProcess) {
  const auto line = [](const char* puid, const char* md5) {
    return std::string(R"({"ip":"203.0.113.9","first_seen":5,"proc_fpath":"/bin/sh","proc_puid":)") + puid +
           R"(,"proc_md5":")" + md5 + "000000000000000000000000000000\"}";
  };
  ASSERT_EQ(Read(line("1", "aa")), Finding::kConnection);
  ASSERT_EQ(Read(line("2", "bb")), Finding::kConnection);
  EXPECT_EQ(Md5Of(1), 0xAA);
  EXPECT_EQ(Md5Of(2), 0xBB);
}

}  // namespace
