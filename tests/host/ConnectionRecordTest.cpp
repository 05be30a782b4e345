#include "host/events/ConnectionRecord.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/Types.h"

namespace {

using namespace Host;
namespace Layout = RYL::Events::ConnectionEvent;
namespace Block = RYL::Events::AddressBlock;

template <class T>
T At(const std::vector<u8>& event, u32 offset) {
  T value{};
  EXPECT_LE(offset + sizeof(T), event.size());
  std::memcpy(&value, event.data() + offset, sizeof(T));
  return value;
}

std::string TextAt(const std::vector<u8>& event, u32 offset) {
  EXPECT_LT(offset, event.size());
  EXPECT_EQ(event.back(), 0);
  return reinterpret_cast<const char*>(event.data()) + offset;
}

ConnectionRecord Record() {
  ConnectionRecord record;
  record.type = RYL::Events::kTraffic;
  record.timeMs = 1700000000123;
  record.processPuid = 0x1122334455667788;
  record.address[0] = 203;
  record.address[2] = 113;
  record.address[3] = 9;
  record.port = 4433;
  record.directionCode = 1;
  record.protocol = "ssl";
  record.bytesIn = 0xFFFFFFFF;
  record.bytesOut = 7;
  return record;
}

TEST(PackConnection, FieldsStandAtTheirOffsets) {
  const auto event = PackConnection(Record());
  EXPECT_EQ(At<u32>(event, Layout::kHeader), 70U);
  EXPECT_EQ(At<u64>(event, Layout::kEventTimeMs), 1700000000123U);
  EXPECT_EQ(At<u64>(event, Layout::kProcessPuid), 0x1122334455667788U);
  EXPECT_EQ(At<u16>(event, Layout::kPort), 4433);
  EXPECT_EQ(At<u8>(event, Layout::kDirectionCode), 1);
  EXPECT_EQ(At<u32>(event, Layout::kBytesIn), 0xFFFFFFFFU);
  EXPECT_EQ(At<u32>(event, Layout::kBytesOut), 7U);
  const u32 block = At<u16>(event, Layout::kAddressOffset);
  EXPECT_EQ(At<u8>(event, block + Block::kFlags), 0);
  EXPECT_EQ(At<u32>(event, block + Block::kAddress), 0x097100CBU);
  EXPECT_EQ(TextAt(event, At<u16>(event, Layout::kProtocolOffset)), "ssl");
}

TEST(PackConnection, IPv6AddressHasItsFlagAndSixteenBytes) {
  ConnectionRecord record = Record();
  record.ipv6 = true;
  record.address[15] = 0x42;
  const auto event = PackConnection(record);
  const u32 block = At<u16>(event, Layout::kAddressOffset);
  EXPECT_EQ(At<u8>(event, block), 1);
  EXPECT_EQ(At<u8>(event, block + 16), 0x42);
  EXPECT_EQ(TextAt(event, At<u16>(event, Layout::kProtocolOffset)), "ssl");
}

TEST(PackConnection, EmptyProtocolIsATextWithoutCharacters) {
  ConnectionRecord record = Record();
  record.protocol.clear();
  const auto event = PackConnection(record);
  EXPECT_EQ(TextAt(event, At<u16>(event, Layout::kProtocolOffset)), "");
}

TEST(PackConnection, LongProtocolIsCutAndStaysInside) {
  ConnectionRecord record = Record();
  record.protocol = std::string(100000, 'x');
  const auto event = PackConnection(record);
  EXPECT_EQ(TextAt(event, At<u16>(event, Layout::kProtocolOffset)), std::string(255, 'x'));
}

TEST(PackConnection, ProtocolIsCutAtItsFirstNul) {
  ConnectionRecord record = Record();
  record.protocol = std::string("ht\0tp", 5);
  const auto event = PackConnection(record);
  EXPECT_EQ(TextAt(event, At<u16>(event, Layout::kProtocolOffset)), "ht");
  EXPECT_EQ(event.size(), Layout::kFixedSize + Block::kSizeIPv4 + 3);
}

TEST(PackConnection, TypeBeyondItsBitsIsMasked) {
  ConnectionRecord record = Record();
  record.type = 0xFFFF0000U | 185U;
  EXPECT_EQ(At<u32>(PackConnection(record), Layout::kHeader), 185U);
}

TEST(PackProcess, FieldsStandAtTheirOffsets) {
  const auto event = PackProcess(77, 4321, "/usr/bin/curl");
  EXPECT_EQ(At<u64>(event, RYL::Events::ProcessEvent::kProcessPuid), 77U);
  EXPECT_EQ(At<u32>(event, RYL::Events::ProcessEvent::kProcessPid), 4321U);
  EXPECT_EQ(TextAt(event, RYL::Events::ProcessEvent::kProcessPath), "/usr/bin/curl");
}

TEST(PackProcess, LongPathIsCut) {
  const auto event = PackProcess(77, 4321, std::string(40000, 'p'));
  EXPECT_EQ(TextAt(event, RYL::Events::ProcessEvent::kProcessPath), std::string(32767, 'p'));
}

TEST(PackProcess, PathIsCutAtItsFirstNul) {
  const auto event = PackProcess(77, 4321, std::string("/bin/a\0b", 8));
  EXPECT_EQ(TextAt(event, RYL::Events::ProcessEvent::kProcessPath), "/bin/a");
}

}  // namespace
