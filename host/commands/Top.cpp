#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "host/commands/Bars.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/HistoryRun.h"
#include "host/commands/Summary.h"
#include "host/text/SizeText.h"
#include "host/text/Utf8.h"

namespace Host::Commands {
namespace {

using Cells = std::vector<Cell>;

constexpr char kExamples[] =
    "  netdb top                                 the ten addresses with the most bytes\n"
    "  netdb top --of process --by bytes_out     the programs that sent the most\n"
    "  netdb top --of day --limit 31 --since 31d\n"
    "  netdb top --of port --by conns --format csv\n"
    "The numbers are those of the rows that overlap the range of time; a row is a day's. What has no program is left\n"
    "out of --of process.\n";

struct Arguments {
  HistoryOptions history;
  std::string by = "bytes";
  std::string of = "ip";
  std::string limit = "10";
};

// Where the sizes begin among the columns of TopStatement.
constexpr std::size_t kBytesIn = 2;

std::vector<Render::Column> ColumnsOf(const std::string& of) {
  using Render::ColumnKind;
  const ColumnKind kind = of == "process" ? ColumnKind::kPath : of == "port" ? ColumnKind::kNumber : ColumnKind::kPlain;
  return {{of, kind},
          {"conns", ColumnKind::kNumber},
          {"bytes_in", ColumnKind::kNumber},
          {"bytes_out", ColumnKind::kNumber},
          {"bytes", ColumnKind::kNumber}};
}

std::size_t MeasuredColumn(const std::string& by, const std::vector<Render::Column>& columns) {
  const auto found =
      std::find_if(columns.begin(), columns.end(), [&by](const auto& column) { return column.name == by; });
  return static_cast<std::size_t>(found - columns.begin());
}

// What the columns leave of the terminal, within bounds that keep a bar readable.
std::size_t BarWidth(const std::vector<Render::Column>& columns, const std::vector<Cells>& rows, std::size_t terminal) {
  constexpr std::size_t kLeast = 8;
  constexpr std::size_t kMost = 40;
  constexpr std::size_t kGap = 2;
  std::size_t taken = 0;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    std::size_t width = columns[i].name.size();
    for (const Cells& row : rows) {
      width = std::max(width, Text::CountCharacters(Text::ToPrintable(TextOf(row[i]))));
    }
    taken += width + kGap;
  }
  return std::clamp(terminal - std::min(terminal, taken), kLeast, kMost);
}

// As people read it: sizes with units, and bars on a terminal.
void ForPeople(const std::string& by, std::size_t terminal, std::vector<Render::Column>& columns,
               std::vector<Cells>& rows) {
  const std::size_t measured = MeasuredColumn(by, columns);
  std::vector<u64> values;
  for (Cells& row : rows) {
    values.push_back(NumberOf(row[measured]));
    for (std::size_t i = kBytesIn; i < row.size(); ++i) {
      row[i] = Text::FormatSize(NumberOf(row[i]));
    }
  }
  if (terminal == 0 || rows.empty() || values[0] == 0) {
    return;
  }
  const std::size_t width = BarWidth(columns, rows, terminal);
  const bool withBlocks = TerminalTakesUtf8();
  columns.push_back({"", Render::ColumnKind::kPlain});
  for (std::size_t i = 0; i < rows.size(); ++i) {
    rows[i].emplace_back(Bar(values[i], values[0], width, withBlocks));
  }
}

int RunTop(const Arguments& arguments, const Statement& statement) {
  std::vector<Cells> rows;
  const ExitCode code = RunHistory(arguments.history.dataFolder, statement, [&rows](const Cells& cells) {
    rows.push_back(cells);
    return true;
  });
  if (code == kFailed) {
    return kFailed;
  }
  const Render::RenderOptions options = arguments.history.ForStandardOutput();
  std::vector<Render::Column> columns = ColumnsOf(arguments.of);
  if (options.format == Render::Format::kTable) {
    ForPeople(arguments.by, options.width, columns, rows);
  }
  const auto writer = MakeResultWriter(options, columns, std::cout);
  for (const Cells& row : rows) {
    writer->Write(row);
  }
  writer->Finish();
  return FinishOutput(std::cout) ? code : kFailed;
}

int Run(const Arguments& arguments) {
  std::string error;
  const auto range = RangeOf(arguments.history, error);
  const auto limit = range ? ReadLimit(arguments.limit, error) : std::nullopt;
  if (!limit) {
    PrintError(error);
    return kUsage;
  }
  const GroupBy groupBy = GroupByOf(arguments.of).value_or(GroupBy::kIp);
  const Measure measure = MeasureOf(arguments.by).value_or(Measure::kBytes);
  return RunTop(arguments, TopStatement(groupBy, measure, *limit, *range));
}

}  // namespace

Command AddTop(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("top", "Print what has the most traffic");
  AddDataOption(options, arguments->history.dataFolder);
  options.Text("--by", arguments->by, "What is compared")
      .OneOf({"bytes", "conns", "bytes_in", "bytes_out"})
      .ShowDefault();
  options.Text("--of", arguments->of, "What traffic is added up for")
      .OneOf({"ip", "process", "port", "day"})
      .ShowDefault();
  options.Text("--limit", arguments->limit, "Print so many at most").Named("N").ShowDefault();
  AddRangeOptions(options, arguments->history);
  AddFormatOption(options, arguments->history);
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
