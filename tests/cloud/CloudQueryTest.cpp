// What is asked of the cloud, how often, and what its replies leave in the cache.
#include "Velmar/Cloud.h"
#include "Velmar/OS/Time.h"
#include "tests/cloud/CloudFixture.h"
#include "tests/support/CountingAllocator.h"

namespace CloudTest {
namespace {

// The numbers of a list, as addresses.
template <class T>
class Numbers final : public CloudStatus<T>::IPIterator {
 public:
  explicit Numbers(std::vector<T> addresses) : addresses_(std::move(addresses)) {}
  bool HasNext() override { return next_ < addresses_.size(); }
  const T* Next() override { return &addresses_[next_++]; }
  std::size_t Left() const { return addresses_.size() - next_; }

 private:
  std::vector<T> addresses_;
  std::size_t next_ = 0;
};

template <class T>
class CloudQueryTest : public CloudTest<T> {
 protected:
  using Base = CloudTest<T>;

  CloudQueryTest() {
    EXPECT_TRUE(Velmar::Cloud::Configure({.endpoint = "https://cloud.example"}));
    EXPECT_TRUE(status.Open(kFolder, true));
    Sim::SetCloudService([this](const Sim::CloudCall& call) {
      calls.push_back(call);
      times.push_back(Velmar::OS::Time::GetEpochTime(nullptr));
      return answer(call);
    });
  }

  static std::vector<T> Addresses(u32 from, u32 count) {
    std::vector<T> addresses;
    for (u32 i = 0; i < count; ++i) {
      addresses.push_back(Base::Address(from + i));
    }
    return addresses;
  }
  bool Resolve(u32 from, u32 count) {
    Numbers<T> numbers(Addresses(from, count));
    return status.Resolve(&numbers);
  }
  // Addresses that a request holds.
  static u32 Asked(const Sim::CloudCall& call) {
    u32 count = 0;
    for (std::size_t at = call.body.find("\"ip\":"); at != std::string::npos; at = call.body.find("\"ip\":", at + 1)) {
      ++count;
    }
    return count;
  }
  static std::string List(u32 count, const std::string& entry) {
    std::string text = "[";
    for (u32 i = 0; i < count; ++i) {
      text += (i == 0 ? "" : ",") + entry;
    }
    return text + "]";
  }
  void ExpectCounts(u32 total, u32 successful) {
    EXPECT_EQ(status.TakeTotalRequests(), total);
    EXPECT_EQ(status.TakeSuccessfulRequests(), successful);
  }

  static constexpr char kHarmless[] = "{\"status_code\":0,\"data\":{\"is_whitelisted\":true}}";

  std::function<Sim::CloudReply(const Sim::CloudCall&)> answer = [](const Sim::CloudCall& call) {
    return Sim::CloudReply{.texts = {List(Asked(call), kHarmless)}};
  };
  std::vector<Sim::CloudCall> calls;
  std::vector<u64> times;
  CloudStatus<T> status;
};
TYPED_TEST_SUITE(CloudQueryTest, Families, );

TYPED_TEST(CloudQueryTest, NoIteratorIsRefused) {
  LogCapture log;
  EXPECT_FALSE(this->status.Resolve(nullptr));
  EXPECT_EQ(log.Lines(), Lines{"5 cloud.ResolveWithoutAddresses"});
}

TYPED_TEST(CloudQueryTest, HundredAndTwentyAddressesAreThreePacedRequests) {
  LogCapture log;
  EXPECT_TRUE(this->Resolve(0, 120));
  ASSERT_EQ(this->calls.size(), 3U);
  EXPECT_EQ(this->Asked(this->calls[0]), 50U);
  EXPECT_EQ(this->Asked(this->calls[1]), 50U);
  EXPECT_EQ(this->Asked(this->calls[2]), 20U);
  EXPECT_EQ(this->times[1] - this->times[0], 1000U);
  EXPECT_EQ(this->times[2] - this->times[1], 1000U);
  EXPECT_EQ(Sim::Sleeps(), (std::vector<u32>{1000, 1000}));
  EXPECT_EQ(log.Count("cloud.CloudPaced"), 2);
  EXPECT_EQ(log.Arguments("cloud.CloudPaced"), (Lines{"0", "1000"}));
  EXPECT_EQ(log.Lines(), Lines{});
  for (u32 i = 0; i < 120; ++i) {
    EXPECT_EQ(this->Verdict(this->status, i), "harmless");
  }
  this->ExpectCounts(3, 3);
  this->ExpectCounts(0, 0);
}

TYPED_TEST(CloudQueryTest, ThePaceCountsFromTheLastAnswer) {
  this->answer = [](const Sim::CloudCall& call) {
    return Sim::CloudReply{.texts = {CloudQueryTest<TypeParam>::List(CloudQueryTest<TypeParam>::Asked(call), "{}")},
                           .tookMs = 300};
  };
  EXPECT_TRUE(this->Resolve(0, 50));
  Sim::AdvanceTime(400);
  EXPECT_TRUE(this->Resolve(50, 50));
  Sim::AdvanceTime(1000);
  EXPECT_TRUE(this->Resolve(100, 50));
  EXPECT_EQ(Sim::Sleeps(), std::vector<u32>{600});
}

TYPED_TEST(CloudQueryTest, ARequestHoldsTheAddressesInOrder) {
  EXPECT_TRUE(this->Resolve(7, 2));
  ASSERT_EQ(this->calls.size(), 1U);
  const std::string entry = R"({"projection":"status_code,data.is_whitelisted","ip":")";
  const bool isIPv4 = std::is_same_v<TypeParam, IPv4>;
  const std::string first = isIPv4 ? "203.0.0.7" : "2001:db8::7";
  const std::string second = isIPv4 ? "203.0.0.8" : "2001:db8::8";
  EXPECT_EQ(this->calls[0].body, "[" + entry + first + "\"}," + entry + second + "\"}]");
  EXPECT_EQ(this->calls[0].path, "/batch/ip/gtm");
  EXPECT_EQ(this->calls[0].endpoint, "https://cloud.example");
  EXPECT_EQ(this->calls[0].timeoutMs, 100000U);
}

TYPED_TEST(CloudQueryTest, KnownAndPrivateAddressesCostNoRequest) {
  ASSERT_TRUE(this->Learn(this->status, 1, true));
  ASSERT_TRUE(this->Learn(this->status, 2, false));
  Numbers<TypeParam> numbers({this->Address(1), this->Address(2), this->PrivateAddress()});
  EXPECT_TRUE(this->status.Resolve(&numbers));
  EXPECT_TRUE(this->calls.empty());
  this->ExpectCounts(0, 0);
}

TYPED_TEST(CloudQueryTest, FortyNineOrFiftyOneAnswersForFiftyWriteNothing) {
  for (const u32 answers : {49U, 51U, 0U}) {
    this->answer = [answers](const Sim::CloudCall&) {
      return Sim::CloudReply{.texts = {CloudQueryTest<TypeParam>::List(answers, CloudQueryTest<TypeParam>::kHarmless)}};
    };
    LogCapture log;
    EXPECT_FALSE(this->Resolve(0, 50));
    EXPECT_EQ(log.Lines(5), (Lines{"5 cloud.AnswersMissing", "5 cloud.ResolveStopped"}));
    EXPECT_EQ(log.Arguments("cloud.AnswersMissing"), (Lines{"50", std::to_string(answers)}));
    EXPECT_EQ(this->status.GetItemCount(), 0U);
    this->ExpectCounts(1, 1);
  }
}

TYPED_TEST(CloudQueryTest, OnlyAWholeGoodAnswerIsHarmless) {
  const std::vector<std::pair<std::string, std::string>> answers = {
      {"{\"status_code\":404,\"data\":{\"is_whitelisted\":true}}", "harmful"},
      {"{\"data\":{\"is_whitelisted\":true}}", "harmless"},
      {"{\"status_code\":0,\"data\":{\"is_whitelisted\":true}}", "harmless"},
      {"{\"status_code\":0,\"data\":{\"is_whitelisted\":false}}", "harmful"},
      {"{\"status_code\":0,\"data\":{}}", "harmful"},
      {"{\"status_code\":0}", "harmful"},
      {"{}", "harmful"},
      {"null", "harmful"},
      {"{\"status_code\":\"0\",\"data\":{\"is_whitelisted\":true}}", "harmful"},
      {"{\"status_code\":0.0,\"data\":{\"is_whitelisted\":true}}", "harmful"},
      {"{\"status_code\":4294967296,\"data\":{\"is_whitelisted\":true}}", "harmful"},
      {"{\"status_code\":0,\"data\":{\"is_whitelisted\":1}}", "harmful"},
      {"{\"status_code\":0,\"data\":true}", "harmful"},
      {"{\"is_whitelisted\":true}", "harmful"},
  };
  this->answer = [&answers](const Sim::CloudCall&) {
    std::string text = "[";
    for (const auto& [entry, verdict] : answers) {
      text += (text.size() == 1 ? "" : ",") + entry;
    }
    return Sim::CloudReply{.texts = {text + "]"}};
  };
  EXPECT_TRUE(this->Resolve(0, static_cast<u32>(answers.size())));
  for (u32 i = 0; i < answers.size(); ++i) {
    EXPECT_EQ(this->Verdict(this->status, i), answers[i].second) << answers[i].first;
  }
}

TYPED_TEST(CloudQueryTest, WhatIsNoJsonListTeachesNothing) {
  for (const char* text : {"", " ", "nonsense", "[", "\"text\"", "<html></html>"}) {
    this->answer = [text](const Sim::CloudCall&) { return Sim::CloudReply{.texts = {text}}; };
    LogCapture log;
    EXPECT_FALSE(this->Resolve(0, 3));
    EXPECT_EQ(log.Lines(5), (Lines{"5 cloud.ReplyNotRead", "5 cloud.ResolveStopped"})) << text;
    EXPECT_EQ(this->status.GetItemCount(), 0U);
    this->ExpectCounts(1, 1);
  }
}

TYPED_TEST(CloudQueryTest, ARequestThatFailsMovesOneCounterAndNotThePace) {
  EXPECT_TRUE(this->Resolve(0, 1));
  this->ExpectCounts(1, 1);
  Sim::AdvanceTime(1000);
  for (const Sim::CloudReply& reply :
       {Sim::CloudReply{.status = 0, .texts = {}}, Sim::CloudReply{.texts = {"[]"}, .tookMs = 100000}}) {
    this->answer = [reply](const Sim::CloudCall&) { return reply; };
    LogCapture log;
    EXPECT_FALSE(this->Resolve(1, 120));
    EXPECT_EQ(log.Lines(3), (Lines{"3 base.CloudRequestFailed", "5 cloud.CloudNotReached", "5 cloud.ResolveStopped"}));
    this->ExpectCounts(1, 0);
  }
  EXPECT_EQ(Sim::Sleeps(), std::vector<u32>{});
  EXPECT_EQ(this->status.GetItemCount(), 1U);
}

TYPED_TEST(CloudQueryTest, ARequestThatIsRefusedIsAFailure) {
  this->answer = [](const Sim::CloudCall&) { return Sim::CloudReply{.status = 500, .texts = {"[{},{}]"}}; };
  LogCapture log;
  EXPECT_FALSE(this->Resolve(0, 2));
  EXPECT_EQ(log.Lines(3), (Lines{"5 cloud.CloudRefused", "5 cloud.ResolveStopped"}));
  EXPECT_EQ(this->status.GetItemCount(), 0U);
  this->ExpectCounts(1, 0);
  EXPECT_FALSE(this->Resolve(0, 2));
  this->ExpectCounts(1, 0);
  EXPECT_EQ(Sim::Sleeps(), std::vector<u32>{}) << "refusals are not paced";
}

TYPED_TEST(CloudQueryTest, AfterAFailedBatchTheRestIsNotRead) {
  u32 requests = 0;
  this->answer = [&requests](const Sim::CloudCall& call) {
    return ++requests == 2
               ? Sim::CloudReply{.status = 503, .texts = {}}
               : Sim::CloudReply{.texts = {CloudQueryTest<TypeParam>::List(CloudQueryTest<TypeParam>::Asked(call),
                                                                           CloudQueryTest<TypeParam>::kHarmless)}};
  };
  Numbers<TypeParam> numbers(this->Addresses(0, 160));
  EXPECT_FALSE(this->status.Resolve(&numbers));
  EXPECT_EQ(numbers.Left(), 60U);
  EXPECT_EQ(this->status.GetItemCount(), 50U);
  EXPECT_EQ(this->Verdict(this->status, 49), "harmless");
  EXPECT_EQ(this->Verdict(this->status, 50), "unknown");
}

TYPED_TEST(CloudQueryTest, OfSeveralReplyTextsTheFirstWins) {
  this->answer = [](const Sim::CloudCall& call) {
    const u32 asked = CloudQueryTest<TypeParam>::Asked(call);
    return Sim::CloudReply{.texts = {CloudQueryTest<TypeParam>::List(asked, CloudQueryTest<TypeParam>::kHarmless),
                                     CloudQueryTest<TypeParam>::List(asked, "{}"), "broken"}};
  };
  LogCapture log;
  EXPECT_FALSE(this->Resolve(0, 2));
  EXPECT_EQ(log.Lines(5), (Lines{"5 cloud.ReplyNotRead", "5 cloud.ResolveStopped"}));
  EXPECT_EQ(this->Verdict(this->status, 0), "harmless");
  EXPECT_EQ(this->Verdict(this->status, 1), "harmless");
}

TYPED_TEST(CloudQueryTest, NoReplyTextTeachesNothingAndIsNoFailure) {
  this->answer = [](const Sim::CloudCall&) { return Sim::CloudReply{}; };
  EXPECT_TRUE(this->Resolve(0, 2));
  EXPECT_EQ(this->status.GetItemCount(), 0U);
  this->ExpectCounts(1, 1);
}

TYPED_TEST(CloudQueryTest, WithoutEndpointEveryRequestFails) {
  ASSERT_TRUE(Velmar::Cloud::Configure({}));
  LogCapture log;
  EXPECT_FALSE(this->Resolve(0, 2));
  EXPECT_EQ(log.Lines(5), (Lines{"5 cloud.CloudNotReached", "5 cloud.ResolveStopped"}));
  EXPECT_TRUE(this->calls.empty());
}

TYPED_TEST(CloudQueryTest, AVerdictThatCannotBeStoredStopsTheBatch) {
  Access::GiveUpCache(this->status);
  LogCapture log;
  EXPECT_FALSE(this->Resolve(0, 2));
  EXPECT_EQ(log.Lines(5), (Lines{"5 cloud.VerdictNotStored", "5 cloud.ResolveStopped"}));
}

// The cache begins with room for 1024 verdicts.
TYPED_TEST(CloudQueryTest, AVerdictThatFindsNoMemoryStopsTheBatch) {
  CountingAllocator allocator;
  Velmar::Collections::SetModuleAllocator(&allocator);
  {
    CloudStatus<TypeParam> full;
    ASSERT_TRUE(full.Open(nullptr, false));
    for (u32 i = 0; i < 1023; ++i) {
      ASSERT_TRUE(this->Learn(full, i, false));
    }
    this->answer = [&allocator](const Sim::CloudCall& call) {
      allocator.FailFrom(0, 1000);
      return Sim::CloudReply{.texts = {CloudQueryTest<TypeParam>::List(CloudQueryTest<TypeParam>::Asked(call),
                                                                       CloudQueryTest<TypeParam>::kHarmless)}};
    };
    Numbers<TypeParam> numbers(this->Addresses(2000, 3));
    LogCapture log;
    EXPECT_FALSE(full.Resolve(&numbers));
    allocator.FailFrom(CountingAllocator::kNever);
    const Lines lines = log.Lines(3);
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(Lines(lines.end() - 3, lines.end()),
              (Lines{"3 velmar.CacheEntryNotSet", "5 cloud.VerdictNotStored", "5 cloud.ResolveStopped"}));
    EXPECT_EQ(this->Verdict(full, 2000), "harmless") << "what was written stays";
    EXPECT_EQ(this->Verdict(full, 2001), "unknown");
    EXPECT_EQ(full.TakeSuccessfulRequests(), 1U);
  }
  EXPECT_EQ(allocator.Out(), 0U);
  Velmar::Collections::SetModuleAllocator(nullptr);
}

TYPED_TEST(CloudQueryTest, ABatchWithoutALockIsRefused) {
  Sim::FailMutexCreate(1);
  LogCapture log;
  EXPECT_FALSE(this->Resolve(0, 2));
  EXPECT_EQ(log.Lines(5).back(), "5 cloud.BatchNotKept");
  EXPECT_TRUE(this->calls.empty());
}

TYPED_TEST(CloudQueryTest, TreesThatWereNeverMadeGiveNoRequest) {
  CloudStatus<TypeParam> closed;
  ASSERT_TRUE(closed.SetPersistent(false));
  Numbers<TypeParam> numbers({this->Address(1)});
  LogCapture log;
  EXPECT_FALSE(closed.Resolve(&numbers));
  EXPECT_EQ(log.Lines(5), (Lines{"5 cloud.RequestNotBuilt", "5 cloud.ResolveStopped"}));
  EXPECT_EQ(closed.TakeTotalRequests(), 0U);
}

TYPED_TEST(CloudQueryTest, EveryAllocationOfARequestMayFail) {
  bool succeeded = false;
  for (u64 n = 0; !succeeded && n < 500; ++n) {
    const u32 known = this->status.GetItemCount();
    Sim::FailAllocation(n);
    succeeded = this->Resolve(1000, 50);
    Sim::FailAllocation(~u64{0});
    EXPECT_GE(this->status.GetItemCount(), known);
    // What failed half way is asked about again, what was answered is not.
    Sim::AdvanceTime(1000);
  }
  EXPECT_TRUE(succeeded);
  for (u32 i = 0; i < 50; ++i) {
    EXPECT_EQ(this->Verdict(this->status, 1000 + i), "harmless");
  }
}

}  // namespace
}  // namespace CloudTest
