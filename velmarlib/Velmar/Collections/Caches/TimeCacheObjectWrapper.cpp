#include "Velmar/Collections/Caches/TimeCacheObjectWrapper.h"

#include "VelmarLog.h"

namespace Velmar::Collections::Caches {

template <class Wrapped>
bool TimeCacheObjectWrapper<Wrapped>::Serialize(Buffer& out, void* /*context*/) const {
  if (out.PushUInt64(expiry) == kNone || out.PushUInt64(timeToLive) == kNone ||
      out.PushUInt8(static_cast<u8>(object.value)) == kNone) {
    RYL_LOG(velmar, CacheValueNotWritten, out.size);
    return false;
  }
  return true;
}

template <class Wrapped>
bool TimeCacheObjectWrapper<Wrapped>::Deserialize(StreamBuffer& in, void* /*context*/) {
  u8 value = 0;
  if (!in.Read(expiry) || !in.Read(timeToLive) || !in.Read(&value, sizeof(value))) {
    RYL_LOG(velmar, CacheValueNotRead, in.Remaining());
    return false;
  }
  object.value = value != 0;
  return true;
}

template struct TimeCacheObjectWrapper<internalTimeCacheObjectWrapper<bool>>;

}  // namespace Velmar::Collections::Caches
