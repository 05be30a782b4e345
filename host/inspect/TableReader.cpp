#include "host/inspect/TableReader.h"

#include "host/inspect/ByteCursor.h"

namespace Host::Inspect {
namespace {

constexpr u32 kIPv4RowSize = 46;
constexpr u32 kIPv6RowSize = 58;
constexpr u32 kNewestVersion = 1;

bool ReadTableHeader(ByteCursor& bytes, TableReport& report) {
  u16 version = 0;
  u32 maxCount = 0;
  u32 flags = 0;
  if (!bytes.Take(version) || !bytes.Take(report.rows)) {
    return false;
  }
  report.version = version;
  if (version == kNewestVersion) {
    if (!bytes.Take(maxCount) || !bytes.Take(flags)) {
      return false;
    }
    report.maxCount = maxCount;
    report.flags = flags;
  }
  return true;
}

// A path, two digests, two identifiers, and a reference count that is negative in a free slot.
bool ReadProcessRow(ByteCursor& bytes, u32& freeSlots) {
  constexpr u32 kFixedPart = 16 + 32 + 8 + 8;
  u32 pathLength = 0;
  i32 references = 0;
  if (!bytes.Take(pathLength) || !bytes.Skip(pathLength) || !bytes.Skip(kFixedPart) || !bytes.Take(references)) {
    return false;
  }
  freeSlots += references < 0 ? 1 : 0;
  return true;
}

// The number of rows that are there.
u32 ReadRows(ByteCursor& bytes, TableReport& report) {
  if (report.key != "p") {
    const u32 rowSize = report.key == "4" ? kIPv4RowSize : kIPv6RowSize;
    const u32 fitting = bytes.Left() / rowSize;
    const u32 present = fitting < report.rows ? fitting : report.rows;
    bytes.Skip(u64{present} * rowSize);
    return present;
  }
  u32 freeSlots = 0;
  u32 present = 0;
  while (present < report.rows && ReadProcessRow(bytes, freeSlots)) {
    ++present;
  }
  report.freeSlots = freeSlots;
  return present;
}

}  // namespace

bool IsTableKey(const std::string& key) {
  return key == "p" || key == "4" || key == "6";
}

TableReport ReadTable(const std::string& key, const u8* data, u32 size, std::string& problem) {
  TableReport report;
  report.key = key;
  report.name = key == "p" ? "processes" : key == "4" ? "IPv4 rows" : "IPv6 rows";
  problem.clear();
  ByteCursor bytes(data, size);
  if (!ReadTableHeader(bytes, report)) {
    problem = "table \"" + key + "\" ends inside its header";
    return report;
  }
  if (report.version > kNewestVersion) {
    problem = "table \"" + key + "\" has the unknown version " + std::to_string(report.version);
    return report;
  }
  const u32 present = ReadRows(bytes, report);
  if (present < report.rows) {
    problem = "table \"" + key + "\" says " + std::to_string(report.rows) + " rows and ends inside row " +
              std::to_string(present);
  } else if (report.maxCount && report.rows > *report.maxCount) {
    problem = "table \"" + key + "\" has more rows than its ceiling of " + std::to_string(*report.maxCount);
  } else if (bytes.Left() > 0) {
    problem = "table \"" + key + "\" has " + std::to_string(bytes.Left()) + " bytes behind its last row";
  }
  report.isWhole = problem.empty();
  return report;
}

}  // namespace Host::Inspect
