// ConstraintSet: conditions of a table query as a test has them, and their JSON.
#pragma once

#include <string>
#include <vector>

#include "Velmar/Types.h"

namespace ConstraintTest {

using namespace Velmar;

// The value of a condition, by what JSON has.
struct Value {
  enum class Kind { kMissing, kNull, kBool, kNumber, kNegative, kReal, kText, kList, kDictionary };

  Kind kind = Kind::kMissing;
  u64 number = 0;    // kNumber; of kNegative the amount
  std::string text;  // kText; of kReal the digits

  static Value Number(u64 number) { return {Kind::kNumber, number, ""}; }
  static Value Text(const std::string& text) { return {Kind::kText, 0, text}; }
};

struct Condition {
  u64 op = 0;
  Value value;
};

struct ColumnConditions {
  std::string column;
  std::string affinity;
  bool hasList = true;
  std::vector<Condition> list;
};

using ConstraintSet = std::vector<ColumnConditions>;

inline std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') {
      quoted += '\\';
    }
    quoted += character;
  }
  return quoted + '"';
}

inline std::string JsonOf(const Value& value) {
  switch (value.kind) {
    case Value::Kind::kBool:
      return "true";
    case Value::Kind::kNumber:
      return std::to_string(value.number);
    case Value::Kind::kNegative:
      return "-" + std::to_string(value.number);
    case Value::Kind::kReal:
      return value.text;
    case Value::Kind::kText:
      return Quoted(value.text);
    case Value::Kind::kList:
      return "[1]";
    case Value::Kind::kDictionary:
      return R"({"a":1})";
    default:
      return "null";
  }
}

inline std::string JsonOf(const Condition& condition) {
  const std::string op = "{\"op\":" + std::to_string(condition.op);
  return condition.value.kind == Value::Kind::kMissing ? op + "}" : op + ",\"expr\":" + JsonOf(condition.value) + "}";
}

inline std::string JsonOf(const ConstraintSet& set) {
  std::string json = "{";
  for (const ColumnConditions& column : set) {
    json += (json.size() > 1 ? "," : "") + Quoted(column.column) + ":{\"affinity\":" + Quoted(column.affinity);
    if (column.hasList) {
      json += ",\"list\":[";
      for (std::size_t i = 0; i < column.list.size(); ++i) {
        json += (i > 0 ? "," : "") + JsonOf(column.list[i]);
      }
      json += "]";
    }
    json += "}";
  }
  return json + "}";
}

}  // namespace ConstraintTest
