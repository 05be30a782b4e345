// Event types by which a test tells the fake module what to do.
#pragma once

#include "Velmar/Types.h"

inline constexpr Velmar::u32 kFakeFull = 71;  // refuses as full as many times as the event's port says
inline constexpr Velmar::u32 kFakeRefuse = 72;
inline constexpr Velmar::u32 kFakeNoWakeUp = 85;       // queues, and says false
inline constexpr Velmar::u32 kFakeLose = 92;           // takes, and gives up later
inline constexpr Velmar::u32 kFakeDumpFails = 93;      // a dump that is made good later
inline constexpr Velmar::u32 kFakeLastDumpFails = 98;  // for good, in Stop
inline constexpr Velmar::u32 kFakeWorkerEnds = 99;     // and the queue stays full
inline constexpr Velmar::u32 kFakeCount = 101;         // counts as many requests to the cloud as the event's port says
inline constexpr Velmar::u32 kFakeStatusFails = 102;   // from now on the report is cut behind "cloud_v4"
inline constexpr Velmar::u32 kFakeStaysOff = 103;      // netdb_enabled cannot be turned on any more
