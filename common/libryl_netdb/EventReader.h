// EventReader: reads the packed event records of the host (base/RYL/Events/Records.h).
#pragma once

#include <bit>
#include <cstring>

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"
#include "common/libryl_netdb/ProtocolTable.h"
#include "common/netdb_storage/BacklogMessage.h"

namespace RYL::Module {

static_assert(std::endian::native == std::endian::little, "records are read as they lie");

// The unaligned value at `source`.
template <class T>
T LoadPacked(const u8* source) {
  T value;
  std::memcpy(&value, source, sizeof(value));
  return value;
}

// A view of one record, which must outlive it. All but ReadCommonFields need a record that is not null.
// Threads: thread-compatible.
class EventReader {
 public:
  explicit EventReader(const void* record) : event(static_cast<const u8*>(record)) {}

  [[nodiscard]] u32 GetType() const { return LoadPacked<u32>(event) & Events::kEventTypeMask; }
  // For logs only.
  [[nodiscard]] u64 GetFirstBytes() const { return LoadPacked<u64>(event); }
  [[nodiscard]] u64 GetEventTimeMs() const { return LoadPacked<u64>(event + Events::ConnectionEvent::kEventTimeMs); }
  [[nodiscard]] u64 GetProcessPuid() const { return LoadPacked<u64>(event + Events::ConnectionEvent::kProcessPuid); }
  [[nodiscard]] u32 GetBytesIn() const { return LoadPacked<u32>(event + Events::ConnectionEvent::kBytesIn); }
  [[nodiscard]] u32 GetBytesOut() const { return LoadPacked<u32>(event + Events::ConnectionEvent::kBytesOut); }

  // A block is there when it has an offset and its address is not all zero.
  [[nodiscard]] bool HasAddress() const;
  [[nodiscard]] bool IsIPv6() const { return (GetAddressBlock()[Events::AddressBlock::kFlags] & kIPv6Flag) != 0; }

  // Address, port, protocols and direction. An unknown protocol name or direction is 0 in `message` (level 3 each).
  // False (level 5) without a record, an address, or with an IPv6 one.
  bool ReadCommonFields(const NetDB::ProtocolTable& protocols, NetDB::BacklogMessage& message) const;

 private:
  static constexpr u8 kIPv6Flag = 1;

  [[nodiscard]] const u8* GetAddressBlock() const {
    return event + LoadPacked<u16>(event + Events::ConnectionEvent::kAddressOffset);
  }
  [[nodiscard]] u16 ReadProtocols(const NetDB::ProtocolTable& protocols) const;
  [[nodiscard]] u8 ReadDirection() const;

  const u8* event;
};

inline bool EventReader::HasAddress() const {
  const u8* block = GetAddressBlock();
  if (block == event) {
    return false;
  }
  const u8* address = block + Events::AddressBlock::kAddress;
  if ((block[Events::AddressBlock::kFlags] & kIPv6Flag) == 0) {
    return LoadPacked<u32>(address) != 0;
  }
  return (LoadPacked<u64>(address) | LoadPacked<u64>(address + sizeof(u64))) != 0;
}

}  // namespace RYL::Module
