// ConnectionRecord: a connection event as the host knows it, and its packed form for the module.
#pragma once

#include <string>
#include <vector>

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"

namespace Host {

struct ConnectionRecord {
  Velmar::u32 type = RYL::Events::kNewConnection;
  Velmar::u64 timeMs = 0;  // epoch milliseconds
  Velmar::u64 processPuid = 0;
  bool ipv6 = false;
  Velmar::u8 address[16] = {};      // remote, first octet first; IPv4 in the first four bytes
  Velmar::u16 port = 0;             // the responder's
  Velmar::u8 directionCode = 0xFF;  // 0 inbound, 1 outbound, else unknown
  std::string protocol;             // name for the module, may be empty
  Velmar::u32 bytesIn = 0;          // of the local machine; type 70 only
  Velmar::u32 bytesOut = 0;
};

// The record's bytes as HandleEvent takes them: every offset in it points inside it and every text ends with a NUL. A
// protocol name is cut at its first NUL and at 255 bytes.
std::vector<Velmar::u8> PackConnection(const ConnectionRecord& record);

// The process event that EventLookup hands out. The path is cut at its first NUL and at 32767 bytes.
std::vector<Velmar::u8> PackProcess(Velmar::u64 puid, Velmar::u32 pid, const std::string& path);

}  // namespace Host
