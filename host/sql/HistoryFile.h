// HistoryFile: where the shell keeps what was typed.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Host::Sql {

// An entry a line, its own line feeds as "\n" and backslashes doubled. Each entry is added to the file's end at once,
// so that shells beside each other lose nothing. Without a file nothing is kept, silently. Threads: thread-compatible.
class HistoryFile {
 public:
  static constexpr std::size_t kMostEntries = 1000;

  // $XDG_STATE_HOME/netdb/sql_history, or that below ~/.local/state; empty when the environment names no folder.
  static std::string UsualPath();

  // An empty path: no file.
  explicit HistoryFile(std::string path) : path_(std::move(path)) {}

  // Makes the file, mode 0600, and the folders that are missing above it, 0700, and gives its last entries. A file of
  // many more is written anew with these.
  std::vector<std::string> Open();
  void Add(const std::string& entry);

 private:
  void Rewrite(const std::vector<std::string>& entries);

  std::string path_;
};

}  // namespace Host::Sql
