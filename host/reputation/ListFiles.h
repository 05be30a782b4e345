// ListFiles: the lists of harmless networks that a service goes by, out of files and folders.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/reputation/AddressList.h"

namespace Host::Reputation {

// What was loaded, besides the networks themselves.
struct LoadedLists {
  AddressList addresses;
  std::size_t files = 0;
};

// Says one thing about a file to whoever looks at the program's messages.
using Report = std::function<void(const std::string& sentence)>;

// Reads each file, and of each folder the files whose names end in ".txt", ".list" or ".json", hidden ones and folders
// below left out. Entries that are no networks are reported as "FILE:LINE: SENTENCE" and skipped. Nothing, with a
// sentence in `error`, when a file or folder cannot be read, a file is JSON and no list or has more than 256 MiB, or
// all of them hold no network.
std::optional<LoadedLists> LoadLists(const std::vector<std::string>& paths, const Report& report, std::string& error);

}  // namespace Host::Reputation
