#include "host/import/ProtocolNames.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "host/text/Numbers.h"

namespace Host::Import {
namespace {

constexpr std::string_view kModuleNames[] = {"tcp", "ssl", "https", "http(s)", "http", "ftp", "ftps",
                                             "smb", "ssh", "rdp",   "telnet",  "wmi",  "rpc"};

// The two that no event leads to.
constexpr std::string_view kDisplayOnly[] = {"icmp", "udp"};

template <class Names>
bool Has(const Names& names, const std::string& name) {
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

}  // namespace

std::optional<std::string> ServiceName(std::string_view service) {
  std::string name = Text::Lowered(service);
  if (name == "dce_rpc") {
    name = "rpc";
  }
  return Has(kModuleNames, name) ? std::optional<std::string>(std::move(name)) : std::nullopt;
}

std::optional<std::vector<std::string>> EventNamesOf(std::string_view displayNames) {
  std::vector<std::string> names;
  if (displayNames.empty()) {
    return names;
  }
  for (const std::string_view part : Text::SplitList(displayNames, ',')) {
    std::string name = Text::Lowered(part);
    if (Has(kModuleNames, name)) {
      names.push_back(std::move(name));
    } else if (!Has(kDisplayOnly, name)) {
      return std::nullopt;
    }
  }
  return names;
}

}  // namespace Host::Import
