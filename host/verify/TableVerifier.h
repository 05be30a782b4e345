// TableVerifier: the two tables of a day, row by row, and what they say of each other.
#pragma once

#include <string>
#include <vector>

#include "host/inspect/ByteCursor.h"
#include "host/inspect/StoreReport.h"

namespace Host::Verify {

// Says what is wrong with rows; that a table ends too early or too late is not its business. Either table may come
// first. Memory: a few words a row. Thread-compatible.
class TableVerifier {
 public:
  explicit TableVerifier(std::vector<Inspect::Problem>& problems) : problems_(problems) {}

  // The content of the table's value; it is read up to the first row that is not all there. `position` is the block's.
  void TakeProcesses(const u8* data, u32 size, u64 position);
  void TakeAddresses(const u8* data, u32 size, u64 position);
  // After both, when both are whole: processes that addresses point at, and the reference counts.
  void CompareTables();

  [[nodiscard]] u32 Rows() const { return static_cast<u32>(processOf_.size()); }
  // Without free slots.
  [[nodiscard]] u32 Processes() const { return liveProcesses_; }

 private:
  struct AddressRow;
  struct ProcessBytes {
    const u8* data;
    u32 size;
    u32 row;
  };
  // What is common to the problems of one table.
  struct Table {
    const char* key;
    u64 position = 0;
    u32 found = 0;
  };

  void ReadHeader(Inspect::ByteCursor& bytes, Table& table, u32& count, u32 ceiling, u32 flags);
  bool ReadProcessRow(Inspect::ByteCursor& bytes, std::vector<ProcessBytes>& live);
  void FindDuplicates(std::vector<ProcessBytes>& live);
  void CheckAddressRow(const AddressRow& row, const AddressRow* before, u32 number);
  void ComplainOfRow(Table& table, u32 row, const std::string& text);
  void TellRest(Table& table);

  std::vector<Inspect::Problem>& problems_;
  Table processTable_{"p"};
  Table addressTable_{"4"};
  std::vector<i32> references_;  // that each process row says it has, negative in a free slot
  std::vector<u32> processOf_;   // each address row's process row
  u32 liveProcesses_ = 0;
};

}  // namespace Host::Verify
