// HistoryFile: where the shell keeps what was typed.
#pragma once

#include <string>

namespace Host::Sql {

// $XDG_STATE_HOME/netdb/sql_history, or that below ~/.local/state; empty when the environment names no folder.
std::string HistoryFilePath();

// Makes the file, mode 0600, and the folders that are missing above it, 0700. Gives a file that is there mode 0600 too.
// False when the file cannot be written.
bool PrepareHistoryFile(const std::string& path);

}  // namespace Host::Sql
