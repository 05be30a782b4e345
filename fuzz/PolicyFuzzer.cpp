// Any bytes as a policy document: a policy whose values lie within their limits, or an error of one line.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/agent/Policy.h"

namespace {

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

bool IsOneLineOf(const std::string& error, const std::string& name) {
  return error.compare(0, name.size() + 1, name + ":") == 0 && error.find('\n') == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string error;
  const auto policy = Host::Policy::Parse({reinterpret_cast<const char*>(data), size}, "p", error);
  if (!policy) {
    Require(IsOneLineOf(error, "p"));
    return 0;
  }
  Host::PolicySource source(*policy);
  for (const Host::SettingInfo& info : Host::AllSettings()) {
    const Host::u64 value = policy->Get(info.setting).value;
    Require(value >= info.smallest && value <= info.largest);
    Host::u64 number = 0;
    bool isOn = false;
    source.GetUInt64(info.key, &number, value, 0);
    source.GetBool(info.key, &isOn, value != 0, 0);
    Require(number == value && isOn == (value != 0));
  }
  return 0;
}
