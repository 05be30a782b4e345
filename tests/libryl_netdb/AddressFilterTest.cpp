#include "common/libryl_netdb/AddressFilter.h"

#include <gtest/gtest.h>

namespace RYL::Module {
namespace {

u32 Address(u32 a, u32 b, u32 c, u32 d) {
  return a | (b << 8) | (c << 16) | (d << 24);
}

TEST(AddressFilter, PrivateRangesEndWhereTheyEnd) {
  EXPECT_TRUE(IsPrivateAddress(Address(10, 0, 0, 0)));
  EXPECT_TRUE(IsPrivateAddress(Address(10, 255, 255, 255)));
  EXPECT_FALSE(IsPrivateAddress(Address(9, 255, 255, 255)));
  EXPECT_FALSE(IsPrivateAddress(Address(11, 0, 0, 0)));
  EXPECT_FALSE(IsPrivateAddress(Address(172, 15, 0, 1)));
  EXPECT_TRUE(IsPrivateAddress(Address(172, 16, 0, 1)));
  EXPECT_TRUE(IsPrivateAddress(Address(172, 31, 255, 255)));
  EXPECT_FALSE(IsPrivateAddress(Address(172, 32, 0, 1)));
  EXPECT_TRUE(IsPrivateAddress(Address(192, 168, 3, 4)));
  EXPECT_FALSE(IsPrivateAddress(Address(192, 167, 3, 4)));
  EXPECT_FALSE(IsPrivateAddress(Address(192, 169, 3, 4)));
}

TEST(AddressFilter, PrivateAddressesPassOnlyWhenKept) {
  for (const u32 address : {Address(10, 0, 0, 1), Address(172, 20, 0, 1), Address(192, 168, 0, 1)}) {
    EXPECT_FALSE(PassesAddressFilter(address, false));
    EXPECT_TRUE(PassesAddressFilter(address, true));
  }
}

TEST(AddressFilter, LinkLocalAndLoopbackNeverPass) {
  for (const u32 address : {Address(169, 254, 1, 1), Address(127, 0, 0, 1), Address(127, 255, 0, 9)}) {
    EXPECT_FALSE(PassesAddressFilter(address, false));
    EXPECT_FALSE(PassesAddressFilter(address, true));
  }
}

TEST(AddressFilter, OtherAddressesPass) {
  for (const u32 address : {Address(169, 253, 1, 1), Address(169, 255, 1, 1), Address(126, 0, 0, 1),
                            Address(128, 0, 0, 1), Address(8, 8, 8, 8), Address(0, 0, 0, 1)}) {
    EXPECT_TRUE(PassesAddressFilter(address, false));
    EXPECT_TRUE(PassesAddressFilter(address, true));
  }
}

}  // namespace
}  // namespace RYL::Module
