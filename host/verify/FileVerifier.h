// FileVerifier: whether one file of a data folder is whole and as the module writes it, to the last row of its tables.
//
//   Inspect::MemoryBytes bytes(data, size);
//   const Verify::VerifyReport report = Verify::VerifyDayFile(bytes, "1699920000.db");
//   for (const Inspect::Problem& problem : report.problems) { ... problem.position, problem.text ... }
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/inspect/ByteSource.h"
#include "host/inspect/StoreReport.h"

namespace Host::Verify {

// Problems of one kind in one table that are listed; the rest is counted.
inline constexpr u32 kMaxListedRows = 10;

struct VerifyReport {
  std::string name;
  u64 size = 0;                    // of the file, bytes
  std::optional<u64> day;          // that the file says it holds, epoch seconds of its first second
  std::optional<u64> filterStamp;  // epoch seconds of the last removal of harmless addresses, 0 for none
  u64 entries = 0;                 // of the store
  u32 rows = 0;                    // addresses that could be read
  u32 processes = 0;               // processes that could be read, free slots not counted
  // Each with the offset in the file of the header's field, blob or block that it is in; a row's text has its number.
  std::vector<Inspect::Problem> problems;
  // What is no fault and worth knowing.
  std::vector<std::string> notes;

  [[nodiscard]] bool IsGood() const { return problems.empty(); }
};

// A day file: header, blob, each block, its two tables and every row of them, their references to each other, and the
// day against `name`, the bare name of the file ("1699920000.db", "1699920000.db.f"). Never touches a file system.
// Memory is bounded by what a few blocks may hold. Thread-safe.
VerifyReport VerifyDayFile(Inspect::ByteSource& bytes, const std::string& name);

// A file of cached verdicts on IPv4 addresses ("cache.4.db"), likewise.
VerifyReport VerifyVerdictFile(Inspect::ByteSource& bytes, const std::string& name);

}  // namespace Host::Verify
