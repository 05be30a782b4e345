// StoreInspector: reads a store file as docs/file-format.md describes it, past damage as far as that goes.
#pragma once

#include <functional>

#include "host/inspect/ByteSource.h"
#include "host/inspect/StoreReport.h"

namespace Host::Inspect {

// A reader of its own, apart from the block cipher. Safe on any bytes: memory is bounded by what one block may hold,
// and time by the size of the file. Thread-safe.
StoreReport InspectStore(ByteSource& bytes);

// Gets each entry that has a key and a whole value, also those past kMaxListedEntries: its value, of entry.valueSize
// bytes that last as long as the call, and the position of its page.
using EntrySink = std::function<void(const EntryReport& entry, const u8* value, u64 position)>;
StoreReport InspectStore(ByteSource& bytes, const EntrySink& sink);

}  // namespace Host::Inspect
