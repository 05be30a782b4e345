#include "Velmar/Math.h"

#include <cmath>

namespace Velmar {

double Math::Floor(double value) {
  return std::floor(value);
}

}  // namespace Velmar
