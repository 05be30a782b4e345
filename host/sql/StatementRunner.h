// StatementRunner: runs statements and prints their results.
#pragma once

#include <functional>
#include <ostream>
#include <string>

#include "host/render/Results.h"
#include "host/sql/Outcome.h"
#include "host/table/Database.h"

namespace Host::Sql {

// Where results and words about them go.
struct Printer {
  std::ostream& out;
  Render::RenderOptions options;                     // may change between statements
  std::function<void(const std::string&)> error;     // a sentence
  std::function<void(const std::string&)> footnote;  // about a result in the format table; none: no footnotes
};

// SIGINT interrupts a statement while it runs. Threads: as Database.
class StatementRunner {
 public:
  // Both must outlive it.
  StatementRunner(Table::Database& database, Printer& printer) : database_(database), printer_(printer) {}

  // A failure prints its message. A result in the format table that ends early keeps the rows that it has; in the
  // formats for programs it stays without its end.
  Outcome Run(const std::string& sql);

 private:
  Table::Database& database_;
  Printer& printer_;
  bool printedAny_ = false;
};

}  // namespace Host::Sql
