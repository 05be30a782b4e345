// IPDB: the address rows of one day, sorted.
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/Function.h"
#include "common/cloud/CloudStatus.h"
#include "common/netdb_storage/IPRecord.h"
#include "common/netdb_storage/ProcessesDB.h"

namespace RYL::NetDB {

class DBManager;

// T is IPv4 or IPv6. Rows are unique by (address, process, port); each with a process holds one reference on it.
// Threads: thread-compatible; `rows` has no lock. Errors: false after a log record.
template <class T>
class IPDB {
 public:
  using IPRecord = NetDB::IPRecord<T>;
  using Filter = Velmar::Utils::Function<bool(const IPRecord&)>;
  using Sink = Velmar::Utils::Function<bool(const IPRecord&)>;

  static constexpr u32 kMaxRows = 0x40000;

  // Each address of a run of sorted rows once. The rows must stay as they are meanwhile.
  class UniqIPIterator final : public CloudStatus<T>::IPIterator {
   public:
    UniqIPIterator(const IPRecord* begin, const IPRecord* behind) : current(begin), end(behind) {}
    bool HasNext() override { return current != end; }
    const T* Next() override;

   private:
    const IPRecord* current;
    const IPRecord* end;
  };

  IPDB() = default;
  IPDB(const IPDB&) = delete;
  IPDB& operator=(const IPDB&) = delete;

  // Merges `record` into the row of its key, or inserts it and takes a reference on its process.
  bool Add(const IPRecord& record, ProcessesDB& processes);
  // Puts the table into the store under key "4" or "6".
  bool Flush(DayStore& store);
  // Replaces the table by the store's value, or empties it when there is none.
  bool SyncWith(DayStore& store);

  // Visits the rows whose address is in `wanted` (sorted ascending) and that pass all filters, in row order. A false of
  // `sink` ends the walk with false.
  bool Query(const Velmar::Collections::Array<T>& wanted, const Velmar::Collections::Array<Filter>& filters,
             const Sink& sink) const;
  bool Query(const Velmar::Collections::Array<Filter>& filters, const Sink& sink) const;

  // Takes the rows of harmless addresses out, after asking the cloud about those that are not known; `db` is where
  // their processes are. False (level 5) when the cloud was not asked about all; what is known to be harmless is gone
  // then, too. False without memory for the processes' release, with all rows in place.
  bool FilterWhitelisted(CloudStatus<T>* cloud, DBManager* db);

  [[nodiscard]] u32 GetCount() const { return rows.count; }

 private:
  template <class>
  friend struct IPDBTestAccess;

  // Row of the key of `record`, or the place where it belongs.
  u32 FindPlace(const IPRecord& record, bool& found) const;
  bool Merge(u32 place, const IPRecord& record);
  bool Insert(u32 place, const IPRecord& record);
  // Moves the rows that stay to the front; the result is how many.
  u32 CompactRows(CloudStatus<T>& cloud, DBManager& db);

  Velmar::Collections::Array<IPRecord> rows;
  bool initialised = false;
};

}  // namespace RYL::NetDB
