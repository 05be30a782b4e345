// What the tests of the verdict cache share: a folder on the simulated disk, addresses, verdicts in short form.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "platform/sim/Sim.h"
#include "tests/cloud/CloudStatusTestAccess.h"
#include "tests/support/LogCapture.h"

namespace CloudTest {

using namespace RYL;
using NetDB::CloudStatus;
using NetDB::IPv4;
using NetDB::IPv6;
using Access = NetDB::CloudStatusTestAccess;
namespace Sim = Velmar::Sim;
using Lines = std::vector<std::string>;

inline constexpr char kFolder[] = "/data/netdb";
inline constexpr u64 kTenOClock = 1700042400000;  // 2023-11-15 10:00 UTC
inline constexpr u64 kTwoDays = 172800000;

template <class T>
class CloudTest : public testing::Test {
 protected:
  using Status = CloudStatus<T>;

  CloudTest() {
    Sim::Reset();
    Sim::SetEpochTime(kTenOClock);
    EXPECT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  }

  static const char* File() { return std::is_same_v<T, IPv4> ? "/data/netdb/cache.4.db" : "/data/netdb/cache.6.db"; }
  static bool FileIsThere() {
    std::string content;
    return Sim::GetFile(File(), content);
  }
  static std::string Content() {
    std::string content;
    EXPECT_TRUE(Sim::GetFile(File(), content)) << File();
    return content;
  }

  // A public address for each number: 203.x.x.x, or 2001:db8::x.
  static T Address(u32 number) {
    T address;
    if constexpr (std::is_same_v<T, IPv4>) {
      address.bytes[0] = 203;
    } else {
      address.bytes[0] = 0x20;
      address.bytes[1] = 0x01;
      address.bytes[2] = 0x0D;
      address.bytes[3] = 0xB8;
    }
    for (u32 i = 0; i < 3; ++i) {
      address.bytes[T::kSize - 1 - i] = static_cast<u8>(number >> (8 * i));
    }
    return address;
  }
  static T PrivateAddress() {
    T address;
    address.bytes[0] = std::is_same_v<T, IPv4> ? 10 : 0xFD;
    address.bytes[T::kSize - 1] = 1;
    return address;
  }

  // "harmless", "harmful" or "unknown".
  static std::string Verdict(Status& status, const T& address) {
    u8 verdict = 0xEE;
    if (!status.Lookup(&address, &verdict)) {
      EXPECT_EQ(verdict, 0xEE) << "untouched";
      return "unknown";
    }
    EXPECT_LE(verdict, 1);
    return verdict != 0 ? "harmless" : "harmful";
  }
  static std::string Verdict(Status& status, u32 number) { return Verdict(status, Address(number)); }
  static bool Learn(Status& status, u32 number, bool isWhitelisted) {
    return Access::StoreVerdict(status, Address(number), isWhitelisted);
  }
  // A file of `count` verdicts, those of even numbers harmless.
  static void WriteFile(u32 count) {
    Status status;
    ASSERT_TRUE(status.Open(kFolder, true));
    for (u32 i = 0; i < count; ++i) {
      ASSERT_TRUE(Learn(status, i, i % 2 == 0));
    }
  }
  // Of a status that has no cache.
  static void ExpectKnowsNothing(Status& status) {
    EXPECT_FALSE(Access::HasCache(status));
    EXPECT_EQ(Verdict(status, 0), "unknown");
    EXPECT_EQ(Verdict(status, PrivateAddress()), "unknown");
    EXPECT_EQ(status.GetItemCount(), 0U);
    EXPECT_FALSE(Learn(status, 0, true));
  }
};

using Families = testing::Types<IPv4, IPv6>;

}  // namespace CloudTest
