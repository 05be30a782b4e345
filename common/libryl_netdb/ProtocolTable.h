// ProtocolTable: from the protocol names of events to the protocol bits of rows.
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace RYL::NetDB {

// Names are known by their hash only. Lifetime: Create once, Insert each name, look up.
// Threads: with `threadSafe` thread-safe, else thread-compatible. Errors: false after a level 3 record.
class ProtocolTable {
 public:
  static constexpr u32 kKnownNames = 13;

  // Upper and lower case make one name. Set before the first Insert.
  void SetCaseFold(bool fold) { caseFold = fold; }
  // False on a second call.
  bool Create(u32 capacity, u32 ceiling, u32 growStep, bool threadSafe, Velmar::Collections::GrowType growType);
  // False when the table is full or holds the name's hash already.
  bool Insert(const char* name, u16 mask);
  // Inserts the names that events carry.
  bool InsertKnownNames();

  // RS hash (R. Sedgewick) over signed bytes; 0 for an empty name.
  [[nodiscard]] u32 HashProtocolName(const char* name) const;
  // `mask` is written only when the name is found.
  bool LookupProtocol(const char* name, u16& mask) const;

 private:
  struct Entry {
    u32 hash = 0;
    u16 mask = 0;
  };

  // Index of the first entry whose hash is not below `hash`.
  [[nodiscard]] u32 LowerBound(u32 hash) const;

  Velmar::Collections::Array<Entry> entries;
  bool created = false;
  bool caseFold = false;
};

}  // namespace RYL::NetDB
