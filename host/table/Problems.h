// Problems: what kept rows away, as sentences.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace Host::Table {

// Each sentence once, in the order in which they came: a join reads a day many times. Threads: thread-compatible.
class Problems {
 public:
  void Add(std::string sentence) {
    if (std::find(sentences_.begin(), sentences_.end(), sentence) == sentences_.end()) {
      sentences_.push_back(std::move(sentence));
    }
  }
  std::vector<std::string> Take() { return std::exchange(sentences_, {}); }

 private:
  std::vector<std::string> sentences_;
};

}  // namespace Host::Table
