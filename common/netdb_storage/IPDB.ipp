// Bodies of IPDB.
#pragma once

#include <type_traits>

#include "Velmar/OS/Path.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/netdb_storage/IPDB.h"
#include "common/netdb_storage/StorageLog.h"
#include "common/netdb_storage/TableArray.h"

namespace RYL::NetDB {

namespace RowTable {

inline constexpr u32 kInitialCapacity = 16;
inline constexpr u32 kGrowthStep = 1024;

template <class T>
constexpr const char* Key() {
  return std::is_same_v<T, IPv4> ? "4" : "6";
}

template <class Row, class Filter>
bool Passes(const Velmar::Collections::Array<Filter>& filters, const Row& row) {
  for (u32 i = 0; i < filters.count; ++i) {
    if (!filters.data[i](row)) {
      return false;
    }
  }
  return true;
}

}  // namespace RowTable

template <class T>
bool IPDB<T>::Add(const IPRecord& record, ProcessesDB& processes) {
  if (rows.count > rows.capacity) {
    RYL_LOG(netdb_storage, RowMissing, rows.count);
    return false;
  }
  bool found = false;
  const u32 place = FindPlace(record, found);
  if (found) {
    return Merge(place, record);
  }
  const Velmar::Utils::ScopedDuration timed(
      [](double value, const char* unit) { RYL_LOG(netdb_storage, RowInsertTimed, value, unit); }, IsLogged());
  if (!Insert(place, record)) {
    RYL_LOG(netdb_storage, RowNotInserted);
    return false;
  }
  if (record.proc_index != kNone && !processes.AddRef(record.proc_index)) {
    RYL_LOG(netdb_storage, RowWithoutReference, record.proc_index);
    return false;
  }
  return true;
}

template <class T>
u32 IPDB<T>::FindPlace(const IPRecord& record, bool& found) const {
  const IPRecord* const table = rows.data;
  i32 low = 0;
  i32 high = static_cast<i32>(rows.count) - 1;
  found = false;
  while (low <= high) {
    const i32 middle = (low + high) / 2;
    const int order = CompareRows(record, table[middle]);
    if (order == 0) {
      found = true;
      return static_cast<u32>(middle);
    }
    if (order > 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  return static_cast<u32>(low);
}

template <class T>
bool IPDB<T>::Merge(u32 place, const IPRecord& record) {
  if (!rows.data[place].MergeInto(record)) {
    RYL_LOG(netdb_storage, RowNotMerged);
    return false;
  }
  return true;
}

template <class T>
bool IPDB<T>::Insert(u32 place, const IPRecord& record) {
  if (rows.InsertAt(place, record)) {
    return true;
  }
  if (rows.count >= rows.maxCapacity) {
    RYL_LOG(netdb_storage, AddressTableFull, rows.count);
  }
  return false;
}

template <class T>
bool IPDB<T>::Flush(DayStore& store) {
  return store.Apply(
      RowTable::Key<T>(), true,
      [this](Velmar::Collections::Buffer& value, bool, void*) { return rows.Serialize(value); }, this);
}

template <class T>
bool IPDB<T>::SyncWith(DayStore& store) {
  const Velmar::Utils::ScopedDuration timed(
      [&store](double value, const char* unit) {
        RYL_LOG(netdb_storage, AddressSyncTimed, Velmar::OS::Path::GetFileName(store.GetPath()), value, unit);
      },
      IsLogged());
  if (!initialised && !rows.Create(RowTable::kInitialCapacity, kMaxRows, RowTable::kGrowthStep, false,
                                   Velmar::Collections::GrowType::kFixedStep)) {
    RYL_LOG(netdb_storage, AddressArrayNotCreated);
    RYL_LOG(netdb_storage, AddressTableNotSetUp);
    return false;
  }
  initialised = true;
  EmptyTable(rows, kMaxRows, RowTable::kGrowthStep);
  bool good = true;
  store.Apply(
      RowTable::Key<T>(), false,
      [this, &good](Velmar::Collections::Buffer& value, bool, void*) {
        Velmar::Collections::StreamBuffer in(value, 0, ~u64{0}, true);
        good = rows.Deserialize(in);
        return true;
      },
      this);
  if (!good) {
    RYL_LOG(netdb_storage, AddressTableNotRead);
    EmptyTable(rows, kMaxRows, RowTable::kGrowthStep);
  }
  return good;
}

template <class T>
bool IPDB<T>::Query(const Velmar::Collections::Array<T>& wanted, const Velmar::Collections::Array<Filter>& filters,
                    const Sink& sink) const {
  return Velmar::Collections::SortedMergeVisit(
      rows, wanted, [](const IPRecord& row, const T& address) { return row.ip.Compare(address); },
      [&filters, &sink](const IPRecord& row, const T&) { return !RowTable::Passes(filters, row) || sink(row); });
}

template <class T>
bool IPDB<T>::Query(const Velmar::Collections::Array<Filter>& filters, const Sink& sink) const {
  for (u32 i = 0; i < rows.count; ++i) {
    const IPRecord& row = rows.data[i];
    if (RowTable::Passes(filters, row) && !sink(row)) {
      RYL_LOG(netdb_storage, AddressWalkEnded, i);
      return false;
    }
  }
  return true;
}

}  // namespace RYL::NetDB
