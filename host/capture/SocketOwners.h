// SocketOwners: which process holds a socket, and who that process is, from /proc.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>

#include "Velmar/Types.h"
#include "host/agent/ProcessRegistry.h"

namespace Host::Capture {

// A process is known by its id and start time, so that a reused id is another process. Its unique identifier is made of
// the boot, the id and the start time, and is the same in every run of this program. Threads: one thread; the registry
// is read by others.
class SocketOwners {
 public:
  // Puts what it finds into `registry`, which must outlive it. `procFolder` is "/proc".
  SocketOwners(ProcessRegistry& registry, std::string procFolder);

  // The identifier of the process that holds the socket, the longest-lived one when there are several; 0 when no
  // readable process does. Scans all processes when the inode is not known yet, once a Refresh.
  Velmar::u64 Find(Velmar::u32 inode);
  // Allows the next scan, and forgets processes that ended more than ten minutes ago.
  void Refresh(Velmar::u64 nowMs);

 private:
  struct Holder {
    Velmar::u64 startTicks;
    Velmar::u32 pid;
  };
  struct Known {
    Velmar::u64 puid;
    Velmar::u64 lastSeenMs;
  };

  void Scan();
  void ScanProcess(Velmar::u32 pid);
  Velmar::u64 Identify(const Holder& holder);

  ProcessRegistry& registry_;
  std::string procFolder_;
  std::string bootId_;
  std::unordered_map<Velmar::u32, Holder> holders_;  // by inode, of the last scan
  std::unordered_map<std::string, Known> known_;     // by "pid/start"
  bool scanned_ = false;
  Velmar::u64 nowMs_ = 0;
};

}  // namespace Host::Capture
