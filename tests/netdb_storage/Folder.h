// A database folder on the simulated disk, and what the tests of whole days put there and read back.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "Velmar/OS/FileSystem.h"
#include "platform/sim/Sim.h"
#include "tests/netdb_storage/Tables.h"

namespace StorageTest {

namespace Sim = Velmar::Sim;

inline constexpr char kFolder[] = "/data/netdb";
inline constexpr u64 kDay = 1699920000;
inline constexpr u64 kNextDay = 1700006400;
inline constexpr u64 kAllOnes64 = ~u64{0};

inline std::string DayPath(u64 day, const char* suffix = ".db") {
  return std::string(kFolder) + "/" + std::to_string(day) + suffix;
}

inline BacklogMessage MakeMessage(u64 timestamp, IPv4 address, u16 port) {
  BacklogMessage message;
  message.address = address.ToRaw();
  message.port = port;
  message.is_new_connection = 1;
  message.direction = Direction::kOutbound;
  message.timestamp = timestamp;
  return message;
}

// Names of all files of the folder, sorted.
inline std::vector<std::string> Files() {
  std::vector<std::string> names;
  for (const std::string& path : Sim::ListFiles()) {
    names.push_back(path.substr(path.rfind('/') + 1));
  }
  return names;
}

inline std::string Content(const std::string& path) {
  std::string content;
  return Sim::GetFile(path, content) ? content : "(missing)";
}

// Rows of a query in a form to compare, in the order in which they came.
struct Rows {
  std::vector<QueryRecord> records;

  QuerySink Sink() {
    return [this](const QueryRecord& record) {
      records.push_back(record);
      return true;
    };
  }
  std::vector<u16> Ports() const {
    std::vector<u16> ports;
    for (const QueryRecord& record : records) {
      ports.push_back(record.port);
    }
    return ports;
  }
  std::vector<u16> SortedPorts() const {
    std::vector<u16> ports = Ports();
    std::sort(ports.begin(), ports.end());
    return ports;
  }
};

// All rows of the folder, whatever day they are of.
inline Rows AllRows() {
  Rows rows;
  QueryConstraints constraints(0, kAllOnes64);
  EXPECT_TRUE(DBManager::Query(kFolder, constraints, rows.Sink()));
  return rows;
}

// Starts on an empty disk that holds the folder.
class FolderTest : public testing::Test {
 protected:
  FolderTest() {
    Sim::Reset();
    EXPECT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  }

  // A file of one row for each port, written by a manager of its own.
  static void WriteDay(u64 day, const std::vector<u16>& ports, const Process* process = nullptr) {
    DBManager manager;
    ASSERT_TRUE(manager.SetFolder(kFolder));
    for (const u16 port : ports) {
      ASSERT_TRUE(manager.Add(MakeMessage(day + port, Address(10, 0, 0, 1), port), process));
    }
    ASSERT_TRUE(manager.Flush());
  }
};

}  // namespace StorageTest
