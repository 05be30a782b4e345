#include "host/import/LocalNetworks.h"

#include <gtest/gtest.h>

namespace {

using namespace Host;
using namespace Host::Import;

bool Contains(const LocalNetworks& networks, const std::string& text) {
  Address address{};
  EXPECT_EQ(ReadAddress(text, address), AddressKind::kIPv4) << text;
  return networks.Contains(address);
}

TEST(LocalNetworks, UsualOnesHaveTheirBounds) {
  const LocalNetworks usual = LocalNetworks::Usual();
  for (const char* inside : {"10.0.0.0", "10.255.255.255", "172.16.0.0", "172.31.255.255", "192.168.0.1", "127.0.0.1",
                             "127.255.255.255", "169.254.0.1"}) {
    EXPECT_TRUE(Contains(usual, inside)) << inside;
  }
  for (const char* outside :
       {"9.255.255.255", "11.0.0.0", "172.15.255.255", "172.32.0.0", "192.167.255.255", "192.169.0.0",
        "126.255.255.255", "128.0.0.0", "169.253.0.1", "0.0.0.0", "255.255.255.255", "224.0.0.251"}) {
    EXPECT_FALSE(Contains(usual, outside)) << outside;
  }
}

TEST(LocalNetworks, ListReplacesTheUsualOnes) {
  std::string error;
  const auto networks = LocalNetworks::Parse("203.0.113.7,198.51.100.0/24", error);
  ASSERT_TRUE(networks) << error;
  EXPECT_TRUE(Contains(*networks, "203.0.113.7"));
  EXPECT_FALSE(Contains(*networks, "203.0.113.8"));
  EXPECT_TRUE(Contains(*networks, "198.51.100.255"));
  EXPECT_FALSE(Contains(*networks, "198.51.101.0"));
  EXPECT_FALSE(Contains(*networks, "10.0.0.1"));
}

TEST(LocalNetworks, HostBitsOfANetworkDoNotMatter) {
  std::string error;
  const auto networks = LocalNetworks::Parse("198.51.100.77/25", error);
  ASSERT_TRUE(networks);
  EXPECT_TRUE(Contains(*networks, "198.51.100.1"));
  EXPECT_FALSE(Contains(*networks, "198.51.100.128"));
}

TEST(LocalNetworks, ShortestAndLongestPrefixesWork) {
  std::string error;
  EXPECT_TRUE(Contains(*LocalNetworks::Parse("1.2.3.4/0", error), "255.1.1.1"));
  EXPECT_TRUE(Contains(*LocalNetworks::Parse("1.2.3.4/32", error), "1.2.3.4"));
  EXPECT_FALSE(Contains(*LocalNetworks::Parse("1.2.3.4/32", error), "1.2.3.5"));
}

TEST(LocalNetworks, AnythingElseIsNamedInTheError) {
  for (const char* list : {"", "x", "10.0.0.0/33", "10.0.0.0/", "10.0.0.0/-1", "10.0.0/8", "10.0.0.1,", "::1",
                           "10.0.0.1 ,10.0.0.2", "10.0.0.0/8/8"}) {
    std::string error;
    EXPECT_FALSE(LocalNetworks::Parse(list, error)) << list;
    EXPECT_NE(error.find("neither an IPv4 address nor a network"), std::string::npos) << list;
  }
}

TEST(ReadAddress, TellsTheFamilies) {
  Address address{};
  EXPECT_EQ(ReadAddress("203.0.113.7", address), AddressKind::kIPv4);
  EXPECT_EQ(address, (Address{203, 0, 113, 7}));
  for (const char* text : {"::1", "fe80::1", "fe80::1%eth0", "2001:db8::1", "::ffff:192.0.2.1"}) {
    EXPECT_EQ(ReadAddress(text, address), AddressKind::kIPv6) << text;
  }
  for (const char* text : {"", "-", "1.2.3", "1.2.3.256", "1.2.3.4.5", "1.2.3.4 ", "host", ":::", "%eth0"}) {
    EXPECT_EQ(ReadAddress(text, address), AddressKind::kNone) << text;
  }
  EXPECT_EQ(ReadAddress(std::string("1.2.3.4\0x", 9), address), AddressKind::kNone);
  EXPECT_EQ(address, (Address{203, 0, 113, 7}));
}

}  // namespace
