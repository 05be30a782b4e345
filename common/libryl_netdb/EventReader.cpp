#include "common/libryl_netdb/EventReader.h"

#include "common/libryl_netdb/ModuleLog.h"

namespace RYL::Module {
namespace {

constexpr u8 kInboundCode = 0;
constexpr u8 kOutboundCode = 1;

}  // namespace

bool EventReader::ReadCommonFields(const NetDB::ProtocolTable& protocols, NetDB::BacklogMessage& message) const {
  if (event == nullptr) {
    RYL_LOG(ryl_netdb, ReadNullEvent);
    return false;
  }
  if (!HasAddress()) {
    RYL_LOG(ryl_netdb, ReadWithoutAddress);
    return false;
  }
  if (IsIPv6()) {
    RYL_LOG(ryl_netdb, ReadIPv6Address);
    return false;
  }
  message.address = LoadPacked<u32>(GetAddressBlock() + Events::AddressBlock::kAddress);
  message.port = LoadPacked<u16>(event + Events::ConnectionEvent::kPort);
  message.protocols = ReadProtocols(protocols);
  message.direction = ReadDirection();
  return true;
}

u16 EventReader::ReadProtocols(const NetDB::ProtocolTable& protocols) const {
  const u16 offset = LoadPacked<u16>(event + Events::ConnectionEvent::kProtocolOffset);
  const char* name = offset == 0 ? "" : reinterpret_cast<const char*>(event + offset);
  u16 mask = 0;
  if (*name == '\0' || !protocols.LookupProtocol(name, mask)) {
    RYL_LOG(ryl_netdb, ProtocolUnknown, name);
    return 0;
  }
  return mask;
}

u8 EventReader::ReadDirection() const {
  const u8 code = event[Events::ConnectionEvent::kDirectionCode];
  switch (code) {
    case kInboundCode:
      return NetDB::Direction::kInbound;
    case kOutboundCode:
      return NetDB::Direction::kOutbound;
    default:
      RYL_LOG(ryl_netdb, DirectionUnknown, code);
      return NetDB::Direction::kUnknown;
  }
}

}  // namespace RYL::Module
