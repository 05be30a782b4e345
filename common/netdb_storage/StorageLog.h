// Log identifiers of common/netdb_storage, out of its Messages.def.
#pragma once

#include "Velmar/Log.h"

namespace RYL::Messages::netdb_storage {
using namespace Velmar;
#define MESSAGE(name, level, arguments, text) \
  using name = ::Velmar::LogMessage<::Velmar::HashIdentifier("netdb_storage." #name), level, void arguments>;
#include "common/netdb_storage/Messages.def"
#undef MESSAGE
}  // namespace RYL::Messages::netdb_storage

namespace RYL::NetDB {

// Whether durations are worth their clock reads.
inline bool IsLogged() {
  return Velmar::Log::fnLogCallback != nullptr;
}

}  // namespace RYL::NetDB
