// What the tests of the transport share: a request, what became of it, and how a job sees it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "Velmar/Cloud.h"
#include "common/cloud/CloudStatus.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScriptedServer.h"

class CloudTransportTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  // Far more than what comes at once takes, for tests whose outcome is no missed limit.
  static constexpr Velmar::u32 kAmpleMs = 60000;
  static constexpr Velmar::u32 kShortMs = 200;

  struct Outcome {
    bool answered = false;
    bool successful = false;
    Velmar::u32 status = 99;
    Lines texts;
    std::string reason;  // of the record that tells of a failure
  };

  static std::string Endpoint(const ScriptedServer& server) {
    return "http://127.0.0.1:" + std::to_string(server.Port());
  }
  static void Ask(const std::string& endpoint, Velmar::u32 maxReplyBytes = Velmar::Cloud::kDefaultMaxReplyBytes) {
    ASSERT_TRUE(Velmar::Cloud::Configure({.endpoint = endpoint.c_str(), .maxReplyBytes = maxReplyBytes}));
  }

  // Posts [{"ip":"203.0.113.1"}], or another text in its place, to /batch.
  Outcome Query(Velmar::u32 timeoutMs = kAmpleMs, const std::string& text = "203.0.113.1") {
    Velmar::Utils::TreeContainer tree;
    EXPECT_TRUE(tree.Create(16, 16, false, 8));
    EXPECT_TRUE(tree.Reset(false, 8));
    const Velmar::u32 entry = tree.AddDictionary(Velmar::Utils::TreeContainer::kRoot, "", 8, false);
    EXPECT_NE(tree.AddString(entry, "ip", text.c_str(), Velmar::kNone, false), Velmar::Utils::TreeContainer::kError);
    Outcome outcome;
    Velmar::Cloud::Response response;
    log_.Clear();
    outcome.answered = Velmar::Cloud::Query("/batch", tree, response, timeoutMs, false, &outcome.status, nullptr);
    outcome.successful = response.IsCloudRequestSuccesifull();
    for (Velmar::u32 i = 0; i < response.GetResponsesCount(); ++i) {
      outcome.texts.emplace_back(response.GetUnsafeResponse(i));
    }
    const Lines reason = log_.Arguments("base.CloudRequestFailed");
    outcome.reason = reason.empty() ? "" : reason[0];
    EXPECT_EQ(log_.Lines(1), outcome.answered ? Lines{} : Lines{"3 base.CloudRequestFailed"});
    EXPECT_FALSE(reason.empty() && !outcome.answered);
    return outcome;
  }
  // A failure leaves nothing but its reason.
  static void ExpectFailure(const Outcome& outcome, const std::string& reason) {
    EXPECT_FALSE(outcome.answered);
    EXPECT_FALSE(outcome.successful);
    EXPECT_EQ(outcome.texts, Lines{});
    EXPECT_THAT(outcome.reason, testing::HasSubstr(reason));
  }

  LogCapture log_;
};
