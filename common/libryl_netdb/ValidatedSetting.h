// ValidatedSetting: one value of the module's policy, changed while other threads read it.
#pragma once

#include <atomic>

#include "common/libryl_netdb/ModuleLog.h"

namespace RYL::Module {

// Threads: thread-safe. Values do not change together: a reader may see a new one beside an old one.
template <class T>
class ValidatedSetting {
 public:
  using Validator = bool (*)(T value);

  explicit ValidatedSetting(T initial, Validator accepts = nullptr) : value(initial), validator(accepts) {}

  // False (level 5) when the validator refuses; the old value stays.
  bool Set(T newValue) {
    if (validator != nullptr && !validator(newValue)) {
      RYL_LOG(ryl_netdb, SettingRefused, u64{newValue});
      return false;
    }
    value.exchange(newValue);
    return true;
  }

  // Sequentially consistent, which intake relies on when the worker stops (IntakeGate.h).
  [[nodiscard]] T Get() const { return value.load(); }

 private:
  std::atomic<T> value;
  Validator validator;
};

}  // namespace RYL::Module
