// Sim: control of the simulated platform, for tests. Virtual clock, files in memory, a fault plan, power cuts.
//
//   Sim::Reset();
//   Sim::SetEpochTime(1700000000000);
//   Sim::FailFileOperation(7, Sim::Fault::kPowerCut);
//   ... run the code ...
//   Sim::Reboot(seed);                    // what was not synced may be gone, whole or in part
//
// Only in the library `ryl_sim`, which a test links instead of `ryl`.
#pragma once

#include <string>
#include <vector>

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Sim {

// All functions are thread-safe. Each test process starts with an empty file system that holds "/", the clock at
// 1700000000000 ms, and no faults.

RYL_API void Reset();

// --- Time. Nothing moves it but these calls, and Sleep, which adds its own length. ---
RYL_API void SetEpochTime(u64 milliseconds);
// Moves the clock and wakes every Event::Wait whose time-out has come, in order of their due times.
RYL_API void AdvanceTime(u64 milliseconds);
// Real-time block until `count` threads stand in Event::Wait with nothing signalled: the system is idle until a signal
// or the clock. Gives up after 30 real seconds with false.
RYL_API bool WaitUntilWaiting(u32 count);
// Lengths of all Sleep calls so far, in order.
RYL_API std::vector<u32> Sleeps();
RYL_API void FailPerformanceFrequency(bool fail);

// --- Files. ---
enum class Fault {
  kFail,      // the operation reports failure and does nothing
  kTear,      // a write transfers a part and fails; a sync makes a part durable and fails; others as kFail
  kDrop,      // the operation reports success and does nothing
  kKill,      // the process dies before the operation: it and all later ones fail, what the system has stays
  kPowerCut,  // the machine dies before the operation: as kKill, and Reboot applies the loss
};
enum class Operation {
  kCreate,
  kOpenRead,
  kRead,
  kWrite,
  kSeek,
  kSync,
  kClose,
  kDelete,
  kMove,
  kSyncFolder,
  kCreateDirectory,
  kExists,
  kEnumerate,
  kSize
};

// The operation number `n` from now (0 is the next) gets the fault; `count` operations in a row do.
RYL_API void FailFileOperation(u64 n, Fault fault, u64 count = 1);
// The same, counting operations of one kind only.
RYL_API void FailFileOperation(Operation kind, u64 n, Fault fault, u64 count = 1);
RYL_API void ClearFaults();
// File operations so far, all or of one kind.
RYL_API u64 CountFileOperations();
RYL_API u64 CountFileOperations(Operation kind);
// Bytes of the whole disk; a write past it fails after what fits. 0: no limit.
RYL_API void SetDiskLimit(u64 bytes);

// After kKill or kPowerCut: handles are gone, files work again. After a power cut `seed` decides, for each file with
// unsynced data, how much of it stays, and how many of the unsynced renames, creations and deletions of each folder
// stay (always a prefix of them).
RYL_API void Reboot(u64 seed);

// Direct access for tests, without faults or counting. Parents are made.
RYL_API void PutFile(const std::string& path, const std::string& content);
RYL_API bool GetFile(const std::string& path, std::string& content);
RYL_API bool RemoveFile(const std::string& path);
RYL_API std::vector<std::string> ListFiles();           // full paths, sorted
RYL_API u64 ModificationTime(const std::string& path);  // epoch ms, 0 when missing
RYL_API void SetCaseSensitive(bool sensitive);  // what IsFileSystemCaseSensitive says; names always match exactly
// What the interface lists give.
RYL_API void SetInterfaceAddresses(const std::vector<std::string>& ipv4, const std::vector<std::string>& ipv6);

// --- Memory: the allocation number `n` from now by Memory::Allocate fails; all ones: none. ---
RYL_API void FailAllocation(u64 n, u64 count = 1);
RYL_API u64 CountAllocations();

// --- Threads: the next `count` StartThread calls, MutexCreate calls, Event creations fail. ---
RYL_API void FailThreadStart(u32 count);
RYL_API void FailMutexCreate(u32 count);
RYL_API void FailEventSignal(u32 count);

}  // namespace Velmar::Sim
