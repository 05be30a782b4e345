#include "host/commands/EventReply.h"

#include <google/protobuf/util/json_util.h>

#include <nlohmann/json.hpp>

#include "host/agent/DataFolder.h"
#include "host/agent/ModuleSession.h"
#include "host/commands/Command.h"
#include "host/commands/Console.h"
#include "host/events/TableReply.h"
#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"

namespace Host::Commands {
namespace {

using Json = nlohmann::ordered_json;

std::string Print(const Json& document) {
  constexpr int kIndent = 2;
  return document.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

void PrintReasons(const EventReply& reply) {
  for (const std::string& reason : reply.reasons) {
    PrintNote(reason);
  }
}

bool PrintSkippedFiles(const ModuleSession& session) {
  const std::vector<std::string> files = session.SkippedFiles();
  for (const std::string& file : files) {
    PrintError("the reply leaves out " + file + ", which cannot be read");
  }
  return !files.empty();
}

std::optional<Json> RowOf(const TableReply::Message& message) {
  edr_netdb row;
  if (!row.ParseFromArray(message.bytes, static_cast<int>(message.size))) {
    return std::nullopt;
  }
  google::protobuf::util::JsonPrintOptions options;
  options.preserve_proto_field_names = true;
  std::string text;
  if (!google::protobuf::util::MessageToJsonString(row, &text, options).ok()) {
    return std::nullopt;
  }
  return Json::parse(text);
}

}  // namespace

std::optional<EventReply> AskModule(const std::string& dataFolder, const Policy& policy, const std::vector<u8>& event) {
  std::string error;
  DataFolderLock lock;
  ReplyReceiver receiver;
  NamedBinaries binaries(policy.Get(Setting::kMaxQueryBytes).value);
  ModuleSession session({nullptr, nullptr, &receiver});
  session.UsePolicy(policy);
  if (!CheckPathLength(dataFolder, error) || !HasHistory(dataFolder, error) || !lock.Take(dataFolder, "event", error) ||
      !session.OpenToAsk(dataFolder, error)) {
    PrintError(error);
    return std::nullopt;
  }
  const std::size_t errorsBefore = session.Errors().size();
  session.Send(event, &binaries);
  EventReply reply;
  reply.event = receiver.Take();
  if (const std::vector<u8>* bytes = binaries.Find("events")) {
    reply.binary = *bytes;
  }
  reply.complete = !PrintSkippedFiles(session);
  // Errors that the module had before the query are not about it.
  reply.reasons = session.Errors();
  reply.reasons.erase(reply.reasons.begin(), reply.reasons.begin() + static_cast<std::ptrdiff_t>(errorsBefore));
  if (reply.event == nullptr && !reply.binary) {
    PrintError("the module gave no reply");
    PrintReasons(reply);
  }
  session.Close();
  return reply;
}

std::optional<std::string> ToJson(const ReplyReceiver::Reply& reply, std::string& error) {
  Velmar::Utils::String text;
  if (!reply.tree.AppendJson(text)) {
    error = "no memory for the text of the reply";
    return std::nullopt;
  }
  return Print(Json::parse(text.text));
}

std::optional<std::string> ToJson(const std::vector<u8>& binary, std::string& error) {
  const auto reply = ReadTableReply(binary, error);
  if (!reply) {
    return std::nullopt;
  }
  Json rows = Json::array();
  for (const TableReply::Message& message : reply->messages) {
    auto row = RowOf(message);
    if (!row) {
      error = "message " + std::to_string(rows.size() + 1) + " of the reply is no row of edr_netdb";
      return std::nullopt;
    }
    rows.push_back(std::move(*row));
  }
  const Json document = {{"version", reply->version},
                         {"error", reply->error},
                         {"message_count", reply->messageCount},
                         {"messages", std::move(rows)}};
  return Print(document);
}

std::optional<u32> ErrorOf(const EventReply& reply) {
  std::string error;
  if (reply.binary) {
    const auto table = ReadTableReply(*reply.binary, error);
    return table ? std::optional<u32>(table->error) : std::nullopt;
  }
  if (reply.event == nullptr) {
    return std::nullopt;
  }
  using Velmar::Utils::TreeContainer;
  bool found = false;
  const TreeContainer& tree = reply.event->tree;
  const u32 code = tree.GetNodeValueUInt32(tree.GetNodeChild(TreeContainer::kRoot, "osquery_msg"), "error", 0, &found);
  return found ? std::optional<u32>(code) : std::nullopt;
}

int ExitCodeOf(u32 error, const EventReply& reply) {
  switch (error) {
    case 0:
      return kDone;
    case 1:
      PrintError("error 1: more rows match than max_query_rows of the policy allows");
      return kPartial;
    case 2:
      PrintError("error 2: the rows have more bytes than max_query_bytes of the policy allows");
      return kPartial;
    case 3:
      PrintError("error 3: a row is too large to be part of a reply");
      break;
    case 4:
      PrintError("error 4: a column, or a constraint or its value, is none that the module takes");
      break;
    default:
      PrintError("error " + std::to_string(error) + ": the module failed on the way");
      break;
  }
  PrintReasons(reply);
  return kFailed;
}

}  // namespace Host::Commands
