// ExternalData: the host's side object of an event, which can take a named binary result.
#pragma once

#include "Velmar/Types.h"

namespace RYL::Events {

class ExternalData {
 public:
  // Copies `size` bytes under `name`. False when the host cannot keep them.
  virtual bool SetBinary(const char* name, const void* data, u32 size) = 0;

 protected:
  ~ExternalData() = default;
};

}  // namespace RYL::Events
