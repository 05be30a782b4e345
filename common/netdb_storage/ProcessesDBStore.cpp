// ProcessesDB: its way into and out of the store, and the walks over it.
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Path.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/netdb_storage/ProcessesDB.h"
#include "common/netdb_storage/StorageLog.h"
#include "common/netdb_storage/TableArray.h"

namespace RYL::NetDB {

namespace {

using Velmar::Collections::Array;
using Velmar::Collections::Buffer;
using Velmar::Collections::GrowType;
using Velmar::Collections::StreamBuffer;
using Velmar::OS::FileSystem;
using Velmar::OS::Path;
using Velmar::OS::ScopedLock;
using Velmar::Utils::ScopedDuration;
using Velmar::Utils::String;

constexpr const char* kKey = "p";
constexpr u32 kInitialCapacity = 32;
constexpr u32 kRecordsStep = 100;
constexpr u32 kIndexStep = 100;
constexpr u32 kFreeSlotsStep = 16;

bool Passes(const Array<ProcessFilter>& filters, const Process& process) {
  for (u32 i = 0; i < filters.count; ++i) {
    if (!filters.data[i](process)) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool ProcessesDB::Flush(DayStore& store) {
  return store.Apply(
      kKey, true, [this](Buffer& value, bool, void*) { return records.Serialize(value); }, this);
}

bool ProcessesDB::SyncWith(DayStore& store) {
  const ScopedDuration timed(
      [&store](double value, const char* unit) {
        RYL_LOG(netdb_storage, ProcessSyncTimed, Path::GetFileName(store.GetPath()), value, unit);
      },
      IsLogged());
  if (records.data == nullptr &&
      !records.Create(kInitialCapacity, kMaxRecords, kRecordsStep, true, GrowType::kFixedStep)) {
    RYL_LOG(netdb_storage, ProcessTableNotSetUp);
    return false;
  }
  if (!ReadFrom(store)) {
    RYL_LOG(netdb_storage, ProcessTableNotRead);
    Empty();
    return false;
  }
  if (!Reindex()) {
    RYL_LOG(netdb_storage, ProcessTableNotIndexed);
    Empty();
    return false;
  }
  return true;
}

// A store without the key gives an empty table.
bool ProcessesDB::ReadFrom(DayStore& store) {
  bool good = true;
  EmptyTable(records, kMaxRecords, kRecordsStep);
  store.Apply(
      kKey, false,
      [this, &good](Buffer& value, bool, void*) {
        StreamBuffer in(value, 0, ~u64{0}, true);
        good = records.Deserialize(in);
        return true;
      },
      this);
  return good;
}

// The index arrays must never point at rows that are not there.
void ProcessesDB::Empty() {
  EmptyTable(records, kMaxRecords, kRecordsStep);
  sorted_index.Empty();
  free_slots.Empty();
  serialized_size = kFrameSize;
}

bool ProcessesDB::Reindex() {
  const ScopedDuration timed([](double value, const char* unit) { RYL_LOG(netdb_storage, ReindexTimed, value, unit); },
                             IsLogged());
  const u32 rowCount = records.GetCount();
  sorted_index.Empty();
  if (sorted_index.data == nullptr && !sorted_index.Create(rowCount > kInitialCapacity ? rowCount : kInitialCapacity,
                                                           kMaxRecords, kIndexStep, true, GrowType::kFixedStep)) {
    RYL_LOG(netdb_storage, SortedIndexNotSetUp);
    return false;
  }
  free_slots.Empty();
  if (free_slots.data == nullptr && !free_slots.Create(rowCount < kInitialCapacity ? rowCount : kInitialCapacity,
                                                       kMaxRecords, kFreeSlotsStep, true, GrowType::kFixedStep)) {
    RYL_LOG(netdb_storage, FreeSlotsNotSetUp);
    return false;
  }
  if (!IndexRows()) {
    return false;
  }
  const Record* rows = records.data;
  ScopedLock lock(sorted_index.mutex);
  Velmar::Collections::HeapSort(sorted_index.data, sorted_index.count,
                                [rows](u32 a, u32 b) { return rows[a].Compare(rows[b]); });
  return true;
}

// Sorts the row numbers into the live and the free ones, and measures the table.
bool ProcessesDB::IndexRows() {
  serialized_size = kFrameSize;
  for (u32 i = 0; i < records.GetCount(); ++i) {
    const Record& row = records.data[i];
    serialized_size += row.GetSerializedSize();
    if (row.ref_count < 0 && !row.IsEmpty()) {
      RYL_LOG(netdb_storage, FreeSlotNotEmpty, i);
    }
    if (!(row.ref_count >= 0 ? sorted_index : free_slots).Add(i)) {
      RYL_LOG(netdb_storage, RowNumberNotKept, i);
      return false;
    }
  }
  return true;
}

bool ProcessesDB::Query(const Array<String>& paths, const Array<ProcessFilter>& filters, const Sink& sink) const {
  const u32 rowCount = records.GetCount();
  if (rowCount == 0 || free_slots.GetCount() >= rowCount) {
    return true;
  }
  const Record* rows = records.data;
  // The file system's rule decides here, although the index is sorted by the exact one.
  const bool ignoreCase = !FileSystem::IsFileSystemCaseSensitive();
  return Velmar::Collections::SortedMergeVisit(
      sorted_index, paths,
      [rows, ignoreCase](u32 index, const String& path) { return rows[index].proc_fpath.Compare(path, ignoreCase); },
      [rows, &filters, &sink](u32 index, const String&) {
        return !Passes(filters, rows[index]) || sink(index, rows[index]);
      });
}

bool ProcessesDB::Query(const Array<ProcessFilter>& filters, const Sink& sink) const {
  const u32 rowCount = records.GetCount();
  if (rowCount == 0 || free_slots.GetCount() >= rowCount) {
    return true;
  }
  const Record* rows = records.data;
  for (u32 i = 0; i < rowCount; ++i) {
    const Record& row = rows[i];
    if (row.ref_count < 0) {
      if (!row.IsEmpty()) {
        RYL_LOG(netdb_storage, FreeSlotNotEmpty, i);
      }
      continue;
    }
    if (Passes(filters, row) && !sink(i, row)) {
      RYL_LOG(netdb_storage, ProcessWalkEnded, i);
      break;
    }
  }
  return true;
}

}  // namespace RYL::NetDB
