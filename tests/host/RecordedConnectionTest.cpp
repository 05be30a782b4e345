#include "host/import/RecordedConnection.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using namespace Host;
using namespace Host::Import;

constexpr u64 kNowMs = 1'700'000'000'500;

RecordedConnection At(u64 startMs, std::optional<u64> endMs = std::nullopt) {
  RecordedConnection connection;
  connection.startMs = startMs;
  connection.endMs = endMs;
  return connection;
}

TEST(CheckBounds, TimesThatTheModuleKeepsAreGood) {
  EXPECT_EQ(CheckBounds(At(1'000'000'000'000), kNowMs), Finding::kConnection);
  EXPECT_EQ(CheckBounds(At(kNowMs), kNowMs), Finding::kConnection);
  EXPECT_EQ(CheckBounds(At(1'600'000'000'000, 1'700'000'000'999), kNowMs), Finding::kConnection);
}

TEST(CheckBounds, TimesThatTheModuleWouldRestampAreNot) {
  EXPECT_EQ(CheckBounds(At(999'999'999'999), kNowMs), Finding::kTimeOutOfRange);
  EXPECT_EQ(CheckBounds(At(0), kNowMs), Finding::kTimeOutOfRange);
  EXPECT_EQ(CheckBounds(At(1'700'000'001'000), kNowMs), Finding::kTimeOutOfRange);
  EXPECT_EQ(CheckBounds(At(1'600'000'000'000, 1'700'000'001'000), kNowMs), Finding::kTimeOutOfRange);
}

TEST(CheckBounds, ByteCountsMayReachTwoToTheForty) {
  RecordedConnection connection = At(kNowMs);
  connection.bytesIn = u64{1} << 40;
  connection.bytesOut = u64{1} << 40;
  EXPECT_EQ(CheckBounds(connection, kNowMs), Finding::kConnection);
  connection.bytesIn += 1;
  EXPECT_EQ(CheckBounds(connection, kNowMs), Finding::kBytesTooLarge);
  connection.bytesIn = 0;
  connection.bytesOut += 1;
  EXPECT_EQ(CheckBounds(connection, kNowMs), Finding::kBytesTooLarge);
}

TEST(Finding, EachSkipHasItsOwnNameAndExplanation) {
  std::set<std::string> names;
  for (const Finding skip : kSkips) {
    EXPECT_STRNE(NameOf(skip), "");
    EXPECT_STRNE(ExplanationOf(skip), "");
    names.insert(NameOf(skip));
  }
  EXPECT_EQ(names.size(), std::size(kSkips));
  EXPECT_STREQ(NameOf(Finding::kNothing), "");
}

TEST(ReadSides, BadAddressComesBeforeTheFamily) {
  const LocalNetworks local = LocalNetworks::Usual();
  Sides sides;
  EXPECT_EQ(ReadSides("x", "::1", local, sides), Finding::kMalformed);
  EXPECT_EQ(ReadSides("::1", "10.0.0.1", local, sides), Finding::kIPv6);
  EXPECT_EQ(ReadSides("10.0.0.1", "192.0.2.1", local, sides), Finding::kConnection);
  EXPECT_TRUE(sides.originatorIsLocal);
  EXPECT_EQ(ReadSides("192.0.2.1", "10.0.0.1", local, sides), Finding::kConnection);
  EXPECT_FALSE(sides.originatorIsLocal);
}

}  // namespace
