// What requests to the cloud are made of, whatever carries them.
#include "Velmar/Cloud.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/sim/Sim.h"
#include "tests/base/FailingAllocations.h"

namespace {

using Velmar::u32;
using Velmar::Cloud::Configure;
using Velmar::Cloud::Query;
using Velmar::Cloud::Response;
using Velmar::Cloud::Settings;
using Velmar::Utils::TreeContainer;
namespace Sim = Velmar::Sim;

class CloudTest : public testing::Test {
 protected:
  CloudTest() {
    Sim::Reset();
    EXPECT_TRUE(Configure({.endpoint = "https://cloud.example"}));
    Sim::SetCloudService([this](const Sim::CloudCall& call) {
      calls_.push_back(call);
      return reply_;
    });
    EXPECT_TRUE(tree_.Create(16, 16, false, 8));
    EXPECT_TRUE(tree_.Reset(true, 8));
    EXPECT_NE(tree_.AddBool(TreeContainer::kRoot, "asks", true, false), TreeContainer::kError);
  }
  bool Ask(Response& response, u32* status = nullptr, u32 timeoutMs = 5000) {
    return Query("/path", tree_, response, timeoutMs, false, status, nullptr);
  }
  static bool Accepts(const std::string& endpoint) { return Configure({.endpoint = endpoint.c_str()}); }

  Sim::CloudReply reply_{.texts = {"{}"}};
  std::vector<Sim::CloudCall> calls_;
  TreeContainer tree_;
};

TEST_F(CloudTest, RequestCarriesWhatIsConfigured) {
  ASSERT_TRUE(Configure({.endpoint = "https://cloud.example/prefix//", .bearerToken = "token"}));
  Response response;
  u32 status = 99;
  EXPECT_TRUE(Ask(response, &status));
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].endpoint, "https://cloud.example/prefix");
  EXPECT_EQ(calls_[0].path, "/path");
  EXPECT_EQ(calls_[0].body, "{\"asks\":true}");
  EXPECT_EQ(calls_[0].bearerToken, "token");
  EXPECT_EQ(calls_[0].timeoutMs, 5000U);
  EXPECT_EQ(status, 200U);
  EXPECT_TRUE(response.IsCloudRequestSuccesifull());
}

TEST_F(CloudTest, EachTextOfAReplyIsKeptAndTerminated) {
  reply_.texts = {"first", "", "third"};
  Response response;
  EXPECT_TRUE(Ask(response));
  ASSERT_EQ(response.GetResponsesCount(), 3U);
  EXPECT_STREQ(response.GetUnsafeResponse(0), "first");
  EXPECT_STREQ(response.GetUnsafeResponse(1), "");
  EXPECT_STREQ(response.GetUnsafeResponse(2), "third");
  EXPECT_EQ(response.GetUnsafeResponse(3), nullptr);
  EXPECT_EQ(response.GetUnsafeResponse(~u32{0}), nullptr);
}

TEST_F(CloudTest, NewResponseIsEmptyAndNoSuccess) {
  const Response response;
  EXPECT_FALSE(response.IsCloudRequestSuccesifull());
  EXPECT_EQ(response.GetResponsesCount(), 0U);
  EXPECT_EQ(response.GetUnsafeResponse(0), nullptr);
}

TEST_F(CloudTest, FailureLeavesNothingOfAnEarlierReply) {
  Response response;
  ASSERT_TRUE(Ask(response));
  u32 status = 99;
  reply_.status = 0;
  EXPECT_FALSE(Ask(response, &status));
  EXPECT_FALSE(response.IsCloudRequestSuccesifull());
  EXPECT_EQ(response.GetResponsesCount(), 0U);
  EXPECT_EQ(status, 0U);
}

TEST_F(CloudTest, OtherStatusIsAnAnswerAndNoSuccess) {
  reply_ = {.status = 503, .texts = {}};
  Response response;
  u32 status = 0;
  EXPECT_TRUE(Ask(response, &status));
  EXPECT_EQ(status, 503U);
  EXPECT_FALSE(response.IsCloudRequestSuccesifull());
}

TEST_F(CloudTest, ReplyThatComesAtTheTimeLimitIsTooLate) {
  Response response;
  reply_.tookMs = 4999;
  EXPECT_TRUE(Ask(response));
  reply_.tookMs = 5000;
  EXPECT_FALSE(Ask(response));
}

TEST_F(CloudTest, ReplyBeyondItsLimitIsRefused) {
  ASSERT_TRUE(Configure({.endpoint = "https://cloud.example", .maxReplyBytes = 10}));
  Response response;
  reply_.texts = {"12345", "67890"};
  EXPECT_TRUE(Ask(response));
  reply_.texts = {"12345", "678901"};
  EXPECT_FALSE(Ask(response));
  EXPECT_EQ(response.GetResponsesCount(), 0U);
}

TEST_F(CloudTest, NoPathNoEndpointAndNoServiceAreFailures) {
  Response response;
  EXPECT_FALSE(Query(nullptr, tree_, response, 5000, false, nullptr, nullptr));
  for (const Settings& settings : {Settings{}, Settings{.endpoint = ""}}) {
    ASSERT_TRUE(Configure(settings));
    EXPECT_FALSE(Ask(response));
  }
  EXPECT_TRUE(calls_.empty());
  ASSERT_TRUE(Accepts("https://cloud.example"));
  Sim::SetCloudService(nullptr);
  EXPECT_FALSE(Ask(response));
}

TEST_F(CloudTest, PlainHttpStaysOnThisMachine) {
  for (const char* endpoint : {"http://127.0.0.1", "http://127.0.0.1:80", "http://localhost/x", "http://[::1]:8080",
                               "https://a", "https://10.0.0.1:1/x/y"}) {
    EXPECT_TRUE(Accepts(endpoint)) << endpoint;
  }
  for (const char* endpoint :
       {"http://cloud.example", "http://127.0.0.1.example", "http://127.0.0.10", "http://localhost.example",
        "http://localhost@cloud.example", "http://10.0.0.1", "http://[::2]", "http://", "http:///x"}) {
    EXPECT_FALSE(Accepts(endpoint)) << endpoint;
  }
}

// What is sent in the clear a proxy would read.
TEST_F(CloudTest, PlainHttpGoesThroughNoOtherMachine) {
  for (const char* proxy : {"http://proxy.example", "http://10.0.0.1:3128", "http://127.0.0.1.example", "proxy.example",
                            "https://proxy.example", "socks5h://proxy.example", "http://127.0.0.1@proxy.example"}) {
    EXPECT_FALSE(Configure({.endpoint = "http://127.0.0.1:80", .proxy = proxy})) << proxy;
    EXPECT_TRUE(Configure({.endpoint = "https://cloud.example", .proxy = proxy})) << proxy;
    EXPECT_TRUE(Configure({.proxy = proxy})) << proxy;
  }
  for (const char* proxy : {"", "http://127.0.0.1:3128", "http://localhost", "http://[::1]:3128/"}) {
    EXPECT_TRUE(Configure({.endpoint = "http://127.0.0.1:80", .proxy = proxy})) << proxy;
  }
}

TEST_F(CloudTest, WhatIsNoEndpointIsRefusedAndTheOldOneStays) {
  for (const char* endpoint :
       {"cloud.example", "ftp://cloud.example", "file:///etc/passwd", "https://", "https:///x", "https://:443",
        "https://user@cloud.example", "https://a b", "https://a\r\nX: y", "https://a?x", "https://a#x", "https://a\\b",
        "https://\xC3\xA4", "HTTPS://A", " https://a"}) {
    EXPECT_FALSE(Accepts(endpoint)) << endpoint;
  }
  Response response;
  EXPECT_TRUE(Ask(response));
  EXPECT_EQ(calls_.back().endpoint, "https://cloud.example");
}

TEST_F(CloudTest, TokenThatWouldEndItsHeaderIsRefusedAndTheOldOneStays) {
  ASSERT_TRUE(Configure({.endpoint = "https://cloud.example", .bearerToken = "old"}));
  for (const char* token : {"a\r\nX: y", "a\n", "a\r", "a b", "\t", "a\x7F", "\xC3\xA4"}) {
    EXPECT_FALSE(Configure({.endpoint = "https://other.example", .bearerToken = token}));
  }
  Response response;
  EXPECT_TRUE(Ask(response));
  EXPECT_EQ(calls_.back().endpoint, "https://cloud.example");
  EXPECT_EQ(calls_.back().bearerToken, "old");
}

TEST_F(CloudTest, ConfigureWithoutMemoryKeepsTheOldSettings) {
  const std::string longText(1000, 'x');
  const std::string endpoint = "https://" + longText;
  const int failures = ForEachFailingAllocation([&] {
    return Configure({.endpoint = endpoint.c_str(),
                      .caFile = longText.c_str(),
                      .bearerToken = longText.c_str(),
                      .proxy = longText.c_str()});
  });
  EXPECT_EQ(failures, 4);
  for (int n = 0; n < failures; ++n) {
    ASSERT_TRUE(Configure({.endpoint = "https://cloud.example", .bearerToken = "old"}));
    Sim::FailAllocation(static_cast<Velmar::u64>(n));
    EXPECT_FALSE(Configure({.endpoint = endpoint.c_str(),
                            .caFile = longText.c_str(),
                            .bearerToken = longText.c_str(),
                            .proxy = longText.c_str()}));
    Sim::FailAllocation(~Velmar::u64{0});
    Response response;
    EXPECT_TRUE(Ask(response));
    EXPECT_EQ(calls_.back().endpoint, "https://cloud.example");
    EXPECT_EQ(calls_.back().bearerToken, "old");
  }
}

TEST_F(CloudTest, EveryAllocationOfARequestMayFail) {
  const std::string longText(1000, 'x');
  const std::string endpoint = "https://" + longText;
  ASSERT_TRUE(Configure({.endpoint = endpoint.c_str(), .caFile = longText.c_str(), .bearerToken = longText.c_str()}));
  reply_.texts = {longText, longText};
  const int failures = ForEachFailingAllocation([this] {
    Response response;
    const bool answered = Ask(response);
    EXPECT_EQ(response.GetResponsesCount(), answered ? 2U : 0U);
    EXPECT_EQ(response.IsCloudRequestSuccesifull(), answered);
    return answered;
  });
  EXPECT_GE(failures, 5);
}

// For the thread sanitizer, too: a request has the settings of one moment.
TEST_F(CloudTest, SettingsMayChangeBesideRequests) {
  std::thread changer([] {
    for (int i = 0; i < 200; ++i) {
      const bool odd = i % 2 == 1;
      EXPECT_TRUE(Configure({.endpoint = odd ? "https://odd" : "https://even", .bearerToken = odd ? "odd" : "even"}));
    }
  });
  for (int i = 0; i < 200; ++i) {
    Response response;
    EXPECT_TRUE(Ask(response));
    const Sim::CloudCall& call = calls_.back();
    EXPECT_TRUE(call.bearerToken.empty() || call.endpoint == "https://" + call.bearerToken);
  }
  changer.join();
}

}  // namespace
