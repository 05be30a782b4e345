// Arithmetic that the system asks of its base.
#pragma once

#include "platform/Export.h"

namespace Velmar {

class RYL_API Math {
 public:
  static double Floor(double value);
};

}  // namespace Velmar
