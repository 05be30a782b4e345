// Fields of a query's record as text.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "common/netdb_storage/QueryConstraints.h"

namespace RYL::NetDB {

// Room for every address text, with its terminator.
inline constexpr u32 kAddressTextSize = 40;
// Room for every protocol text.
inline constexpr u32 kProtocolsTextSize = 128;

// The address in the form of its family. False, with `out` empty, when it cannot be converted.
bool AddressToString(const QueryRecord& record, char (&out)[kAddressTextSize]);

// Comma-separated display names of the twelve defined bits, from bit 0 up; higher bits are ignored. False (level 5)
// when `out` has no room.
bool ProtocolsToString(u32 mask, Velmar::Utils::String& out);

}  // namespace RYL::NetDB
