// Random sets of conditions about given rows, valid for the most part.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "tests/osquery/ConstraintSet.h"
#include "tests/osquery/TableRow.h"

namespace ConstraintTest {

class ConstraintGenerator {
 public:
  // `rows` must outlive the generator.
  ConstraintGenerator(const std::vector<TableRow>& rows, u64 seed) : rows_(rows), random_(seed) {}

  ConstraintSet Next();
  // A column list in any form that gives the columns in `chosen`; "*" leaves `chosen` empty.
  std::string NextColumns(std::vector<std::string>& chosen);

 private:
  u64 Below(u64 limit) { return random_() % limit; }
  bool Chance(u32 percent) { return Below(100) < percent; }
  template <class List>
  const auto& Pick(const List& list) {
    return list[Below(std::size(list))];
  }
  // The row that the whole set is about, or now and then another.
  const TableRow& Row();
  // With letters in other cases.
  std::string Recased(std::string text);

  // The rows that were there at a time: the two columns narrow one range, and differently from how they read.
  ConstraintSet Lasting();
  ColumnConditions NextColumn(const std::string& name);
  u64 NextOperator(const std::string& column);
  Value NextValue(const std::string& column, u64 op);
  Value OddValue();
  Value AddressValue();
  Value TimeValue();
  Value PathValue(bool pattern);
  Value DigestValue(const std::string& digest);
  // As a number, or as a text of it.
  Value NumberValue(u64 number);

  const std::vector<TableRow>& rows_;
  std::mt19937_64 random_;
  const TableRow* about_ = nullptr;
};

}  // namespace ConstraintTest
