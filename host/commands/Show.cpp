#include <unistd.h>

#include <iostream>
#include <memory>

#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/HistoryRun.h"
#include "host/commands/SummaryReport.h"
#include "host/reputation/Network.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb show 203.0.113.9                when, how much, on which ports and by which programs\n"
    "  netdb show 10.0.0.0/8 --since 7d      a block of addresses, in the last week\n"
    "  netdb show /usr/bin/curl              what one program talked to\n"
    "  netdb show '%/curl' --format json     all programs that fit a pattern\n"
    "The numbers are those of the rows that overlap the range of time; a row is a day's.\n";

struct Arguments {
  HistoryOptions history;
  std::string subject;
};

// Takes what looks like an address, of either family, for one, and all else for a path.
bool ReadSubject(const std::string& text, Subject& subject, HistoryFilter& filter, std::string& error) {
  bool hadHostBits = false;
  subject.text = text;
  subject.isAddress = Reputation::ReadNetwork(text, hadHostBits).has_value();
  if (!(subject.isAddress ? AddIp(text, filter, error) : AddProcess(text, filter, error))) {
    return false;
  }
  subject.isOne = filter.blocks.empty() && filter.pathPatterns.empty();
  return true;
}

int RunShow(const Arguments& arguments, const Subject& subject, const HistoryFilter& filter) {
  Summary summary;
  const ExitCode code =
      RunHistory(arguments.history.dataFolder, SummaryStatement(filter), [&summary](const std::vector<Cell>& cells) {
        summary.Add(cells);
        return true;
      });
  if (code == kFailed) {
    return kFailed;
  }
  if (summary.IsEmpty()) {
    PrintNote("nothing is stored about " + subject.text);
  }
  std::cout << (arguments.history.format == "json"
                    ? SummaryJson(subject, summary) + '\n'
                    : SummaryTable(subject, summary, {TerminalWidth(STDOUT_FILENO), WantsColour(STDOUT_FILENO)}));
  return FinishOutput(std::cout) ? code : kFailed;
}

int Run(const Arguments& arguments) {
  std::string error;
  Subject subject;
  HistoryFilter filter;
  const auto range = RangeOf(arguments.history, error);
  if (!range || !ReadSubject(arguments.subject, subject, filter, error)) {
    PrintError(error);
    return kUsage;
  }
  filter.range = *range;
  return RunShow(arguments, subject, filter);
}

}  // namespace

Command AddShow(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("show", "Sum up what is stored about one address or program");
  options
      .Text("SUBJECT", arguments->subject,
            "An IPv4 address or a block of them, or the path of a program, with % as a pattern")
      .Named("IP|PATH")
      .Required();
  AddDataOption(options, arguments->history.dataFolder);
  AddRangeOptions(options, arguments->history);
  options.Text("--format", arguments->history.format, "How it is shown").OneOf({"table", "json"}).ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
