// LineEditor: lines that are typed on a terminal, with recall and completion.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/sql/HistoryFile.h"
#include "host/sql/LineSource.h"

namespace Host::Sql {

// Edits on standard input and output. Ctrl-C drops the line, Ctrl-D on an empty one is the end, Tab completes one of
// the known words. Sets the process's character type to that of the environment, or else to UTF-8.
//
// Lifetime: one at a time in a process. Effects on disk: those of the history file.
class LineEditor final : public LineSource {
 public:
  LineEditor(HistoryFile historyFile, std::vector<std::string> words);
  ~LineEditor() override;

  Got Read(const std::string& prompt, std::string& line) override;
  void Remember(const std::string& entry) override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace Host::Sql
