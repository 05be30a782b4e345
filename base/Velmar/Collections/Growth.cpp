#include "Velmar/Collections/Growth.h"

namespace Velmar::Internal {

u32 CalculateCollectionGrowth(u32 capacity, u32 growth, Collections::GrowType type, u32 maxCapacity) {
  u64 step = growth;
  if (type == Collections::GrowType::kPercent) {
    step = u64{capacity} * growth / 100;
    step = step == 0 ? 1 : step;
  }
  const u64 grown = capacity + step;
  return grown < maxCapacity ? static_cast<u32>(grown) : maxCapacity;
}

}  // namespace Velmar::Internal
