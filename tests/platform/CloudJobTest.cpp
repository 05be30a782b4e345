// What replies over real sockets leave in the verdict cache.
#include "tests/platform/CloudFixture.h"

namespace {

using RYL::NetDB::CloudStatus;
using RYL::NetDB::IPv4;
using Velmar::u32;

constexpr char kHarmless[] = "{\"status_code\":0,\"data\":{\"is_whitelisted\":true}}";
constexpr u32 kAddresses = 50;

std::string List(u32 count) {
  std::string text = "[";
  for (u32 i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ",") + std::string(kHarmless);
  }
  return text + "]";
}

// 203.0.113.0 to 203.0.113.49.
class Addresses final : public CloudStatus<IPv4>::IPIterator {
 public:
  bool HasNext() override { return next_ < kAddresses; }
  const IPv4* Next() override {
    address_ = IPv4::FromRaw(203U | 113U << 16 | next_++ << 24);
    return &address_;
  }

 private:
  u32 next_ = 0;
  IPv4 address_;
};

class CloudJobTest : public CloudTransportTest {
 protected:
  CloudJobTest() { EXPECT_TRUE(status_.Open(nullptr, false)); }

  bool ResolveAgainst(const std::string& reply) {
    const ScriptedServer server([&reply](Peer& peer) {
      peer.ReadRequest();
      peer.Send(reply);
    });
    Ask(Endpoint(server));
    log_.Clear();
    Addresses addresses;
    return status_.Resolve(&addresses);
  }
  // The failure's records end with these two; nothing is learned, and the next request is a good one.
  void ExpectNothingLearned(const std::string& reply, const std::string& record, u32 answered) {
    EXPECT_FALSE(ResolveAgainst(reply));
    EXPECT_EQ(log_.Lines(5), (Lines{"5 cloud." + record, "5 cloud.ResolveStopped"})) << reply.substr(0, 60);
    EXPECT_EQ(status_.GetItemCount(), 0U);
    EXPECT_EQ(status_.TakeTotalRequests(), 1U);
    EXPECT_EQ(status_.TakeSuccessfulRequests(), answered);
  }

  CloudStatus<IPv4> status_;
};

TEST_F(CloudJobTest, GoodReplyTeachesAll) {
  EXPECT_TRUE(ResolveAgainst(HttpReply(List(kAddresses))));
  EXPECT_EQ(status_.GetItemCount(), kAddresses);
  const IPv4 last = IPv4::FromRaw(203U | 113U << 16 | 49U << 24);
  EXPECT_TRUE(status_.IsWhitelisted(&last));
}

TEST_F(CloudJobTest, RequestThatFailsTeachesNothingAndTheNextOneWorks) {
  const std::string cut = HttpReply(List(kAddresses));
  ExpectNothingLearned("", "CloudNotReached", 0);
  ExpectNothingLearned(cut.substr(0, 30), "CloudNotReached", 0);
  ExpectNothingLearned(cut.substr(0, cut.size() - 1), "CloudNotReached", 0);
  ExpectNothingLearned(HttpReply(List(kAddresses), "500 Internal Server Error"), "CloudRefused", 0);
  ExpectNothingLearned(HttpReply(List(kAddresses), "404 Not Found"), "CloudRefused", 0);
  ExpectNothingLearned(HttpReply(List(kAddresses), "301 Moved", "Location: /other\r\n"), "CloudRefused", 0);
  ExpectNothingLearned(HttpReply(List(kAddresses) + std::string(2 << 20, ' ')), "CloudNotReached", 0);
  EXPECT_TRUE(ResolveAgainst(HttpReply(List(kAddresses))));
  EXPECT_EQ(status_.GetItemCount(), kAddresses);
}

TEST_F(CloudJobTest, FortyNineAnswersTeachNothing) {
  ExpectNothingLearned(HttpReply(List(kAddresses - 1)), "AnswersMissing", 1);
}

TEST_F(CloudJobTest, FiftyOneAnswersTeachNothing) {
  ExpectNothingLearned(HttpReply(List(kAddresses + 1)), "AnswersMissing", 1);
}

TEST_F(CloudJobTest, WhatIsNoJsonTeachesNothing) {
  ExpectNothingLearned(HttpReply("<html>Welcome to this hotspot</html>"), "ReplyNotRead", 1);
}

TEST_F(CloudJobTest, SilenceTeachesNothing) {
  ExpectNothingLearned(HttpReply(""), "ReplyNotRead", 1);
}

TEST_F(CloudJobTest, AMachineWithoutACloudFailsAtOnce) {
  ASSERT_TRUE(Velmar::Cloud::Configure({}));
  log_.Clear();
  Addresses addresses;
  EXPECT_FALSE(status_.Resolve(&addresses));
  EXPECT_EQ(log_.Lines(3), (Lines{"3 base.CloudRequestFailed", "5 cloud.CloudNotReached", "5 cloud.ResolveStopped"}));
  EXPECT_EQ(log_.Arguments("base.CloudRequestFailed"), Lines{"no endpoint is configured"});
}

}  // namespace
