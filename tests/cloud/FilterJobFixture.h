// FilterJobFixture: a finished day of many addresses, a cloud that knows the harmless ones, and a job to run on it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/cloud/filter_job/FilterJob.h"
#include "tests/netdb_storage/Folder.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SimCloud.h"

namespace FilterJobTest {

using namespace RYL::NetDB;
using namespace StorageTest;
using Lines = std::vector<std::string>;

// Row i, of port i, is of 203.0.113.i; every third is harmless. Most rows have a process of their own.
inline constexpr u8 kRows = 120;

inline bool IsHarmless(u8 i) {
  return i % 3 == 0;
}
inline IPv4 AddressOf(u8 i) {
  return Address(203, 0, 113, i);
}
inline std::string TextOf(u8 i) {
  return "203.0.113." + std::to_string(i);
}
inline const std::vector<u16> kHarmfulPorts = [] {
  std::vector<u16> ports;
  for (u8 i = 0; i < kRows; ++i) {
    if (!IsHarmless(i)) {
      ports.push_back(i);
    }
  }
  return ports;
}();

class FilterJobFixture : public testing::Test {
 protected:
  // An empty disk but for the day, an unknowing cache, no faults.
  void StartDisk() {
    cloud.reset();
    Sim::Reset();
    cloud = std::make_unique<SimCloud>();
    for (u8 i = 0; i < kRows; i += 3) {
      cloud->harmless.insert(TextOf(i));
    }
    ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
    WriteTheDay();
    ASSERT_TRUE(file.Set(path.c_str()));
    FreshVerdicts();
  }
  void WriteTheDay() {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    for (u8 i = 0; i < kRows; ++i) {
      BacklogMessage message = MakeMessage(kDay + i, AddressOf(i), i);
      message.bytes_in = u64{i} * 0x9E3779B97F4A7C15;
      const Process process = MakeProcess("/usr/bin/program" + std::to_string(i), i);
      ASSERT_TRUE(writer.Add(message, i % 10 == 0 ? nullptr : &process));
    }
    ASSERT_TRUE(writer.Flush());
  }
  // As after a restart that found no file of verdicts.
  void FreshVerdicts() {
    verdicts = std::make_unique<CloudStatus<IPv4>>();
    ASSERT_TRUE(verdicts->Open(nullptr, false));
  }
  static std::set<std::string> AllAddresses() {
    std::set<std::string> all;
    for (u8 i = 0; i < kRows; ++i) {
      all.insert(TextOf(i));
    }
    return all;
  }

  // The job, on this thread.
  u8 Run() {
    status = FilterState::kLaunched;
    FilterJobContext context{.file = &file, .cloud = verdicts.get(), .status = &status};
    FilterJobThread(&context);
    return status.load();
  }
  // A later job, in a process that knows nothing, leaves the day as it is to be.
  void NextJobCompletes() {
    Sim::ClearFaults();
    cloud->failsFrom = SimCloud::kNever;
    cloud->onRequest = nullptr;
    FreshVerdicts();
    ASSERT_EQ(Run(), FilterState::kDone);
    EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
    EXPECT_EQ(PortsOf(path + ".f"), kHarmfulPorts);
    EXPECT_NE(FilterStamp(path + ".f"), 0U);
  }

  // Ports of a file's rows, sorted; references are looked at, too.
  static std::vector<u16> PortsOf(const std::string& dayPath) {
    std::vector<u16> ports;
    DBManager reader;
    EXPECT_TRUE(reader.SyncWith(dayPath.c_str(), true)) << dayPath;
    auto& rows = IPDBTestAccess<IPv4>::Rows(DBManagerTestAccess::Ips(reader));
    for (u32 i = 0; i < rows.count; ++i) {
      ports.push_back(rows.data[i].port);
    }
    CheckSorted(DBManagerTestAccess::Ips(reader));
    CheckInvariants(DBManagerTestAccess::Processes(reader));
    CheckReferences(DBManagerTestAccess::Ips(reader), DBManagerTestAccess::Processes(reader));
    std::sort(ports.begin(), ports.end());
    return ports;
  }
  static u64 FilterStamp(const std::string& dayPath) {
    DBManager reader;
    EXPECT_TRUE(reader.SyncWith(dayPath.c_str(), true)) << dayPath;
    return DBManagerTestAccess::Cryptor(reader).GetFilterStamp();
  }

  const std::string path = DayPath(kDay);
  Velmar::Utils::String file;
  std::atomic<u8> status{FilterState::kIdle};
  std::unique_ptr<CloudStatus<IPv4>> verdicts;
  std::unique_ptr<SimCloud> cloud;
};

}  // namespace FilterJobTest
