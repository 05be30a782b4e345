#include "host/reputation/AddressList.h"

#include <algorithm>
#include <utility>

namespace Host::Reputation {
namespace {

// A network stands before those that lie in it.
bool StandsBefore(const Network& a, const Network& b) {
  if (a.family != b.family) {
    return a.family < b.family;
  }
  return a.first == b.first ? a.prefixLength < b.prefixLength : a.first < b.first;
}

bool IsSame(const Network& a, const Network& b) {
  return a.family == b.family && a.first == b.first && a.prefixLength == b.prefixLength;
}

Bits After(const Bits& bits) {
  return {bits.low == ~u64{0} ? bits.high + 1 : bits.high, bits.low + 1};
}

bool IsLastOfFamily(const Bits& bits, Family family) {
  return bits == Network{family, {}, 0}.Last();
}

}  // namespace

AddressList::AddressList(std::vector<Network> networks) : networks_(std::move(networks)) {
  std::sort(networks_.begin(), networks_.end(), &StandsBefore);
  networks_.erase(std::unique(networks_.begin(), networks_.end(), &IsSame), networks_.end());
  networks_.shrink_to_fit();
  const auto middle = std::find_if(networks_.begin(), networks_.end(),
                                   [](const Network& network) { return network.family == Family::kIPv6; });
  const auto shortCount = static_cast<u32>(middle - networks_.begin());
  short_ = Cut(0, shortCount);
  long_ = Cut(shortCount, static_cast<u32>(networks_.size()));
}

AddressList::Pieces AddressList::Cut(u32 begin, u32 end) const {
  Pieces pieces;
  std::vector<u32> open;  // networks that hold the place reached, the outermost first
  const auto start = [&pieces](const Bits& first, u32 network) {
    if (!pieces.empty() && pieces.back().first == first) {
      pieces.back().network = network;
    } else {
      pieces.push_back({first, network});
    }
  };
  const auto closeInnermost = [&] {
    const Network& closed = networks_[open.back()];
    open.pop_back();
    if (!IsLastOfFamily(closed.Last(), closed.family)) {
      start(After(closed.Last()), open.empty() ? kNoNetwork : open.back());
    }
  };
  for (u32 index = begin; index < end; ++index) {
    while (!open.empty() && networks_[open.back()].Last() < networks_[index].first) {
      closeInnermost();
    }
    start(networks_[index].first, index);
    open.push_back(index);
  }
  while (!open.empty()) {
    closeInnermost();
  }
  return pieces;
}

const Network* AddressList::Find(const Address& address) const {
  const Pieces& pieces = address.family == Family::kIPv4 ? short_ : long_;
  const auto behind = std::upper_bound(pieces.begin(), pieces.end(), address.bits,
                                       [](const Bits& bits, const Piece& piece) { return bits < piece.first; });
  if (behind == pieces.begin()) {
    return nullptr;
  }
  const u32 network = std::prev(behind)->network;
  return network == kNoNetwork ? nullptr : &networks_[network];
}

}  // namespace Host::Reputation
