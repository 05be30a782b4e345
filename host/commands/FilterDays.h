// FilterDays: which days `netdb filter` takes, and the job on one of them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/cloud/CloudStatus.h"
#include "host/Types.h"
#include "host/agent/FilterWatch.h"
#include "host/commands/PurgePlan.h"

namespace Host::Commands {

// What `--file` may name: the first second of a day, out of a date or the name of a file of that day.
std::optional<u64> ReadFilterDay(const std::string& text);

// The finished days of `files` that are not filtered, oldest first. `nowSeconds` lies in the day that is not finished.
std::vector<StoredFile> UnfilteredDays(std::vector<StoredFile> files, u64 nowSeconds);

// What became of one day.
struct FilteredDay {
  enum class State { kFiltered, kFailed, kLeft };

  std::string file;  // its name now
  u64 day = 0;
  State state = State::kLeft;
  u64 sizeBefore = 0;
  u64 sizeAfter = 0;
  u64 rowsRemoved = 0;
  u64 requests = 0;
  u64 answers = 0;  // requests that were answered
  bool cloudMissing = false;
  std::vector<std::string> reasons = {};
};

// The job's state while it runs.
struct FilterProgress {
  u64 requests = 0;
  FilterWatch::Findings findings;
};

// Runs the filter job on one day after the other.
// Threads: Run from one thread; the job has a thread of its own meanwhile. Effects on disk: those of the job.
class FilterRunner {
 public:
  using Cloud = RYL::NetDB::CloudStatus<RYL::NetDB::IPv4>;

  FilterRunner(std::string folder, Cloud& cloud, FilterWatch& watch)
      : folder_(std::move(folder)), cloud_(cloud), watch_(watch) {}

  // Blocks until the job's end, calling `look` a few times a second. A true from it ends the conversation with the
  // cloud with the request that is under way: the job then stores what it knows and fails.
  FilteredDay Run(const StoredFile& file, const std::function<bool(const FilterProgress& progress)>& look);

 private:
  bool RunJob(const std::string& path, const std::function<bool(const FilterProgress& progress)>& look);
  void CountRequests();

  std::string folder_;
  Cloud& cloud_;
  FilterWatch& watch_;
  u64 requests_ = 0;
  u64 answers_ = 0;
};

}  // namespace Host::Commands
