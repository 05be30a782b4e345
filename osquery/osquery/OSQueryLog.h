// Log identifiers of osquery/osquery, out of its Messages.def.
#pragma once

#include "Velmar/Log.h"

namespace RYL::Messages::osquery {
using namespace Velmar;
#define MESSAGE(name, level, arguments, text) \
  using name = ::Velmar::LogMessage<::Velmar::HashIdentifier("osquery." #name), level, void arguments>;
#include "osquery/osquery/Messages.def"
#undef MESSAGE
}  // namespace RYL::Messages::osquery
