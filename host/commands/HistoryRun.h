// HistoryRun: what the commands that ask the history share: their options, the run of a statement, and its exit code.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/Cell.h"
#include "host/commands/Command.h"
#include "host/commands/HistoryQuery.h"
#include "host/render/Results.h"

namespace Host::Commands {

struct HistoryOptions {
  std::string dataFolder;
  std::string since;
  std::string until;
  std::string format = "table";

  [[nodiscard]] Render::RenderOptions ForStandardOutput() const;
};

void AddRangeOptions(Options options, HistoryOptions& history);
// One of the five formats of rows.
void AddFormatOption(Options options, HistoryOptions& history);

// What --since and --until say now. Nothing, with a sentence in `error`, when they are no range.
std::optional<TimeRange> RangeOf(const HistoryOptions& options, std::string& error);

// Gets the cells of each row, of which numbers past those of SQL are digits; false ends the run.
using RowTaker = std::function<bool(const std::vector<Cell>& cells)>;

// Runs the statement over the folder's history and prints what went wrong. kFailed, or kPartial when rows are missing.
// Loads no module, writes nothing, takes no lock.
ExitCode RunHistory(const std::string& dataFolder, const Statement& statement, const RowTaker& take);

// The same, with the rows on standard output; nothing is printed there where there is no history.
ExitCode PrintHistory(const HistoryOptions& options, const Statement& statement,
                      const std::vector<Render::Column>& columns);

}  // namespace Host::Commands
