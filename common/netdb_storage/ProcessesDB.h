// ProcessesDB: each distinct process of one day once, under a row number that stays while address rows point at it.
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/Utils/Function.h"
#include "common/netdb_storage/Process.h"

namespace RYL::NetDB {

using DayStore = Velmar::Collections::DB::MapDB<const char*, Velmar::Collections::Buffer>;
// False leaves a process (or a row, for its own type) out.
using ProcessFilter = Velmar::Utils::Function<bool(const Process&)>;

// Rows never move: a vacated row becomes a free slot that is reused, and a sorted array of row numbers gives the
// look-up. Threads: thread-compatible; the owner of the DBManager is the only writer. The arrays' own locks guard their
// structure only, one access at a time. Errors: false, or kNone for a row number, after a log record.
class ProcessesDB {
 public:
  using Record = ProcessRecord;
  using Sink = Velmar::Utils::Function<bool(u32 index, const Process&)>;

  static constexpr u32 kMaxRecords = 0x20000;
  // The serialised table must fit one block of the file; a process that would pass this is refused as at the ceiling.
  static constexpr u32 kMaxSerializedSize = 26000000;

  ProcessesDB() = default;
  ProcessesDB(const ProcessesDB&) = delete;
  ProcessesDB& operator=(const ProcessesDB&) = delete;

  // Row number of `process`, which is added if it is new. kNone for an empty process and on failure.
  u32 Add(const Process& process);
  // One more address row points at `index`.
  bool AddRef(u32 index);
  // One less; at zero the row leaves the table, and free rows at its end go with it.
  bool Release(u32 index);
  // Has the memory that releasing every row would take, so that Release does not fail for want of it.
  bool PrepareReleases();
  // Copies a live row out.
  bool Get(u32 index, Process& out) const;

  // Puts the table into the store under key "p".
  bool Flush(DayStore& store);
  // Replaces the table by the store's value, or empties it when there is none.
  bool SyncWith(DayStore& store);

  // Visits the live processes whose path is in `paths` (sorted ascending) and that pass all filters. A false of `sink`
  // ends the walk with false.
  bool Query(const Velmar::Collections::Array<Velmar::Utils::String>& paths,
             const Velmar::Collections::Array<ProcessFilter>& filters, const Sink& sink) const;
  // The same for all live processes, in row order; always true.
  bool Query(const Velmar::Collections::Array<ProcessFilter>& filters, const Sink& sink) const;

  // Rows, free slots included.
  [[nodiscard]] u32 GetCount() const { return records.GetCount(); }
  // Bytes of the stored form of the table as it is.
  [[nodiscard]] u32 GetSerializedSize() const { return serialized_size; }

 private:
  friend struct ProcessesDBTestAccess;

  // What lies in front of the rows in the stored form of an array.
  static constexpr u32 kFrameSize = 14;

  // Place of `process` in sorted_index: where it is, or where it belongs.
  u32 FindPlace(const Process& process, bool& found) const;
  u32 AddNew(const Process& process, u32 place);
  bool HasRoomFor(u64 addedSize) const;
  // A row with the content of `process` and no references, not yet in sorted_index; kNone on failure.
  u32 ReuseSlot(const Process& process);
  u32 AppendRecord(const Process& process);
  void UndoAdd(u32 index, bool reused);
  // The live row `index`, null after a level 3 record.
  const Record* FindLive(u32 index) const;
  Record* FindLive(u32 index) { return const_cast<Record*>(static_cast<const ProcessesDB*>(this)->FindLive(index)); }
  bool FreeRow(u32 index, Record& row);
  bool TrimTail();

  bool Reindex();
  bool IndexRows();
  bool ReadFrom(DayStore& store);
  void Empty();

  Velmar::Collections::Array<Record> records;
  // Numbers of the live rows in Process order, and of the free ones, which are reused from the end. Together they hold
  // each row number once.
  Velmar::Collections::Array<u32> sorted_index;
  Velmar::Collections::Array<u32> free_slots;
  u32 serialized_size = kFrameSize;
};

}  // namespace RYL::NetDB
