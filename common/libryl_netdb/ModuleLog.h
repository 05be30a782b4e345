// Log identifiers of common/libryl_netdb, out of its Messages.def.
#pragma once

#include "Velmar/Log.h"

namespace RYL::Messages::ryl_netdb {
using namespace Velmar;
#define MESSAGE(name, level, arguments, text) \
  using name = ::Velmar::LogMessage<::Velmar::HashIdentifier("ryl_netdb." #name), level, void arguments>;
#include "common/libryl_netdb/Messages.def"
#undef MESSAGE
}  // namespace RYL::Messages::ryl_netdb
