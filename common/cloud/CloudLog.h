// Log identifiers of common/cloud, out of its Messages.def.
#pragma once

#include "Velmar/Log.h"

namespace RYL::Messages::cloud {
using namespace Velmar;
#define MESSAGE(name, level, arguments, text) \
  using name = ::Velmar::LogMessage<::Velmar::HashIdentifier("cloud." #name), level, void arguments>;
#include "common/cloud/Messages.def"
#undef MESSAGE
}  // namespace RYL::Messages::cloud
