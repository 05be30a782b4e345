// What the tests of the tables share: rows, processes, stores without a file, and the tables' invariants.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/netdb_storage/DBManager.h"
#include "tests/netdb_storage/StorageTestAccess.h"

namespace StorageTest {

using namespace RYL;
using namespace RYL::NetDB;
using Velmar::Collections::Array;
using Velmar::Collections::Buffer;
using Velmar::Collections::GrowType;
using Velmar::Collections::StreamBuffer;
using Velmar::Utils::String;
namespace StoreFlags = Velmar::Collections::DB::StoreFlags;

using Row = IPRecord<IPv4>;

inline IPv4 Address(u8 a, u8 b, u8 c, u8 d) {
  return IPv4{{a, b, c, d}};
}

inline Row MakeRow(IPv4 address, u32 process, u16 port) {
  Row row;
  row.ip = address;
  row.proc_index = process;
  row.port = port;
  row.conns_total = 1;
  return row;
}

inline Process MakeProcess(const std::string& path, i64 pid = 1) {
  Process process;
  process.proc_fpath.Set(path.c_str());
  process.proc_pid = pid;
  process.proc_puid = static_cast<u64>(pid) + 1000;
  process.proc_md5[0] = static_cast<u8>(path.size());
  process.proc_qid[31] = static_cast<u8>(pid);
  return process;
}

// A buffer as a store's value pool makes it.
struct Value {
  alignas(Buffer) unsigned char area[sizeof(Buffer)];
  Buffer* buffer = reinterpret_cast<Buffer*>(area);
  Value() { EXPECT_TRUE(buffer->InitializeObject()); }
  ~Value() { buffer->UninitializeObject(); }
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;
  Buffer& operator*() { return *buffer; }
  Buffer* operator->() { return buffer; }
};

inline std::vector<u8> Bytes(const Buffer& buffer) {
  const u8* data = buffer.GetUnsafePointer(0, buffer.size);
  return {data, data + buffer.size};
}

// A day's store without a file and without a cipher.
struct MemoryStore : DayStore {
  MemoryStore() {
    keyCompareFlag = 0;
    EXPECT_TRUE(Init(nullptr, 2, 3, 1, StoreFlags::kBinarySearch, 1, &keyCompareFlag, nullptr, 0, -1, nullptr));
  }
  void Put(const char* key, const std::vector<u8>& bytes) {
    EXPECT_TRUE(Apply(
        key, true,
        [&bytes](Buffer& value, bool, void*) {
          value.Reset();
          return value.PushBuffer(bytes.data(), static_cast<u32>(bytes.size())) != kNone;
        },
        nullptr));
  }
  std::vector<u8> Get(const char* key) {
    std::vector<u8> bytes;
    Apply(
        key, false,
        [&bytes](Buffer& value, bool, void*) {
          bytes = Bytes(value);
          return true;
        },
        nullptr);
    return bytes;
  }
};

inline void SyncEmpty(ProcessesDB& processes) {
  MemoryStore store;
  ASSERT_TRUE(processes.SyncWith(store));
}

template <class T>
void SyncEmpty(IPDB<T>& table) {
  MemoryStore store;
  ASSERT_TRUE(table.SyncWith(store));
}

// Each row number once in sorted_index or free_slots, sorted, free rows empty, and the size that is kept the true one.
inline void CheckInvariants(ProcessesDB& processes) {
  auto& records = ProcessesDBTestAccess::Records(processes);
  auto& sorted = ProcessesDBTestAccess::SortedIndex(processes);
  auto& free = ProcessesDBTestAccess::FreeSlots(processes);
  std::vector<int> seen(records.count, 0);
  u32 size = 14;
  for (u32 i = 0; i < sorted.count; ++i) {
    ASSERT_LT(sorted.data[i], records.count);
    ++seen[sorted.data[i]];
    EXPECT_GE(records.data[sorted.data[i]].ref_count, 0);
    if (i > 0) {
      EXPECT_TRUE(records.data[sorted.data[i - 1]] < records.data[sorted.data[i]]) << i;
    }
  }
  for (u32 i = 0; i < free.count; ++i) {
    ASSERT_LT(free.data[i], records.count);
    ++seen[free.data[i]];
    EXPECT_EQ(records.data[free.data[i]].ref_count, -1);
    EXPECT_TRUE(records.data[free.data[i]].IsEmpty());
  }
  for (u32 i = 0; i < records.count; ++i) {
    EXPECT_EQ(seen[i], 1) << "row " << i;
    size += 72 + static_cast<u32>(records.data[i].proc_fpath.length);
  }
  EXPECT_EQ(processes.GetSerializedSize(), size);
}

template <class T>
void CheckSorted(IPDB<T>& table) {
  auto& rows = IPDBTestAccess<T>::Rows(table);
  for (u32 i = 1; i < rows.count; ++i) {
    ASSERT_LT(CompareRows(rows.data[i - 1], rows.data[i]), 0) << i;
  }
}

// Each row with a process accounts for one reference, and no process has more; a free row of the process table has -1.
inline void CheckReferences(IPDB<IPv4>& table, ProcessesDB& processes) {
  auto& records = ProcessesDBTestAccess::Records(processes);
  auto& rows = IPDBTestAccess<IPv4>::Rows(table);
  std::vector<i32> references(records.count, 0);
  for (u32 i = 0; i < rows.count; ++i) {
    if (rows.data[i].proc_index != kNone) {
      ASSERT_LT(rows.data[i].proc_index, records.count);
      ++references[rows.data[i].proc_index];
    }
  }
  for (u32 i = 0; i < records.count; ++i) {
    const bool isFree = records.data[i].ref_count == -1;
    EXPECT_EQ(isFree ? 0 : records.data[i].ref_count, references[i]) << "process " << i;
  }
}

}  // namespace StorageTest
