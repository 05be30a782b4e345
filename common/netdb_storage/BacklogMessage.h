// BacklogMessage: one observation of a connection on its way from intake to the store.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB {

namespace Direction {
inline constexpr u8 kUnknown = 0;
inline constexpr u8 kInbound = 1;
inline constexpr u8 kOutbound = 2;
}  // namespace Direction

// A plain value.
struct BacklogMessage {
  u32 address = 0;  // IPv4, first octet in the first byte
  u16 port = 0;
  u16 protocols = 0;  // protocol bits, 0 for an unknown name
  u8 direction = 0;   // Direction; counts only with is_new_connection
  u8 is_new_connection = 0;
  u8 has_process = 0;  // process_puid is to be looked up
  u64 process_puid = 0;
  u64 bytes_in = 0;
  u64 bytes_out = 0;
  u64 timestamp = 0;  // epoch seconds
};

}  // namespace RYL::NetDB
