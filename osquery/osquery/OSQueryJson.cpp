// OSQueryOutput's JSON form.
#include <exception>
#include <string>

#include <google/protobuf/arena.h>

#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"
#include "osquery/osquery/OSQueryLog.h"
#include "osquery/osquery/OSQueryOutput.h"
#include "osquery/osquery/RowLibrary.h"

namespace RYL::NetDB::OSQuery {

namespace {

constexpr int kReservedLength = 2048;

}  // namespace

bool OSQueryOutput::ToJson(Velmar::Utils::String& out) {
  out.Clear();
  if (buffer.size == 0) {
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
  std::string json;
  u32 offset = 0;
  const u8* bytes = nullptr;
  u32 size = 0;
  while (written && NextMessage(offset, bytes, size)) {
    if (!CanRenderRows()) {
      return false;
    }
    google::protobuf::Arena arena(arena_block, sizeof(arena_block));
    auto* message = google::protobuf::Arena::CreateMessage<edr_netdb>(&arena);
    if (!message->ParseFromArray(bytes, static_cast<int>(size))) {
      RYL_LOG(osquery, MessageNotParsed, offset - size);
      continue;
    }
    RenderRow(*message, size, json);
    written = out.Add(json.data(), static_cast<int>(json.size())) && out.AddChar(',');
  }
  if (written && out.EndsWith(',', false)) {
    out.Truncate(out.length - 1);
  }
  return written && out.Add("]}}");
}

}  // namespace RYL::NetDB::OSQuery
