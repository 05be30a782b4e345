// The growth rule that all growable collections share.
#pragma once

#include "Velmar/Types.h"
#include "platform/Export.h"

namespace Velmar::Collections {

// How the growth number of a collection is read.
enum class GrowType : u32 {
  kFixedStep = 0,  // growth = number of items added
  kPercent = 1,    // growth = percent of the present capacity
};

}  // namespace Velmar::Collections

namespace Velmar::Internal {

// The next capacity of a collection: capacity + growth for a fixed step, capacity + max(1, capacity * growth / 100)
// for a percentage, never above `maxCapacity`. Computed in 64 bits. A caller that is at its ceiling gets `maxCapacity`
// back and must compare. Thread-safe.
RYL_API u32 CalculateCollectionGrowth(u32 capacity, u32 growth, Collections::GrowType type, u32 maxCapacity);

}  // namespace Velmar::Internal
