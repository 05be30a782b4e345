// FlatJson: one JSON object as a flat list of names and texts, for records that come one to a line.
//
//   {"id": {"orig_h": "192.0.2.1"}, "service": ["http", "ssl"], "ts": 1.50}
//   gives  id.orig_h = 192.0.2.1,  service = http,ssl,  ts = 1.50
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "host/Types.h"

namespace Host::Import {

// Numbers keep their own digits. Names of nested objects are joined with a dot; scalars of an array are joined with a
// comma; null is as if it were not there; of a name that stands twice the last one counts.
// Threads: thread-compatible. Errors: nothing throws.
class FlatJson {
 public:
  static constexpr u32 kMaxDepth = 32;
  static constexpr std::size_t kMaxMembers = 4096;

  // False, and empty, when `text` is not one JSON object or is nested or populated beyond the limits.
  bool Parse(std::string_view text);
  // Null for a name that is not there. Valid until the next Parse.
  [[nodiscard]] const std::string* Find(const std::string& name) const;
  // The first of these names that is there.
  [[nodiscard]] const std::string* FindAny(std::initializer_list<const char*> names) const;
  void Clear() { members_.clear(); }

 private:
  std::map<std::string, std::string> members_;
};

}  // namespace Host::Import
