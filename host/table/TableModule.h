// TableModule: edr_netdb as a virtual table of SQLite.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <string>
#include <utility>

#include "host/table/DayList.h"
#include "host/table/Problems.h"

namespace Host::Table {

// What scans of the table need, and what they leave. It must outlive the connection.
struct TableContext {
  explicit TableContext(std::string dayFiles) : folder(std::move(dayFiles)) {}

  const std::string folder;  // of the day files
  Problems problems;
  Pause pause = PauseForSave;
  DayList days{folder, problems, pause};
  std::atomic<bool> interrupted{false};  // ends scans
};

// Makes the module edr_netdb known to `db`, and with it the table. An SQLite result code.
int RegisterTable(sqlite3* db, TableContext& context);

}  // namespace Host::Table
