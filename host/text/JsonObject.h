// JsonObject: a JSON object that grows by members, for output whose members stand in a fixed order.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Types.h"
#include "host/text/Utf8.h"

namespace Host::Text {

// `name` needs no escaping. Each name is added once.
class JsonObject {
 public:
  // `value` is JSON already.
  JsonObject& Raw(const char* name, const std::string& value) {
    text_ += text_.size() > 1 ? ",\"" : "\"";
    text_ += name;
    text_ += "\":" + value;
    return *this;
  }
  JsonObject& Number(const char* name, u64 value) { return Raw(name, std::to_string(value)); }
  template <class T>
  JsonObject& Number(const char* name, const std::optional<T>& value) {
    return Raw(name, value ? std::to_string(*value) : "null");
  }
  JsonObject& Bool(const char* name, bool value) { return Raw(name, value ? "true" : "false"); }
  JsonObject& String(const char* name, const std::string& value) { return Raw(name, ToJsonString(value)); }
  [[nodiscard]] std::string End() const { return text_ + '}'; }

 private:
  std::string text_ = "{";
};

template <class Item, class ToJson>
std::string JsonArray(const std::vector<Item>& items, const ToJson& toJson) {
  std::string text = "[";
  for (const Item& item : items) {
    text += text.size() > 1 ? "," : "";
    text += toJson(item);
  }
  return text + ']';
}

}  // namespace Host::Text
