// INetDBQuery: the stored connection history, row by row, for other modules (interface number 1007).
#pragma once

#include "Velmar/Types.h"

namespace RYL::Comm::Interfaces {

inline constexpr i32 kNetDBQueryInterface = 1007;

class INetDBQuery {
 public:
  // One row: an address, port and process on one UTC day. Reused between calls; copy what you keep.
  struct Record {
    u8 is_ipv6;      // 0 in every row of this system
    u8 address[16];  // first octet first; IPv4 in the first four bytes
    u64 first_seen;  // epoch seconds
    u64 last_seen;   // epoch seconds
    u16 protos;      // protocol bits
    u16 port;
    u32 conns_total;
    u32 conns_in;
    u32 conns_out;
    u64 bytes_in;
    u64 bytes_out;
    u8 proc_md5[16];  // zero with no process, or when not known
    u8 proc_qid[32];
    u64 proc_puid;         // 0 with no process
    i64 proc_pid;          // -1 with no process
    char proc_fpath[512];  // at most 511 bytes and a terminator; empty with no process
  };

  // Calls `callback`, which is not null, with each row whose first or last second lies in `from` to `to` (epoch
  // seconds, both included); 0 and all ones ask for everything. Rows come by day file in no order of days. A callback
  // that returns false ends the walk and makes the result false, as a failure does. Rows that the worker has not dumped
  // yet are not seen. Threads: thread-safe, on the caller's thread.
  virtual bool Iterate(bool (*callback)(const Record& record, void* context), void* context, u64 from, u64 to) = 0;

 protected:
  ~INetDBQuery() = default;
};

}  // namespace RYL::Comm::Interfaces
