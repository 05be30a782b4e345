#include "host/events/TableQueryRecord.h"

#include "RYL/Events/Records.h"
#include "host/events/RecordBytes.h"

namespace Host {

std::optional<std::vector<u8>> PackTableQuery(const TableQueryRecord& record, std::string& error) {
  namespace Layout = RYL::Events::TableQueryEvent;
  RecordBytes bytes(Layout::kTableName);
  bytes.PutAt(Layout::kHeader, RYL::Events::kTableQuery);
  bytes.PutAt(Layout::kReplyAsEvent, static_cast<u8>(record.replyAsEvent ? 1 : 0));
  if (!bytes.AddText(record.table, "the name of the table", error) ||
      !bytes.AddText(Layout::kColumnsOffset, record.columns, "the list of columns", error) ||
      !bytes.AddText(Layout::kConstraintsOffset, record.constraints, "the constraints", error)) {
    return std::nullopt;
  }
  return bytes.Take();
}

}  // namespace Host
