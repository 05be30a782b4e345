#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Velmar/OS/Network.h"

namespace {

using namespace Velmar;
using OS::Network;
using testing::Contains;

struct Addresses {
  std::vector<std::string> texts;
  bool Add(const Utils::String& text) {
    texts.emplace_back(text.text);
    return true;
  }
};

TEST(PosixInterfaces, LoopbackIsAmongTheAddresses) {
  Addresses ipv4;
  EXPECT_TRUE(Network::GetIPv4NetworkInterfaces(ipv4));
  EXPECT_THAT(ipv4.texts, Contains("127.0.0.1"));
}

TEST(PosixInterfaces, AddressesOfIPv6CarryNoZone) {
  if (!std::filesystem::exists("/proc/net/if_inet6")) {
    GTEST_SKIP() << "this machine has IPv6 switched off";
  }
  Addresses ipv6;
  EXPECT_TRUE(Network::GetIPv6NetworkInterfaces(ipv6));
  for (const std::string& text : ipv6.texts) {
    Types::UInt128 address;
    EXPECT_TRUE(Network::ConvertIPv6StringToBinary(text.c_str(), address)) << text;
  }
}

TEST(PosixInterfaces, CallbackThatRefusesMakesItFalse) {
  int calls = 0;
  auto refuse = [](const char*, void* context) {
    ++*static_cast<int*>(context);
    return false;
  };
  EXPECT_FALSE(Network::EnumerateInterfaceAddresses(false, refuse, &calls));
  EXPECT_EQ(calls, 1);
}

}  // namespace
