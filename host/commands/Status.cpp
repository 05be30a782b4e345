#include <iostream>
#include <memory>

#include "common/netdb_storage/DBManager.h"
#include "host/agent/DataFolder.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/commands/JsonField.h"
#include "host/commands/StatusTable.h"
#include "host/control/Client.h"
#include "host/text/TimeText.h"

namespace Host::Commands {
namespace {

using nlohmann::ordered_json;
using RYL::NetDB::DBStats;

constexpr char kExamples[] =
    "  netdb status                                  of the daemon on the usual folder\n"
    "  netdb status --data /tmp/history --format json | jq .db.total_sz\n"
    "Without a daemon it shows what the folder alone tells.\n";

struct Arguments {
  std::string dataFolder;
  std::string format = "table";
};

// "2024-05-14 00:00:00", as in the module's report.
std::string DateText(u64 seconds) {
  std::string text = Text::FormatUtc(seconds);
  text[text.find('T')] = ' ';
  text.pop_back();
  return text;
}

// The part of the module's report that a folder tells.
ordered_json FolderReport(const DBStats& stats) {
  ordered_json folder = {{"total_filtered", stats.filtered_count}, {"total_unfiltered", stats.unfiltered_count}};
  if (stats.filtered_count + stats.unfiltered_count != 0) {
    folder["min_sz"] = stats.min_size;
    folder["max_sz"] = stats.max_size;
    folder["total_sz"] = stats.total_size;
    folder["avg_sz"] = stats.average_size;
    folder["newest_db_sz"] = stats.newest_size;
    folder["oldest"] = DateText(stats.oldest);
    folder["newest"] = DateText(stats.newest);
  }
  return {{"db", folder}};
}

// False, after a message, when there is no history.
bool AskFolder(const std::string& dataFolder, const std::string& reason, ordered_json& status) {
  std::string error;
  if (!HasHistory(dataFolder, error)) {
    PrintError(error);
    return false;
  }
  PrintNote(reason + "; this is what the folder tells");
  DBStats stats;
  const bool complete = RYL::NetDB::DBManager::ComputeStatistics(DatabaseFolder(dataFolder).c_str(), stats);
  status = {{"complete", complete}, {"report", FolderReport(stats)}};
  return true;
}

bool AskDaemon(const std::string& dataFolder, ordered_json& status) {
  const Control::Reply reply = Control::Ask(dataFolder, Control::Kind::kStatus);
  if (reply.outcome == Control::Outcome::kNoDaemon) {
    return AskFolder(dataFolder, reply.text, status);
  }
  if (reply.outcome != Control::Outcome::kAnswer) {
    PrintError(reply.text);
    return false;
  }
  status = ordered_json::parse(reply.text, nullptr, false);
  return true;
}

int Run(const Arguments& arguments) {
  ordered_json status;
  if (!AskDaemon(arguments.dataFolder, status)) {
    return kFailed;
  }
  std::cout << (arguments.format == "json" ? Field(status, "report").dump(2) + "\n" : StatusTable(status));
  const ordered_json& complete = Field(status, "complete");
  const bool isComplete = complete.is_boolean() && complete.get<bool>();
  if (!isComplete) {
    PrintError("not everything could be told; the report ends where it failed");
  }
  if (!FinishOutput(std::cout)) {
    return kFailed;
  }
  return isComplete ? kDone : kPartial;
}

}  // namespace

Command AddStatus(Program& program) {
  const auto arguments = std::make_shared<Arguments>();
  Options options = program.AddCommand("status", "Show how the daemon and its history are doing");
  AddDataOption(options, arguments->dataFolder);
  options.Text("--format", arguments->format, "How it is shown; json is the module's report as it is")
      .OneOf({"table", "json"})
      .ShowDefault();
  return {options.Name(), [arguments] { return Run(*arguments); }, kExamples};
}

}  // namespace Host::Commands
