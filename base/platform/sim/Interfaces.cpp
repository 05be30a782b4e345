#include "Velmar/OS/Network.h"
#include "platform/sim/State.h"

namespace Velmar::OS {

bool Network::EnumerateInterfaceAddresses(bool ipv6, bool (*callback)(const char* address, void* context),
                                          void* context) {
  std::vector<std::string> addresses;
  {
    std::unique_lock<std::mutex> lock(Sim::GetState().mutex);
    addresses = ipv6 ? Sim::GetState().ipv6 : Sim::GetState().ipv4;
  }
  for (const std::string& address : addresses) {
    if (!callback(address.c_str(), context)) {
      return false;
    }
  }
  return true;
}

}  // namespace Velmar::OS
