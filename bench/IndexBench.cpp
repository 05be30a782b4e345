// The five index kinds of a store beside one another: a new key, a known one, the oldest one's place given to a new
// one, and the memory of the index.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "Velmar/Collections/DB/MapDB.h"

namespace Velmar::Collections::DB {

struct MapDBTestAccess {
  template <class Store>
  static u32 IndexMemory(const Store& store) {
    return store.search->GetMemoryUsage();
  }
};

}  // namespace Velmar::Collections::DB

namespace {

using namespace Velmar;
using namespace Velmar::Collections::DB;
using Collections::Caches::TimeCacheValue;
using Types::UInt128;
using Store = MapDB<UInt128, TimeCacheValue>;

// New keys that are timed together, which is the room above a benchmark's size.
constexpr u32 kBatch = 64;

void Require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "benchmark cannot run: %s\n", what);
    std::abort();
  }
}

// A store whose keys are always those of the numbers from `oldest` to before `next`.
class Ring {
 public:
  Ring(u32 indexKind, u32 wantedSize) : kind(indexKind), size(wantedSize) {
    const u32 maximum = size + kBatch;
    Require(store.Init(nullptr, maximum, maximum, 1, kind, 1, nullptr, nullptr, 0, -1, nullptr), "store not set up");
    while (next < size) {
      Add();
    }
  }

  // A direct table holds the numbers below its size; the other kinds get keys in no order.
  [[nodiscard]] UInt128 Key(u32 number) const {
    if (kind == StoreFlags::kIndexSearch) {
      return {{0, u64{number} * kStride % (size + kBatch)}};
    }
    return {{number * 0x9E3779B97F4A7C15U, number * 0xD6E8FEB86659FD93U}};
  }
  void Add() { Require(Apply(next++, true), "key not added"); }
  void DropOldest() { Require(store.Delete(Key(oldest++), true), "key not deleted"); }
  void Recycle() {
    Add();
    ++oldest;
  }
  bool Find(u32 offset) { return Apply(oldest + offset, false); }
  void TopUpTo(u32 number) {
    while (next - oldest < number) {
      Add();
    }
    while (next - oldest > number) {
      DropOldest();
    }
  }
  [[nodiscard]] u32 IndexMemory() const { return MapDBTestAccess::IndexMemory(store); }

 private:
  static constexpr u64 kStride = 50021;  // a prime that divides no size used here

  bool Apply(u32 number, bool create) {
    return store.Apply(
        Key(number), create,
        [](TimeCacheValue& value, bool /*isNew*/, void* /*context*/) {
          ++value.expiry;
          return true;
        },
        nullptr);
  }

  u32 kind;
  u32 size;
  u32 oldest = 0;
  u32 next = 0;
  Store store;
};

// One for all benchmarks of a kind and size: filling the largest list takes long.
Ring& RingOf(u32 kind, u32 size) {
  static std::map<std::pair<u32, u32>, std::unique_ptr<Ring>> rings;
  auto& ring = rings[{kind, size}];
  if (ring == nullptr) {
    ring = std::make_unique<Ring>(kind, size);
  }
  return *ring;
}

// In CPU time: the deletions that make room again stand between the batches.
void Insert(benchmark::State& state, u32 kind, u32 size) {
  Ring& ring = RingOf(kind, size);
  for (auto _ : state) {
    ring.TopUpTo(size);
    const std::clock_t start = std::clock();
    for (u32 i = 0; i < kBatch; ++i) {
      ring.Add();
    }
    state.SetIterationTime(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
  }
  ring.TopUpTo(size);
  state.counters["a_key"] =
      benchmark::Counter(kBatch, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["index_bytes"] = ring.IndexMemory();
}

void Find(benchmark::State& state, u32 kind, u32 size) {
  Ring& ring = RingOf(kind, size);
  ring.TopUpTo(size);
  std::minstd_rand random;
  for (auto _ : state) {
    Require(ring.Find(static_cast<u32>(random()) % size), "key not found");
  }
}

void Recycle(benchmark::State& state, u32 kind, u32 size) {
  Ring& ring = RingOf(kind, size);
  ring.TopUpTo(size + kBatch);
  for (auto _ : state) {
    ring.Recycle();
  }
}

struct Kind {
  const char* name;
  u32 flag;
};
constexpr Kind kKinds[] = {{"BinarySearch", StoreFlags::kBinarySearch},
                           {"IndexSearch", StoreFlags::kIndexSearch},
                           {"LinearSearch", StoreFlags::kLinearSearch},
                           {"RBTSearch", StoreFlags::kRBTSearch},
                           {"HashMapSearch", StoreFlags::kHashMapSearch}};

bool Register() {
  for (const Kind& kind : kKinds) {
    for (const u32 size : {1000U, 20000U, 131072U}) {
      const std::string name = std::string(kind.name) + "/" + std::to_string(size);
      benchmark::RegisterBenchmark(("Index/insert/" + name).c_str(), Insert, kind.flag, size)->UseManualTime();
      benchmark::RegisterBenchmark(("Index/find/" + name).c_str(), Find, kind.flag, size);
      // A full table has every legal key: nothing can be recycled.
      if (kind.flag != StoreFlags::kIndexSearch) {
        benchmark::RegisterBenchmark(("Index/recycle/" + name).c_str(), Recycle, kind.flag, size);
      }
    }
  }
  return true;
}

[[maybe_unused]] const bool kIsRegistered = Register();

}  // namespace

BENCHMARK_MAIN();
