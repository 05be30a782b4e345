#include "host/reputation/Network.h"

#include <cstring>

#include "Velmar/OS/Network.h"
#include "host/text/Numbers.h"

namespace Host::Reputation {
namespace {

using Converter = Velmar::OS::Network;
using Velmar::Types::UInt128;

constexpr u32 kIPv4Width = 32;
constexpr u32 kIPv6Width = 128;
constexpr u32 kHalf = 64;
// No address is longer; the conversions want a terminator.
constexpr std::size_t kMaxAddressText = 64;

u64 BytesToNumber(const u8* bytes, u32 count) {
  u64 number = 0;
  for (u32 i = 0; i < count; ++i) {
    number = number << 8 | bytes[i];
  }
  return number;
}

void NumberToBytes(u64 number, u8* bytes, u32 count) {
  for (u32 i = count; i > 0; --i) {
    bytes[i - 1] = static_cast<u8>(number);
    number >>= 8;
  }
}

// The lowest `count` of 64 bits.
u64 LowBits(u32 count) {
  return count >= kHalf ? ~u64{0} : (u64{1} << count) - 1;
}

// The bits that a prefix leaves to its hosts.
Bits HostMask(Family family, u32 prefixLength) {
  const u32 count = WidthOf(family) - prefixLength;
  return {count > kHalf ? LowBits(count - kHalf) : 0, LowBits(count)};
}

}  // namespace

u32 WidthOf(Family family) {
  return family == Family::kIPv4 ? kIPv4Width : kIPv6Width;
}

Bits Network::Last() const {
  const Bits mask = HostMask(family, prefixLength);
  return {first.high | mask.high, first.low | mask.low};
}

std::optional<Address> ReadAddress(std::string_view text) {
  char terminated[kMaxAddressText] = {};
  if (text.size() >= sizeof(terminated) || text.find('\0') != std::string_view::npos) {
    return std::nullopt;
  }
  text.copy(terminated, text.size());
  u8 bytes[sizeof(UInt128)];
  u32 raw = 0;
  if (Converter::ConvertIPv4StringToBinary(terminated, raw)) {
    std::memcpy(bytes, &raw, sizeof(raw));
    return Address{Family::kIPv4, {0, BytesToNumber(bytes, sizeof(raw))}};
  }
  UInt128 rawLong;
  if (!Converter::ConvertIPv6StringToBinary(terminated, rawLong)) {
    return std::nullopt;
  }
  std::memcpy(bytes, &rawLong, sizeof(rawLong));
  return Address{Family::kIPv6, {BytesToNumber(bytes, 8), BytesToNumber(bytes + 8, 8)}};
}

std::optional<Network> ReadNetwork(std::string_view text, bool& hadHostBits) {
  hadHostBits = false;
  const std::size_t slash = text.find('/');
  const auto address = ReadAddress(text.substr(0, slash));
  if (!address) {
    return std::nullopt;
  }
  const u32 width = WidthOf(address->family);
  const auto prefix =
      slash == std::string_view::npos ? std::optional<u64>(width) : Text::ReadCount(text.substr(slash + 1), width);
  if (!prefix) {
    return std::nullopt;
  }
  Network network{address->family, address->bits, static_cast<u32>(*prefix)};
  const Bits mask = HostMask(network.family, network.prefixLength);
  network.first = {network.first.high & ~mask.high, network.first.low & ~mask.low};
  hadHostBits = !(network.first == address->bits);
  return network;
}

std::string ToText(const Network& network) {
  u8 bytes[sizeof(UInt128)];
  char text[kMaxAddressText] = {};
  if (network.family == Family::kIPv4) {
    u32 raw = 0;
    NumberToBytes(network.first.low, bytes, sizeof(raw));
    std::memcpy(&raw, bytes, sizeof(raw));
    Converter::ConvertIPv4BinaryToString(raw, text, sizeof(text));
  } else {
    UInt128 raw;
    NumberToBytes(network.first.high, bytes, 8);
    NumberToBytes(network.first.low, bytes + 8, 8);
    std::memcpy(&raw, bytes, sizeof(raw));
    Converter::ConvertIPv6BinaryToString(raw, text, sizeof(text));
  }
  return std::string(text) + "/" + std::to_string(network.prefixLength);
}

}  // namespace Host::Reputation
