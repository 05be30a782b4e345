// What a table query has to answer to a set of conditions, worked out row by row, and what an asker would keep of it.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/osquery/ConstraintSet.h"
#include "tests/osquery/TableRow.h"

namespace ConstraintTest {

inline constexpr u32 kRefused = 4;  // the code of a query that is not understood

// Whether all of `text` matches the pattern of LIKE, by bytes or by characters.
bool LikeByBytes(const std::string& text, const std::string& pattern);
bool LikeByCharacters(const std::string& text, const std::string& pattern);

// How the table query narrows its search by a set.
class Narrowing {
 public:
  explicit Narrowing(const ConstraintSet& set);

  u32 error = 0;
  bool impossible = false;  // no rows, and no error

  [[nodiscard]] bool Admits(const TableRow& row) const;
  // Why a row is not admitted although it may meet each condition; null when there is no good reason.
  [[nodiscard]] const char* ReasonToLose(const TableRow& row) const;

 private:
  void CheckShape(const ConstraintSet& set);
  // Both false when the walk over the conditions ends.
  bool Use(const std::string& column, const Condition& condition);
  bool UseAddress(const Condition& condition);
  bool UseTime(const std::string& column, const Condition& condition);
  bool UsePath(const Condition& condition);
  bool UseDigest(const Condition& condition, std::size_t digits, std::vector<std::string>& wanted);
  bool UseUniqueId(const Condition& condition);
  bool Refuse();

  [[nodiscard]] bool IsInRange(const TableRow& row) const;
  [[nodiscard]] bool MatchesPath(const TableRow& row) const;
  [[nodiscard]] bool AsksForProcess() const;

  std::set<std::string> addresses_;
  std::set<std::string> paths_;
  std::vector<std::string> patterns_;
  std::vector<std::string> md5s_;
  std::vector<std::string> qids_;
  std::vector<u64> uniqueIds_;
  std::set<std::string> timeColumns_;
  u64 from_ = 0;
  u64 to_ = ~u64{0};
};

// Whether the row meets all conditions as their asker understands them. Where that is not plain, it does.
bool AskerKeeps(const ConstraintSet& set, const TableRow& row);

}  // namespace ConstraintTest
