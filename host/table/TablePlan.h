// TablePlan: which conditions of a statement go down into the table query, and what the planner is told of it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Types.h"
#include "host/table/Columns.h"

namespace Host::Table {

// The letters stand in the text of a plan.
enum class Operation : char {
  kEquals = 'e',  // one of the values
  kGreater = 'g',
  kGreaterOrEquals = 'G',
  kLess = 'l',
  kLessOrEquals = 'L',
  kLike = 'k',
};

// A condition that can narrow a search.
struct Term {
  int column = 0;
  Operation operation = Operation::kEquals;

  friend bool operator==(const Term& a, const Term& b) { return a.column == b.column && a.operation == b.operation; }
};

// The term of SQLite's operator code on a column, compared under `collation`. Nothing for a condition that SQLite has
// to judge alone. Thread-safe, as all here.
std::optional<Term> TermOf(int column, int sqliteOperator, const char* collation);

// Terms as a text and back; nothing for a text that is none.
std::string PlanText(const std::vector<Term>& terms);
std::optional<std::vector<Term>> ReadPlan(const char* text);

// What a scan with these terms costs, in SQLite's measure. Whatever goes down, two scans cost more than one that takes
// all: SQLite must never put an OR together from several, as rows have no number that would tell them apart.
double ScanCost(const std::vector<Term>& terms);
inline constexpr double kFullScanCost = 1e6;
// Told of every scan: fewer for a narrow one would make several of them look good.
inline constexpr i64 kScanRows = 100'000;

// Names of the columns in `mask` (bit 0 is the first), as the table query takes them. Without any: the cheapest one.
std::string ColumnList(u64 mask);
// The columns in that list.
u64 ListedColumns(u64 mask);

}  // namespace Host::Table
