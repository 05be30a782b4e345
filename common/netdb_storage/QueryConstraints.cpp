#include "common/netdb_storage/QueryConstraints.h"

namespace RYL::NetDB {

namespace {

constexpr u32 kMaxEntries = 128;
constexpr u32 kGrowthStep = 32;

// Cannot fail: the area is there and no lock is asked for.
template <class T, u32 Size>
void StartOn(Velmar::Collections::Array<T>& list, T (&area)[Size]) {
  list.Create(area, Size, true, true, kMaxEntries, kGrowthStep, false, Velmar::Collections::GrowType::kFixedStep,
              kNone);
}

}  // namespace

QueryConstraints::QueryConstraints(u64 startTime, u64 endTime) : start_time(startTime), end_time(endTime) {
  StartOn(ips_wanted, ipsArea_);
  StartOn(paths_wanted, pathsArea_);
  StartOn(process_filters, processFiltersArea_);
  StartOn(ip_filters, ipFiltersArea_);
}

}  // namespace RYL::NetDB
