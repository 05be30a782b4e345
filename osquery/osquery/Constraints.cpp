#include "osquery/osquery/Constraints.h"

#include <cstring>

#include "Velmar/Utils/String.h"
#include "osquery/osquery/OSQueryLog.h"

namespace RYL::NetDB::OSQuery {

namespace {

using Velmar::Collections::Array;
using Velmar::Utils::String;
using Velmar::Utils::StringView;
using Velmar::Utils::TreeContainer;
using Velmar::Utils::TreeNodeType;

constexpr const char* kAffinities[] = {"TEXT", "INTEGER", "BIGINT", "UNSIGNED BIGINT", "DOUBLE", "BLOB"};

bool IsAffinity(StringView name) {
  for (const char* affinity : kAffinities) {
    if (name.length == std::strlen(affinity) && String::Equals(name.text, affinity, true)) {
      return true;
    }
  }
  return false;
}

// The operator's code may be any number; what is none counts as 0.
bool IsOperator(u64 code) {
  return code != kUnknown && code <= kRegexp && ConstraintOperatorName(static_cast<u8>(code)) != nullptr;
}

bool ParseList(TreeContainer& tree, u32 list, const char* column, Array<Constraint>& out) {
  const u32 count = tree.GetNodeChildrenCount(list);
  for (u32 index = 0; index < count; ++index) {
    const u32 entry = tree.GetNodeChild(list, index);
    const u64 code = tree.GetNodeValueUInt64(entry, "op", kUnknown, nullptr);
    if (!IsOperator(code)) {
      RYL_LOG(osquery, OperatorUnknown, column, code);
      continue;
    }
    if (!out.Add({column, static_cast<u8>(code), tree.GetNodeChild(entry, "expr")})) {
      RYL_LOG(osquery, ConstraintNotKept, column, out.GetCount());
      return false;
    }
  }
  return true;
}

bool ParseColumn(TreeContainer& tree, u32 node, Array<Constraint>& out) {
  const StringView column = tree.GetNodeName(node);
  if (column.length != std::strlen(column.text)) {
    // Else it would pass for the column that its first part names.
    RYL_LOG(osquery, ConstraintColumnCut, column.text);
    return false;
  }
  bool found = false;
  const StringView affinity = tree.GetNodeValueString(node, "affinity", "", &found);
  if (!found || !IsAffinity(affinity)) {
    RYL_LOG(osquery, AffinityUnknown, column.text, affinity.text);
    return false;
  }
  const u32 list = tree.GetNodeChild(node, "list");
  if (tree.GetNodeType(list) != TreeNodeType::kList) {
    RYL_LOG(osquery, ConstraintListMissing, column.text);
    return false;
  }
  return ParseList(tree, list, column.text, out);
}

}  // namespace

const char* ConstraintOperatorName(u8 op) {
  switch (op) {
    case kUnknown:
      return "UNKNOWN";
    case kUnique:
      return "UNIQUE";
    case kEquals:
      return "EQUALS";
    case kGreaterThan:
      return "GREATER_THAN";
    case kLessThanOrEquals:
      return "LESS_THAN_OR_EQUALS";
    case kLessThan:
      return "LESS_THAN";
    case kGreaterThanOrEquals:
      return "GREATER_THAN_OR_EQUALS";
    case kMatch:
      return "MATCH";
    case kLike:
      return "LIKE";
    case kGlob:
      return "GLOB";
    case kRegexp:
      return "REGEXP";
    default:
      return nullptr;
  }
}

bool ParseConstraints(TreeContainer& tree, Array<Constraint>& out) {
  if (tree.GetNodeType(TreeContainer::kRoot) != TreeNodeType::kDictionary) {
    RYL_LOG(osquery, ConstraintsNoDictionary);
    return false;
  }
  const u32 columns = tree.GetNodeChildrenCount(TreeContainer::kRoot);
  for (u32 index = 0; index < columns; ++index) {
    if (!ParseColumn(tree, tree.GetNodeChild(TreeContainer::kRoot, index), out)) {
      return false;
    }
  }
  return true;
}

bool ConstraintNumber(TreeContainer& tree, u32 node, u64* out) {
  constexpr char kNoStop = static_cast<char>(0xFF);
  switch (tree.GetNodeType(node)) {
    case TreeNodeType::kUInt32:
    case TreeNodeType::kUInt64:
      *out = tree.GetCurrentNodeValueUInt64(node, 0, nullptr);
      return true;
    case TreeNodeType::kInt64: {
      const i64 value = tree.GetCurrentNodeValueInt64(node, 0, nullptr);
      if (value < 0) {
        RYL_LOG(osquery, NumberNegative, value);
        return false;
      }
      *out = static_cast<u64>(value);
      return true;
    }
    case TreeNodeType::kString: {
      const StringView text = tree.GetCurrentNodeValueString(node, "", nullptr);
      if (!String::ConvertToUInt64(text.text, *out, 0, -1, kNoStop)) {
        RYL_LOG(osquery, NumberNotRead, text.text);
        return false;
      }
      return true;
    }
    default:
      RYL_LOG(osquery, NumberOfOtherType, static_cast<u32>(tree.GetNodeType(node)));
      return false;
  }
}

}  // namespace RYL::NetDB::OSQuery
