// DBManager: the query engine.
#include <cstring>

#include "Velmar/OS/Path.h"
#include "Velmar/Utils/ScopedDuration.h"
#include "common/netdb_storage/DBManager.h"
#include "common/netdb_storage/RowEmitter.h"
#include "common/netdb_storage/StorageLog.h"

namespace RYL::NetDB {

namespace {

using Velmar::Collections::Array;
using Velmar::Collections::GrowType;
using Velmar::OS::Path;
using Velmar::Utils::ScopedDuration;
using IPFilter = IPDB<IPv4>::Filter;

constexpr u32 kMatchedCapacity = 8;
constexpr u32 kMatchedStep = 128;

// Takes the filters that one file added out again, whichever way its walk ends: they point at what goes with it.
class FilterMark {
 public:
  explicit FilterMark(Array<IPFilter>& filters) : filters_(filters), mark_(filters.count) {}
  ~FilterMark() {
    while (filters_.count > mark_) {
      if (!filters_.PopBack()) {
        RYL_LOG(netdb_storage, FilterNotRemoved, filters_.count);
        return;
      }
      filters_.data[filters_.count].Reset();
    }
  }
  FilterMark(const FilterMark&) = delete;
  FilterMark& operator=(const FilterMark&) = delete;

 private:
  Array<IPFilter>& filters_;
  u32 mark_;
};

bool AddFilter(Array<IPFilter>& filters, const IPFilter& filter) {
  if (filter && filters.Add(filter)) {
    return true;
  }
  RYL_LOG(netdb_storage, FilterNotAdded);
  return false;
}

IPFilter InMatched(const Array<u32>& matched) {
  return [&matched](const IPDB<IPv4>::IPRecord& row) {
    return row.proc_index != kNone && matched.BinarySearch(row.proc_index, nullptr, nullptr);
  };
}

// Only the two ends of a row count: one that began before the range and ended after it is not in it.
IPFilter InRange(u64 day, u64 from, u64 to) {
  return [day, from, to](const IPDB<IPv4>::IPRecord& row) {
    const u64 first = day + row.first_seen;
    const u64 last = day + row.last_seen;
    return (first >= from && first <= to) || (last >= from && last <= to);
  };
}

}  // namespace

bool DBManager::Query(const char* databaseFolder, QueryConstraints& constraints, const QuerySink& sink) {
  const ScopedDuration timed(
      [&constraints](double value, const char* unit) {
        RYL_LOG(netdb_storage, QueryTimed, constraints.ips_wanted.count, constraints.paths_wanted.count,
                constraints.process_filters.count, value, unit);
      },
      IsLogged());
  if (!sink) {
    RYL_LOG(netdb_storage, QueryWithoutSink);
    return false;
  }
  constraints.ips_wanted.Sort(true);
  constraints.paths_wanted.Sort(true);
  DBManager manager;
  return ForEachDBFile(
      databaseFolder, false,
      [&manager, &constraints, &sink](const char* path, u64, u64) {
        return QueryFile(manager, path, constraints, sink);
      },
      constraints.start_time, constraints.end_time);
}

// A file that cannot be opened does not fail a query.
bool DBManager::QueryFile(DBManager& manager, const char* path, QueryConstraints& constraints, const QuerySink& sink) {
  const ScopedDuration timed(
      [path, &constraints](double value, const char* unit) {
        RYL_LOG(netdb_storage, QueryFileTimed, Path::GetFileName(path), constraints.ips_wanted.count,
                constraints.paths_wanted.count, constraints.process_filters.count, value, unit);
      },
      IsLogged());
  if (!manager.SyncWith(path, true)) {
    RYL_LOG(netdb_storage, QueryFileSkipped, path);
    return true;
  }
  const FilterMark mark(constraints.ip_filters);
  if (!manager._Query(constraints, sink)) {
    RYL_LOG(netdb_storage, QueryEnded, path);
    return false;
  }
  return true;
}

bool DBManager::_Query(QueryConstraints& constraints, const QuerySink& sink) {
  const char* const file = Path::GetFileName(store->GetPath());
  const ScopedDuration timed(
      [file](double value, const char* unit) { RYL_LOG(netdb_storage, QueryRowsTimed, file, value, unit); },
      IsLogged());
  Array<u32> matched;
  if (constraints.paths_wanted.count != 0 || constraints.process_filters.count != 0) {
    if (!MatchProcesses(constraints, matched)) {
      return false;
    }
    if (matched.count == 0) {
      RYL_LOG(netdb_storage, NoProcessMatches, file);
      return true;
    }
    matched.Sort(true);
    if (!AddFilter(constraints.ip_filters, InMatched(matched))) {
      return false;
    }
  }
  const bool wholeHistory = constraints.start_time == 0 && constraints.end_time == ~u64{0};
  if (!wholeHistory && !AddFilter(constraints.ip_filters,
                                  InRange(cryptor.GetDayStamp(), constraints.start_time, constraints.end_time))) {
    return false;
  }
  RowEmitter emitter(processes, cryptor.GetDayStamp(), sink);
  const IPDB<IPv4>::Sink emit([&emitter](const IPDB<IPv4>::IPRecord& row) { return emitter.Emit(row); });
  return constraints.ips_wanted.count != 0 ? ips.Query(constraints.ips_wanted, constraints.ip_filters, emit)
                                           : ips.Query(constraints.ip_filters, emit);
}

// The row numbers of the processes that the constraints name, unsorted.
bool DBManager::MatchProcesses(const QueryConstraints& constraints, Array<u32>& matched) const {
  if (!matched.Create(kMatchedCapacity, ProcessesDB::kMaxRecords, kMatchedStep, true, GrowType::kFixedStep)) {
    RYL_LOG(netdb_storage, MatchedArrayNotCreated);
    RYL_LOG(netdb_storage, MatchedNotSetUp);
    return false;
  }
  // A walk over all processes does not report that its sink refused; rows must not go missing for that.
  bool complete = true;
  const ProcessesDB::Sink add([&matched, &complete](u32 index, const Process&) {
    complete = complete && matched.Add(index);
    return complete;
  });
  const bool walked = constraints.paths_wanted.count != 0
                          ? processes.Query(constraints.paths_wanted, constraints.process_filters, add)
                          : processes.Query(constraints.process_filters, add);
  if (!walked || !complete) {
    RYL_LOG(netdb_storage, ProcessMatchFailed);
    return false;
  }
  return true;
}

}  // namespace RYL::NetDB
