// Intake alone, by what becomes of the event, and the whole road from events to a day file.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Velmar/OS/Path.h"
#include "Velmar/OS/Time.h"
#include "tests/libryl_netdb/ManagerAccess.h"
#include "tests/support/FakeHost.h"

namespace {

using namespace RYL;
using Access = Module::NetDBManagerTestAccess;

// A folder of its own for "${P}", gone with the object.
class DataFolder {
 public:
  DataFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "ryl-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      std::abort();
    }
    path_ = name;
    Velmar::OS::Path::SetVariable("P", name.c_str());
  }
  ~DataFolder() { std::filesystem::remove_all(path_); }
  DataFolder(const DataFolder&) = delete;
  DataFolder& operator=(const DataFolder&) = delete;

 private:
  std::filesystem::path path_;
};

EventBuilder Connection(const std::string& address) {
  return EventBuilder(185).Address(address).Port(443).Protocol("https").Direction(1).Puid(7).Time(
      Velmar::OS::Time::GetEpochTime(nullptr) - 1000);
}

// An initialised module without a worker, whose queue replaces its oldest and so never fills up.
struct Intake {
  Intake() {
    manager.Initialize(&host, &policy);
    auto* queue = Velmar::Collections::New<NetDB::Backlog>();
    queue->Create(1024, 1024, 256, true, true, Velmar::Collections::GrowType::kFixedStep);
    Access::GetBacklog(manager) = queue;
    Access::GetWakeEvent(manager) = Velmar::Collections::New<Velmar::OS::Event>(false);
  }

  DataFolder folder;
  FakeHost host;
  FakeSettings policy;
  Module::NetDBManager manager;
};

void HandleEvent(benchmark::State& state, const EventBuilder& event) {
  static Intake intake;
  const auto bytes = event.Build();
  for (auto _ : state) {
    benchmark::DoNotOptimize(intake.manager.HandleEvent(bytes.data(), nullptr));
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(HandleEvent, queued, Connection("203.0.113.9"))->ThreadRange(1, 4)->UseRealTime();
BENCHMARK_CAPTURE(HandleEvent, private_address, Connection("10.0.0.1"));
BENCHMARK_CAPTURE(HandleEvent, ipv6, Connection("2001:db8::1"));
BENCHMARK_CAPTURE(HandleEvent, no_address, Connection("0.0.0.0"));
BENCHMARK_CAPTURE(HandleEvent, unknown_protocol, Connection("203.0.113.9").Protocol("quic"));

// From Start to Stop: `rows` addresses, each in `repeats` events, through look-up and table to one dump. Several
// threads of a host would only fill the queue faster.
void EventsToStoredRows(benchmark::State& state) {
  const auto rows = static_cast<u32>(state.range(0));
  const auto repeats = static_cast<u32>(state.range(1));
  FakeHost host;
  host.lookup.AddProcess(7, 70, "/usr/bin/curl");
  host.hashes.files["/usr/bin/curl"] = {1, 2};
  FakeSettings policy;
  std::vector<EventBuilder::Bytes> events;
  for (u32 row = 0; row < rows; ++row) {
    const u32 scattered = row * 2654435761U;
    events.push_back(Connection("45." + std::to_string(scattered >> 24) + "." +
                                std::to_string((scattered >> 16) & 255) + "." + std::to_string((scattered >> 8) & 255))
                         .Build());
  }
  for (auto _ : state) {
    const DataFolder folder;
    Module::NetDBManager manager;
    bool stored = manager.Initialize(&host, &policy) && manager.Start();
    for (u32 repeat = 0; repeat < repeats; ++repeat) {
      for (const auto& event : events) {
        stored = manager.HandleEvent(event.data(), nullptr) && stored;
      }
    }
    if (!manager.Stop() || !stored) {
      state.SkipWithError("events were lost");
    }
  }
  state.SetItemsProcessed(state.iterations() * rows * repeats);
}

BENCHMARK(EventsToStoredRows)
    ->Args({1000, 1})
    ->Args({1000, 100})
    ->Args({20000, 1})
    ->Args({20000, 5})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
