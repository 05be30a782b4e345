#include "host/import/RecordedConnection.h"

#include <algorithm>

namespace Host::Import {
namespace {

constexpr u64 kEarliestMs = 1'000'000'000'000;
constexpr u64 kMaxBytes = u64{1} << 40;

}  // namespace

const char* NameOf(Finding skip) {
  switch (skip) {
    case Finding::kMalformed:
      return "malformed";
    case Finding::kIPv6:
      return "ipv6";
    case Finding::kNotOneLocalSide:
      return "not_one_local_side";
    case Finding::kTimeOutOfRange:
      return "time_out_of_range";
    case Finding::kBytesTooLarge:
      return "bytes_too_large";
    case Finding::kTooOld:
      return "too_old";
    case Finding::kPrivateAddress:
      return "private_address";
    case Finding::kSpecialAddress:
      return "special_address";
    default:
      return "";
  }
}

const char* ExplanationOf(Finding skip) {
  switch (skip) {
    case Finding::kMalformed:
      return "the line cannot be read as a connection";
    case Finding::kIPv6:
      return "IPv6 connections are not recorded";
    case Finding::kNotOneLocalSide:
      return "not exactly one side is local";
    case Finding::kTimeOutOfRange:
      return "its time is before 2001-09-09T01:46:40Z or in the future";
    case Finding::kBytesTooLarge:
      return "a byte count is above 2^40";
    case Finding::kTooOld:
      return "its day is past the age limit of the policy, max_db_days";
    case Finding::kPrivateAddress:
      return "its remote address is private; the policy can keep those with keep_private_addresses";
    case Finding::kSpecialAddress:
      return "loopback and link-local addresses and 0.0.0.0 are not recorded";
    default:
      return "";
  }
}

Finding CheckBounds(const RecordedConnection& connection, u64 nowMs) {
  const u64 last = std::max(connection.startMs, connection.endMs.value_or(0));
  if (connection.startMs < kEarliestMs || last / 1000 > nowMs / 1000) {
    return Finding::kTimeOutOfRange;
  }
  return std::max(connection.bytesIn, connection.bytesOut) > kMaxBytes ? Finding::kBytesTooLarge : Finding::kConnection;
}

Finding ReadSides(const std::string& originator, const std::string& responder, const LocalNetworks& local,
                  Sides& sides) {
  const AddressKind kinds[] = {ReadAddress(originator, sides.originator), ReadAddress(responder, sides.responder)};
  if (std::count(std::begin(kinds), std::end(kinds), AddressKind::kNone) > 0) {
    return Finding::kMalformed;
  }
  if (std::count(std::begin(kinds), std::end(kinds), AddressKind::kIPv6) > 0) {
    return Finding::kIPv6;
  }
  sides.originatorIsLocal = local.Contains(sides.originator);
  return sides.originatorIsLocal != local.Contains(sides.responder) ? Finding::kConnection : Finding::kNotOneLocalSide;
}

}  // namespace Host::Import
