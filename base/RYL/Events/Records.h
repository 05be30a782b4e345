// Layout of the packed event records that a host hands to HandleEvent. Little-endian, no padding, offsets from the
// start of the record. A record carries no length: the host makes every offset in it point at text inside the record.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Events {

inline constexpr u32 kEventTypeMask = 0x3FF;

namespace Objects {
// What a pointer to such a record points at.
struct NetDbQuery;
struct StorageTableQuery;
}  // namespace Objects

// Event types. All from kTraffic up, but kTableQuery, share the layout of ConnectionEvent.
inline constexpr u32 kNetDbQuery = 68;
inline constexpr u32 kTraffic = 70;
inline constexpr u32 kActivity = 71;
inline constexpr u32 kNewConnection = 185;
inline constexpr u32 kTableQuery = 221;

// Offsets of a connection event.
namespace ConnectionEvent {
inline constexpr u32 kHeader = 0;           // u32, type in the low 10 bits
inline constexpr u32 kEventTimeMs = 12;     // u64, epoch milliseconds
inline constexpr u32 kProcessPuid = 28;     // u64
inline constexpr u32 kPort = 52;            // u16
inline constexpr u32 kDirectionCode = 56;   // u8, 0 inbound, 1 outbound, else unknown
inline constexpr u32 kAddressOffset = 57;   // u16, where the address block is
inline constexpr u32 kProtocolOffset = 75;  // u16, where the NUL-terminated protocol name is; 0: no text
inline constexpr u32 kBytesIn = 91;         // u32, type 70 only
inline constexpr u32 kBytesOut = 95;        // u32, type 70 only
inline constexpr u32 kFixedSize = 99;       // texts and the address block stand behind
}  // namespace ConnectionEvent

// Offsets inside an address block.
namespace AddressBlock {
inline constexpr u32 kFlags = 0;    // u8, bit 0: IPv6
inline constexpr u32 kAddress = 1;  // 4 or 16 bytes, first octet first; all zero: no address
inline constexpr u32 kSizeIPv4 = 5;
inline constexpr u32 kSizeIPv6 = 17;
}  // namespace AddressBlock

// Offsets of a process event, as EventLookup gives it.
namespace ProcessEvent {
inline constexpr u32 kProcessPuid = 28;   // u64
inline constexpr u32 kProcessPid = 36;    // u32
inline constexpr u32 kProcessPath = 161;  // NUL-terminated
}  // namespace ProcessEvent

// Offsets of a NetDbQuery.
namespace QueryEvent {
inline constexpr u32 kHeader = 0;               // u32, type in the low 10 bits
inline constexpr u32 kStartTime = 0x14;         // u64, epoch seconds, included
inline constexpr u32 kEndTime = 0x1C;           // u64, epoch seconds, included
inline constexpr u32 kValueTableOffset = 0x24;  // u16, where the table of u16 offsets of the value texts is
inline constexpr u32 kValueCount = 0x26;        // u16
inline constexpr u32 kKind = 0x28;              // NUL-terminated; table and values stand behind
}  // namespace QueryEvent

// Offsets of a StorageTableQuery.
namespace TableQueryEvent {
inline constexpr u32 kHeader = 0;                // u32, type in the low 10 bits
inline constexpr u32 kReplyAsEvent = 0x0C;       // u8; 0: the reply goes to ExternalData
inline constexpr u32 kColumnsOffset = 0x0D;      // u16, where the NUL-terminated column list is; 0: no text
inline constexpr u32 kConstraintsOffset = 0x0F;  // u16, where the NUL-terminated JSON text is; 0: no text
inline constexpr u32 kTableName = 0x15;          // NUL-terminated; the texts stand behind
}  // namespace TableQueryEvent

}  // namespace RYL::Events
