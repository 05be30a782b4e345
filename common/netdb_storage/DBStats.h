// DBStats: sizes, day range and counts of a database folder.
#pragma once

#include "Velmar/Types.h"

namespace RYL::NetDB {

// Sizes in bytes, days as their first second (epoch). With no file the start values stand.
struct DBStats {
  u64 min_size = ~u64{0};
  u64 max_size = 0;
  u64 total_size = 0;
  double average_size = 0.0;  // running mean
  u64 oldest = ~u64{0};
  u64 newest = 0;
  u64 newest_size = 0;     // of the file of `newest`
  u64 filtered_count = 0;  // files ending in ".f"
  u64 unfiltered_count = 0;
};

}  // namespace RYL::NetDB
