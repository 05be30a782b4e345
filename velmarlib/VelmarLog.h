// Log identifiers of velmarlib/, out of its Messages.def.
#pragma once

#include "Velmar/Log.h"

namespace RYL::Messages::velmar {
using namespace Velmar;
#define MESSAGE(name, level, arguments, text) \
  using name = ::Velmar::LogMessage<::Velmar::HashIdentifier("velmar." #name), level, void arguments>;
#include "velmarlib/Messages.def"
#undef MESSAGE
}  // namespace RYL::Messages::velmar
