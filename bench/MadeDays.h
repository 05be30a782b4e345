// Made days: connections, processes and whole day files for the benchmarks, the same in every run.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include "common/netdb_storage/DBManager.h"

namespace Bench {

using namespace RYL;
using namespace RYL::NetDB;

inline constexpr u64 kDay = 1699920000;
inline constexpr u32 kProcesses = 200;
inline constexpr u16 kRarePort = 8443;  // one connection of a thousand

inline void Require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "benchmark cannot run: %s\n", what);
    std::abort();
  }
}

// A number for each number, far apart, so that neighbours in time are none in the table.
inline u32 Scatter(u32 number) {
  return number * 2654435761U;
}

// The numbers from 0 to count - 1 in the order of their addresses, in which a table fills without moving rows.
inline std::vector<u32> InAddressOrder(u32 count) {
  std::vector<u32> numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0U);
  std::sort(numbers.begin(), numbers.end(),
            [](u32 a, u32 b) { return IPv4::FromRaw(Scatter(a)) < IPv4::FromRaw(Scatter(b)); });
  return numbers;
}

inline Process MakeProcess(u32 number) {
  Process process;
  Require(process.proc_fpath.SetFormat("/usr/lib/application-%u/bin/program-%u", number % 50, number), "path");
  for (u32 i = 0; i < 16; ++i) {
    process.proc_md5[i] = static_cast<u8>(Scatter(number) >> (i % 24));
  }
  for (u32 i = 0; i < 32; ++i) {
    process.proc_qid[i] = static_cast<u8>(Scatter(number + i) >> 11);
  }
  process.proc_puid = 1000000 + u64{number};
  process.proc_pid = 1000 + static_cast<i64>(number);
  return process;
}

inline BacklogMessage MakeMessage(u64 day, u32 number) {
  BacklogMessage message;
  message.address = Scatter(number);
  message.port = number % 1000 == 7 ? kRarePort : u16{443};
  message.is_new_connection = 1;
  message.direction = Direction::kOutbound;
  message.protocols = 0x0840;
  message.timestamp = day + number % 86400;
  message.bytes_in = Scatter(number) % 100000;
  message.bytes_out = (Scatter(number) >> 7) % 3000;
  return message;
}

inline void FillDay(DBManager& manager, u64 day, u32 rowCount) {
  for (const u32 number : InAddressOrder(rowCount)) {
    const Process process = MakeProcess(number % kProcesses);
    Require(manager.Add(MakeMessage(day, number), &process), "message");
  }
}

// As many days from kDay on, each with the same connections.
inline void WriteDays(const std::string& folder, u32 days, u32 rowsADay) {
  for (u32 day = 0; day < days; ++day) {
    DBManager writer;
    Require(writer.SetFolder(folder.c_str()), "folder");
    FillDay(writer, kDay + day * DBManager::kSecondsPerDay, rowsADay);
    Require(writer.Flush(), "day");
  }
}

// A folder that goes with the process.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "storage-bench-XXXXXX").string();
    Require(::mkdtemp(name.data()) != nullptr, "temporary folder");
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string& Path() const { return path_; }
  std::string File(u64 day) const { return path_ + "/" + std::to_string(day) + ".db"; }

 private:
  std::string path_;
};

}  // namespace Bench
