// FakeExternalData: a host's side object of an event for tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "RYL/Events/ExternalData.h"

// Keeps what it gets, unless it is told to refuse.
class FakeExternalData : public RYL::Events::ExternalData {
 public:
  bool takes = true;
  std::vector<std::pair<std::string, std::string>> results;  // names and bytes, also of refused ones

  bool SetBinary(const char* name, const void* data, Velmar::u32 size) override {
    results.emplace_back(name, std::string(static_cast<const char*>(data), size));
    return takes;
  }
};
