// IPv4 and IPv6: the order byte by byte and the raw forms.
#include "common/Address.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace RYL;
using NetDB::IPv4;
using NetDB::IPv6;

TEST(Address, OrderIsByteByByteFromTheFirstOctet) {
  const IPv4 low{{9, 0, 0, 1}};
  const IPv4 middle{{10, 0, 0, 1}};
  const IPv4 high{{10, 0, 1, 0}};
  EXPECT_TRUE(low < middle);
  EXPECT_TRUE(middle < high);
  EXPECT_TRUE(high > low);
  EXPECT_FALSE(high < low);
  EXPECT_TRUE((IPv4{{127, 255, 255, 255}}) < (IPv4{{128, 0, 0, 0}})) << "octets are unsigned";
}

TEST(Address, EqualAddressesAreNeitherBelowNorAbove) {
  const IPv4 one{{192, 0, 2, 1}};
  const IPv4 same{{192, 0, 2, 1}};
  EXPECT_FALSE(one < same);
  EXPECT_FALSE(one > same);
  EXPECT_TRUE(one == same);
  EXPECT_FALSE(one != same);
  EXPECT_EQ(one.Compare(same), 0);
}

TEST(Address, WideOrderReadsAllSixteenBytes) {
  IPv6 one;
  IPv6 other;
  EXPECT_TRUE(one == other);
  for (u32 at = 0; at < IPv6::kSize; ++at) {
    one = IPv6();
    other = IPv6();
    other.bytes[at] = 1;
    std::memset(one.bytes + at + 1, 0xFF, IPv6::kSize - at - 1);
    EXPECT_TRUE(one < other) << at;
    EXPECT_TRUE(other > one) << at;
    EXPECT_FALSE(one == other) << at;
  }
}

TEST(Address, RawFormHoldsTheBytesAsTheyLieInMemory) {
  const IPv4 address{{1, 2, 3, 4}};
  const u32 raw = address.ToRaw();
  u8 bytes[4];
  std::memcpy(bytes, &raw, sizeof(bytes));
  EXPECT_EQ(std::memcmp(bytes, address.bytes, 4), 0);
  EXPECT_TRUE(IPv4::FromRaw(raw) == address);

  IPv6 wide;
  for (u32 i = 0; i < IPv6::kSize; ++i) {
    wide.bytes[i] = static_cast<u8>(i + 1);
  }
  const Velmar::Types::UInt128 wideRaw = wide.ToRaw();
  EXPECT_EQ(std::memcmp(&wideRaw, wide.bytes, IPv6::kSize), 0);
  EXPECT_TRUE(IPv6::FromRaw(wideRaw) == wide);
}

}  // namespace
