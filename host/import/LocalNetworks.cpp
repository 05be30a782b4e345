#include "host/import/LocalNetworks.h"

#include <algorithm>
#include <cstring>

#include "Velmar/OS/Network.h"
#include "host/text/Numbers.h"

namespace Host::Import {
namespace {

u32 ValueOf(const Address& address) {
  return static_cast<u32>(address[0]) << 24 | static_cast<u32>(address[1]) << 16 | static_cast<u32>(address[2]) << 8 |
         static_cast<u32>(address[3]);
}

}  // namespace

AddressKind ReadAddress(const std::string& text, Address& address) {
  u32 raw = 0;
  Velmar::Types::UInt128 ignored;
  if (std::strlen(text.c_str()) != text.size()) {
    return AddressKind::kNone;
  }
  if (Velmar::OS::Network::ConvertIPv4StringToBinary(text.c_str(), raw)) {
    std::memcpy(address.data(), &raw, sizeof(raw));
    return AddressKind::kIPv4;
  }
  // A zone ("fe80::1%eth0") says on which link, not which address.
  const std::string unzoned = text.substr(0, text.find('%'));
  return Velmar::OS::Network::ConvertIPv6StringToBinary(unzoned.c_str(), ignored) ? AddressKind::kIPv6
                                                                                  : AddressKind::kNone;
}

LocalNetworks LocalNetworks::Usual() {
  LocalNetworks networks;
  networks.Add({10, 0, 0, 0}, 8);
  networks.Add({172, 16, 0, 0}, 12);
  networks.Add({192, 168, 0, 0}, 16);
  networks.Add({127, 0, 0, 0}, 8);
  networks.Add({169, 254, 0, 0}, 16);
  return networks;
}

std::optional<LocalNetworks> LocalNetworks::Parse(const std::string& list, std::string& error) {
  constexpr u64 kMaxPrefix = 32;
  LocalNetworks networks;
  for (const std::string_view part : Text::SplitList(list, ',')) {
    const std::size_t slash = part.find('/');
    Address address{};
    const auto prefix = slash == std::string_view::npos ? std::optional<u64>(kMaxPrefix)
                                                        : Text::ReadCount(part.substr(slash + 1), kMaxPrefix);
    if (!prefix || ReadAddress(std::string(part.substr(0, slash)), address) != AddressKind::kIPv4) {
      error = "\"" + std::string(part) + "\" is neither an IPv4 address nor a network such as 192.0.2.0/24";
      return std::nullopt;
    }
    networks.Add(address, static_cast<u32>(*prefix));
  }
  return networks;
}

void LocalNetworks::Add(const Address& address, u32 prefixLength) {
  const u32 mask = prefixLength == 0 ? 0 : ~0U << (32 - prefixLength);
  networks_.push_back({ValueOf(address) & mask, mask});
}

bool LocalNetworks::Contains(const Address& address) const {
  const u32 value = ValueOf(address);
  return std::any_of(networks_.begin(), networks_.end(),
                     [value](const Network& network) { return (value & network.mask) == network.value; });
}

}  // namespace Host::Import
