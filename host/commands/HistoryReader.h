// HistoryReader: the stored rows of a data folder, day by day, without the module.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "RYL/Comm/INetDBQuery.h"
#include "host/commands/TimeRange.h"

namespace Host::Commands {

// Reads files only, takes no lock, makes nothing. Threads: one thread; the log callback is taken while Read runs.
class HistoryReader {
 public:
  using Row = RYL::Comm::Interfaces::INetDBQuery::Record;
  // Gets each row; false ends the walk.
  using Sink = std::function<bool(const Row&)>;

  enum class Result {
    kDone,      // also when the sink ended the walk
    kPartial,   // some file could not be read whole; Problems() says which
    kNoFolder,  // there is no history there; Problems() says where it was looked for
  };

  explicit HistoryReader(std::string dataFolder) : dataFolder_(std::move(dataFolder)) {}

  // Rows whose first to last second overlaps `range`, in ascending days.
  Result Read(const TimeRange& range, const Sink& sink);
  [[nodiscard]] const std::vector<std::string>& Problems() const { return problems_; }

 private:
  std::string dataFolder_;
  std::vector<std::string> problems_;
};

}  // namespace Host::Commands
