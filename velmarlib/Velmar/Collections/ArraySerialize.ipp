// Bodies of Array: the form in which an array lies in a file.
#pragma once

#include "Velmar/Collections/Array.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

namespace ArrayFrame {
inline constexpr u16 kVersion = 1;
// Which bits of the flag word stay with the array, and which come from the stream.
inline constexpr u32 kOwnFlags = 0x7F000000;
inline constexpr u32 kStoredFlags = 0x80FFFFFF;
}  // namespace ArrayFrame

template <class T>
bool Array<T>::Serialize(Buffer& out) const {
  OS::ScopedLock lock(mutex);
  out.Reset();
  if (!PushFrame(out)) {
    RYL_LOG(velmar, ArrayFrameNotWritten, count);
    return false;
  }
  for (u32 i = 0; i < count; ++i) {
    if (!data[i].Serialize(out)) {
      return false;
    }
  }
  return true;
}

template <class T>
bool Array<T>::PushFrame(Buffer& out) const {
  return out.PushUInt16(ArrayFrame::kVersion) != kNone && out.PushUInt32(count) != kNone &&
         out.PushUInt32(maxCapacity) != kNone && out.PushUInt32(flagWord) != kNone;
}

template <class T>
bool Array<T>::Deserialize(StreamBuffer& in) {
  OS::ScopedLock lock(mutex);
  if (!ReadElements(in)) {
    count = 0;
    return false;
  }
  return true;
}

template <class T>
bool Array<T>::ReadElements(StreamBuffer& in) {
  static_assert(T::kMinimumElementSize > 0, "an element takes at least one byte");
  u32 stored = 0;
  if (!ReadFrame(in, stored)) {
    return false;
  }
  count = 0;
  const bool inStream = stored <= in.Remaining() / T::kMinimumElementSize;
  if (!PrepareFor(stored, inStream)) {
    return false;
  }
  if (!inStream) {
    RYL_LOG(velmar, ArrayElementsMissing, stored, in.Remaining());
    return false;
  }
  for (u32 i = 0; i < stored; ++i) {
    if (!data[i].Deserialize(in)) {
      RYL_LOG(velmar, ArrayElementNotRead, i, stored);
      return false;
    }
  }
  count = stored;
  return true;
}

// Version 0 has neither ceiling nor flag word; the array keeps its own, and its ceiling yields to the count.
template <class T>
bool Array<T>::ReadFrame(StreamBuffer& in, u32& stored) {
  u16 version = 0;
  if (!in.Read(version)) {
    RYL_LOG(velmar, ArrayFrameMissing);
    return false;
  }
  if (version > ArrayFrame::kVersion) {
    RYL_LOG(velmar, ArrayVersionUnknown, u32{version});
    return false;
  }
  u32 ceiling = maxCapacity;
  u32 flags = flagWord;
  if (!in.Read(stored) || (version == ArrayFrame::kVersion && (!in.Read(ceiling) || !in.Read(flags)))) {
    RYL_LOG(velmar, ArrayFrameMissing);
    return false;
  }
  if (version == ArrayFrame::kVersion) {
    maxCapacity = ceiling;
    flagWord = (flagWord & ArrayFrame::kOwnFlags) | (flags & ArrayFrame::kStoredFlags);
  } else if (maxCapacity < stored) {
    maxCapacity = stored;
  }
  return true;
}

// Checks the frame and has `stored` slots. `inStream` false: the stream cannot hold that many, so none are allocated.
template <class T>
bool Array<T>::PrepareFor(u32 stored, bool inStream) {
  if (stored > maxCapacity) {
    RYL_LOG(velmar, ArrayCountAboveCeiling, stored, maxCapacity);
    RYL_LOG(velmar, ArrayNotRead, stored);
    return false;
  }
  if (stored > capacity && inStream) {
    if (!Reallocate(stored)) {
      return false;
    }
    // The whole flag byte: what was read as a percentage is a number of elements from here on.
    flagWord = (flagWord & ArrayFlags::kGrowthMask) | ArrayFlags::kHeap;
  }
  if ((flagWord & ArrayFlags::kGrowthMask) == 0) {
    RYL_LOG(velmar, ArrayGrowthIsZero);
    return false;
  }
  return true;
}

}  // namespace Velmar::Collections
