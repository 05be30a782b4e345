// Lookups in a full verdict cache, as intake makes one for each new connection.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "tests/cloud/CloudStatusTestAccess.h"

namespace {

using namespace RYL;
using NetDB::CloudStatus;
using NetDB::IPv4;
using Access = NetDB::CloudStatusTestAccess;

constexpr u32 kEntries = 131072;
constexpr u32 kStep = 32768;  // from one key to the next, so that they spread over all addresses

// Of an index below kEntries. With an `offset` below kStep that is not 0 the address is none of the cache.
IPv4 Address(u32 index, u32 offset) {
  return IPv4::FromRaw(index * kStep + offset);
}

CloudStatus<IPv4>& FullCache() {
  static CloudStatus<IPv4> cache;
  static const bool filled = [] {
    bool done = cache.Open(nullptr, false);
    // Ascending keys are the fast way to fill it.
    for (u32 i = 0; i < kEntries; ++i) {
      done = done && Access::StoreVerdict(cache, Address(i, 0), i % 2 == 0);
    }
    return done && cache.GetItemCount() == kEntries;
  }();
  if (!filled) {
    std::abort();
  }
  return cache;
}

void BM_VerdictLookup(benchmark::State& state, u32 offset) {
  CloudStatus<IPv4>& cache = FullCache();
  u32 index = static_cast<u32>(state.thread_index()) * 7919;
  u32 known = 0;
  for (auto _ : state) {
    index = (index + 50021) % kEntries;
    const IPv4 address = Address(index, offset);
    u8 verdict = 0;
    known += cache.Lookup(&address, &verdict) ? 1 : 0;
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["known"] = benchmark::Counter(known, benchmark::Counter::kAvgIterations);
}

BENCHMARK_CAPTURE(BM_VerdictLookup, known, 0U)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_CAPTURE(BM_VerdictLookup, unknown, 1U)->ThreadRange(1, 2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
