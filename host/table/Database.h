// Database: SQL over the history of a data folder.
//
//   Database database(dataFolder);
//   std::string error;
//   if (!database.Open(error)) ...
//   database.Run("SELECT ip, bytes_in FROM edr_netdb WHERE port = ?", {Cell{i64{443}}}, sink, error);
//   for (const std::string& problem : database.TakeProblems()) ...
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Cell.h"

namespace Host::Table {

// A database in memory with the table edr_netdb, the views `processes` and `days`, and the functions of Functions.h.
// The table reads the folder anew for each statement: day by day in ascending order, within a day as it is stored, one
// day in memory at a time. Nothing can be attached, and nothing is written below the folder; large sorts use SQLite's
// temporary files.
//
// Lifetime: Open once. Threads: one thread, but for Interrupt; the log callback is taken while Run runs. One object in
// a process runs at a time.
class Database {
 public:
  struct Column {
    std::string name;
    std::string origin;  // the column of edr_netdb that it is, unchanged; empty for anything else
  };

  // Gets the results of one Run. A false from any ends the Run.
  class Sink {
   public:
    Sink() = default;
    virtual ~Sink() = default;
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    // A statement that gives columns begins.
    virtual bool Begin(const std::vector<Column>& columns) = 0;
    virtual bool Row(const std::vector<Cell>& cells) = 0;
    // It has no more rows.
    virtual bool End() = 0;
  };

  enum class Outcome {
    kDone,
    kStopped,      // by the sink
    kInterrupted,  // by Interrupt
    kFailed,       // `error` says why
  };

  explicit Database(std::string dataFolder);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // False with a sentence when there is no history in the folder.
  bool Open(std::string& error);
  // Runs the statements of `sql` one after another. `parameters` are bound in order, by each that has any.
  Outcome Run(const std::string& sql, const std::vector<Cell>& parameters, Sink& sink, std::string& error);
  // Ends a Run soon. From any thread, and from a signal handler.
  void Interrupt();
  // What kept rows away since the last call, as sentences: the results since then are not whole.
  std::vector<std::string> TakeProblems();

  // Whether `sql` ends in a semicolon that ends a statement.
  static bool IsComplete(const std::string& sql);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace Host::Table
