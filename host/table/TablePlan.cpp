#include "host/table/TablePlan.h"

#include <sqlite3.h>

#include <algorithm>

namespace Host::Table {
namespace {

constexpr u64 kAllColumns = (u64{1} << kColumnCount) - 1;
constexpr u64 kCheapestColumn = u64{1} << kPort;
// Shares of a full scan. A day or an address more than halves the work; the planner must not know.
constexpr double kNarrowed = 0.8;
constexpr double kLeast = 0.6;

bool IsTime(int column) {
  return column == kFirstSeen || column == kLastSeen;
}

std::optional<Operation> OperationOf(int sqliteOperator) {
  switch (sqliteOperator) {
    case SQLITE_INDEX_CONSTRAINT_EQ:
      return Operation::kEquals;
    case SQLITE_INDEX_CONSTRAINT_GT:
      return Operation::kGreater;
    case SQLITE_INDEX_CONSTRAINT_GE:
      return Operation::kGreaterOrEquals;
    case SQLITE_INDEX_CONSTRAINT_LT:
      return Operation::kLess;
    case SQLITE_INDEX_CONSTRAINT_LE:
      return Operation::kLessOrEquals;
    case SQLITE_INDEX_CONSTRAINT_LIKE:
      return Operation::kLike;
    default:
      return std::nullopt;
  }
}

// Texts are found byte by byte.
bool ComparesBytes(const char* collation) {
  return collation != nullptr && sqlite3_stricmp(collation, "BINARY") == 0;
}

bool GoesDown(const Term& term, const char* collation) {
  switch (term.column) {
    case kFirstSeen:
    case kLastSeen:
      return term.operation != Operation::kLike;
    case kProcFpath:
      return term.operation == Operation::kLike || (term.operation == Operation::kEquals && ComparesBytes(collation));
    case kIp:
    case kProcMd5:
    case kProcQid:
    case kProcPuid:
      return term.operation == Operation::kEquals && ComparesBytes(collation);
    default:
      return false;
  }
}

}  // namespace

std::optional<Term> TermOf(int column, int sqliteOperator, const char* collation) {
  const auto operation = OperationOf(sqliteOperator);
  if (!operation) {
    return std::nullopt;
  }
  const Term term{column, *operation};
  return GoesDown(term, collation) ? std::optional<Term>(term) : std::nullopt;
}

std::string PlanText(const std::vector<Term>& terms) {
  std::string text;
  for (const Term& term : terms) {
    text += static_cast<char>('a' + term.column);
    text += static_cast<char>(term.operation);
  }
  return text;
}

std::optional<std::vector<Term>> ReadPlan(const char* text) {
  constexpr std::string_view kOperations = "egGlLk";
  std::vector<Term> terms;
  for (; text != nullptr && *text != '\0'; text += 2) {
    const int column = text[0] - 'a';
    if (column < 0 || column >= static_cast<int>(kColumnCount) || text[1] == '\0' ||
        kOperations.find(text[1]) == std::string_view::npos) {
      return std::nullopt;
    }
    terms.push_back({column, static_cast<Operation>(text[1])});
  }
  return terms;
}

double ScanCost(const std::vector<Term>& terms) {
  const auto isTime = [](const Term& term) { return IsTime(term.column); };
  const auto days = std::count_if(terms.begin(), terms.end(), isTime);
  const bool narrowsDays = days != 0;
  const bool narrowsRows = static_cast<std::size_t>(days) != terms.size();
  if (narrowsDays && narrowsRows) {
    return kLeast * kFullScanCost;
  }
  return narrowsDays || narrowsRows ? kNarrowed * kFullScanCost : kFullScanCost;
}

u64 ListedColumns(u64 mask) {
  const u64 known = mask & kAllColumns;
  return known != 0 ? known : kCheapestColumn;
}

std::string ColumnList(u64 mask) {
  std::string list;
  for (std::size_t i = 0; i < kColumnCount; ++i) {
    if ((ListedColumns(mask) >> i & 1) != 0) {
      list += list.empty() ? "" : ",";
      list += kColumns[i].name;
    }
  }
  return list;
}

}  // namespace Host::Table
