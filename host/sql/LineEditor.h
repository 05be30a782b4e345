// LineEditor: lines that are typed on a terminal, with recall and completion.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/sql/LineSource.h"

namespace Host::Sql {

// Edits on standard input and output. Ctrl-C drops the line, Ctrl-D on an empty one is the end, Tab completes one of
// the known words. Sets the process's character type to that of the environment, or else to UTF-8.
//
// Lifetime: one at a time in a process. Errors: without a history file recall lasts as long as the object. Effects on
// disk: each entry is added to the history file at once, so that shells beside each other lose nothing; a file of more
// entries than are kept is written anew at the start.
class LineEditor final : public LineSource {
 public:
  // An empty path: no file. The file must be there.
  LineEditor(const std::string& historyFile, std::vector<std::string> words);
  ~LineEditor() override;

  Got Read(const std::string& prompt, std::string& line) override;
  void Remember(const std::string& entry) override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace Host::Sql
