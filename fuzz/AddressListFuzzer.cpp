// Any bytes as a list of networks: each network that is read is found again by its own addresses.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/reputation/AddressList.h"
#include "host/reputation/ListText.h"

namespace {

using namespace Host::Reputation;

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

void CheckFound(const AddressList& list, const Network& network, const Bits& bits) {
  const Network* found = list.Find({network.family, bits});
  Require(found != nullptr && found->family == network.family && found->prefixLength >= network.prefixLength &&
          !(bits < found->first) && !(found->Last() < bits));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ListContent content;
  const bool isList = ReadList({reinterpret_cast<const char*>(data), size}, content);
  Require(content.faults.size() <= ListContent::kMaxFaults && content.faults.size() <= content.faultCount);
  Require(isList || (content.networks.empty() && content.faults.size() == 1));
  const AddressList list(content.networks);
  for (const Network& network : content.networks) {
    bool hadHostBits = true;
    const auto again = ReadNetwork(ToText(network), hadHostBits);
    Require(again && !hadHostBits && again->family == network.family && again->first == network.first &&
            again->prefixLength == network.prefixLength);
    CheckFound(list, network, network.first);
    CheckFound(list, network, network.Last());
  }
  return 0;
}
