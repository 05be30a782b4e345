// Constraints: the conditions of a table query in osquery's JSON form, and what of them narrows a search.
#pragma once

#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/TreeContainer.h"
#include "common/netdb_storage/QueryConstraints.h"
#include "osquery/osquery/OSQueryOutput.h"

namespace RYL::NetDB::OSQuery {

// osquery's codes of conditions.
enum Operator : u8 {
  kUnknown = 0,
  kUnique = 1,
  kEquals = 2,
  kGreaterThan = 4,
  kLessThanOrEquals = 8,
  kLessThan = 16,
  kGreaterThanOrEquals = 32,
  kMatch = 64,
  kLike = 65,
  kGlob = 66,
  kRegexp = 67,
};

// One condition. Lifetime: `column` and `expr` are of the tree that it was read from.
struct Constraint {
  const char* column = nullptr;
  u8 op = kUnknown;
  u32 expr = Velmar::Utils::TreeContainer::kError;  // node of the value; kError when there is none
};

inline constexpr u32 kInlineConstraints = 8;
inline constexpr u32 kMaxConstraints = 128;
inline constexpr u32 kConstraintGrowth = 64;

// "UNKNOWN", "EQUALS", ...; null for a code that is none.
const char* ConstraintOperatorName(u8 op);
// Reads {"COLUMN": {"affinity": "TEXT", "list": [{"op": 2, "expr": ...}, ...]}, ...} into `out`. Entries with an
// unknown "op" are left out (level 3). False for another shape.
bool ParseConstraints(Velmar::Utils::TreeContainer& tree, Velmar::Collections::Array<Constraint>& out);
// A number that is not negative, from a node of 32 or 64 bits or a text. False after a record, with `out` untouched.
bool ConstraintNumber(Velmar::Utils::TreeContainer& tree, u32 node, u64* out);

// Narrows `query` by each condition that can be used; the others are recorded and left to the asker.
// kNoError, or the error that ends the query. `impossible`: no row can match, and no search is needed.
QueryError ApplyConstraints(Velmar::Utils::TreeContainer& tree, const Velmar::Collections::Array<Constraint>& list,
                            QueryConstraints& query, bool& impossible);

}  // namespace RYL::NetDB::OSQuery
