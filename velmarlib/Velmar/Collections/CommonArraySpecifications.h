// CommonArraySpecifications: the fields of every Array, and what needs no growth.
#pragma once

#include "Velmar/OS/Threading.h"
#include "Velmar/Types.h"

namespace Velmar::Collections {

// Bits of CommonArraySpecifications::flagWord.
namespace ArrayFlags {
inline constexpr u32 kGrowthMask = 0x00FFFFFF;    // growth, elements or percent
inline constexpr u32 kHeap = 0x10000000;          // the array frees its data
inline constexpr u32 kFixedArea = 0x20000000;     // a caller's area that may not be left
inline constexpr u32 kLeavableArea = 0x40000000;  // a caller's area, left for the heap on growth
inline constexpr u32 kPercent = 0x80000000;       // growth is a percentage
}  // namespace ArrayFlags

// Copies an element; false when there is no memory for it, with `to` in a state that can be assigned again. Types whose
// copy can fail have a member `bool CopyFrom(const T&)`, or `bool Set(const T*)` as String has.
template <class T>
bool CopyElement(T& to, const T& from) {
  if constexpr (requires { to.CopyFrom(from); }) {
    return to.CopyFrom(from);
  } else if constexpr (requires { to.Set(&from); }) {
    return to.Set(&from);
  } else {
    to = from;
    return true;
  }
}

// The fields are open to the code that walks an array under its own rules; it locks `mutex` around such a walk.
template <class T>
class CommonArraySpecifications {
 public:
  u32 count = 0;
  void* mutex = nullptr;
  bool ownsLock = false;
  u32 capacity = 0;
  u32 flagWord = ArrayFlags::kHeap | ArrayFlags::kPercent | 150;
  u32 maxCapacity = 256;
  T* data = nullptr;

  CommonArraySpecifications() = default;
  CommonArraySpecifications(const CommonArraySpecifications&) = delete;
  CommonArraySpecifications& operator=(const CommonArraySpecifications&) = delete;

  // Copies element `index` out. False at or past count (level 3), `out` untouched; false when the copy finds no memory
  // (level 5).
  bool Get(u32 index, T& out) const;
  // Removes the last element. False on an empty array; an array without data is logged at level 5.
  bool PopBack();
  u32 GetCount() const;
  // count 0; the storage stays.
  void Empty();

 protected:
  ~CommonArraySpecifications() = default;
};

}  // namespace Velmar::Collections

#include "Velmar/Collections/CommonArraySpecifications.ipp"
