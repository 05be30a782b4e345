// FolderWatch: follows the day files of a module's folder through its log, and holds every check to the limits.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Velmar/Log.h"
#include "Velmar/Types.h"

// Looks at the folder whenever the module says that it wrote a file, deleted one or checked its limits, at that very
// moment, so that what a dump adds is known before the check of the same turn takes anything away. A wrong state is a
// failure of the running test.
// One at a time in a process, in place of a LogCapture. Threads: the module logs on its own; the methods are for a test
// while the worker waits.
class FolderWatch {
 public:
  using u64 = Velmar::u64;
  using Files = std::vector<std::pair<u64, u64>>;  // day (epoch seconds) and size in bytes, ascending
  static constexpr u64 kHourMs = 3600000;

  struct Limits {
    u64 maxBytes;
    u64 maxDays;
  };
  struct Totals {
    u64 checks = 0;
    u64 dumps = 0;
    u64 deleted = 0;
    u64 largestFolder = 0;    // bytes, the verdicts' file included
    u64 largestAddition = 0;  // bytes that came between two checks
  };

  // `folder` holds nothing yet.
  explicit FolderWatch(const std::string& folder);
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  // What the next check is to enforce.
  void SetLimits(const Limits& next) { limits = next; }
  // The length that the verdicts' file has from now on.
  void SetVerdictBytes(u64 length);
  // A new worker comes up; its first turn checks.
  void BeginRun() { lastCheckMs = 0; }
  // After a turn: no check is owed.
  void ExpectCheckedInTime() const;
  // Days deleted since the last call, in order.
  std::vector<u64> TakeDeleted();

  [[nodiscard]] const Files& GetFiles() const { return files; }
  [[nodiscard]] const Totals& GetTotals() const { return totals; }

 private:
  static void Receive(const Velmar::Log::Record& record, std::va_list arguments);

  void OnDump(const char* name);
  void OnDelete(const char* name);
  void OnCheck(u64 allowance, u64 days);
  // The oldest days that have to go, in order; they leave `files`.
  std::vector<u64> TakeTooMuch(u64 allowance);
  // The size of the day's file, 0 when it is new.
  u64& SizeOf(u64 day);
  void NoteAddition(u64 more);
  [[nodiscard]] Files List() const;

  std::string path;
  Limits limits = {};
  Files files;    // by what the log told so far
  u64 bytes = 0;  // of these
  u64 verdictBytes = 0;
  u64 lastCheckMs = 0;     // 0: none in this run
  u64 bytesAtCheck = 0;    // of the folder, after the last check
  u64 added = 0;           // bytes since then
  std::vector<u64> going;  // deleted since the last check
  std::vector<u64> gone;   // and not taken yet
  Totals totals;
};
