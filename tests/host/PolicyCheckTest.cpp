#include "host/import/PolicyCheck.h"

#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Import;

constexpr u64 kDayMs = 86'400'000;
constexpr u64 kToday = 19675;  // 2023-11-14
constexpr u64 kNowMs = kToday * kDayMs + 12345678;

Policy PolicyOf(const std::string& document) {
  std::string error;
  const auto policy = Policy::Parse(document, "p.toml", error);
  EXPECT_TRUE(policy) << error;
  return policy.value_or(Policy());
}

Finding OfTime(const std::string& document, u64 startMs, u64 nowMs = kNowMs) {
  RecordedConnection connection;
  connection.startMs = startMs;
  connection.remote = {203, 0, 113, 1};
  return PolicyCheck(PolicyOf(document), nowMs).Check(connection);
}

Finding OfRemote(const std::string& document, const Address& remote) {
  RecordedConnection connection;
  connection.startMs = kNowMs;
  connection.remote = remote;
  return PolicyCheck(PolicyOf(document), kNowMs).Check(connection);
}

TEST(PolicyCheck, DayAtTheAgeLimitIsTooOldAndTheNextIsKept) {
  for (const u64 days : {u64{2}, u64{30}, u64{3653}}) {
    const std::string document = "max_db_days = " + std::to_string(days);
    const u64 lastGoneMs = (kToday - days) * kDayMs;
    EXPECT_EQ(OfTime(document, lastGoneMs), Finding::kTooOld) << days;
    EXPECT_EQ(OfTime(document, lastGoneMs + kDayMs - 1), Finding::kTooOld) << days;
    EXPECT_EQ(OfTime(document, lastGoneMs + kDayMs), Finding::kConnection) << days;
    EXPECT_EQ(OfTime(document, kNowMs), Finding::kConnection) << days;
  }
  EXPECT_EQ(OfTime("", (kToday - 3653) * kDayMs), Finding::kTooOld);
  EXPECT_EQ(OfTime("", (kToday - 3652) * kDayMs), Finding::kConnection);
}

TEST(PolicyCheck, TodayCountsFromItsMidnight) {
  EXPECT_EQ(OfTime("max_db_days = 2", (kToday - 1) * kDayMs, kToday * kDayMs), Finding::kConnection);
  EXPECT_EQ(OfTime("max_db_days = 2", (kToday - 1) * kDayMs, (kToday + 1) * kDayMs - 1), Finding::kConnection);
  EXPECT_EQ(OfTime("max_db_days = 2", (kToday - 1) * kDayMs, (kToday + 1) * kDayMs), Finding::kTooOld);
}

TEST(PolicyCheck, AgeLimitBeyond1970KeepsEveryDayButTheFirst) {
  for (const char* days : {"19675", "19676", "9223372036854775807"}) {
    const std::string document = "max_db_days = " + std::string(days);
    EXPECT_EQ(OfTime(document, kDayMs), Finding::kConnection) << days;
    EXPECT_EQ(OfTime(document, kDayMs - 1), Finding::kTooOld) << days;
  }
  EXPECT_EQ(OfTime("max_db_days = 19674", kDayMs), Finding::kTooOld);
}

TEST(PolicyCheck, PrivateAddressesAreKeptWhenThePolicySaysSo) {
  for (const Address& remote : {Address{10, 0, 0, 0}, Address{10, 255, 255, 255}, Address{172, 16, 0, 0},
                                Address{172, 31, 255, 255}, Address{192, 168, 0, 0}, Address{192, 168, 255, 255}}) {
    EXPECT_EQ(OfRemote("", remote), Finding::kPrivateAddress);
    EXPECT_EQ(OfRemote("keep_private_addresses = true", remote), Finding::kConnection);
  }
  for (const Address& remote :
       {Address{9, 255, 255, 255}, Address{11, 0, 0, 0}, Address{172, 15, 255, 255}, Address{172, 32, 0, 0},
        Address{192, 167, 255, 255}, Address{192, 169, 0, 0}, Address{169, 253, 1, 1}, Address{126, 0, 0, 1},
        Address{128, 0, 0, 1}, Address{0, 0, 0, 1}, Address{239, 255, 255, 250}}) {
    EXPECT_EQ(OfRemote("", remote), Finding::kConnection);
  }
}

TEST(PolicyCheck, LoopbackLinkLocalAndNoAddressAreNeverKept) {
  for (const Address& remote : {Address{127, 0, 0, 1}, Address{127, 255, 255, 255}, Address{169, 254, 0, 0},
                                Address{169, 254, 255, 255}, Address{0, 0, 0, 0}}) {
    EXPECT_EQ(OfRemote("", remote), Finding::kSpecialAddress);
    EXPECT_EQ(OfRemote("keep_private_addresses = true", remote), Finding::kSpecialAddress);
  }
}

TEST(PolicyCheck, AgeIsToldBeforeTheAddress) {
  RecordedConnection connection;
  connection.startMs = (kToday - 3653) * kDayMs;
  connection.remote = {10, 0, 0, 1};
  EXPECT_EQ(PolicyCheck(Policy(), kNowMs).Check(connection), Finding::kTooOld);
}

}  // namespace
