// Reading where to listen.
#include "host/reputation/ReputationService.h"
#include "host/text/Numbers.h"
#include "host/text/Utf8.h"

namespace Host::Reputation {
namespace {

constexpr u64 kMaxPort = 65535;
constexpr u64 kLoopbackOctet = 127;

bool IsLoopback(const Address& address) {
  return address.family == Family::kIPv4 ? address.bits.low >> 24 == kLoopbackOctet : address.bits == Bits{0, 1};
}

// "192.0.2.7" or "[2001:db8::7]".
std::optional<Address> ReadHost(std::string_view text) {
  const bool isBracketed = text.size() >= 2 && text.front() == '[' && text.back() == ']';
  const auto address = ReadAddress(isBracketed ? text.substr(1, text.size() - 2) : text);
  return address && (address->family == Family::kIPv6) == isBracketed ? address : std::nullopt;
}

}  // namespace

std::optional<ListenAddress> ListenAddress::Parse(std::string_view text, std::string& error) {
  const std::size_t colon = text.rfind(':');
  const auto address = ReadHost(text.substr(0, colon));
  const auto port = colon == std::string_view::npos ? std::nullopt : Text::ReadCount(text.substr(colon + 1), kMaxPort);
  if (!address || !port) {
    error = "\"" + Text::ToPrintable(text) + "\" is no address and port such as 127.0.0.1:8080 or [::1]:8080";
    return std::nullopt;
  }
  if (!IsLoopback(*address)) {
    error = "the service listens on loopback addresses only, for it asks nobody who he is";
    return std::nullopt;
  }
  return ListenAddress{*address, static_cast<u16>(*port)};
}

}  // namespace Host::Reputation
