#include <unistd.h>

#include <iostream>
#include <memory>

#include "Velmar/OS/Time.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/HistoryReader.h"
#include "host/commands/TimeRange.h"
#include "host/render/Rows.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb query                                           all that is stored\n"
    "  netdb query --since 7d                                what was seen in the last seven days\n"
    "  netdb query --since 2024-05-01 --until 2024-05-01     one day (UTC)\n"
    "  netdb query --since 2024-05-01T12:00:00Z --format csv\n"
    "  netdb query --format jsonl | jq 'select(.port == 443)'\n";

struct Arguments {
  std::string dataFolder;
  std::string since;
  std::string until;
  std::string format = "table";
};

int RunQuery(const Arguments& arguments, const TimeRange& range) {
  Render::RenderOptions options;
  options.format = Render::FormatOf(arguments.format).value_or(Render::Format::kTable);
  options.width = TerminalWidth(STDOUT_FILENO);
  options.colour = WantsColour(STDOUT_FILENO);
  std::unique_ptr<Render::RowWriter> writer;
  const auto write = [&writer, &options](const HistoryReader::Row& row) {
    if (writer == nullptr) {
      writer = MakeRowWriter(options, std::cout);
    }
    writer->Write(row);
    return std::cout.good();
  };

  HistoryReader reader(arguments.dataFolder);
  const HistoryReader::Result result = reader.Read(range, write);
  for (const std::string& problem : reader.Problems()) {
    PrintError(problem);
  }
  if (result == HistoryReader::Result::kNoFolder) {
    return kFailed;
  }
  if (writer == nullptr) {
    writer = MakeRowWriter(options, std::cout);
  }
  writer->Finish();
  if (!FinishOutput(std::cout)) {
    return kFailed;
  }
  return result == HistoryReader::Result::kDone ? kDone : kPartial;
}

int Run(const Arguments& arguments) {
  std::string error;
  const auto range =
      ReadTimeRange(arguments.since, arguments.until, Velmar::OS::Time::GetEpochTime(nullptr) / 1000, error);
  if (!range) {
    PrintError(error);
    return kUsage;
  }
  return RunQuery(arguments, *range);
}

}  // namespace

Command AddQuery(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("query", "Print the stored connections");
  AddDataOption(options, arguments->dataFolder);
  constexpr char kTimes[] = "a date, an RFC 3339 time, epoch seconds, or an age such as 7d or 12h";
  options.Text("--since", arguments->since, std::string("Only what was seen then or later: ") + kTimes);
  options.Text("--until", arguments->until, "Only what was seen then or earlier");
  options.Text("--format", arguments->format, "How rows are printed")
      .OneOf({"table", "json", "jsonl", "csv", "line"})
      .ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
