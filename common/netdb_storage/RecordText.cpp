#include "common/netdb_storage/RecordText.h"

#include <cstring>

#include "Velmar/OS/Network.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

// By bit. No name that an event may carry leads to "ICMP" and "UDP".
constexpr const char* kDisplayNames[] = {"HTTP", "SMB", "FTP", "Telnet", "RDP", "SSH",
                                         "SSL",  "WMI", "RPC", "ICMP",   "UDP", "TCP"};

}  // namespace

bool AddressToString(const QueryRecord& record, char (&out)[kAddressTextSize]) {
  using Velmar::OS::Network;
  out[0] = '\0';
  if (record.is_ipv6 != 0) {
    Velmar::Types::UInt128 raw;
    std::memcpy(&raw, record.address, sizeof(raw));
    return Network::ConvertIPv6BinaryToString(raw, out, sizeof(out));
  }
  u32 raw = 0;
  std::memcpy(&raw, record.address, sizeof(raw));
  return Network::ConvertIPv4BinaryToString(raw, out, sizeof(out));
}

bool ProtocolsToString(u32 mask, Velmar::Utils::String& out) {
  out.Clear();
  u32 bit = 1;
  for (const char* name : kDisplayNames) {
    if ((mask & bit) != 0 && !out.AddFormat("%s,", name)) {
      RYL_LOG(netdb_storage, ProtocolsNotWritten, mask);
      return false;
    }
    bit <<= 1;
  }
  return out.length == 0 || out.Truncate(out.length - 1);
}

}  // namespace RYL::NetDB
