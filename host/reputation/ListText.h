// The text of a list of networks: one a line, or JSON.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/reputation/Network.h"

namespace Host::Reputation {

struct ListFault {
  u32 line = 0;
  std::string sentence;
};

// What was read of a list.
struct ListContent {
  std::vector<Network> networks;
  std::vector<ListFault> faults;  // the first kMaxFaults of them
  std::size_t faultCount = 0;
  std::string leftOut;  // why the whole list does not count: it holds something else than addresses

  static constexpr std::size_t kMaxFaults = 20;
};

// Text that starts with '{' is JSON: an object with the entries in its member "list". It counts when its "type" is
// "cidr" or its "matching_attributes" hold "ip-dst", and when it says neither. Any other text is a network a line, '#'
// starting a comment. An entry that is no network is a fault and skipped; bits behind a prefix are a fault and cut off.
// False, with one fault that says why, for JSON that is none or has no list. Thread-safe.
bool ReadList(std::string_view text, ListContent& content);

}  // namespace Host::Reputation
