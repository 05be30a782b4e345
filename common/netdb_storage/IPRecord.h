// IPRecord: one row for an address, port and process on one day.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Types.h"
#include "common/Address.h"

namespace RYL::NetDB {

// T is IPv4 or IPv6. A plain value.
template <class T>
struct IPRecord {
  u64 bytes_in = 0;
  u64 bytes_out = 0;
  u64 first_seen : 17 = 0;  // second of the day
  u64 last_seen : 17 = 0;   // second of the day
  u64 protos : 30 = 0;      // protocol bits
  u32 conns_total = 0;
  u32 conns_in = 0;
  u32 conns_out = 0;
  u32 proc_index = kNone;  // row of the day's process table
  T ip;
  u16 port = 0;

  // Adds `source`, a row of the same key, to this one: times widen, bits join, counters add and stop at all ones (level
  // 3 each). False (level 3) for another key, with nothing changed.
  bool MergeInto(const IPRecord& source);

  // Stored form (docs/file-format.md), 46 bytes for IPv4 and 58 for IPv6. Level 5 on a failed push or a short read.
  bool Serialize(Velmar::Collections::Buffer& out) const;
  bool Deserialize(Velmar::Collections::StreamBuffer& in);
  static constexpr u32 kMinimumElementSize = T::kSize + 42;
};

// Order of the rows of a table: address, process, port. Negative, 0 or positive.
template <class T>
int CompareRows(const IPRecord<T>& a, const IPRecord<T>& b) {
  const int byAddress = a.ip.Compare(b.ip);
  if (byAddress != 0) {
    return byAddress;
  }
  if (a.proc_index != b.proc_index) {
    return a.proc_index < b.proc_index ? -1 : 1;
  }
  return a.port < b.port ? -1 : (a.port > b.port ? 1 : 0);
}

}  // namespace RYL::NetDB
