#include <ifaddrs.h>
#include <netinet/in.h>

#include <cstring>

#include "Velmar/OS/Network.h"

namespace Velmar::OS {

namespace {

constexpr u32 kTextSize = 40;

bool FormatAddress(const sockaddr* address, char (&text)[kTextSize]) {
  if (address->sa_family == AF_INET) {
    sockaddr_in ipv4;
    std::memcpy(&ipv4, address, sizeof(ipv4));
    return Network::ConvertIPv4BinaryToString(ipv4.sin_addr.s_addr, text, kTextSize);
  }
  sockaddr_in6 ipv6;
  std::memcpy(&ipv6, address, sizeof(ipv6));
  Types::UInt128 bytes;
  std::memcpy(bytes.words, &ipv6.sin6_addr, sizeof(bytes));
  return Network::ConvertIPv6BinaryToString(bytes, text, kTextSize);
}

}  // namespace

bool Network::EnumerateInterfaceAddresses(bool ipv6, bool (*callback)(const char* address, void* context),
                                          void* context) {
  ifaddrs* interfaces = nullptr;
  if (getifaddrs(&interfaces) != 0) {
    return false;
  }
  bool done = true;
  for (const ifaddrs* item = interfaces; item != nullptr && done; item = item->ifa_next) {
    char text[kTextSize];
    if (item->ifa_addr != nullptr && item->ifa_addr->sa_family == (ipv6 ? AF_INET6 : AF_INET)) {
      done = FormatAddress(item->ifa_addr, text) && callback(text, context);
    }
  }
  freeifaddrs(interfaces);
  return done;
}

}  // namespace Velmar::OS
