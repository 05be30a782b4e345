// DayReader: the rows of one day after another, each day as a table query gives them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Types.h"
#include "host/table/ConstraintText.h"
#include "host/table/DayList.h"
#include "host/table/Problems.h"
#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"

namespace Host::Table {

// Holds the rows of one day at a time. Reads files only, takes no lock, makes nothing. Threads: one thread; the log
// callback is taken while Read runs, so that one at a time in a process reads. A damaged day gives the rows that can be
// had, and a problem.
class DayReader {
 public:
  // `problems` and `pause` must outlive it.
  DayReader(std::string folder, Problems& problems, const Pause& pause);
  ~DayReader();
  DayReader(const DayReader&) = delete;
  DayReader& operator=(const DayReader&) = delete;

  // Reads a day's rows; Next gives them. False when the table query does not take `columns` or `constraints`,
  // which the want of memory may cause.
  bool Read(u64 day, const std::string& columns, const std::string& constraints);
  // False behind the last row, and before the first Read.
  bool Next();
  // Gives up what is left of the day.
  void Clear();
  // The row that Next went to. What was not asked for is 0 or empty.
  [[nodiscard]] const edr_netdb& Row() const { return row_; }

 private:
  struct Answer;

  // One query of the day. False when a file of it was replaced under way. `skipped`: paths that were passed over.
  bool Ask(const std::string& columns, const std::string& constraints, std::vector<std::string>& skipped);
  void Report();

  std::string folder_;
  Problems& problems_;
  const Pause& pause_;
  std::unique_ptr<Answer> answer_;
  u64 day_ = 0;
  edr_netdb row_;
};

}  // namespace Host::Table
