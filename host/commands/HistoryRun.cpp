#include "host/commands/HistoryRun.h"

#include <unistd.h>

#include <iostream>
#include <memory>

#include "Velmar/OS/Time.h"
#include "host/commands/Console.h"
#include "host/commands/Summary.h"
#include "host/table/Database.h"

namespace Host::Commands {
namespace {

using Table::Database;

// Counts are whole numbers, also past those of SQL.
std::vector<Cell> MakeWhole(std::vector<Cell> cells) {
  for (Cell& cell : cells) {
    if (std::holds_alternative<double>(cell)) {
      cell = std::to_string(NumberOf(cell));
    }
  }
  return cells;
}

class TakerSink final : public Database::Sink {
 public:
  explicit TakerSink(const RowTaker& take) : take_(take) {}
  bool Begin(const std::vector<Database::Column>& /*columns*/) override { return true; }
  bool Row(const std::vector<Cell>& cells) override { return take_(MakeWhole(cells)); }
  bool End() override { return true; }

 private:
  const RowTaker& take_;
};

}  // namespace

Render::RenderOptions HistoryOptions::ForStandardOutput() const {
  Render::RenderOptions options;
  options.format = Render::FormatOf(format).value_or(Render::Format::kTable);
  options.width = TerminalWidth(STDOUT_FILENO);
  options.colour = WantsColour(STDOUT_FILENO);
  return options;
}

void AddRangeOptions(Options options, HistoryOptions& history) {
  constexpr char kTimes[] = "a date, an RFC 3339 time, epoch seconds, or an age such as 7d or 12h";
  options.Text("--since", history.since, std::string("Only what was seen then or later: ") + kTimes)
      .Named("TIME")
      .NotEmpty();
  options.Text("--until", history.until, "Only what was seen then or earlier").Named("TIME").NotEmpty();
}

void AddFormatOption(Options options, HistoryOptions& history) {
  options.Text("--format", history.format, "How rows are printed")
      .OneOf({"table", "json", "jsonl", "csv", "line"})
      .ShowDefault();
}

std::optional<TimeRange> RangeOf(const HistoryOptions& options, std::string& error) {
  return ReadTimeRange(options.since, options.until, Velmar::OS::Time::GetEpochTime(nullptr) / 1000, error);
}

ExitCode RunHistory(const std::string& dataFolder, const Statement& statement, const RowTaker& take) {
  Database database(dataFolder);
  std::string error;
  if (!database.Open(error)) {
    PrintError(error);
    return kFailed;
  }
  TakerSink sink(take);
  const Database::Outcome outcome = database.Run(statement.text, statement.parameters, sink, error);
  const std::vector<std::string> problems = database.TakeProblems();
  for (const std::string& problem : problems) {
    PrintError(problem);
  }
  if (outcome == Database::Outcome::kFailed || outcome == Database::Outcome::kInterrupted) {
    PrintError(error);
    return kFailed;
  }
  return problems.empty() ? kDone : kPartial;
}

ExitCode PrintHistory(const HistoryOptions& options, const Statement& statement,
                      const std::vector<Render::Column>& columns) {
  std::unique_ptr<Render::ResultWriter> writer;
  const auto begin = [&] {
    if (writer == nullptr) {
      writer = MakeResultWriter(options.ForStandardOutput(), columns, std::cout);
    }
  };
  const ExitCode code = RunHistory(options.dataFolder, statement, [&](const std::vector<Cell>& cells) {
    begin();
    writer->Write(cells);
    return std::cout.good();
  });
  if (code == kFailed) {
    return kFailed;
  }
  begin();
  writer->Finish();
  return FinishOutput(std::cout) ? code : kFailed;
}

}  // namespace Host::Commands
