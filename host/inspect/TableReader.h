// TableReader: looks through the tables inside a day's store, row by row, without keeping them.
#pragma once

#include <string>

#include "host/inspect/StoreReport.h"

namespace Host::Inspect {

// Whether a value under this key is a table: "p" processes, "4" IPv4 rows, "6" IPv6 rows.
bool IsTableKey(const std::string& key);

// Reads a table from the value's content. `problem` is a sentence when something is wrong with it, else empty.
TableReport ReadTable(const std::string& key, const u8* data, u32 size, std::string& problem);

}  // namespace Host::Inspect
