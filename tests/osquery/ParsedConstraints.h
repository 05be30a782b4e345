// ParsedConstraints: conditions as a table query reads them.
#pragma once

#include <string>

#include "osquery/osquery/Constraints.h"

namespace RYL::NetDB::OSQuery {

struct ParsedConstraints {
  explicit ParsedConstraints(const std::string& json) {
    list.Create(area, kInlineConstraints, true, true, kMaxConstraints, kConstraintGrowth, false,
                Velmar::Collections::GrowType::kFixedStep, Velmar::kNone);
    isJson = tree.CreateFromJsonString(json.c_str(), -1, true, true);
    isParsed = isJson && ParseConstraints(tree, list);
  }

  Velmar::Utils::TreeContainer tree;
  Constraint area[kInlineConstraints];
  Velmar::Collections::Array<Constraint> list;
  bool isJson = false;
  bool isParsed = false;
};

// {"op":OP,"expr":VALUE}; `value` is JSON.
inline std::string Condition(u32 op, const std::string& value) {
  return "{\"op\":" + std::to_string(op) + ",\"expr\":" + value + "}";
}

// "COLUMN":{"affinity":"TEXT","list":[CONDITIONS]}
inline std::string On(const std::string& column, const std::string& conditions) {
  return "\"" + column + R"(":{"affinity":"TEXT","list":[)" + conditions + "]}";
}

inline std::string Quoted(const std::string& text) {
  return "\"" + text + "\"";
}

// The document of one condition.
inline std::string One(const std::string& column, u32 op, const std::string& value) {
  return "{" + On(column, Condition(op, value)) + "}";
}

}  // namespace RYL::NetDB::OSQuery
