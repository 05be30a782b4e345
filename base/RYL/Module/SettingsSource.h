// SettingsSource: the host's policy, as numbered values.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Module {

// Threads: called on the host's control thread, inside Initialize and ApplySettings. `out` always gets a value: that of
// the policy, or `defaultValue`. The last argument is 0.
class SettingsSource {
 public:
  virtual bool GetUInt64(u32 key, u64* out, u64 defaultValue, u32 reserved) = 0;
  virtual bool GetBool(u32 key, bool* out, bool defaultValue, u32 reserved) = 0;

 protected:
  ~SettingsSource() = default;
};

}  // namespace RYL::Module
