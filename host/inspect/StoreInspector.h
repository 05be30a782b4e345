// StoreInspector: reads a store file as docs/file-format.md describes it, past damage as far as that goes.
#pragma once

#include "host/inspect/ByteSource.h"
#include "host/inspect/StoreReport.h"

namespace Host::Inspect {

// A reader of its own, apart from the block cipher. Safe on any bytes: memory is bounded by what one block may hold,
// and time by the size of the file. Thread-safe.
StoreReport InspectStore(ByteSource& bytes);

}  // namespace Host::Inspect
