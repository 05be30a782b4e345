// FileNode: the content of one simulated file, as programs see it and as the disk has it.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Velmar/Types.h"

namespace Velmar::Sim {

using Random = std::mt19937_64;

// Threads: thread-compatible; the state's mutex guards it.
class FileNode {
 public:
  u64 createdMs = 0;
  u64 modifiedMs = 0;

  [[nodiscard]] const std::string& Content() const { return content_; }
  void Write(u64 offset, const void* data, u32 size, u64 nowMs);
  void Truncate(u64 nowMs);
  // Makes all that was written durable, or the first half of the writes.
  void Sync();
  void SyncHalf();
  // Leaves what is durable, and a part of the rest that `random` chooses: nothing; all; the first writes with the last
  // of them cut short; the same with zeroes up to the length that the file had (the length reached the disk, the data
  // did not); or of each write all, some stretch or nothing, as a disk does that writes in an order of its own.
  void LosePower(Random& random);

 private:
  // `truncate` empties the file; otherwise `data` lands at `offset`.
  struct Change {
    bool truncate;
    u64 offset;
    std::string data;
  };
  static void ApplyTo(std::string& content, const Change& change);
  void ApplyFirstToDisk(Random& random);
  void ApplyAnyToDisk(Random& random);
  void GrowOnDisk();

  std::string content_;
  std::string durable_;
  std::vector<Change> unsynced_;
};

using FilePointer = std::shared_ptr<FileNode>;

}  // namespace Velmar::Sim
