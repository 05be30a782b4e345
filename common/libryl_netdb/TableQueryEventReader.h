// TableQueryEventReader: reads a table query (TableQueryEvent in base/RYL/Events/Records.h).
#pragma once

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"
#include "common/libryl_netdb/EventReader.h"

namespace RYL::Module {

// A view of one record, which is not null and must outlive it. The record carries no length: nothing here can tell an
// offset that leads out of it. Threads: thread-compatible.
class TableQueryEventReader {
 public:
  explicit TableQueryEventReader(const Events::Objects::StorageTableQuery* record)
      : event(reinterpret_cast<const u8*>(record)) {}

  [[nodiscard]] bool WantsEvent() const { return event[Events::TableQueryEvent::kReplyAsEvent] != 0; }
  [[nodiscard]] const char* GetTableName() const {
    return reinterpret_cast<const char*>(event + Events::TableQueryEvent::kTableName);
  }
  // Null when the record has none.
  [[nodiscard]] const char* GetColumns() const { return TextOf(Events::TableQueryEvent::kColumnsOffset); }
  [[nodiscard]] const char* GetConstraints() const { return TextOf(Events::TableQueryEvent::kConstraintsOffset); }

 private:
  [[nodiscard]] const char* TextOf(u32 offsetField) const {
    const u16 offset = LoadPacked<u16>(event + offsetField);
    return offset == 0 ? nullptr : reinterpret_cast<const char*>(event + offset);
  }

  const u8* event;
};

}  // namespace RYL::Module
