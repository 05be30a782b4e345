#include "common/netdb_storage/ProcessesDB.h"

#include <limits>
#include <utility>

#include "Velmar/OS/Threading.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::Collections::Array;
using Velmar::OS::ScopedLock;
using Velmar::Utils::ScopedDuration;

constexpr i32 kFreeSlot = -1;

// Takes `number` out of an array of row numbers, keeping the order. False when it is not there.
bool RemoveNumber(Array<u32>& numbers, u32 number) {
  ScopedLock lock(numbers.mutex);
  for (u32 i = 0; i < numbers.count; ++i) {
    if (numbers.data[i] == number) {
      return numbers.RemoveAt(i);
    }
  }
  return false;
}

// The elements as they lie now. They stay there until the next addition, as the table has one writer, so a search needs
// no lock of its own.
template <class T>
const T* ElementsOf(const Array<T>& array, u32& count) {
  ScopedLock lock(array.mutex);
  count = array.count;
  return array.data;
}

// A ceiling that came from a file may be below the capacity.
template <class T>
bool HasRoomForOneMore(Array<T>& array) {
  ScopedLock lock(array.mutex);
  return (array.count < array.capacity && array.count < array.maxCapacity) || array.Grow();
}

}  // namespace

u32 ProcessesDB::Add(const Process& process) {
  const ScopedDuration timed(
      [](double value, const char* unit) { RYL_LOG(netdb_storage, ProcessAddTimed, value, unit); }, IsLogged());
  if (process.IsEmpty()) {
    return kNone;
  }
  bool found = false;
  const u32 place = FindPlace(process, found);
  if (!found) {
    return AddNew(process, place);
  }
  ScopedLock lock(sorted_index.mutex);
  return sorted_index.data[place];
}

u32 ProcessesDB::FindPlace(const Process& process, bool& found) const {
  u32 indexed = 0;
  u32 rowCount = 0;
  const u32* numbers = ElementsOf(sorted_index, indexed);
  const Record* rows = ElementsOf(records, rowCount);
  i32 low = 0;
  i32 high = static_cast<i32>(indexed) - 1;
  found = false;
  while (low <= high) {
    const i32 middle = (low + high) / 2;
    const int order = rows[numbers[middle]].Compare(process);
    if (order == 0) {
      found = true;
      return static_cast<u32>(middle);
    }
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  return static_cast<u32>(low);
}

u32 ProcessesDB::AddNew(const Process& process, u32 place) {
  const bool reused = free_slots.GetCount() != 0;
  const u32 slotSize = reused ? 0 : Record::kMinimumElementSize;
  if (!HasRoomFor(u64{slotSize} + static_cast<u64>(process.proc_fpath.length))) {
    return kNone;
  }
  const u32 index = reused ? ReuseSlot(process) : AppendRecord(process);
  if (index == kNone) {
    return kNone;
  }
  if (!sorted_index.InsertAt(place, index)) {
    RYL_LOG(netdb_storage, ProcessNotIndexed, index);
    UndoAdd(index, reused);
    return kNone;
  }
  return index;
}

// The stored table must fit one block of the file, or the whole day could not be saved.
bool ProcessesDB::HasRoomFor(u64 addedSize) const {
  if (serialized_size + addedSize <= kMaxSerializedSize) {
    return true;
  }
  RYL_LOG(netdb_storage, ProcessTableTooLarge, serialized_size, kMaxSerializedSize);
  RYL_LOG(netdb_storage, ProcessTableFull, records.GetCount());
  RYL_LOG(netdb_storage, ProcessNotAdded);
  return false;
}

u32 ProcessesDB::ReuseSlot(const Process& process) {
  u32 index = kNone;
  {
    ScopedLock lock(free_slots.mutex);
    if (!free_slots.PopBack()) {
      RYL_LOG(netdb_storage, FreeSlotNotTaken);
      return kNone;
    }
    index = free_slots.data[free_slots.count];
  }
  bool copied = false;
  {
    ScopedLock lock(records.mutex);
    if (index >= records.count) {
      RYL_LOG(netdb_storage, FreeSlotOutOfRange, index);
      return kNone;
    }
    Record& row = records.data[index];
    serialized_size -= row.GetSerializedSize();
    copied = row.Process::CopyFrom(process);
    serialized_size += row.GetSerializedSize();
    row.ref_count = 0;
  }
  if (!copied) {
    RYL_LOG(netdb_storage, ProcessNotCopied);
    UndoAdd(index, true);
    return kNone;
  }
  return index;
}

u32 ProcessesDB::AppendRecord(const Process& process) {
  Record row;
  if (!row.Process::CopyFrom(process)) {
    RYL_LOG(netdb_storage, ProcessNotCopied);
    return kNone;
  }
  ScopedLock lock(records.mutex);
  if (!HasRoomForOneMore(records)) {
    RYL_LOG(netdb_storage, ProcessTableFull, records.count);
    RYL_LOG(netdb_storage, ProcessNotAdded);
    return kNone;
  }
  serialized_size += row.GetSerializedSize();
  records.data[records.count] = std::move(row);
  return records.count++;
}

// A reused slot goes back to the free ones unless its row is trimmed; it has just left their array, so it has room
// there.
void ProcessesDB::UndoAdd(u32 index, bool reused) {
  RYL_LOG(netdb_storage, ProcessAddUndone, index);
  bool trimmed = false;
  {
    ScopedLock lock(records.mutex);
    Record& row = records.data[index];
    serialized_size -= row.GetSerializedSize();
    row.Clear();
    row.ref_count = kFreeSlot;
    trimmed = index + 1 == records.count && records.PopBack();
    serialized_size += trimmed ? 0 : row.GetSerializedSize();
  }
  if (!RemoveNumber(sorted_index, index)) {
    RYL_LOG(netdb_storage, UndoneRowNotIndexed, index);
  }
  if (reused && !trimmed) {
    free_slots.Add(index);
  }
}

const ProcessesDB::Record* ProcessesDB::FindLive(u32 index) const {
  if (index == kNone) {
    RYL_LOG(netdb_storage, NoProcessIndex);
    return nullptr;
  }
  ScopedLock lock(records.mutex);
  if (index >= records.count) {
    RYL_LOG(netdb_storage, ProcessIndexOutOfRange, index);
    return nullptr;
  }
  const Record& row = records.data[index];
  if (row.ref_count < 0) {
    if (!row.IsEmpty()) {
      RYL_LOG(netdb_storage, FreeSlotNotEmpty, index);
    }
    RYL_LOG(netdb_storage, ProcessRowIsFree, index);
    return nullptr;
  }
  return &row;
}

bool ProcessesDB::AddRef(u32 index) {
  Record* row = FindLive(index);
  if (row == nullptr) {
    return false;
  }
  if (row->ref_count == std::numeric_limits<i32>::max()) {
    RYL_LOG(netdb_storage, ReferencesAtLimit, index);
    return false;
  }
  ++row->ref_count;
  return true;
}

bool ProcessesDB::Release(u32 index) {
  Record* row = FindLive(index);
  if (row == nullptr) {
    return false;
  }
  if (row->ref_count == 0) {
    RYL_LOG(netdb_storage, NoReferenceToRelease, index);
    return false;
  }
  if (row->ref_count > 1) {
    --row->ref_count;
    return true;
  }
  return FreeRow(index, *row) && TrimTail();
}

bool ProcessesDB::PrepareReleases() {
  ScopedLock lock(free_slots.mutex);
  while (free_slots.capacity < records.GetCount()) {
    if (!free_slots.Grow()) {
      RYL_LOG(netdb_storage, ReleasesNotPrepared, records.GetCount());
      return false;
    }
  }
  return true;
}

// Makes the row, down to its last reference, a free slot. The room for its number is had first, so that a failure to
// get it leaves the table as it was.
bool ProcessesDB::FreeRow(u32 index, Record& row) {
  if (!HasRoomForOneMore(free_slots)) {
    RYL_LOG(netdb_storage, FreeSlotNotKept, index);
    return false;
  }
  row.ref_count = 0;
  if (!RemoveNumber(sorted_index, index)) {
    RYL_LOG(netdb_storage, ReleasedRowNotIndexed, index);
    return false;
  }
  free_slots.Add(index);
  ScopedLock lock(records.mutex);
  serialized_size -= row.GetSerializedSize();
  row.ref_count = kFreeSlot;
  row.Clear();
  serialized_size += row.GetSerializedSize();
  return true;
}

// No table ends in a free slot, so that the file shrinks with it.
bool ProcessesDB::TrimTail() {
  u32 trimmed = 0;
  for (;;) {
    u32 index = 0;
    {
      ScopedLock lock(records.mutex);
      if (records.count == 0 || records.data[records.count - 1].ref_count >= 0) {
        break;
      }
      index = records.count - 1;
    }
    if (!RemoveNumber(free_slots, index)) {
      RYL_LOG(netdb_storage, TrimmedRowNotFree, index);
      return false;
    }
    serialized_size -= records.data[index].GetSerializedSize();
    if (!records.PopBack()) {
      RYL_LOG(netdb_storage, LastRowOutOfReach, index + 1);
      return false;
    }
    ++trimmed;
  }
  if (trimmed != 0) {
    RYL_LOG(netdb_storage, RowsTrimmed, trimmed);
  }
  return true;
}

bool ProcessesDB::Get(u32 index, Process& out) const {
  const Record* row = FindLive(index);
  return row != nullptr && out.CopyFrom(*row);
}

}  // namespace RYL::NetDB
