// TableArray: what the arrays of a day's tables have in common.
#pragma once

#include "Velmar/Collections/Array.h"

namespace RYL::NetDB {

// Empties `rows` and gives it its own ceiling and fixed growth step back. The ones that a file brought, refused or not,
// must not reach the file of the next day.
template <class Row>
void EmptyTable(Velmar::Collections::Array<Row>& rows, u32 ceiling, u32 growthStep) {
  namespace ArrayFlags = Velmar::Collections::ArrayFlags;
  const Velmar::OS::ScopedLock lock(rows.mutex);
  rows.count = 0;
  rows.maxCapacity = ceiling;
  rows.flagWord = (rows.flagWord & ~(ArrayFlags::kGrowthMask | ArrayFlags::kPercent)) | growthStep;
}

}  // namespace RYL::NetDB
