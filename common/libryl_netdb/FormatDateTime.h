// FormatDateTime: the date texts of the status report and of query rows.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace RYL::Module {

// Puts epoch seconds into `out` as "2023-11-14 22:13:20", UTC. False (level 5) when bit 63 is set, which catches the
// all-ones of an empty range, and when the calendar does not reach so far; false also when `out` has no room.
bool FormatDateTime(u64 seconds, Velmar::Utils::String& out);

}  // namespace RYL::Module
