// Bodies of IPRecord.
#pragma once

#include <cstring>
#include <limits>

#include "common/netdb_storage/IPRecord.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace RowFields {

// The word that holds the times and the protocols, as it lies in memory and in the file.
inline constexpr u32 kLastSeenShift = 17;
inline constexpr u32 kProtosShift = 34;
inline constexpr u64 kSecondMask = 0x1FFFF;
inline constexpr u32 kProtosMask = 0x3FFFFFFF;

// Numbers of the counters in log records, in the order of their sums.
enum Counter : u32 { kConnsTotal = 1, kConnsIn, kBytesIn, kConnsOut, kBytesOut };

template <class Number>
void AddSaturated(Number& target, Number added, u32 counter) {
  if (__builtin_add_overflow(target, added, &target)) {
    target = std::numeric_limits<Number>::max();
    RYL_LOG(netdb_storage, CounterSaturated, counter);
  }
}

// Little-endian, whatever the machine.
template <class Number>
void Append(u8*& end, Number value) {
  for (u32 i = 0; i < sizeof(value); ++i) {
    *end++ = static_cast<u8>(value >> (8 * i));
  }
}

template <class Number>
Number Extract(const u8*& next) {
  Number value = 0;
  for (u32 i = 0; i < sizeof(value); ++i) {
    value = static_cast<Number>(value | (static_cast<Number>(*next++) << (8 * i)));
  }
  return value;
}

}  // namespace RowFields

template <class T>
bool IPRecord<T>::MergeInto(const IPRecord& source) {
  if (CompareRows(*this, source) != 0) {
    RYL_LOG(netdb_storage, RowKeysDiffer);
    return false;
  }
  if (source.first_seen < first_seen) {
    first_seen = source.first_seen;
  }
  if (source.last_seen > last_seen) {
    last_seen = source.last_seen;
  }
  protos |= source.protos;
  RowFields::AddSaturated(conns_total, source.conns_total, RowFields::kConnsTotal);
  RowFields::AddSaturated(conns_in, source.conns_in, RowFields::kConnsIn);
  RowFields::AddSaturated(bytes_in, source.bytes_in, RowFields::kBytesIn);
  RowFields::AddSaturated(conns_out, source.conns_out, RowFields::kConnsOut);
  RowFields::AddSaturated(bytes_out, source.bytes_out, RowFields::kBytesOut);
  return true;
}

template <class T>
bool IPRecord<T>::Serialize(Velmar::Collections::Buffer& out) const {
  u8 row[kMinimumElementSize];
  u8* end = row;
  std::memcpy(end, ip.bytes, T::kSize);
  end += T::kSize;
  RowFields::Append(end, proc_index);
  RowFields::Append(end, port);
  RowFields::Append(
      end, u64{first_seen} | u64{last_seen} << RowFields::kLastSeenShift | u64{protos} << RowFields::kProtosShift);
  RowFields::Append(end, conns_total);
  RowFields::Append(end, conns_in);
  RowFields::Append(end, bytes_in);
  RowFields::Append(end, conns_out);
  RowFields::Append(end, bytes_out);
  if (out.PushBuffer(row, sizeof(row)) == kNone) {
    RYL_LOG(netdb_storage, RowNotWritten);
    return false;
  }
  return true;
}

template <class T>
bool IPRecord<T>::Deserialize(Velmar::Collections::StreamBuffer& in) {
  const u8* next = in.Take(kMinimumElementSize);
  if (next == nullptr) {
    RYL_LOG(netdb_storage, RowNotRead);
    return false;
  }
  std::memcpy(ip.bytes, next, T::kSize);
  next += T::kSize;
  proc_index = RowFields::Extract<u32>(next);
  port = RowFields::Extract<u16>(next);
  const u64 packed = RowFields::Extract<u64>(next);
  first_seen = packed & RowFields::kSecondMask;
  last_seen = packed >> RowFields::kLastSeenShift & RowFields::kSecondMask;
  protos = static_cast<u32>(packed >> RowFields::kProtosShift) & RowFields::kProtosMask;
  conns_total = RowFields::Extract<u32>(next);
  conns_in = RowFields::Extract<u32>(next);
  bytes_in = RowFields::Extract<u64>(next);
  conns_out = RowFields::Extract<u32>(next);
  bytes_out = RowFields::Extract<u64>(next);
  return true;
}

}  // namespace RYL::NetDB
