// Members of a JSON object that another process wrote: there or not, and of any type.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "host/Types.h"
#include "host/text/Utf8.h"

namespace Host::Commands {

// A null value when `object` is no object or has no such member.
inline const nlohmann::ordered_json& Field(const nlohmann::ordered_json& object, const char* name) {
  static const nlohmann::ordered_json kNothing;
  if (!object.is_object()) {
    return kNothing;
  }
  const auto found = object.find(name);
  return found == object.end() ? kNothing : *found;
}

// A text as it is, a number or a switch in its JSON form, a dash for all else; fit for a terminal.
inline std::string FieldText(const nlohmann::ordered_json& object, const char* name) {
  const nlohmann::ordered_json& value = Field(object, name);
  if (value.is_string()) {
    return Text::ToPrintable(value.get<std::string>());
  }
  return value.is_number() || value.is_boolean() ? value.dump() : "-";
}

inline u64 FieldNumber(const nlohmann::ordered_json& object, const char* name) {
  const nlohmann::ordered_json& value = Field(object, name);
  return value.is_number_unsigned() ? value.get<u64>() : 0;
}

}  // namespace Host::Commands
