#include "host/events/NetDbQueryRecord.h"

#include <limits>

#include "RYL/Events/Records.h"
#include "common/HashKind.h"
#include "host/events/RecordBytes.h"

namespace Host {
namespace {

namespace Layout = RYL::Events::QueryEvent;

bool AddValues(const std::vector<std::string>& values, RecordBytes& bytes, std::string& error) {
  if (values.empty()) {
    return true;
  }
  if (values.size() > std::numeric_limits<u16>::max()) {
    error = "more than 65535 values";
    return false;
  }
  const u32 count = static_cast<u32>(values.size());
  bytes.PutAt(Layout::kValueCount, static_cast<u16>(count));
  u32 table = 0;
  if (!bytes.AddArea(Layout::kValueTableOffset, count * u32{sizeof(u16)}, table, error)) {
    return false;
  }
  for (u32 i = 0; i < count; ++i) {
    const u32 field = table + i * u32{sizeof(u16)};
    if (!bytes.AddText(field, values[i], "value " + std::to_string(i + 1), error)) {
      return false;
    }
  }
  return true;
}

}  // namespace

const std::vector<std::string>& QueryKinds() {
  static const std::vector<std::string> kKinds = {"FindIPv4",         "FindProcessesPath", "FindPorts", "FindProtos",
                                                  "FindProcessesMD5", "FindProcessesQID",  "Iterate"};
  return kKinds;
}

std::optional<std::string> FindQueryKind(const std::string& text) {
  for (const std::string& kind : QueryKinds()) {
    if (kind.size() == text.size() && RYL::NetDB::HashKind(kind.c_str()) == RYL::NetDB::HashKind(text.c_str())) {
      return kind;
    }
  }
  return std::nullopt;
}

std::optional<std::vector<u8>> PackNetDbQuery(const NetDbQueryRecord& record, std::string& error) {
  RecordBytes bytes(Layout::kKind);
  bytes.PutAt(Layout::kHeader, RYL::Events::kNetDbQuery);
  bytes.PutAt(Layout::kStartTime, record.since);
  bytes.PutAt(Layout::kEndTime, record.until);
  if (!bytes.AddText(record.kind, "the kind", error) || !AddValues(record.values, bytes, error)) {
    return std::nullopt;
  }
  return bytes.Take();
}

}  // namespace Host
