// Log identifiers of base/, out of its Messages.def.
#pragma once

#include "Velmar/Log.h"

namespace RYL::Messages::base {
using namespace Velmar;
#define MESSAGE(name, level, arguments, text) \
  using name = ::Velmar::LogMessage<::Velmar::HashIdentifier("base." #name), level, void arguments>;
#include "base/Messages.def"
#undef MESSAGE
}  // namespace RYL::Messages::base
