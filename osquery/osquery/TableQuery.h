// RunTableQuery: one query of the table edr_netdb over a folder of day files.
#pragma once

#include "osquery/osquery/OSQueryOutput.h"
#include "osquery/osquery/Selectors.h"

namespace RYL::NetDB::OSQuery {

inline constexpr char kTableName[] = "edr_netdb";

// Fills `output`, which is initialised and was made with `selectors`, an unused array, with the rows below `folder`.
// `columns`: "*" or empty for all, else names with commas between. `constraints`: the JSON text. Either may be null: a
// bad query. What went wrong is in `output.error`; nothing else tells.
// Threads: thread-safe for separate outputs; rows are written on the caller's thread.
void RunTableQuery(const char* folder, const char* columns, const char* constraints, SelectorArray& selectors,
                   OSQueryOutput& output);

}  // namespace RYL::NetDB::OSQuery
