// The value of a store whose entries expire.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Types.h"

namespace Velmar::Collections::Caches {

template <class V>
struct internalTimeCacheObjectWrapper {
  V value;
};

// Stored form: expiry and timeToLive as u64, the value as one byte; 17 bytes. Level 5 on a failed push or read.
template <class Wrapped>
struct TimeCacheObjectWrapper {
  u64 expiry;      // epoch milliseconds
  u64 timeToLive;  // milliseconds, as it was written
  Wrapped object;

  bool Serialize(Buffer& out, void* context) const;
  bool Deserialize(StreamBuffer& in, void* context);
};

using TimeCacheValue = TimeCacheObjectWrapper<internalTimeCacheObjectWrapper<bool>>;
static_assert(sizeof(TimeCacheValue) == 24);

}  // namespace Velmar::Collections::Caches
