#include <cerrno>
#include <iostream>
#include <memory>

#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/inspect/StoreInspector.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb inspect /var/lib/ryl/netdb/1714521600.db\n"
    "  netdb inspect --format json 1714521600.db | jq .tables\n"
    "Exit code 3 says that the file is a store and damaged; what can be read of it is shown.\n";

struct Arguments {
  std::string file;
  std::string format = "table";
};

int Run(const Arguments& arguments) {
  Inspect::FileBytes bytes;
  if (!bytes.Open(arguments.file)) {
    PrintError("cannot read " + arguments.file + ": " + Inspect::WhyUnreadable(errno));
    return kFailed;
  }
  const Inspect::StoreReport report = Inspect::InspectStore(bytes);
  std::cout << (arguments.format == "json" ? ToJson(report, arguments.file) : ToText(report, arguments.file));
  for (const Inspect::Problem& problem : report.problems) {
    PrintError(arguments.file + ", at " + std::to_string(problem.position) + ": " + problem.text);
  }
  if (!FinishOutput(std::cout) || !report.isStore) {
    return kFailed;
  }
  return report.problems.empty() ? kDone : kPartial;
}

}  // namespace

Command AddInspect(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("inspect", "Show what a store file holds and whether it is whole");
  options.Text("FILE", arguments->file, "A day file or another store file").Required();
  options.Text("--format", arguments->format, "How it is shown").OneOf({"table", "json"}).ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
