// OSQueryOutput's JSON form.
#include <exception>
#include <string>

#include <google/protobuf/arena.h>
#include <google/protobuf/util/json_util.h>

#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"
#include "osquery/osquery/OSQueryLog.h"
#include "osquery/osquery/OSQueryOutput.h"

namespace RYL::NetDB::OSQuery {

namespace {

constexpr int kReservedLength = 2048;

// What MessageToJsonString says of its success is not looked at: its text stands as it is.
std::string RenderMessage(const edr_netdb& message) {
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.preserve_proto_field_names = true;
  std::string json;
  static_cast<void>(google::protobuf::util::MessageToJsonString(message, &json, options));
  return json;
}

}  // namespace

bool OSQueryOutput::ToJson(Velmar::Utils::String& out) {
  out.Clear();
  if (buffer_.size == 0) {
    return true;
  }
  bool written = false;
  try {
    written = out.Create(kReservedLength) && AppendJson(out);
  } catch (const std::exception&) {
    written = false;
  }
  if (!written) {
    RYL_LOG(osquery, JsonNotWritten, message_count);
    out.Clear();
  }
  return written;
}

bool OSQueryOutput::AppendJson(Velmar::Utils::String& out) {
  bool written = out.AddFormat(R"({"osquery_msg":{"version":%u,"error":%u,"message_count":%u,"messages":[)", kVersion,
                               error, message_count);
  u32 offset = 0;
  const u8* bytes = nullptr;
  u32 size = 0;
  while (written && NextMessage(offset, bytes, size)) {
    google::protobuf::Arena arena(arenaBlock_, sizeof(arenaBlock_));
    auto* message = google::protobuf::Arena::CreateMessage<edr_netdb>(&arena);
    if (!message->ParseFromArray(bytes, static_cast<int>(size))) {
      RYL_LOG(osquery, MessageNotParsed, offset - size);
      continue;
    }
    const std::string json = RenderMessage(*message);
    written = out.Add(json.data(), static_cast<int>(json.size())) && out.AddChar(',');
  }
  if (written && out.EndsWith(',', false)) {
    out.Truncate(out.length - 1);
  }
  return written && out.Add("]}}");
}

}  // namespace RYL::NetDB::OSQuery
