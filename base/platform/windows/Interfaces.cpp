#include "platform/windows/WindowsApi.h"
// Behind winsock2.h, which they need.
#include <iphlpapi.h>
#include <ws2tcpip.h>

#include <cstring>

#include "Velmar/Memory.h"
#include "Velmar/OS/Network.h"

namespace Velmar::OS {

namespace {

constexpr u32 kTextSize = 40;
constexpr ULONG kFirstSize = 16384;
// The list can grow between the question for its size and the next call.
constexpr int kAttempts = 4;
constexpr ULONG kFlags =
    GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER | GAA_FLAG_SKIP_FRIENDLY_NAME;

// Owns the system's list of adapters.
class AdapterList {
 public:
  AdapterList() = default;
  ~AdapterList() { Memory::Free(list_); }
  AdapterList(const AdapterList&) = delete;
  AdapterList& operator=(const AdapterList&) = delete;

  bool Load(ULONG family) {
    ULONG size = kFirstSize;
    ULONG result = ERROR_BUFFER_OVERFLOW;
    for (int attempt = 0; attempt < kAttempts && result == ERROR_BUFFER_OVERFLOW; ++attempt) {
      Memory::Free(list_);
      list_ = static_cast<IP_ADAPTER_ADDRESSES*>(Memory::Allocate(size));
      if (list_ == nullptr) {
        return false;
      }
      result = GetAdaptersAddresses(family, kFlags, nullptr, list_, &size);
    }
    isEmpty_ = result == ERROR_NO_DATA;
    return result == NO_ERROR || isEmpty_;
  }
  [[nodiscard]] const IP_ADAPTER_ADDRESSES* First() const { return isEmpty_ ? nullptr : list_; }

 private:
  IP_ADAPTER_ADDRESSES* list_ = nullptr;
  bool isEmpty_ = false;
};

bool FormatAddress(const sockaddr* address, char (&text)[kTextSize]) {
  if (address->sa_family == AF_INET) {
    sockaddr_in ipv4;
    std::memcpy(&ipv4, address, sizeof(ipv4));
    return Network::ConvertIPv4BinaryToString(ipv4.sin_addr.s_addr, text, kTextSize);
  }
  sockaddr_in6 ipv6;
  std::memcpy(&ipv6, address, sizeof(ipv6));
  Types::UInt128 bytes;
  std::memcpy(bytes.words, &ipv6.sin6_addr, sizeof(bytes.words));
  return Network::ConvertIPv6BinaryToString(bytes, text, kTextSize);
}

}  // namespace

bool Network::EnumerateInterfaceAddresses(bool ipv6, bool (*callback)(const char* address, void* context),
                                          void* context) {
  AdapterList adapters;
  if (!adapters.Load(ipv6 ? AF_INET6 : AF_INET)) {
    return false;
  }
  for (const IP_ADAPTER_ADDRESSES* adapter = adapters.First(); adapter != nullptr; adapter = adapter->Next) {
    for (const IP_ADAPTER_UNICAST_ADDRESS* item = adapter->FirstUnicastAddress; item != nullptr; item = item->Next) {
      char text[kTextSize];
      if (!FormatAddress(item->Address.lpSockaddr, text) || !callback(text, context)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace Velmar::OS
