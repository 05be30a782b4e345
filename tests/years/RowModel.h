// RowModel: what a module's day files should hold, as far as connections and bytes of each address go.
#pragma once

#include <map>
#include <ostream>
#include <utility>

#include "Velmar/Types.h"

// Follows the module's one open day: it is what a dump writes, also when its file was deleted meanwhile.
class RowModel {
 public:
  using u64 = Velmar::u64;
  struct Counts {
    u64 connections = 0;
    u64 inbound = 0;
    u64 outbound = 0;
    u64 bytesIn = 0;
    u64 bytesOut = 0;

    Counts& operator+=(const Counts& other) {
      connections += other.connections;
      inbound += other.inbound;
      outbound += other.outbound;
      bytesIn += other.bytesIn;
      bytesOut += other.bytesOut;
      return *this;
    }
    bool operator==(const Counts&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Counts& counts) {
      return out << counts.connections << " connections (" << counts.inbound << " in, " << counts.outbound << " out), "
                 << counts.bytesIn << " bytes in, " << counts.bytesOut << " out";
    }
  };
  using Day = std::map<Velmar::u32, Counts>;  // by address, first octet in the upper bits
  using Days = std::map<u64, Day>;            // by epoch seconds

  void Add(u64 day, Velmar::u32 address, const Counts& counts) {
    if (day != openDay) {
      Dump();
      const auto found = onDisk.find(day);
      open = found == onDisk.end() ? Day() : found->second;
      openDay = day;
    }
    open[address] += counts;
    isDirty = true;
  }
  void Dump() {
    if (isDirty) {
      onDisk[openDay] = open;
      isDirty = false;
    }
  }
  void Delete(u64 day) { onDisk.erase(day); }
  // The module ends.
  void Close() {
    Dump();
    openDay = 0;
    open.clear();
  }
  [[nodiscard]] const Days& OnDisk() const { return onDisk; }

 private:
  Days onDisk;
  Day open;
  u64 openDay = 0;
  bool isDirty = false;
};
