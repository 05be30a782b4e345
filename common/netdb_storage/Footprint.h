// Footprint: which files of a database folder are to go first, and until when.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace RYL::NetDB {

// A folder's limits. A day at or before the cut-off is too old.
struct FootprintLimits {
  u64 maxBytes;
  u64 maxDays;
  u64 cutOff;

  FootprintLimits(u64 bytes, u64 days, u64 epochMs) : maxBytes(bytes), maxDays(days) {
    constexpr u64 kSecondsPerDay = 86400;
    const u64 today = epochMs / 1000 / kSecondsPerDay;
    cutOff = today > days ? (today - days) * kSecondsPerDay : 0;
  }

  // Whether nothing has to go where `oldest` is the oldest day and all files together take `total` bytes.
  [[nodiscard]] bool AreMet(u64 oldest, u64 total) const { return oldest > cutOff && total <= maxBytes; }
};

struct DayFile {
  u64 day;
  u64 size;
  bool filtered;

  // The name that the file of the day should have.
  bool FormatName(Velmar::Utils::String& name) const {
    return name.SetFormat(filtered ? "%llu.db.f" : "%llu.db", static_cast<unsigned long long>(day));
  }
};

// What one walk keeps of a folder, however many files there are: the first to go, ascending by day.
struct OldestFiles {
  static constexpr u32 kCapacity = 32;

  DayFile files[kCapacity];
  u32 count = 0;
  u64 total = 0;  // bytes of all files, also of those that found no place

  void Take(const DayFile& file) {
    total += file.size;
    if (count == kCapacity) {
      if (files[count - 1].day < file.day) {
        return;
      }
      --count;
    }
    u32 at = count++;
    // Of equal days the one that came later goes first.
    for (; at > 0 && files[at - 1].day >= file.day; --at) {
      files[at] = files[at - 1];
    }
    files[at] = file;
  }
};

}  // namespace RYL::NetDB
