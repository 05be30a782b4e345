#include <iostream>
#include <memory>

#include "host/agent/DataFolder.h"
#include "host/agent/ModuleSession.h"
#include "host/agent/Policy.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/StopSignal.h"
#include "host/events/ConnectionRecord.h"
#include "host/import/ImportRunner.h"

namespace Host::Commands {
namespace {

constexpr char kExamples[] =
    "  netdb import conn.log                            a Zeek log; its form is recognised\n"
    "  netdb import conn.*.log.gz                       compressed ones\n"
    "  netdb import --local 203.0.113.0/24 conn.log     where the local machines have public addresses\n"
    "  netdb import --policy netdb.toml conn.log        what is kept is what this policy says\n"
    "  netdb import process.ndjson network.ndjson       Sysmon events 1 and 3; the order of the files is free\n"
    "  netdb query --format jsonl | netdb import --data /tmp/copy -\n";

struct Arguments {
  std::string dataFolder;
  std::string form;
  std::string local;
  std::string policy;
  bool json = false;
  std::vector<std::string> files;
};

std::optional<Import::Form> FormOf(const std::string& name) {
  if (name.empty()) {
    return std::nullopt;
  }
  return name == "zeek" ? Import::Form::kZeek : name == "sysmon" ? Import::Form::kSysmon : Import::Form::kJsonl;
}

std::string JsonSummary(const Import::ImportSummary& summary) {
  std::string text = "{\"lines_read\":" + std::to_string(summary.linesRead) +
                     ",\"connections\":" + std::to_string(summary.connections) +
                     ",\"events\":" + std::to_string(summary.events) + ",\"skipped\":{";
  for (const Import::Finding reason : Import::kSkips) {
    const auto found = summary.skipped.find(reason);
    text += text.back() == '{' ? "\"" : ",\"";
    text += std::string(NameOf(reason)) + "\":" + std::to_string(found == summary.skipped.end() ? 0 : found->second);
  }
  return text + "}}\n";
}

std::string TextSummary(const Import::ImportSummary& summary) {
  std::string text = "lines read   " + std::to_string(summary.linesRead) + "\nconnections  " +
                     std::to_string(summary.connections) + "\nevents       " + std::to_string(summary.events) + "\n";
  for (const auto& [reason, count] : summary.skipped) {
    text += "skipped      " + std::to_string(count) + " " + NameOf(reason) + "\n";
  }
  return text;
}

bool PrintSummary(const Import::ImportSummary& summary, bool json) {
  std::cout << (json ? JsonSummary(summary) : TextSummary(summary));
  return FinishOutput(std::cout);
}

// What Close found out, for people. True when all is stored.
bool CloseSession(ModuleSession& session) {
  if (session.Close()) {
    return true;
  }
  PrintError("not everything was stored: " + std::to_string(session.LostMessages()) + " events were given up, " +
             std::to_string(session.FailedDumps()) + " dumps failed");
  for (const std::string& error : session.Errors()) {
    PrintNote(error);
  }
  return false;
}

int RunImport(const Arguments& arguments, const Import::LocalNetworks& local, const Policy& policy) {
  std::string error;
  if (!CheckPathLength(arguments.dataFolder, error)) {
    PrintError(error);
    return kFailed;
  }
  ProcessRegistry processes;
  RecordedHashes hashes(&processes);
  Import::ImportRunner runner({FormOf(arguments.form), local, arguments.files, policy}, processes, hashes, &PrintNote);
  if (!runner.Prepare()) {
    PrintError("nothing to import");
    return kFailed;
  }
  DataFolderLock lock;
  ModuleSession session({&processes, &hashes});
  session.UsePolicy(policy);
  if (!lock.Take(arguments.dataFolder, "import", error) || !session.Open(arguments.dataFolder, error)) {
    PrintError(error);
    return kFailed;
  }
  const StopSignal stopSignal;
  const auto summary =
      runner.Run([&session](const ConnectionRecord& event) { return session.SendWaiting(PackConnection(event)); },
                 &StopSignal::IsRequested);
  const bool stored = CloseSession(session);
  if (!summary.delivered) {
    PrintError("the module refused an event; what follows it was not imported");
  }
  if (summary.interrupted) {
    PrintError("interrupted; what was read until then is stored");
  }
  const bool printed = PrintSummary(summary, arguments.json);
  const bool complete = summary.delivered && !summary.interrupted && summary.failedFiles == 0;
  return stored && printed && complete ? kDone : kFailed;
}

// False, and said, when under this policy the module would take nothing.
bool IsRecording(const Policy& policy) {
  const Policy::Value& enabled = policy.Get(Setting::kNetdbEnabled);
  if (enabled.value == 0) {
    PrintError(policy.Source() + ":" + std::to_string(enabled.line) +
               ": netdb_enabled is off, so that nothing would be stored");
  }
  return enabled.value != 0;
}

int Run(const Arguments& arguments) {
  std::string error;
  const auto policy = Policy::LoadOrDefault(arguments.policy, error);
  if (!policy) {
    PrintError(error);
    return kFailed;
  }
  const auto local = arguments.local.empty() ? std::optional(Import::LocalNetworks::Usual())
                                             : Import::LocalNetworks::Parse(arguments.local, error);
  if (!local) {
    PrintError("--local: " + error);
    return kUsage;
  }
  return IsRecording(*policy) ? RunImport(arguments, *local, *policy) : kFailed;
}

}  // namespace

Command AddImport(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("import", "Store the connections of recorded logs");
  AddDataOption(options, arguments->dataFolder);
  AddPolicyOption(options, arguments->policy);
  options.Text("--from", arguments->form, "Form of the files; recognised unless given")
      .OneOf({"zeek", "sysmon", "jsonl"});
  options.Text("--local", arguments->local,
               "Addresses and networks of the local side, separated by commas; the private, loopback and link-local "
               "ones unless given");
  options.Flag("--json", arguments->json, "Print the summary as one JSON object");
  options.Texts("FILE", arguments->files, "Logs, plain or gzip-compressed; - is standard input").Required();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
