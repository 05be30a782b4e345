// DataFolder: where the history lies, and the lock that gives it one writer at a time.
#pragma once

#include <string>

namespace Host {

// `--data DIR`, or /var/lib/ryl for root, else $XDG_STATE_HOME/ryl or ~/.local/state/ryl.
std::string DefaultDataFolder();
// $HOME, else that of the user; empty when there is none.
std::string HomeFolder();
// DIR/netdb.
std::string DatabaseFolder(const std::string& dataFolder);
// Whether DatabaseFolder is there; false with a sentence in `error` that says why a reader finds no history.
bool HasHistory(const std::string& dataFolder, std::string& error);
// False with a sentence in `error` when a day file's path in it would pass what a store takes.
bool CheckPathLength(const std::string& dataFolder, std::string& error);

// Holds DIR/netdb.lock while it lives. Writers take it; readers never do.
// Effects on disk: makes DIR (mode 0700) and the lock file (0600), which stays.
class DataFolderLock {
 public:
  DataFolderLock() = default;
  ~DataFolderLock();
  DataFolderLock(const DataFolderLock&) = delete;
  DataFolderLock& operator=(const DataFolderLock&) = delete;

  // False with a sentence that says who holds it. `command` is what the lock file will name.
  bool Take(const std::string& dataFolder, const std::string& command, std::string& error);

 private:
  int descriptor_ = -1;
};

}  // namespace Host
