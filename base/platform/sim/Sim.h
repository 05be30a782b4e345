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

#include <functional>
#include <string>
#include <vector>

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Sim {

// All functions are thread-safe. Each test process starts with an empty file system that holds "/", the clock at
// 1700000000000 ms, no faults, and no interface addresses.

// Back to that, with all counts at 0 and files that are open gone. Threads that wait go on waiting.
RYL_API void Reset();

// --- Time. Nothing moves it but these calls, and Sleep, which adds its own length. ---
// Sets the wall clock alone: no waiter is woken, and the performance counter (microseconds, from 0) stays.
RYL_API void SetEpochTime(u64 milliseconds);
// Moves both clocks and wakes every Event::Wait whose time-out has come, in order of their due times. Who is woken,
// here or by a signal, counts as waiting no more when the call returns, although its thread may not have run yet; so
// AdvanceTime and then WaitUntilWaiting lets a loop do its whole turn.
RYL_API void AdvanceTime(u64 milliseconds);
// Real-time block until at least `count` threads stand in Event::Wait with nothing signalled: the system is idle until
// a signal or the clock. Gives up after 30 real seconds with false.
RYL_API bool WaitUntilWaiting(u32 count);
// Lengths of all Sleep calls so far, in order.
RYL_API std::vector<u32> Sleeps();
RYL_API void FailPerformanceFrequency(bool fail);

// --- Files. ---
// The model. A file has a content that programs see and a durable one; a sync (File::Close does one for a file opened
// by Create) makes the first the second. A folder's entries likewise: creation, deletion and renaming of a file are
// seen at once, and durable when a sync of the folder comes behind them (MoveFile does one); a sync of the file itself
// does not make its name durable. Folders are durable as soon as they are made. There are no links.
enum class Fault {
  kFail,      // the operation reports failure and does nothing (a kClose gives the handle up all the same)
  kTear,      // a write transfers its first half and fails; a sync makes the first half of the changes durable and
              // fails; others as kFail
  kDrop,      // the operation reports success and does nothing: a write or read moves the position, an opening gives an
              // empty file without a name, a question whether something exists is answered with yes, a size is 0
  kKill,      // the process dies before the operation: it and all later ones fail, what the system has stays
  kPowerCut,  // the machine dies before the operation: as kKill, and Reboot applies the loss
};
// What counts as an operation: one call of the matching method, but Close of a file opened by Create is a kSync and a
// kClose, and MoveFile is a kMove and, when that worked, a kSyncFolder for each folder it touched. Reads and writes of
// no bytes, calls on what is not open, and calls between a kill and Reboot do not count.
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

// The operation number `n` from now (0 is the next) gets the fault; `count` operations in a row do. Plans add up; where
// two meet, the older one holds.
RYL_API void FailFileOperation(u64 n, Fault fault, u64 count = 1);
// The same, counting operations of one kind only.
RYL_API void FailFileOperation(Operation kind, u64 n, Fault fault, u64 count = 1);
RYL_API void ClearFaults();
// File operations so far, all or of one kind.
RYL_API u64 CountFileOperations();
RYL_API u64 CountFileOperations(Operation kind);
// Bytes of the whole disk; a write past it fails after what fits. 0: no limit.
RYL_API void SetDiskLimit(u64 bytes);

// The machine dies now, as by kPowerCut.
RYL_API void CutPower();
// After kKill or kPowerCut: handles are gone, files work again. After a power cut `seed` decides, for each file with
// unsynced data, how much of it stays (nothing; all; a prefix of the writes with the last cut short, with or without
// zeroes up to the length that the file had; or of each write, in no order, all, a stretch or nothing), and how many of
// the unsynced renames, creations and deletions of each folder stay (always a prefix of them, as on every file system
// that keeps a journal; a rename from one folder to another stays whole or not at all).
RYL_API void Reboot(u64 seed);

// Direct access for tests, without faults or counting. What is put or removed is so durably, with all that happened in
// its folder before. Parents are made.
RYL_API void PutFile(const std::string& path, const std::string& content);
RYL_API bool GetFile(const std::string& path, std::string& content);
RYL_API bool RemoveFile(const std::string& path);
RYL_API std::vector<std::string> ListFiles();           // full paths, sorted
RYL_API u64 ModificationTime(const std::string& path);  // epoch ms, 0 when missing
RYL_API void SetCaseSensitive(bool sensitive);  // what IsFileSystemCaseSensitive says; names always match exactly
// EnumerateFiles gives the entries in an order that hangs on the seed and on which there are; 0: sorted.
RYL_API void ShuffleListings(u64 seed);
// What the interface lists give.
RYL_API void SetInterfaceAddresses(const std::vector<std::string>& ipv4, const std::vector<std::string>& ipv6);

// --- The cloud. ---
struct CloudCall {
  std::string endpoint;
  std::string path;
  std::string body;
  std::string bearerToken;
  u32 timeoutMs;
};
struct CloudReply {
  u32 status = 200;  // of HTTP; 0: no reply comes
  std::vector<std::string> texts;
  u64 tookMs = 0;  // AdvanceTime does it; from the request's time limit on no reply came
};
using CloudService = std::function<CloudReply(const CloudCall& call)>;
// What answers requests, on the thread that makes them; empty: nobody. Cloud::Configure has to give an endpoint first.
RYL_API void SetCloudService(const CloudService& service);

// --- Memory: the allocation number `n` from now by Memory::Allocate fails; all ones: none. ---
RYL_API void FailAllocation(u64 n, u64 count = 1);
RYL_API u64 CountAllocations();

// --- Threads: the next `count` StartThread, MutexCreate, Event constructor or Event::Signal calls fail. ---
RYL_API void FailThreadStart(u32 count);
RYL_API void FailMutexCreate(u32 count);
RYL_API void FailEventCreate(u32 count);
RYL_API void FailEventSignal(u32 count);

}  // namespace Velmar::Sim
