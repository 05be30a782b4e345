// InterruptGuard: what SIGINT does for a while.
#pragma once

#include <csignal>

#include "host/table/Database.h"

namespace Host::Sql {

// While it lives SIGINT interrupts what `database` runs, and does nothing for a null one. A third SIGINT within one
// life of a guard with a database ends the program: something is stuck. Lifetime: one within another; each puts back
// what it found.
class InterruptGuard {
 public:
  explicit InterruptGuard(Table::Database* database);
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  Table::Database* previousDatabase_;
  struct sigaction previousAction_ = {};
};

}  // namespace Host::Sql
