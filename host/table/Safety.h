// Safety: keeps statements from reaching outside of the database.
#pragma once

#include <sqlite3.h>

namespace Host::Table {

// Afterwards nothing can be attached, loaded or written to a file, whatever a statement says. An SQLite result code.
int MakeSafe(sqlite3* db);

}  // namespace Host::Table
