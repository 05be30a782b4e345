// Speed of the day's tables, of a dump and a load stage by stage, and of queries over stored days.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/OS/File.h"
#include "Velmar/ZLib.h"
#include "bench/MadeDays.h"

namespace {

using namespace Bench;
using Velmar::CompressionLevel;
using Velmar::ZLib;
using Velmar::Collections::Buffer;
using Velmar::Collections::GrowType;
using Velmar::Collections::StreamBuffer;
using Velmar::OS::File;
namespace StoreFlags = Velmar::Collections::DB::StoreFlags;
using Row = IPRecord<IPv4>;

constexpr u32 kBlockLimit = 26214400;

Row MakeRow(u32 number) {
  Row row;
  const u32 scattered = Scatter(number);
  row.ip = IPv4::FromRaw(scattered);
  row.port = static_cast<u16>(number % 5 == 0 ? 80 : 443);
  row.first_seen = number % 86400 & 0x1FFFF;
  row.last_seen = number % 86400 & 0x1FFFF;
  row.protos = 0x0840;
  row.conns_total = 1;
  row.conns_out = 1;
  row.bytes_in = scattered % 100000;
  row.bytes_out = scattered % 3000;
  return row;
}

// A day's store that has no file.
struct MemoryStore : DayStore {
  MemoryStore() {
    keyCompareFlag = 0;
    Require(Init(nullptr, 2, 3, 1, StoreFlags::kBinarySearch, 1, &keyCompareFlag, nullptr, 0, -1, nullptr), "store");
  }
};

struct Tables {
  ProcessesDB processes;
  IPDB<IPv4> rows;

  explicit Tables(u32 rowCount) {
    MemoryStore empty;
    Require(processes.SyncWith(empty) && rows.SyncWith(empty), "empty tables");
    for (u32 i = 0; i < kProcesses; ++i) {
      processes.Add(MakeProcess(i));
    }
    for (const u32 number : InAddressOrder(rowCount)) {
      Require(Add(number), "row");
    }
  }
  bool Add(u32 number) {
    Row row = MakeRow(number);
    row.proc_index = number % kProcesses;
    return rows.Add(row, processes);
  }
};

void IPDBAddKnown(benchmark::State& state) {
  const auto count = static_cast<u32>(state.range(0));
  Tables tables(count);
  u32 number = 0;
  for (auto _ : state) {
    number = (number + 7919) % count;
    benchmark::DoNotOptimize(tables.Add(number));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(IPDBAddKnown)->Arg(1000)->Arg(20000)->Arg(100000)->Arg(262144);

// Each iteration adds the last 500 rows of a table of the given size.
void IPDBAddNew(benchmark::State& state) {
  constexpr u32 kBatch = 500;
  const auto count = static_cast<u32>(state.range(0));
  MemoryStore store;
  const auto tables = std::make_unique<Tables>(count - kBatch);
  Require(tables->rows.Flush(store) && tables->processes.Flush(store), "tables");
  for (auto _ : state) {
    for (u32 i = count - kBatch; i < count; ++i) {
      benchmark::DoNotOptimize(tables->Add(i));
    }
    state.PauseTiming();
    Require(tables->processes.SyncWith(store) && tables->rows.SyncWith(store), "tables as they were");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(IPDBAddNew)->Arg(1000)->Arg(20000)->Arg(100000)->Arg(262144);

void ProcessesDBAddKnown(benchmark::State& state) {
  const auto count = static_cast<u32>(state.range(0));
  MemoryStore empty;
  ProcessesDB processes;
  Require(processes.SyncWith(empty), "table");
  std::vector<Process> known(count);
  for (u32 i = 0; i < count; ++i) {
    Require(known[i].CopyFrom(MakeProcess(i)) && processes.Add(known[i]) != kNone, "process");
  }
  u32 number = 0;
  for (auto _ : state) {
    number = (number + 7919) % count;
    benchmark::DoNotOptimize(processes.Add(known[number]));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(ProcessesDBAddKnown)->Arg(200)->Arg(5000)->Arg(50000);

// Each iteration fills a table from empty to the given size.
void ProcessesDBAddNew(benchmark::State& state) {
  const auto count = static_cast<u32>(state.range(0));
  MemoryStore empty;
  std::vector<Process> fresh(count);
  for (u32 i = 0; i < count; ++i) {
    Require(fresh[i].CopyFrom(MakeProcess(i)), "process");
  }
  for (auto _ : state) {
    ProcessesDB processes;
    Require(processes.SyncWith(empty), "table");
    for (const Process& process : fresh) {
      benchmark::DoNotOptimize(processes.Add(process));
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(ProcessesDBAddNew)->Arg(200)->Arg(5000)->Arg(50000)->Unit(benchmark::kMillisecond);

// What one day goes through on its way to the disk and back.
struct Stages {
  Tables tables;
  Buffer plain{true};
  Buffer compressed{true};
  Buffer ciphered{true};
  NetDBCryptor cryptor;

  explicit Stages(u32 rowCount) : tables(rowCount) {
    for (Buffer* buffer : {&plain, &compressed, &ciphered}) {
      Require(buffer->Create(0, kBlockLimit, 100, false, GrowType::kPercent), "buffer");
    }
    cryptor.SetDayStamp(kDay);
    Serialize();
    Compress();
    Cipher();
  }
  void Serialize() {
    MemoryStore store;
    Require(tables.processes.Flush(store) && tables.rows.Flush(store), "serialise");
    Require(store.Apply(
                "4", false,
                [this](Buffer& value, bool, void*) {
                  plain.Reset();
                  return plain.PushBuffer(value.GetUnsafePointer(0, value.size), value.size) != kNone;
                },
                nullptr),
            "value");
  }
  void Compress() {
    u32 size = ZLib::ZcompressBound(plain.size);
    compressed.Reset();
    Require(compressed.AllocateBuffer(size) == 0, "room");
    Require(ZLib::Zcompress(compressed.GetUnsafePointer(0, size), size, plain.GetUnsafePointer(0, plain.size),
                            plain.size, CompressionLevel::kDefault),
            "compress");
    Require(compressed.Truncate(size), "truncate");
  }
  void Decompress() {
    u32 size = plain.size;
    plain.Reset();
    Require(plain.AllocateBuffer(size) == 0, "room");
    Require(ZLib::ZlibUncompress(plain.GetUnsafePointer(0, size), size, compressed.GetUnsafePointer(0, compressed.size),
                                 compressed.size),
            "decompress");
  }
  void Cipher() {
    ciphered.Reset();
    Require(cryptor.Serialize(compressed.GetUnsafePointer(0, compressed.size), compressed.size, ciphered), "cipher");
  }
  void Decipher() {
    compressed.Reset();
    Require(cryptor.Deserialize(ciphered.GetUnsafePointer(0, ciphered.size), ciphered.size, compressed), "decipher");
  }
  void Write(const std::string& path) {
    File file;
    Require(file.Create(path.c_str(), false, true) &&
                file.Write(ciphered.GetUnsafePointer(0, ciphered.size), ciphered.size, nullptr) && file.Close(),
            "write");
  }
  void Read(const std::string& path) {
    File file;
    const u32 size = ciphered.size;
    ciphered.Reset();
    Require(ciphered.AllocateBuffer(size) == 0, "room");
    Require(file.OpenRead(path.c_str()) && file.Read(ciphered.GetUnsafePointer(0, size), size, nullptr), "read");
  }
};

// The step alone, and the bytes that it takes in.
template <class Step>
void RunStage(benchmark::State& state, Step step) {
  Stages stages(static_cast<u32>(state.range(0)));
  u64 bytes = 0;
  for (auto _ : state) {
    bytes += step(stages);
  }
  state.SetBytesProcessed(static_cast<i64>(bytes));
}

void DumpSerialise(benchmark::State& state) {
  const auto rowCount = static_cast<u32>(state.range(0));
  Tables tables(rowCount);
  MemoryStore store;
  for (auto _ : state) {
    Require(tables.processes.Flush(store) && tables.rows.Flush(store), "serialise");
  }
  state.SetBytesProcessed(state.iterations() * (14 + 46 * i64{rowCount}));
}
void DumpCompress(benchmark::State& state) {
  RunStage(state, [](Stages& stages) {
    stages.Compress();
    return stages.plain.size;
  });
}
void DumpCipher(benchmark::State& state) {
  RunStage(state, [](Stages& stages) {
    stages.Cipher();
    return stages.compressed.size;
  });
}
void DumpWrite(benchmark::State& state) {
  const Folder folder;
  RunStage(state, [&folder](Stages& stages) {
    stages.Write(folder.File(kDay));
    return stages.ciphered.size;
  });
}
// All of it, with the file's replacement. A message of a known key makes the day dirty again.
void DumpWhole(benchmark::State& state) {
  const Folder folder;
  DBManager manager;
  Require(manager.SetFolder(folder.Path().c_str()), "folder");
  FillDay(manager, kDay, static_cast<u32>(state.range(0)));
  const BacklogMessage message = MakeMessage(kDay, 0);
  const Process process = MakeProcess(0);
  for (auto _ : state) {
    Require(manager.Add(message, &process) && manager.Flush(), "dump");
  }
}

void LoadRead(benchmark::State& state) {
  const Folder folder;
  bool written = false;
  RunStage(state, [&folder, &written](Stages& stages) {
    if (!written) {
      stages.Write(folder.File(kDay));
      written = true;
    }
    stages.Read(folder.File(kDay));
    return stages.ciphered.size;
  });
}
void LoadDecipher(benchmark::State& state) {
  RunStage(state, [](Stages& stages) {
    stages.Decipher();
    return stages.compressed.size;
  });
}
void LoadDecompress(benchmark::State& state) {
  RunStage(state, [](Stages& stages) {
    stages.Decompress();
    return stages.plain.size;
  });
}
void LoadDeserialise(benchmark::State& state) {
  const auto rowCount = static_cast<u32>(state.range(0));
  Tables tables(rowCount);
  MemoryStore store;
  Require(tables.processes.Flush(store) && tables.rows.Flush(store), "serialise");
  for (auto _ : state) {
    Require(tables.processes.SyncWith(store) && tables.rows.SyncWith(store), "deserialise");
  }
  state.SetBytesProcessed(state.iterations() * (14 + 46 * i64{rowCount}));
}
void LoadWhole(benchmark::State& state) {
  const Folder folder;
  {
    DBManager writer;
    Require(writer.SetFolder(folder.Path().c_str()), "folder");
    FillDay(writer, kDay, static_cast<u32>(state.range(0)));
  }
  DBManager reader;
  for (auto _ : state) {
    Require(reader.SyncWith(folder.File(kDay).c_str(), true), "load");
  }
}

#define DAY_SIZES ->Arg(20000)->Arg(262144)->Unit(benchmark::kMillisecond)
BENCHMARK(DumpSerialise) DAY_SIZES;
BENCHMARK(DumpCompress) DAY_SIZES;
BENCHMARK(DumpCipher) DAY_SIZES;
BENCHMARK(DumpWrite) DAY_SIZES;
BENCHMARK(DumpWhole) DAY_SIZES;
BENCHMARK(LoadRead) DAY_SIZES;
BENCHMARK(LoadDecipher) DAY_SIZES;
BENCHMARK(LoadDecompress) DAY_SIZES;
BENCHMARK(LoadDeserialise) DAY_SIZES;
BENCHMARK(LoadWhole) DAY_SIZES;

// Thirty days of 20,000 rows, made once and shared by all queries.
constexpr u32 kDays = 30;
constexpr u32 kRowsADay = 20000;

const Folder& History() {
  static const Folder* const folder = [] {
    static Folder made;
    WriteDays(made.Path(), kDays, kRowsADay);
    return &made;
  }();
  return *folder;
}

template <class Constrain>
void RunQuery(benchmark::State& state, Constrain constrain) {
  const Folder& folder = History();
  const u64 last = kDay + static_cast<u64>(state.range(0)) * DBManager::kSecondsPerDay - 1;
  u64 rows = 0;
  for (auto _ : state) {
    QueryConstraints constraints(kDay, last);
    constrain(constraints);
    Require(DBManager::Query(folder.Path().c_str(), constraints,
                             [&rows](const QueryRecord&) {
                               ++rows;
                               return true;
                             }),
            "query");
  }
  Require(rows != 0, "rows");
  state.counters["rows"] = benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kAvgIterations);
}

void QueryByAddress(benchmark::State& state) {
  RunQuery(state, [](QueryConstraints& constraints) {
    Require(constraints.ips_wanted.Add(IPv4::FromRaw(Scatter(777))), "address");
  });
}
void QueryByPath(benchmark::State& state) {
  RunQuery(state, [](QueryConstraints& constraints) {
    const Process process = MakeProcess(77);
    Require(constraints.paths_wanted.Add(process.proc_fpath), "path");
  });
}
// The first hour of the first day for one day; the whole range for more.
void QueryByTime(benchmark::State& state) {
  RunQuery(state, [](QueryConstraints& constraints) {
    if (constraints.end_time - constraints.start_time < DBManager::kSecondsPerDay) {
      constraints.end_time = constraints.start_time + 3600;
    }
  });
}
BENCHMARK(QueryByAddress)->Arg(1)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(QueryByPath)->Arg(1)->Arg(30)->Unit(benchmark::kMillisecond);
BENCHMARK(QueryByTime)->Arg(1)->Arg(30)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
