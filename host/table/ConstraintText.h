// ConstraintText: conditions with their values, as days to read and as the constraints of a table query.
//
//   const Narrowing narrowing = Narrow(conditions);
//   for (u64 day : days) {
//     if (narrowing.MayHold(day)) ... narrowing.ConstraintsFor(day) ...
#pragma once

#include <array>
#include <string>
#include <variant>
#include <vector>

#include "host/table/TablePlan.h"

namespace Host::Table {

struct Blob {};  // its bytes never matter

// A value of SQL: NULL, INTEGER, REAL, TEXT or BLOB.
using SqlValue = std::variant<std::monostate, i64, double, std::string, Blob>;

// "column operation value", or for kEquals "column is one of the values".
struct Condition {
  Term term;
  std::vector<SqlValue> values;
  bool cut = false;  // there were more than kMaxValues
};

// Values of one condition that are looked at. With the day's two they fit what a table query takes.
inline constexpr std::size_t kMaxValues = 100;

// What conditions leave of the history: no row that meets all of them is outside. Rows that do not meet them may be
// inside. A plain value.
class Narrowing {
 public:
  // Epoch seconds of a day's start.
  [[nodiscard]] bool MayHold(u64 day) const;
  // The JSON text that asks for this day.
  [[nodiscard]] std::string ConstraintsFor(u64 day) const;

 private:
  friend Narrowing Narrow(const std::vector<Condition>& conditions);

  struct DayRule {
    Operation operation;
    std::vector<SqlValue> values;  // whole and real numbers
  };

  void Apply(const Condition& condition);
  void ApplyTime(const Condition& condition);
  void ApplyIp(const Condition& condition);
  void ApplyPath(const Condition& condition);
  void ApplyPattern(const Condition& condition);
  void ApplyDigest(const Condition& condition, std::size_t bytes);
  void ApplyPuid(const Condition& condition);
  // Entries of a condition list for `column`.
  void Add(int column, const std::vector<std::string>& entries);
  [[nodiscard]] bool HasRoomFor(std::size_t entries) const;

  bool nothing_ = false;
  std::vector<DayRule> days_;
  bool hasPaths_ = false;
  std::size_t entries_ = 0;
  std::array<std::string, kColumnCount> lists_;  // entries of each column's list, with commas between
};

// Whatever is not fully understood narrows nothing. Thread-safe.
Narrowing Narrow(const std::vector<Condition>& conditions);

}  // namespace Host::Table
