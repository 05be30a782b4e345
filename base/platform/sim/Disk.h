// Disk: the simulated file system, folder entries and files, with what a power cut may take of them.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/sim/FileNode.h"

namespace Velmar::Sim {

// The path with a leading and no trailing separator, none doubled, "." and ".." resolved by their text.
std::string NormalizePath(const std::string& path);
// The folder that holds the entry; "/" holds itself.
std::string FolderOf(const std::string& path);

// All paths are normalised. Folders are durable as soon as they are made. The creation, deletion and renaming of files
// become durable when their folder is synced, and in no other way.
// Threads: thread-compatible; the state's mutex guards it.
class Disk {
 public:
  Disk() : folders_({"/"}) {}

  [[nodiscard]] FilePointer Find(const std::string& path) const;  // null when there is no such file
  [[nodiscard]] bool IsFolder(const std::string& path) const { return folders_.count(path) != 0; }
  // The file at `path`, made if it is missing. Null when that is a folder or lies in none.
  FilePointer Create(const std::string& path, u64 nowMs);
  bool Remove(const std::string& path);                         // false when there is no such file
  bool Rename(const std::string& from, const std::string& to);  // false when `to` exists
  bool MakeFolder(const std::string& path);                     // with its parents; false when a file is in the way
  // Makes the operations on the folder's entries durable, or the first half of them. One that touches a second folder
  // takes the earlier operations of that one along.
  void SyncFolder(const std::string& folder, bool half);
  // Keeps what is durable, and for each folder a number of the first operations since its last sync. One that touches
  // two folders is kept whole or not at all. `seed` decides.
  void LosePower(u64 seed);

  [[nodiscard]] u64 UsedBytes() const;
  // Below `folder`, or directly in it: the paths of files and folders, sorted.
  [[nodiscard]] std::vector<std::string> List(const std::string& folder, bool recursive) const;

  // Outside all operations: sets or removes a file durably, after all that is pending in its folder. Put makes the
  // parents; null when a file or folder is in the way.
  FilePointer Put(const std::string& path, const std::string& content, u64 nowMs);
  bool Take(const std::string& path);

 private:
  using Entries = std::map<std::string, FilePointer>;
  // A creation has no `from`, a deletion no `to`.
  struct Operation {
    std::string from;
    std::string to;
    FilePointer node;
    [[nodiscard]] std::set<std::string> Folders() const;
  };
  void Perform(Operation operation);
  static void ApplyTo(Entries& entries, const Operation& operation);
  [[nodiscard]] std::vector<bool> NeededBy(const std::string& folder) const;

  Entries entries_;
  Entries durable_;
  std::set<std::string> folders_;
  std::vector<Operation> unsynced_;
};

}  // namespace Velmar::Sim
