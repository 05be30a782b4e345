#include "Velmar/OS/Network.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Velmar/Collections/Array.h"
#include "platform/sim/Sim.h"

using Velmar::u32;
using Velmar::u8;
using Velmar::OS::Network;
using Velmar::Types::UInt128;

namespace {

u32 IPv4Of(const std::vector<u8>& bytes) {
  u32 address = 0;
  std::memcpy(&address, bytes.data(), 4);
  return address;
}

UInt128 IPv6Of(const std::vector<Velmar::u16>& groups) {
  u8 bytes[16];
  for (std::size_t i = 0; i < 8; ++i) {
    bytes[2 * i] = static_cast<u8>(groups[i] >> 8);
    bytes[2 * i + 1] = static_cast<u8>(groups[i]);
  }
  UInt128 address;
  std::memcpy(address.words, bytes, 16);
  return address;
}

struct IPv4Pair {
  std::vector<u8> bytes;
  const char* text;
};

const IPv4Pair kIPv4Pairs[] = {
    {{0, 0, 0, 0}, "0.0.0.0"},       {{255, 255, 255, 255}, "255.255.255.255"}, {{127, 0, 0, 1}, "127.0.0.1"},
    {{192, 0, 2, 99}, "192.0.2.99"}, {{10, 100, 9, 249}, "10.100.9.249"},       {{1, 20, 199, 200}, "1.20.199.200"},
};

TEST(Network, IPv4TextIsDottedDecimal) {
  for (const IPv4Pair& pair : kIPv4Pairs) {
    char out[16];
    ASSERT_TRUE(Network::ConvertIPv4BinaryToString(IPv4Of(pair.bytes), out, sizeof(out)));
    EXPECT_STREQ(out, pair.text);
  }
}

TEST(Network, IPv4TextIsRead) {
  for (const IPv4Pair& pair : kIPv4Pairs) {
    u32 address = 77;
    ASSERT_TRUE(Network::ConvertIPv4StringToBinary(pair.text, address)) << pair.text;
    EXPECT_EQ(address, IPv4Of(pair.bytes)) << pair.text;
  }
}

TEST(Network, IPv4TextThatIsNotPlainIsRefused) {
  const char* texts[] = {"",
                         ".",
                         "1",
                         "1.2",
                         "1.2.3",
                         "1.2.3.",
                         ".1.2.3",
                         "1..2.3",
                         "1.2.3.4.",
                         "1.2.3.4.5",
                         "256.1.1.1",
                         "1.1.1.256",
                         "1.2.3.999",
                         "1.2.3.1000",
                         "01.2.3.4",
                         "1.2.3.00",
                         "1.2.3.04",
                         "0x1.2.3.4",
                         " 1.2.3.4",
                         "1.2.3.4 ",
                         "1.2.3.4\n",
                         "1.2.3.-4",
                         "+1.2.3.4",
                         "1.2.3.4/8",
                         "1.2.3.4:80",
                         "a.b.c.d",
                         "1.2.3.4a",
                         "1,2,3,4",
                         "16909060",
                         "::1.2.3.4",
                         "\xD9\xA1.1.1.1",
                         "4294967297.1.1.1",
                         "1.2.3.18446744073709551617"};
  for (const char* text : texts) {
    u32 address = 77;
    EXPECT_FALSE(Network::ConvertIPv4StringToBinary(text, address)) << text;
    EXPECT_EQ(address, 77U);
  }
  u32 address = 77;
  EXPECT_FALSE(Network::ConvertIPv4StringToBinary(nullptr, address));
}

TEST(Network, TextThatDoesNotFitLeavesTheOutput) {
  char out[40] = "kept";
  EXPECT_FALSE(Network::ConvertIPv4BinaryToString(IPv4Of({255, 255, 255, 255}), out, 15));
  EXPECT_FALSE(Network::ConvertIPv4BinaryToString(0, out, 7));
  EXPECT_FALSE(Network::ConvertIPv4BinaryToString(0, out, 0));
  EXPECT_FALSE(Network::ConvertIPv4BinaryToString(0, nullptr, 16));
  EXPECT_FALSE(Network::ConvertIPv6BinaryToString(UInt128(), out, 2));
  EXPECT_STREQ(out, "kept");
  EXPECT_TRUE(Network::ConvertIPv4BinaryToString(0, out, 8));
  EXPECT_STREQ(out, "0.0.0.0");
  EXPECT_TRUE(Network::ConvertIPv6BinaryToString(UInt128(), out, 3));
  EXPECT_STREQ(out, "::");
}

struct IPv6Pair {
  std::vector<Velmar::u16> groups;
  const char* text;
};

const IPv6Pair kIPv6Pairs[] = {
    {{0, 0, 0, 0, 0, 0, 0, 0}, "::"},
    {{0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
    {{1, 0, 0, 0, 0, 0, 0, 0}, "1::"},
    {{0x2001, 0xDB8, 0, 0, 0, 0, 2, 1}, "2001:db8::2:1"},
    {{0x2001, 0xDB8, 0, 1, 1, 1, 1, 1}, "2001:db8:0:1:1:1:1:1"},
    {{0x2001, 0xDB8, 0, 0, 1, 0, 0, 1}, "2001:db8::1:0:0:1"},
    {{0x2001, 0, 0, 1, 0, 0, 0, 1}, "2001:0:0:1::1"},
    {{0xFE80, 0, 0, 0, 0x0202, 0xB3FF, 0xFE1E, 0x8329}, "fe80::202:b3ff:fe1e:8329"},
    {{0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF}, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    {{0x00A0, 0x0B00, 0xC, 0xABCD, 0, 2, 3, 4}, "a0:b00:c:abcd:0:2:3:4"},
    {{0, 0, 1, 2, 3, 4, 5, 6}, "::1:2:3:4:5:6"},
    {{0, 1, 2, 3, 4, 5, 6, 7}, "0:1:2:3:4:5:6:7"},
    {{1, 2, 3, 4, 5, 6, 0, 0}, "1:2:3:4:5:6::"},
    {{1, 2, 3, 4, 5, 6, 7, 0}, "1:2:3:4:5:6:7:0"},
    {{0, 0, 0, 0, 0, 0xFFFF, 0xC000, 0x0201}, "::ffff:192.0.2.1"},
    {{0, 0, 0, 0, 0, 0xFFFF, 0, 0}, "::ffff:0.0.0.0"},
    {{0, 0, 0, 0, 0, 0, 0x0102, 0x0304}, "::102:304"},
    {{0, 0, 0, 0, 0xFFFF, 0, 0x0102, 0x0304}, "::ffff:0:102:304"},
};

TEST(Network, IPv6TextIsTheShortestForm) {
  for (const IPv6Pair& pair : kIPv6Pairs) {
    char out[40];
    ASSERT_TRUE(Network::ConvertIPv6BinaryToString(IPv6Of(pair.groups), out, sizeof(out)));
    EXPECT_STREQ(out, pair.text);
  }
}

TEST(Network, IPv6TextIsRead) {
  for (const IPv6Pair& pair : kIPv6Pairs) {
    UInt128 address;
    ASSERT_TRUE(Network::ConvertIPv6StringToBinary(pair.text, address)) << pair.text;
    EXPECT_TRUE(address == IPv6Of(pair.groups)) << pair.text;
  }
}

TEST(Network, IPv6TextIsReadInItsOtherForms) {
  const IPv6Pair pairs[] = {
      {{0x2001, 0xDB8, 0, 0, 0, 0, 2, 1}, "2001:0DB8:0000:0000:0000:0000:0002:0001"},
      {{1, 2, 3, 4, 5, 6, 7, 0}, "1:2:3:4:5:6:7::"},
      {{0, 2, 3, 4, 5, 6, 7, 8}, "::2:3:4:5:6:7:8"},
      {{1, 2, 3, 0, 5, 6, 7, 8}, "1:2:3::5:6:7:8"},
      {{1, 2, 3, 4, 5, 6, 0x0708, 0x090A}, "1:2:3:4:5:6:7.8.9.10"},
      {{0, 0, 0, 0, 0, 0, 0x0102, 0x0304}, "::1.2.3.4"},
      {{0x64, 0xFF9B, 0, 0, 0, 0, 0xFFFF, 0xFFFF}, "64:ff9b::255.255.255.255"},
      {{0, 0, 0, 0, 0, 0xFFFF, 0x0102, 0x0304}, "::FFFF:1.2.3.4"},
      {{1, 0, 3, 4, 5, 6, 0x0708, 0x090A}, "1::3:4:5:6:7.8.9.10"},
  };
  for (const IPv6Pair& pair : pairs) {
    UInt128 address;
    ASSERT_TRUE(Network::ConvertIPv6StringToBinary(pair.text, address)) << pair.text;
    EXPECT_TRUE(address == IPv6Of(pair.groups)) << pair.text;
  }
}

TEST(Network, IPv6TextThatIsWrongIsRefused) {
  const char* texts[] = {"",
                         ":",
                         ":::",
                         "1",
                         "1:",
                         ":1",
                         "1:2:3:4:5:6:7",
                         "1:2:3:4:5:6:7:",
                         ":1:2:3:4:5:6:7",
                         "1:2:3:4:5:6:7:8:",
                         ":1:2:3:4:5:6:7:8",
                         "1:2:3:4:5:6:7:8:9",
                         "1:2:3:4:5:6:7:8::",
                         "::1:2:3:4:5:6:7:8",
                         "1:2:3:4::5:6:7:8",
                         "1::2::3",
                         "::1::",
                         "1:::2",
                         "::1:",
                         "12345::",
                         "::00001",
                         "g::",
                         "::-1",
                         "::+1",
                         " ::1",
                         "::1 ",
                         "::1\n",
                         "fe80::1%eth0",
                         "[::1]",
                         "::1/128",
                         "1.2.3.4",
                         "1.2.3.4::",
                         "::1.2.3",
                         "::1.2.3.4.5",
                         "::1.2.3.256",
                         "::01.2.3.4",
                         "::1.2.3.4:5",
                         "::a.2.3.4",
                         "::1.2.3.4 ",
                         "1:2:3:4:5:6:7:1.2.3.4",
                         "1:2:3:4:5:6:7:8:1.2.3.4",
                         "1:2:3:4:5:1.2.3.4",
                         "::2:3:4:5:6:7:1.2.3.4",
                         "0x1::",
                         "1:2:3:4:5:6:7:8 1"};
  for (const char* text : texts) {
    UInt128 address;
    address.words[1] = 77;
    EXPECT_FALSE(Network::ConvertIPv6StringToBinary(text, address)) << text;
    EXPECT_EQ(address.words[1], 77U);
  }
  UInt128 address;
  EXPECT_FALSE(Network::ConvertIPv6StringToBinary(nullptr, address));
}

TEST(Network, InterfaceListsFillAnArrayOfStrings) {
  Velmar::Sim::SetInterfaceAddresses({"10.0.0.1", "127.0.0.1"}, {"::1"});
  Velmar::Collections::Array<Velmar::Utils::String> addresses;
  ASSERT_TRUE(Network::GetIPv4NetworkInterfaces(addresses));
  ASSERT_TRUE(Network::GetIPv6NetworkInterfaces(addresses));
  ASSERT_EQ(addresses.count, 3U);
  EXPECT_STREQ(addresses.data[0].text, "10.0.0.1");
  EXPECT_STREQ(addresses.data[1].text, "127.0.0.1");
  EXPECT_STREQ(addresses.data[2].text, "::1");
}

TEST(Network, InterfaceListThatDoesNotFitFails) {
  Velmar::Sim::SetInterfaceAddresses({"10.0.0.1", "127.0.0.1"}, {});
  Velmar::Collections::Array<Velmar::Utils::String> addresses;
  ASSERT_TRUE(addresses.Create(1, 1, 1, false, Velmar::Collections::GrowType::kFixedStep));
  EXPECT_FALSE(Network::GetIPv4NetworkInterfaces(addresses));
  EXPECT_EQ(addresses.count, 1U);
}

// Texts of every length over the characters of addresses; whatever is taken must come back equal when written and read.
TEST(Network, RandomTextsNeverReadBackDifferently) {
  static constexpr char kCharacters[] = "0123456789abcdef::::....F%";
  u32 state = 1;
  const auto next = [&state](u32 limit) {
    state = state * 1664525 + 1013904223;
    return (state >> 8) % limit;
  };
  int taken = 0;
  for (int round = 0; round < 200000; ++round) {
    std::string text(next(42), '\0');
    for (char& c : text) {
      c = kCharacters[next(sizeof(kCharacters) - 1)];
    }
    UInt128 address;
    if (!Network::ConvertIPv6StringToBinary(text.c_str(), address)) {
      continue;
    }
    ++taken;
    char out[40];
    UInt128 again;
    ASSERT_TRUE(Network::ConvertIPv6BinaryToString(address, out, sizeof(out)));
    ASSERT_TRUE(Network::ConvertIPv6StringToBinary(out, again) && again == address) << text;
  }
  EXPECT_GT(taken, 100);
}

}  // namespace
