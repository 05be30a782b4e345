// What a verdict cache knows, for how long, and of which addresses it needs no cloud.
#include "common/cloud/CloudStatus.h"

#include <arpa/inet.h>

#include "tests/cloud/CloudFixture.h"
#include "tests/velmarlib/collections/TestAllocator.h"

namespace CloudTest {
namespace {

template <class T>
using CloudStatusTest = CloudTest<T>;
TYPED_TEST_SUITE(CloudStatusTest, Families, );

TYPED_TEST(CloudStatusTest, LookupTellsTheVerdictOfAKnownAddress) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  LogCapture log;
  EXPECT_TRUE(this->Learn(status, 1, true));
  EXPECT_TRUE(this->Learn(status, 2, false));
  EXPECT_EQ(this->Verdict(status, 1), "harmless");
  EXPECT_EQ(this->Verdict(status, 2), "harmful");
  EXPECT_EQ(this->Verdict(status, 3), "unknown");
  const TypeParam known = this->Address(1);
  const TypeParam unknown = this->Address(3);
  EXPECT_TRUE(status.Lookup(&known, nullptr));
  EXPECT_FALSE(status.Lookup(&unknown, nullptr));
  EXPECT_EQ(status.GetItemCount(), 2U);
  EXPECT_TRUE(log.Entries().empty());
}

TYPED_TEST(CloudStatusTest, WhitelistedIsKnownAndHarmless) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  ASSERT_TRUE(this->Learn(status, 1, true));
  ASSERT_TRUE(this->Learn(status, 2, false));
  const auto isWhitelisted = [&status](const TypeParam& address) { return status.IsWhitelisted(&address); };
  EXPECT_TRUE(isWhitelisted(this->Address(1)));
  EXPECT_FALSE(isWhitelisted(this->Address(2)));
  EXPECT_FALSE(isWhitelisted(this->Address(3)));
  EXPECT_FALSE(isWhitelisted(this->PrivateAddress())) << "known, and not harmless";
}

TYPED_TEST(CloudStatusTest, VerdictLivesTwoDaysToTheMillisecond) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  ASSERT_TRUE(this->Learn(status, 1, true));
  ASSERT_TRUE(this->Learn(status, 2, false));
  Sim::SetEpochTime(kTenOClock + kTwoDays);
  EXPECT_EQ(this->Verdict(status, 1), "harmless");
  EXPECT_EQ(this->Verdict(status, 2), "harmful");
  Sim::SetEpochTime(kTenOClock + kTwoDays + 1);
  EXPECT_EQ(status.GetItemCount(), 2U) << "counts until it is met";
  LogCapture log;
  EXPECT_EQ(this->Verdict(status, 1), "unknown");
  EXPECT_EQ(status.GetItemCount(), 1U);
  EXPECT_EQ(this->Verdict(status, 2), "unknown");
  EXPECT_EQ(status.GetItemCount(), 0U);
  EXPECT_TRUE(log.Entries().empty());
}

TYPED_TEST(CloudStatusTest, VerdictIsNeitherRefreshedNorOverturnedBeforeItIsMetExpired) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  ASSERT_TRUE(this->Learn(status, 1, true));
  Sim::SetEpochTime(kTenOClock + kTwoDays);
  EXPECT_TRUE(this->Learn(status, 1, false));
  EXPECT_EQ(this->Verdict(status, 1), "harmless");
  Sim::SetEpochTime(kTenOClock + kTwoDays + 1);
  EXPECT_TRUE(this->Learn(status, 1, false)) << "expired, and not met yet";
  EXPECT_EQ(this->Verdict(status, 1), "unknown");
  EXPECT_TRUE(this->Learn(status, 1, false));
  EXPECT_EQ(this->Verdict(status, 1), "harmful");
  Sim::SetEpochTime(kTenOClock + 2 * kTwoDays + 1);
  EXPECT_EQ(this->Verdict(status, 1), "harmful");
}

TYPED_TEST(CloudStatusTest, PrivateAddressIsKnownWithoutBeingCached) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  EXPECT_EQ(this->Verdict(status, this->PrivateAddress()), "harmful");
  const TypeParam address = this->PrivateAddress();
  EXPECT_TRUE(status.Lookup(&address, nullptr));
  EXPECT_EQ(status.GetItemCount(), 0U);
}

TYPED_TEST(CloudStatusTest, EntryOfAPrivateAddressCountsUntilItExpires) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  ASSERT_TRUE(Access::StoreVerdict(status, this->PrivateAddress(), true));
  EXPECT_EQ(this->Verdict(status, this->PrivateAddress()), "harmless");
  Sim::SetEpochTime(kTenOClock + kTwoDays + 1);
  EXPECT_EQ(this->Verdict(status, this->PrivateAddress()), "harmful");
  EXPECT_EQ(status.GetItemCount(), 0U);
}

TYPED_TEST(CloudStatusTest, KnowsNothingBeforeItIsOpened) {
  CloudStatus<TypeParam> status;
  LogCapture log;
  this->ExpectKnowsNothing(status);
  EXPECT_EQ(status.GetCacheSizeOnDisk(), 0U);
  EXPECT_EQ(status.TakeTotalRequests(), 0U);
  EXPECT_EQ(status.TakeSuccessfulRequests(), 0U);
  EXPECT_TRUE(log.Entries().empty());
}

TYPED_TEST(CloudStatusTest, CountersAreTakenOnceAndStartWithTheOpening) {
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  for (const bool successful : {true, false, true}) {
    Access::CountRequest(status, successful);
  }
  EXPECT_EQ(status.TakeTotalRequests(), 3U);
  EXPECT_EQ(status.TakeTotalRequests(), 0U);
  EXPECT_EQ(status.TakeSuccessfulRequests(), 2U);
  EXPECT_EQ(status.TakeSuccessfulRequests(), 0U);
  Access::CountRequest(status, true);
  EXPECT_FALSE(status.Open("/nowhere", true));
  EXPECT_EQ(status.TakeTotalRequests(), 0U);
  EXPECT_EQ(status.TakeSuccessfulRequests(), 0U);
}

TYPED_TEST(CloudStatusTest, VerdictWithoutMemoryIsNotLearnt) {
  TestAllocator memory;
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  for (u32 i = 0; i < 1024; ++i) {
    ASSERT_TRUE(this->Learn(status, i, true));
  }
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(this->Learn(status, 1024, true));
  EXPECT_EQ(log.Lines(3).back(), "3 velmar.CacheEntryNotSet");
  EXPECT_EQ(this->Verdict(status, 1024), "unknown");
  EXPECT_TRUE(this->Learn(status, 1024, true));
  EXPECT_EQ(status.GetItemCount(), 1025U);
}

TYPED_TEST(CloudStatusTest, WithoutAMutexItWorksForOneThread) {
  Sim::FailMutexCreate(1);
  CloudStatus<TypeParam> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  EXPECT_TRUE(this->Learn(status, 1, true));
  EXPECT_EQ(this->Verdict(status, 1), "harmless");
  EXPECT_EQ(status.GetItemCount(), 1U);
}

using CloudStatusIPv4Test = CloudTest<IPv4>;
using CloudStatusIPv6Test = CloudTest<IPv6>;

template <class T>
T Parse(const char* text) {
  T address;
  EXPECT_EQ(inet_pton(std::is_same_v<T, IPv4> ? AF_INET : AF_INET6, text, address.bytes), 1) << text;
  return address;
}

TEST_F(CloudStatusIPv4Test, PrivateRangesEndWhereTheyEnd) {
  CloudStatus<IPv4> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  for (const char* text : {"10.0.0.0", "10.0.0.1", "10.255.255.255", "172.16.0.1", "172.16.0.0", "172.31.255.255",
                           "192.168.0.0", "192.168.255.255"}) {
    EXPECT_EQ(Verdict(status, Parse<IPv4>(text)), "harmful") << text;
  }
  for (const char* text : {"9.255.255.255", "11.0.0.0", "172.15.0.1", "172.15.255.255", "172.32.0.1", "172.32.0.0",
                           "192.167.255.255", "192.169.0.0", "127.0.0.1", "169.254.1.1", "0.0.0.10", "1.0.168.192"}) {
    EXPECT_EQ(Verdict(status, Parse<IPv4>(text)), "unknown") << text;
  }
}

TEST_F(CloudStatusIPv6Test, PrivateRangesEndWhereTheyEnd) {
  CloudStatus<IPv6> status;
  ASSERT_TRUE(status.Open(kFolder, true));
  for (const char* text : {"fc00::", "fc00::1", "fd00::1", "fdff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"}) {
    EXPECT_EQ(Verdict(status, Parse<IPv6>(text)), "harmful") << text;
  }
  for (const char* text : {"fbff::1", "fe00::", "fe80::1", "::1", "::ffff:10.0.0.1", "a00::1", "2001:db8::fc"}) {
    EXPECT_EQ(Verdict(status, Parse<IPv6>(text)), "unknown") << text;
  }
}

TEST_F(CloudStatusIPv4Test, FullCacheForgetsTheVerdictThatWasWrittenFirst) {
  constexpr u32 kMost = 131072;
  CloudStatus<IPv4> status;
  ASSERT_TRUE(status.Open(nullptr, false));
  // The bytes in memory order are the key, so that these keys come in ascending order.
  const auto address = [](u32 number) { return IPv4::FromRaw(0x30000000U + number); };
  for (u32 i = 0; i < kMost; ++i) {
    ASSERT_TRUE(Access::StoreVerdict(status, address(i), true));
  }
  EXPECT_EQ(status.GetItemCount(), kMost);
  EXPECT_TRUE(Access::StoreVerdict(status, address(0), false)) << "written once more, the first is the newest";
  EXPECT_TRUE(Access::StoreVerdict(status, address(kMost), false));
  EXPECT_EQ(status.GetItemCount(), kMost);
  EXPECT_EQ(Verdict(status, address(0)), "harmless");
  EXPECT_EQ(Verdict(status, address(1)), "unknown");
  EXPECT_EQ(Verdict(status, address(2)), "harmless");
  EXPECT_EQ(Verdict(status, address(kMost)), "harmful");
}

}  // namespace
}  // namespace CloudTest
