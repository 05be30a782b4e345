#include <memory>

#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/HistoryRun.h"
#include "host/table/Columns.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb query                                           all that is stored\n"
    "  netdb query --since 7d                                what was seen in the last seven days\n"
    "  netdb query --since 2024-05-01 --until 2024-05-01     one day (UTC)\n"
    "  netdb query --ip 10.0.0.0/8 --ip 203.0.113.9          a block of addresses, and one more\n"
    "  netdb query --process '%/curl' --port 443 --port 80   curl anywhere, to either port\n"
    "  netdb query --proto ssh --columns ip,proc_fpath,conns_total\n"
    "  netdb query --order bytes_out:desc,ip --limit 20      or --order=-bytes_out,ip\n"
    "  netdb query --format jsonl | jq 'select(.port == 443)'\n"
    "Of several values of one option a row has any; of different options it has all. In --process, % is any text and "
    "_\n"
    "any character once there is a % in it, whatever the case of letters.\n";

struct Arguments {
  HistoryOptions history;
  FilterTexts filter;
  std::string columns;
  std::vector<std::string> order;
  std::string limit;
};

// Nothing, with a sentence in `error`, for a wrong value.
std::optional<RowQuery> ReadQuery(const Arguments& arguments, std::string& error) {
  const auto range = RangeOf(arguments.history, error);
  auto filter = range ? ReadFilter(arguments.filter, *range, error) : std::nullopt;
  auto columns = filter ? ReadColumns(arguments.columns, error) : std::nullopt;
  auto order = columns ? ReadOrder(arguments.order, error) : std::nullopt;
  if (!order) {
    return std::nullopt;
  }
  RowQuery query{std::move(*filter), std::move(*columns), std::move(*order), std::nullopt};
  if (!arguments.limit.empty()) {
    query.limit = ReadLimit(arguments.limit, error);
    if (!query.limit) {
      return std::nullopt;
    }
  }
  return query;
}

int Run(const Arguments& arguments) {
  std::string error;
  const auto query = ReadQuery(arguments, error);
  if (!query) {
    PrintError(error);
    return kUsage;
  }
  std::vector<Render::Column> columns;
  for (const std::size_t column : query->columns) {
    columns.push_back({Table::kColumns[column].name, Table::kColumns[column].kind});
  }
  return PrintHistory(arguments.history, RowsStatement(*query), columns);
}

void AddFilterOptions(Options options, FilterTexts& filter) {
  options.Texts("--ip", filter.ips, "Only this address, or block of addresses such as 10.0.0.0/8")
      .Named("ADDRESS")
      .OneEachTime();
  options.Texts("--process", filter.processes, "Only this program: its path, or a pattern with %")
      .Named("PATH")
      .OneEachTime();
  options.Texts("--port", filter.ports, "Only this port").Named("PORT").OneEachTime();
  options.Texts("--proto", filter.protocols, "Only what spoke this protocol, such as SSH or tcp")
      .Named("NAME")
      .OneEachTime();
  options.Texts("--md5", filter.md5s, "Only the program of this MD5 digest").Named("HEX").OneEachTime();
  options.Texts("--qid", filter.qids, "Only the program of this identity").Named("HEX").OneEachTime();
}

}  // namespace

Command AddQuery(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("query", "Print the stored connections");
  AddDataOption(options, arguments->history.dataFolder);
  AddRangeOptions(options, arguments->history);
  AddFilterOptions(options, arguments->filter);
  options.Text("--columns", arguments->columns, "Which columns, in this order: a list with commas")
      .Named("NAMES")
      .NotEmpty();
  options
      .Texts("--order", arguments->order,
             "Sort by a column; COLUMN:desc has the largest first. Else as stored, day by day")
      .Named("COLUMN[:asc|desc]")
      .OneEachTime();
  options.Text("--limit", arguments->limit, "Print so many rows at most").Named("N").NotEmpty();
  AddFormatOption(options, arguments->history);
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
