// QueryEventReader: reads a history query (QueryEvent in base/RYL/Events/Records.h).
#pragma once

#include "RYL/Events/Records.h"
#include "Velmar/Types.h"
#include "common/libryl_netdb/EventReader.h"

namespace RYL::Module {

// A view of one record, which is not null and must outlive it. The record carries no length: nothing here can tell an
// offset that leads out of it. Threads: thread-compatible.
class QueryEventReader {
 public:
  explicit QueryEventReader(const Events::Objects::NetDbQuery* record) : event(reinterpret_cast<const u8*>(record)) {}

  // Epoch seconds, both included.
  [[nodiscard]] u64 GetStartTime() const { return LoadPacked<u64>(event + Events::QueryEvent::kStartTime); }
  [[nodiscard]] u64 GetEndTime() const { return LoadPacked<u64>(event + Events::QueryEvent::kEndTime); }
  [[nodiscard]] const char* GetKind() const { return TextAt(Events::QueryEvent::kKind); }
  [[nodiscard]] u32 GetValueCount() const { return LoadPacked<u16>(event + Events::QueryEvent::kValueCount); }
  // Null at or past the count, without a table, and for a value without a text.
  [[nodiscard]] const char* GetValue(u32 index) const {
    const u32 table = LoadPacked<u16>(event + Events::QueryEvent::kValueTableOffset);
    if (table == 0 || index >= GetValueCount()) {
      return nullptr;
    }
    const u16 offset = LoadPacked<u16>(event + table + index * sizeof(u16));
    return offset == 0 ? nullptr : TextAt(offset);
  }

 private:
  [[nodiscard]] const char* TextAt(u32 offset) const { return reinterpret_cast<const char*>(event + offset); }

  const u8* event;
};

}  // namespace RYL::Module
