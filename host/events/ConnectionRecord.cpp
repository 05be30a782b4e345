#include "host/events/ConnectionRecord.h"

#include <algorithm>
#include <cstring>

#include "host/Types.h"

namespace Host {
namespace {

constexpr std::size_t kMaxProtocolLength = 255;
constexpr std::size_t kMaxPathLength = 32767;

template <class T>
void PutAt(std::vector<u8>& record, u32 offset, T value) {
  std::memcpy(record.data() + offset, &value, sizeof(value));
}

// Appends `text`, cut at its first NUL and at `maxLength` bytes, and a NUL.
void AppendText(std::vector<u8>& record, const std::string& text, std::size_t maxLength) {
  const std::size_t length = std::min(std::strlen(text.c_str()), maxLength);
  record.insert(record.end(), text.c_str(), text.c_str() + length);
  record.push_back(0);
}

}  // namespace

std::vector<u8> PackConnection(const ConnectionRecord& record) {
  namespace Layout = RYL::Events::ConnectionEvent;
  namespace Block = RYL::Events::AddressBlock;
  const u32 addressSize = record.ipv6 ? Block::kSizeIPv6 : Block::kSizeIPv4;

  std::vector<u8> event(Layout::kFixedSize + addressSize);
  PutAt(event, Layout::kHeader, record.type & RYL::Events::kEventTypeMask);
  PutAt(event, Layout::kEventTimeMs, record.timeMs);
  PutAt(event, Layout::kProcessPuid, record.processPuid);
  PutAt(event, Layout::kPort, record.port);
  PutAt(event, Layout::kDirectionCode, record.directionCode);
  PutAt(event, Layout::kAddressOffset, static_cast<u16>(Layout::kFixedSize));
  PutAt(event, Layout::kProtocolOffset, static_cast<u16>(Layout::kFixedSize + addressSize));
  PutAt(event, Layout::kBytesIn, record.bytesIn);
  PutAt(event, Layout::kBytesOut, record.bytesOut);
  PutAt(event, Layout::kFixedSize + Block::kFlags, static_cast<u8>(record.ipv6 ? 1 : 0));
  std::memcpy(event.data() + Layout::kFixedSize + Block::kAddress, record.address, addressSize - Block::kAddress);
  AppendText(event, record.protocol, kMaxProtocolLength);
  return event;
}

std::vector<u8> PackProcess(u64 puid, u32 pid, const std::string& path) {
  namespace Layout = RYL::Events::ProcessEvent;
  std::vector<u8> event(Layout::kProcessPath);
  PutAt(event, Layout::kProcessPuid, puid);
  PutAt(event, Layout::kProcessPid, pid);
  AppendText(event, path, kMaxPathLength);
  return event;
}

}  // namespace Host
