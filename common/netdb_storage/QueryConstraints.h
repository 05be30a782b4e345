// QueryConstraints: what a query asks for.
#pragma once

#include "RYL/Comm/INetDBQuery.h"
#include "Velmar/Collections/Array.h"
#include "common/netdb_storage/IPDB.h"
#include "common/netdb_storage/ProcessesDB.h"

namespace RYL::NetDB {

using QueryRecord = RYL::Comm::Interfaces::INetDBQuery::Record;

// Belongs to one call at a time and comes back with its lists sorted. Empty lists ask for everything.
struct QueryConstraints {
  // Both ends in epoch seconds and included; 0 and all ones ask for the whole history.
  QueryConstraints(u64 startTime, u64 endTime);

 private:
  // The lists start here, and must go before these do.
  static constexpr u32 kInline = 4;
  IPv4 ipsArea_[kInline];
  Velmar::Utils::String pathsArea_[kInline];
  ProcessFilter processFiltersArea_[kInline];
  IPDB<IPv4>::Filter ipFiltersArea_[kInline];

 public:
  Velmar::Collections::Array<IPv4> ips_wanted;
  Velmar::Collections::Array<Velmar::Utils::String> paths_wanted;
  Velmar::Collections::Array<ProcessFilter> process_filters;  // all must pass
  Velmar::Collections::Array<IPDB<IPv4>::Filter> ip_filters;  // all must pass
  u64 start_time;
  u64 end_time;
};

// Gets each matching row; false ends the query. The record is reused.
using QuerySink = Velmar::Utils::Function<bool(const QueryRecord&)>;

}  // namespace RYL::NetDB
