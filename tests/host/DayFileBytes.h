// DayFileBytes: a day file made row by row, with right checksums around whatever is in it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Velmar/Collections/Buffer.h"
#include "common/netdb_storage/NetDBCryptor.h"
#include "host/Types.h"
#include "tests/velmarlib/store/StoreBytes.h"

struct ProcessBytes {
  std::string path = {};
  Host::i32 references = 0;
  Host::i64 pid = 7;
  Host::u64 uniqueId = 1;
  char md5 = 0;  // each byte
  char qid = 0;

  static ProcessBytes Free() { return {{}, -1, -1, 0}; }
};

struct AddressBytes {
  Host::u8 lastOctet = 1;  // of 203.0.113.x
  Host::u32 process = 0xFFFFFFFF;
  Host::u32 port = 443;
  Host::u64 first = 100;
  Host::u64 last = 200;
  Host::u64 protocols = 0x840;
  Host::u32 total = 1;
  Host::u32 in = 0;
  Host::u32 out = 1;
};

inline std::string LongWord(Host::u64 value) {
  return StoreBytes::Word(static_cast<Host::u32>(value)) + StoreBytes::Word(static_cast<Host::u32>(value >> 32));
}

inline std::string RowBytes(const ProcessBytes& row) {
  return StoreBytes::Counted(row.path) + std::string(16, row.md5) + std::string(32, row.qid) + LongWord(row.uniqueId) +
         LongWord(static_cast<Host::u64>(row.pid)) + StoreBytes::Word(static_cast<Host::u32>(row.references));
}

inline std::string RowBytes(const AddressBytes& row) {
  return std::string("\xCB\x00\x71", 3) + static_cast<char>(row.lastOctet) + StoreBytes::Word(row.process) +
         StoreBytes::Word(row.port).substr(0, 2) + LongWord(row.first | row.last << 17 | row.protocols << 34) +
         StoreBytes::Word(row.total) + StoreBytes::Word(row.in) + LongWord(1000) + StoreBytes::Word(row.out) +
         LongWord(2000);
}

template <class Row>
std::string TableBytes(const std::vector<Row>& rows, Host::u32 ceiling, Host::u32 flags) {
  std::string bytes = std::string("\1\0", 2) + StoreBytes::Word(static_cast<Host::u32>(rows.size())) +
                      StoreBytes::Word(ceiling) + StoreBytes::Word(flags);
  for (const Row& row : rows) {
    bytes += RowBytes(row);
  }
  return bytes;
}

struct DayFileBytes {
  static constexpr Host::u64 kDay = 1699920000;
  Host::u64 day = kDay;
  Host::u64 filterStamp = 0;
  std::vector<ProcessBytes> processes = {{"/bin/a", 2}, ProcessBytes::Free(), {"/bin/b", 1}};
  std::vector<AddressBytes> addresses = {{1, 0}, {1, 2}, {2, 0}, {3}};

  [[nodiscard]] std::string ProcessTable() const { return TableBytes(processes, 0x20000, 0x10000064); }
  [[nodiscard]] std::string AddressTable() const { return TableBytes(addresses, 0x40000, 0x10000400); }

  // A page for each value.
  [[nodiscard]] StoreBytes::StoreFile ToStore(const std::vector<std::pair<std::string, std::string>>& entries) const {
    StoreBytes::StoreFile file;
    file.fileFlags = 6;
    file.blob = LongWord(day) + LongWord(filterStamp);
    file.hasIndex = true;
    for (const auto& [key, value] : entries) {
      ++file.entryCount;
      file.index += StoreBytes::Counted(key);
      file.pages.push_back(StoreBytes::BufferRecord(value));
    }
    return file;
  }
  [[nodiscard]] StoreBytes::StoreFile ToStore() const {
    return ToStore({{"p", ProcessTable()}, {"4", AddressTable()}});
  }
  [[nodiscard]] std::string Seal(const StoreBytes::StoreFile& file) const {
    return StoreBytes::Build(file, [this](const std::string& plain) { return Cipher(plain); });
  }
  [[nodiscard]] std::string Bytes() const { return Seal(ToStore()); }

  [[nodiscard]] std::string Cipher(const std::string& plain) const {
    RYL::NetDB::NetDBCryptor cryptor;
    cryptor.SetDayStamp(day);
    Velmar::Collections::Buffer output(true);
    const auto size = static_cast<Host::u32>(plain.size());
    EXPECT_TRUE(output.Create(size + 1, 1U << 25, 1, false, Velmar::Collections::GrowType::kFixedStep));
    EXPECT_TRUE(cryptor.Serialize(plain.data(), size, output));
    return {reinterpret_cast<const char*>(output.GetUnsafePointer(0, output.size)), output.size};
  }
};
