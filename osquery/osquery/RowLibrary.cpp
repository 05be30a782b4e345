#include "osquery/osquery/RowLibrary.h"

#include <google/protobuf/stubs/common.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/json_util.h>

#include <atomic>
#include <exception>

#include "osquery/netdb_osquery_schema/netdb_osquery_schema.pb.h"
#include "osquery/osquery/OSQueryLog.h"

namespace RYL::NetDB::OSQuery {

namespace {

// Names, quotes, numbers and white space of all fields.
constexpr u64 kFieldsText = 2048;
// The most that a byte of a text can become: \u001f.
constexpr u64 kEscapedSize = 6;

std::atomic<bool> hasEnded{false};

bool MakeRenderer() {
  if (RowDescriptor() == nullptr) {
    return false;
  }
  try {
    std::string json;
    RenderRow(edr_netdb(), 0, json);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

const google::protobuf::Descriptor* MakeDescriptor() {
  if (hasEnded.load()) {
    return nullptr;
  }
  SilenceLibrary();
  try {
    return edr_netdb::descriptor();
  } catch (const std::exception&) {
    return nullptr;
  }
}

}  // namespace

void SilenceLibrary() {
  static const bool silent = (google::protobuf::SetLogHandler(nullptr), true);
  static_cast<void>(silent);
}

const google::protobuf::Descriptor* RowDescriptor() {
  static const google::protobuf::Descriptor* const descriptor = MakeDescriptor();
  if (descriptor == nullptr || hasEnded.load()) {
    RYL_LOG(osquery, NoDescriptor);
    return nullptr;
  }
  return descriptor;
}

bool CanRenderRows() {
  static const bool isReady = MakeRenderer();
  if (!isReady || hasEnded.load()) {
    RYL_LOG(osquery, NoRenderer);
    return false;
  }
  return true;
}

// The text has its room before the library writes to it: a stream of the library that finds none writes beyond its end.
// What MessageToJsonString says of its success is not looked at; its text stands as it is.
void RenderRow(const edr_netdb& row, u64 encodedSize, std::string& json) {
  google::protobuf::util::JsonPrintOptions options;
  options.add_whitespace = true;
  options.preserve_proto_field_names = true;
  json.clear();
  json.reserve(kFieldsText + kEscapedSize * encodedSize);
  static_cast<void>(google::protobuf::util::MessageToJsonString(row, &json, options));
}

void EndRowLibrary() {
  hasEnded = true;
  google::protobuf::ShutdownProtobufLibrary();
}

}  // namespace RYL::NetDB::OSQuery
