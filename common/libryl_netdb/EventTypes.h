// The event types that the module takes, and what it does with each.
#pragma once

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"

namespace RYL::Module {

inline constexpr u32 kSubscribedTypeCount = 16;
inline constexpr u32 kSubscribedTypes[kSubscribedTypeCount] = {Events::kNewConnection,
                                                               73,
                                                               75,
                                                               Events::kActivity,
                                                               72,
                                                               85,
                                                               92,
                                                               93,
                                                               98,
                                                               99,
                                                               100,
                                                               101,
                                                               104,
                                                               Events::kTraffic,
                                                               Events::kNetDbQuery,
                                                               Events::kTableQuery};

enum class EventKind : u8 {
  kUnknown,
  kNetDbQuery,
  kTableQuery,
  kNewConnection,
  kTraffic,
  kActivity,
  kQuietActivity,  // may well come without an address
};

constexpr EventKind ClassifyEvent(u32 type) {
  switch (type) {
    case Events::kNetDbQuery:
      return EventKind::kNetDbQuery;
    case Events::kTableQuery:
      return EventKind::kTableQuery;
    case Events::kNewConnection:
      return EventKind::kNewConnection;
    case Events::kTraffic:
      return EventKind::kTraffic;
    case 73:
    case 75:
      return EventKind::kQuietActivity;
    case Events::kActivity:
    case 72:
    case 85:
    case 92:
    case 93:
    case 98:
    case 99:
    case 100:
    case 101:
    case 104:
      return EventKind::kActivity;
    default:
      return EventKind::kUnknown;
  }
}

}  // namespace RYL::Module
