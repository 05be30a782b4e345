// RowEmitter: turns the rows of one day into the record that a query hands out.
#pragma once

#include "common/netdb_storage/IPDB.h"
#include "common/netdb_storage/ProcessesDB.h"
#include "common/netdb_storage/QueryConstraints.h"

namespace RYL::NetDB {

// Lifetime: one walk over one file; what it is given must outlive it. One record serves all rows.
// Errors: false after a level 5 record when a row points at a process that cannot be had.
class RowEmitter {
 public:
  RowEmitter(const ProcessesDB& processes, u64 day, const QuerySink& sink);

  // The result of the sink, or false.
  bool Emit(const IPDB<IPv4>::IPRecord& row);

 private:
  void FillProcess();

  const ProcessesDB& processes_;
  const u64 day_;
  const QuerySink& sink_;
  char pathArea_[sizeof(QueryRecord::proc_fpath)];
  Process process_;
  QueryRecord record_{};
};

}  // namespace RYL::NetDB
