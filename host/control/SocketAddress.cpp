#include "host/control/SocketAddress.h"

#include <fcntl.h>
#include <cstring>

namespace Host::Control {
namespace {

constexpr char kSocketName[] = "netdb.sock";

}  // namespace

std::string SocketPath(const std::string& dataFolder) {
  const bool ends = !dataFolder.empty() && dataFolder.back() == '/';
  return dataFolder + (ends ? "" : "/") + kSocketName;
}

bool SocketAddress::Open(const std::string& dataFolder) {
  address_ = {};
  address_.sun_family = AF_UNIX;
  std::string path = SocketPath(dataFolder);
  if (path.size() >= sizeof(address_.sun_path)) {
    folder_ = Descriptor(open(dataFolder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder_.IsOpen()) {
      return false;
    }
    path = "/proc/self/fd/" + std::to_string(folder_.Get()) + "/" + kSocketName;
  }
  std::memcpy(address_.sun_path, path.c_str(), path.size() + 1);
  return true;
}

}  // namespace Host::Control
