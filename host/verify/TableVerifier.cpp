#include "host/verify/TableVerifier.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/netdb_storage/IPDB.h"
#include "common/netdb_storage/ProcessesDB.h"
#include "host/text/TimeText.h"
#include "host/verify/FileVerifier.h"

namespace Host::Verify {
namespace {

using Inspect::ByteCursor;

constexpr u16 kNewestVersion = 1;
constexpr u32 kNoProcess = 0xFFFFFFFF;
constexpr u32 kLargestCount = 0xFFFFFFFF;
// Growth step in the low bits; above them: the array owns its storage.
constexpr u32 kProcessArrayFlags = 0x10000064;
constexpr u32 kAddressArrayFlags = 0x10000400;
constexpr u32 kKnownProtocols = 0xFFF;

std::string Hex(u32 value) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%x", value);
  return text;
}

// Whether the five fields of a process are those of none: no path, zero digests and unique identifier, process id -1.
bool IsEmptyProcess(const u8* data, u32 size) {
  constexpr u32 kEmptySize = 4 + 16 + 32 + 8 + 8;
  constexpr u32 kPidSize = 8;
  return size == kEmptySize && std::all_of(data, data + size - kPidSize, [](u8 byte) { return byte == 0; }) &&
         std::all_of(data + size - kPidSize, data + size, [](u8 byte) { return byte == 0xFF; });
}

}  // namespace

struct TableVerifier::AddressRow {
  u8 ip[4] = {};
  u32 process = 0;
  u16 port = 0;
  u64 packed = 0;
  u32 total = 0;
  u32 in = 0;
  u64 bytesIn = 0;
  u32 out = 0;
  u64 bytesOut = 0;

  static constexpr u32 kSize = 46;

  bool Read(ByteCursor& bytes) {
    return bytes.Left() >= kSize && bytes.Take(ip) && bytes.Take(process) && bytes.Take(port) && bytes.Take(packed) &&
           bytes.Take(total) && bytes.Take(in) && bytes.Take(bytesIn) && bytes.Take(out) && bytes.Take(bytesOut);
  }
  [[nodiscard]] u32 FirstSeen() const { return static_cast<u32>(packed & 0x1FFFF); }
  [[nodiscard]] u32 LastSeen() const { return static_cast<u32>(packed >> 17 & 0x1FFFF); }
  [[nodiscard]] u32 Protocols() const { return static_cast<u32>(packed >> 34); }
  // Below, equal or above 0 as the order of rows has it.
  [[nodiscard]] int Compare(const AddressRow& other) const {
    const int addresses = std::memcmp(ip, other.ip, sizeof(ip));
    if (addresses != 0) {
      return addresses;
    }
    if (process != other.process) {
      return process < other.process ? -1 : 1;
    }
    return static_cast<int>(port) - static_cast<int>(other.port);
  }
};

void TableVerifier::ComplainOfRow(Table& table, u32 row, const std::string& text) {
  if (++table.found <= kMaxListedRows) {
    problems_.push_back(
        {table.position, std::string("table \"") + table.key + "\", row " + std::to_string(row) + ": " + text});
  }
}

void TableVerifier::TellRest(Table& table) {
  if (table.found > kMaxListedRows) {
    problems_.push_back({table.position, std::string("table \"") + table.key + "\": " +
                                             std::to_string(table.found - kMaxListedRows) + " more problems of rows"});
  }
  table.found = 0;
}

void TableVerifier::ReadHeader(ByteCursor& bytes, Table& table, u32& count, u32 ceiling, u32 flags) {
  u16 version = 0;
  u32 rows = 0;
  u32 maxCount = ceiling;
  u32 arrayFlags = flags;
  count = 0;
  if (!bytes.Take(version) || !bytes.Take(rows) || version > kNewestVersion ||
      (version == kNewestVersion && (!bytes.Take(maxCount) || !bytes.Take(arrayFlags)))) {
    return;
  }
  const std::string name = std::string("table \"") + table.key + "\" has ";
  if (maxCount != ceiling) {
    problems_.push_back({table.position, name + "the ceiling " + std::to_string(maxCount) + ", which should be " +
                                             std::to_string(ceiling)});
  }
  if (arrayFlags != flags) {
    problems_.push_back({table.position, name + "the flags " + Hex(arrayFlags) + ", which should be " + Hex(flags)});
  }
  if (rows > ceiling) {
    problems_.push_back({table.position, name + std::to_string(rows) + " rows, more than the " +
                                             std::to_string(ceiling) + " that the module keeps"});
  }
  count = rows;
}

bool TableVerifier::ReadProcessRow(ByteCursor& bytes, std::vector<ProcessBytes>& live) {
  constexpr u32 kBehindPath = 16 + 32 + 8 + 8;
  const u8* start = bytes.Position();
  u32 pathLength = 0;
  i32 references = 0;
  if (!bytes.Take(pathLength) || !bytes.Skip(pathLength) || !bytes.Skip(kBehindPath) || !bytes.Take(references)) {
    return false;
  }
  const u32 size = static_cast<u32>(sizeof(pathLength)) + pathLength + kBehindPath;
  const u32 row = static_cast<u32>(references_.size());
  const bool empty = IsEmptyProcess(start, size);
  references_.push_back(references);
  if (references < -1) {
    ComplainOfRow(processTable_, row, "the reference count is " + std::to_string(references));
  }
  if (references < 0 && !empty) {
    ComplainOfRow(processTable_, row, "a free slot that is not empty");
  }
  if (references >= 0 && empty) {
    ComplainOfRow(processTable_, row, "an empty process that is no free slot");
  }
  if (references >= 0) {
    live.push_back({start, size, row});
  }
  return true;
}

void TableVerifier::FindDuplicates(std::vector<ProcessBytes>& live) {
  const auto compare = [](const ProcessBytes& a, const ProcessBytes& b) {
    return a.size != b.size ? (a.size < b.size ? -1 : 1) : std::memcmp(a.data, b.data, a.size);
  };
  std::sort(live.begin(), live.end(), [&compare](const ProcessBytes& a, const ProcessBytes& b) {
    const int order = compare(a, b);
    return order != 0 ? order < 0 : a.row < b.row;
  });
  for (std::size_t i = 1; i < live.size(); ++i) {
    if (compare(live[i - 1], live[i]) == 0) {
      ComplainOfRow(processTable_, live[i].row, "the same process as row " + std::to_string(live[i - 1].row));
    }
  }
}

void TableVerifier::TakeProcesses(const u8* data, u32 size, u64 position) {
  processTable_.position = position;
  ByteCursor bytes(data, size);
  u32 count = 0;
  ReadHeader(bytes, processTable_, count, RYL::NetDB::ProcessesDB::kMaxRecords, kProcessArrayFlags);
  std::vector<ProcessBytes> live;
  while (references_.size() < count && ReadProcessRow(bytes, live)) {
  }
  liveProcesses_ = static_cast<u32>(live.size());
  FindDuplicates(live);
  TellRest(processTable_);
}

void TableVerifier::CheckAddressRow(const AddressRow& row, const AddressRow* before, u32 number) {
  const auto complain = [this, number](const std::string& text) { ComplainOfRow(addressTable_, number, text); };
  if (before != nullptr && before->Compare(row) >= 0) {
    complain(before->Compare(row) == 0 ? "the same address, process and port as the row before"
                                       : "not in ascending order of address, process and port");
  }
  if (row.FirstSeen() >= Text::kSecondsPerDay || row.LastSeen() >= Text::kSecondsPerDay) {
    complain("seen at second " + std::to_string(std::max(row.FirstSeen(), row.LastSeen())) + " of a day of 86400");
  }
  if (row.FirstSeen() > row.LastSeen()) {
    complain("first seen at second " + std::to_string(row.FirstSeen()) + " and last at " +
             std::to_string(row.LastSeen()));
  }
  if ((row.Protocols() & ~kKnownProtocols) != 0) {
    complain("protocols " + Hex(row.Protocols()) + ", of which no more than " + Hex(kKnownProtocols) + " exist");
  }
  // A counter at its largest value means that much or more.
  if (row.total != kLargestCount && u64{row.in} + row.out > row.total) {
    complain(std::to_string(row.in) + " connections in and " + std::to_string(row.out) + " out of a total of " +
             std::to_string(row.total));
  }
}

void TableVerifier::TakeAddresses(const u8* data, u32 size, u64 position) {
  addressTable_.position = position;
  ByteCursor bytes(data, size);
  u32 count = 0;
  ReadHeader(bytes, addressTable_, count, RYL::NetDB::IPDB<RYL::NetDB::IPv4>::kMaxRows, kAddressArrayFlags);
  AddressRow before;
  AddressRow row;
  while (processOf_.size() < count && row.Read(bytes)) {
    CheckAddressRow(row, processOf_.empty() ? nullptr : &before, static_cast<u32>(processOf_.size()));
    processOf_.push_back(row.process);
    before = row;
  }
  TellRest(addressTable_);
}

void TableVerifier::CompareTables() {
  std::vector<u32> pointing(references_.size(), 0);
  for (u32 row = 0; row < processOf_.size(); ++row) {
    const u32 process = processOf_[row];
    if (process == kNoProcess) {
      continue;
    }
    if (process >= references_.size()) {
      ComplainOfRow(addressTable_, row, "process row " + std::to_string(process) + " does not exist");
    } else if (references_[process] < 0) {
      ComplainOfRow(addressTable_, row, "process row " + std::to_string(process) + " is a free slot");
    } else {
      ++pointing[process];
    }
  }
  for (u32 row = 0; row < references_.size(); ++row) {
    if (references_[row] >= 0 && static_cast<u32>(references_[row]) != pointing[row]) {
      ComplainOfRow(processTable_, row,
                    "the reference count is " + std::to_string(references_[row]) + " and the number of address rows " +
                        std::to_string(pointing[row]));
    }
  }
  TellRest(addressTable_);
  TellRest(processTable_);
}

}  // namespace Host::Verify
