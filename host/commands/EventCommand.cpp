#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "Velmar/OS/Time.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/EventReply.h"
#include "host/commands/TimeRange.h"
#include "host/events/NetDbQueryRecord.h"
#include "host/events/TableQueryRecord.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb event query --kind FindPorts 443 80 --since 7d      the event netdb_query_output\n"
    "  netdb event query --kind Iterate --until 2024-05-01\n"
    "  netdb event table --columns ip,port,proc_fpath            the binary reply, decoded\n"
    "  netdb event table --as-event                              the same rows as an event\n"
    "  netdb event table --raw reply.bin                         the bytes as a host gets them\n"
    "  echo '{\"proc_fpath\":{\"affinity\":\"TEXT\",\"list\":[{\"op\":65,\"expr\":\"%curl\"}]}}' |\n"
    "      netdb event table --constraints -\n"
    "The module reads the policy for the limits of a reply; asking stores and deletes nothing.\n"
    "Exit code 3 says that the reply is cut at a limit or leaves out a damaged file.\n";

constexpr std::size_t kMostConstraints = 1 << 20;  // bytes

struct Arguments {
  std::string dataFolder;
  std::string policy;
  // query
  std::string kind;
  std::string since;
  std::string until;
  std::vector<std::string> values;
  // table
  std::string columns = "*";
  std::string table = "edr_netdb";
  std::string constraintsFile;
  std::string rawFile;
  bool asEvent = false;
};

std::optional<Policy> ReadPolicy(const Arguments& arguments) {
  std::string error;
  auto policy = Policy::LoadOrDefault(arguments.policy, error);
  if (policy && policy->Get(Setting::kNetdbEnabled).value == 0) {
    error = policy->Source() + ":" + std::to_string(policy->Get(Setting::kNetdbEnabled).line) +
            ": netdb_enabled is off, so that the module answers nothing";
    policy.reset();
  }
  if (!policy) {
    PrintError(error);
  }
  return policy;
}

// Empty when nothing was answered; what is wrong has been said.
EventReply Ask(const Arguments& arguments, const std::vector<u8>& event) {
  const auto policy = ReadPolicy(arguments);
  auto reply = policy ? AskModule(arguments.dataFolder, *policy, event) : std::nullopt;
  return reply ? std::move(*reply) : EventReply();
}

bool PrintReply(const EventReply& reply) {
  std::string error;
  const auto text = reply.binary ? ToJson(*reply.binary, error) : ToJson(*reply.event, error);
  if (!text) {
    PrintError(error);
    return false;
  }
  std::cout << *text;
  return FinishOutput(std::cout);
}

int RunQuery(const Arguments& arguments) {
  std::string error;
  const auto range =
      ReadTimeRange(arguments.since, arguments.until, Velmar::OS::Time::GetEpochTime(nullptr) / 1000, error);
  const auto kind = FindQueryKind(arguments.kind);
  const auto event =
      range && kind ? PackNetDbQuery({*kind, range->since, range->until, arguments.values}, error) : std::nullopt;
  if (!event) {
    PrintError(error);
    return kUsage;
  }
  const EventReply reply = Ask(arguments, *event);
  if (reply.event == nullptr || !PrintReply(reply)) {
    return kFailed;
  }
  return reply.complete ? kDone : kPartial;
}

// "{}" without a file. Nothing, with a sentence in `error`, for one that cannot be read or is too large.
std::optional<std::string> ReadConstraints(const std::string& name, std::string& error) {
  if (name.empty()) {
    return "{}";
  }
  std::ifstream file;
  if (name != "-") {
    file.open(name, std::ios::binary);
  }
  std::istream& in = name == "-" ? std::cin : file;
  std::string text(kMostConstraints + 1, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(in.gcount()));
  if (in.bad() || (name != "-" && !file.is_open())) {
    error = "cannot read " + name;
    return std::nullopt;
  }
  if (text.size() > kMostConstraints) {
    error = name + " has more than 1 MiB";
    return std::nullopt;
  }
  return text;
}

bool WriteRaw(const std::string& name, const std::vector<u8>& bytes) {
  const auto* data = reinterpret_cast<const char*>(bytes.data());
  const auto size = static_cast<std::streamsize>(bytes.size());
  if (name == "-") {
    std::cout.write(data, size);
    return FinishOutput(std::cout);
  }
  std::ofstream file(name, std::ios::binary | std::ios::trunc);
  file.write(data, size);
  file.close();
  if (!file.good()) {
    PrintError("cannot write " + name);
    return false;
  }
  return true;
}

// Prints or writes the reply, of which one part is there, and gives the exit code.
int DeliverTable(const Arguments& arguments, const EventReply& reply) {
  const bool raw = !arguments.rawFile.empty() && reply.binary;
  const bool delivered = raw ? WriteRaw(arguments.rawFile, *reply.binary) : PrintReply(reply);
  const auto error = ErrorOf(reply);
  if (!error) {
    PrintError("the reply has no error code");
    return kFailed;
  }
  const int exitCode = ExitCodeOf(*error, reply);
  if (!delivered) {
    return kFailed;
  }
  return exitCode == kDone && !reply.complete ? kPartial : exitCode;
}

int RunTable(const Arguments& arguments) {
  if (arguments.asEvent && !arguments.rawFile.empty()) {
    PrintError("--raw is for the binary reply, --as-event asks for none");
    return kUsage;
  }
  std::string error;
  const auto constraints = ReadConstraints(arguments.constraintsFile, error);
  if (!constraints) {
    PrintError(error);
    return kFailed;
  }
  const auto event = PackTableQuery({arguments.table, arguments.columns, *constraints, arguments.asEvent}, error);
  if (!event) {
    PrintError(error);
    return kUsage;
  }
  const EventReply reply = Ask(arguments, *event);
  return reply.event == nullptr && !reply.binary ? kFailed : DeliverTable(arguments, reply);
}

std::string ProblemOfKind(const std::string& kind) {
  if (FindQueryKind(kind)) {
    return "";
  }
  std::string text = "\"" + kind + "\" is no kind of query; there are";
  for (const std::string& known : QueryKinds()) {
    text += " " + known;
  }
  return text;
}

void AddPlace(Options options, Arguments& arguments) {
  AddDataOption(options, arguments.dataFolder);
  AddPolicyOption(options, arguments.policy);
}

void AddQueryOptions(Options options, Arguments& arguments) {
  AddPlace(options, arguments);
  options
      .Text("--kind", arguments.kind,
            "FindIPv4, FindProcessesPath, FindPorts, FindProtos, FindProcessesMD5, FindProcessesQID or Iterate")
      .Named("KIND")
      .Required()
      .Check(&ProblemOfKind);
  options.Text("--since", arguments.since, "Only what was seen then or later; a time as \"netdb query\" takes it")
      .Named("TIME")
      .NotEmpty();
  options.Text("--until", arguments.until, "Only what was seen then or earlier").Named("TIME").NotEmpty();
  options.Texts("VALUE", arguments.values, "What to find; Iterate takes none");
}

void AddTableOptions(Options options, Arguments& arguments) {
  AddPlace(options, arguments);
  options.Text("--columns", arguments.columns, "Names with commas between, * for all").ShowDefault();
  options.Text("--constraints", arguments.constraintsFile, "Constraints as JSON, - for standard input; {} unless given")
      .Named("FILE")
      .NotEmpty();
  options.Flag("--as-event", arguments.asEvent, "Ask for the reply as an event instead of a binary");
  options.Text("--table", arguments.table, "The module answers for its own table only").ShowDefault();
  options.Text("--raw", arguments.rawFile, "Write the binary reply untouched; - is standard output")
      .Named("FILE")
      .NotEmpty();
}

}  // namespace

Command AddEvent(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("event", "Send the module a query as a host does, and show its reply");
  AddQueryOptions(options.AddCommand("query", "A history query, event type 68"), *arguments);
  Options table = options.AddCommand("table", "A query of the table edr_netdb, event type 221");
  AddTableOptions(table, *arguments);
  return {options.Name(),
          [arguments, table] { return table.WasChosen() ? RunTable(*arguments) : RunQuery(*arguments); }, kExamples};
}

}  // namespace Host::Commands
