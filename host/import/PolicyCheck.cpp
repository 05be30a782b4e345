#include "host/import/PolicyCheck.h"

#include <cstring>

#include "common/libryl_netdb/AddressFilter.h"

namespace Host::Import {
namespace {

constexpr u64 kMsPerDay = 86'400'000;

// The first day is never kept: that of a limit that reaches back beyond 1970 is day 0, and all later ones stay.
u64 OldestKeptDay(u64 today, u64 maxDays) {
  return today > maxDays ? today - maxDays + 1 : 1;
}

}  // namespace

PolicyCheck::PolicyCheck(const Policy& policy, u64 nowMs)
    : keptFromMs_(OldestKeptDay(nowMs / kMsPerDay, policy.Get(Setting::kMaxDbDays).value) * kMsPerDay),
      keepPrivate_(policy.Get(Setting::kKeepPrivateAddresses).value != 0) {}

Finding PolicyCheck::Check(const RecordedConnection& connection) const {
  if (connection.startMs < keptFromMs_) {
    return Finding::kTooOld;
  }
  u32 address = 0;
  static_assert(sizeof(connection.remote) == sizeof(address));
  std::memcpy(&address, connection.remote.data(), sizeof(address));
  // The module takes 0.0.0.0 for the lack of an address.
  if (address != 0 && RYL::Module::PassesAddressFilter(address, keepPrivate_)) {
    return Finding::kConnection;
  }
  return RYL::Module::IsPrivateAddress(address) ? Finding::kPrivateAddress : Finding::kSpecialAddress;
}

}  // namespace Host::Import
