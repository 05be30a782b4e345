#include "host/import/FlatJson.h"

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace Host::Import {
namespace {

using Json = nlohmann::json;

// Collects scalars as the parser meets them. A false from a callback ends the parse.
class Collector final : public nlohmann::json_sax<Json> {
 public:
  explicit Collector(std::map<std::string, std::string>& members) : members_(members) {}

  bool null() override { return !levels_.empty(); }
  bool boolean(bool value) override { return Take(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return Take(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return Take(std::to_string(value)); }
  bool number_float(number_float_t /*value*/, const string_t& text) override { return Take(text); }
  bool string(string_t& value) override { return Take(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return false; }
  bool start_object(std::size_t /*elements*/) override { return Enter(false); }
  bool end_object() override { return Leave(); }
  bool start_array(std::size_t /*elements*/) override { return !levels_.empty() && Enter(true); }
  bool end_array() override { return Leave(); }
  bool key(string_t& name) override {
    prefix_.resize(levels_.back().prefixLength);
    prefix_ += name;
    return true;
  }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  struct Level {
    bool isArray;
    std::size_t prefixLength;  // of the names inside
    std::size_t outerLength;   // what the name is cut back to behind it
    bool first = true;         // no element of the array yet
  };

  bool Enter(bool isArray) {
    if (levels_.size() >= FlatJson::kMaxDepth) {
      return false;
    }
    const std::size_t outer = prefix_.size();
    if (!isArray && !levels_.empty()) {
      prefix_ += '.';
    }
    levels_.push_back({isArray, prefix_.size(), outer});
    return true;
  }

  bool Leave() {
    prefix_.resize(levels_.back().outerLength);
    levels_.pop_back();
    return true;
  }

  bool Take(std::string value) {
    if (levels_.empty()) {
      return false;  // a scalar is no record
    }
    if (members_.size() >= FlatJson::kMaxMembers && members_.count(prefix_) == 0) {
      return false;
    }
    Level& level = levels_.back();
    std::string& member = members_[prefix_];
    if (level.isArray && !level.first) {
      member += ',' + value;
    } else {
      member = std::move(value);
    }
    level.first = false;
    return true;
  }

  std::map<std::string, std::string>& members_;
  std::vector<Level> levels_;
  std::string prefix_;
};

}  // namespace

bool FlatJson::Parse(std::string_view text) {
  members_.clear();
  Collector collector(members_);
  const bool whole = Json::sax_parse(text.begin(), text.end(), &collector);
  if (!whole) {
    members_.clear();
  }
  return whole;
}

const std::string* FlatJson::Find(const std::string& name) const {
  const auto found = members_.find(name);
  return found == members_.end() ? nullptr : &found->second;
}

const std::string* FlatJson::FindAny(std::initializer_list<const char*> names) const {
  for (const char* name : names) {
    if (const std::string* found = Find(name)) {
      return found;
    }
  }
  return nullptr;
}

}  // namespace Host::Import
