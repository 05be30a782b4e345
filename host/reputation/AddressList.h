// AddressList: networks, and which of them holds an address.
//
//   AddressList list(std::move(networks));
//   if (const Network* network = list.Find(*ReadAddress("192.0.2.7"))) ...
#pragma once

#include <vector>

#include "host/reputation/Network.h"

namespace Host::Reputation {

// Built once. Networks of one family lie in each other or apart, so they cut its addresses into pieces that each belong
// to the innermost network over them; a look-up is a binary search of these.
// Threads: Find is thread-safe.
class AddressList {
 public:
  AddressList() = default;
  explicit AddressList(std::vector<Network> networks);

  // The one with the longest prefix, or null. Valid while the list is.
  [[nodiscard]] const Network* Find(const Address& address) const;
  // Different networks.
  [[nodiscard]] std::size_t Count() const { return networks_.size(); }

 private:
  // From `first` to where the next piece starts.
  struct Piece {
    Bits first;
    u32 network;  // kNoNetwork: none of them
  };
  static constexpr u32 kNoNetwork = 0xFFFFFFFF;

  using Pieces = std::vector<Piece>;

  // Of the networks at [begin, end), which are one family's.
  [[nodiscard]] Pieces Cut(u32 begin, u32 end) const;

  std::vector<Network> networks_;  // by family, first address, prefix length
  Pieces short_;                   // IPv4
  Pieces long_;
};

}  // namespace Host::Reputation
