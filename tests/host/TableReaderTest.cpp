#include "host/inspect/TableReader.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace Host;
using namespace Host::Inspect;

template <class T>
void Append(std::string& bytes, T value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

std::string Header(u16 version, u32 count) {
  std::string bytes;
  Append(bytes, version);
  Append(bytes, count);
  if (version > 0) {
    Append(bytes, u32{100});
    Append(bytes, u32{0x10000400});
  }
  return bytes;
}

std::string Process(const std::string& path, i32 references) {
  std::string bytes;
  Append(bytes, static_cast<u32>(path.size()));
  bytes += path + std::string(64, '\0');
  Append(bytes, references);
  return bytes;
}

TableReport Read(const std::string& key, const std::string& bytes, std::string& problem) {
  return ReadTable(key, reinterpret_cast<const u8*>(bytes.data()), static_cast<u32>(bytes.size()), problem);
}

TEST(ReadTable, AddressRowsAreCounted) {
  std::string problem;
  const TableReport table = Read("4", Header(1, 2) + std::string(92, 'r'), problem);
  EXPECT_TRUE(table.isWhole) << problem;
  EXPECT_EQ(table.rows, 2U);
  EXPECT_EQ(table.maxCount, 100U);
  EXPECT_EQ(table.flags, 0x10000400U);
  EXPECT_EQ(table.freeSlots, std::nullopt);
  EXPECT_TRUE(Read("6", Header(1, 2) + std::string(116, 'r'), problem).isWhole);
}

TEST(ReadTable, FreeSlotsOfProcessesAreCounted) {
  std::string problem;
  const TableReport table =
      Read("p", Header(1, 3) + Process("/bin/a", 1) + Process("", -1) + Process("/bin/b", 0), problem);
  EXPECT_TRUE(table.isWhole) << problem;
  EXPECT_EQ(table.rows, 3U);
  EXPECT_EQ(table.freeSlots, 1U);
}

TEST(ReadTable, OldVersionHasNoCeiling) {
  std::string problem;
  const TableReport table = Read("4", Header(0, 1) + std::string(46, 'r'), problem);
  EXPECT_TRUE(table.isWhole) << problem;
  EXPECT_EQ(table.maxCount, std::nullopt);
}

TEST(ReadTable, EmptyTableIsWhole) {
  std::string problem;
  EXPECT_TRUE(Read("p", Header(1, 0), problem).isWhole);
  EXPECT_TRUE(Read("4", Header(1, 0), problem).isWhole);
}

TEST(ReadTable, DamageIsNamed) {
  const auto problemOf = [](const std::string& key, const std::string& bytes) {
    std::string problem;
    EXPECT_FALSE(Read(key, bytes, problem).isWhole);
    return problem;
  };
  EXPECT_EQ(problemOf("4", ""), "table \"4\" ends inside its header");
  EXPECT_EQ(problemOf("4", Header(1, 0).substr(0, 13)), "table \"4\" ends inside its header");
  EXPECT_EQ(problemOf("4", Header(2, 0)), "table \"4\" has the unknown version 2");
  EXPECT_EQ(problemOf("4", Header(1, 2) + std::string(91, 'r')), "table \"4\" says 2 rows and ends inside row 1");
  EXPECT_EQ(problemOf("4", Header(1, 0xFFFFFFFF)), "table \"4\" says 4294967295 rows and ends inside row 0");
  EXPECT_EQ(problemOf("p", Header(1, 0xFFFFFFFF) + Process("/a", 1)),
            "table \"p\" says 4294967295 rows and ends inside row 1");
  EXPECT_EQ(problemOf("4", Header(1, 101) + std::string(101 * 46, 'r')),
            "table \"4\" has more rows than its ceiling of 100");
  EXPECT_EQ(problemOf("4", Header(1, 0) + "x"), "table \"4\" has 1 bytes behind its last row");
  std::string lie;
  Append(lie, u32{0xFFFFFFFF});
  EXPECT_EQ(problemOf("p", Header(1, 1) + lie + "/bin/a"), "table \"p\" says 1 rows and ends inside row 0");
}

}  // namespace
