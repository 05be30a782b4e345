// DotCommands: what the shell understands besides SQL.
#pragma once

#include <string>
#include <vector>

#include "host/sql/Outcome.h"
#include "host/sql/StatementRunner.h"
#include "host/table/Database.h"

namespace Host::Sql {

// Tables and views in order of their names.
std::vector<std::string> TableNames(Table::Database& database);

// Threads: as Database.
class DotCommands {
 public:
  // Both must outlive it.
  DotCommands(Table::Database& database, Printer& printer) : database_(database), printer_(printer) {}

  // A line such as ".mode csv". kFailed after a message for one that is not known or makes no sense.
  Outcome Run(const std::string& line);

 private:
  Outcome ShowTables(const std::string& argument);
  Outcome ShowSchema(const std::string& name);
  Outcome SetMode(const std::string& name);
  Outcome ShowHelp(const std::string& argument);
  Outcome Quit(const std::string& argument);
  Outcome Fail(const std::string& message);
  // kDone when all could be printed.
  Outcome Printed();

  Table::Database& database_;
  Printer& printer_;
};

}  // namespace Host::Sql
