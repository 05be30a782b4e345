#include <memory>

#include "Velmar/OS/Time.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/HistoryRun.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb new --since 7d                 addresses and programs of the last week that were never seen before\n"
    "  netdb new --since 2024-05-01T12:00:00Z --of process\n"
    "  netdb new --since 1d --of ip --format jsonl\n"
    "Before means: as far back as the history goes, and as far as a filter left its rows. What has no program is no\n"
    "program.\n";

struct Arguments {
  HistoryOptions history;
  std::string of = "both";
};

int Run(const Arguments& arguments) {
  std::string error;
  const auto range = RangeOf(arguments.history, error);
  if (!range) {
    PrintError(error);
    return kUsage;
  }
  using Render::ColumnKind;
  const std::vector<Render::Column> columns = {
      {"kind", ColumnKind::kPlain},       {"name", ColumnKind::kPath},    {"first_seen", ColumnKind::kTimeMs},
      {"last_seen", ColumnKind::kTimeMs}, {"conns", ColumnKind::kNumber}, {"bytes_in", ColumnKind::kNumber},
      {"bytes_out", ColumnKind::kNumber},
  };
  return PrintHistory(arguments.history, NewStatement(arguments.of != "process", arguments.of != "ip", range->since),
                      columns);
}

}  // namespace

Command AddNew(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("new", "Print which addresses and programs were first seen lately");
  AddDataOption(options, arguments->history.dataFolder);
  options
      .Text("--since", arguments->history.since,
            "First seen then or later: a date, an RFC 3339 time, epoch seconds, or an age such as 7d or 12h")
      .Named("TIME")
      .Required()
      .NotEmpty();
  options.Text("--of", arguments->of, "What is looked for").OneOf({"ip", "process", "both"}).ShowDefault();
  AddFormatOption(options, arguments->history);
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
