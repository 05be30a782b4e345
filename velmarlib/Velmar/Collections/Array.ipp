// Bodies of Array: set-up, growth, elements in place, search and sort.
#pragma once

#include <cstring>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "Velmar/Collections/Array.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

namespace ArrayStorage {

template <class T>
inline constexpr bool kPlainBytes = std::is_trivially_copyable_v<T>;

// Elements that can change their place without a chance of failure.
template <class T>
inline constexpr bool kMovesSafely = kPlainBytes<T> ||
                                     (std::is_nothrow_move_constructible_v<T> && std::is_nothrow_move_assignable_v<T>);

// Elements may be pointers.
template <class T>
inline constexpr std::size_t kElementBytes = sizeof(T);  // NOLINT(bugprone-sizeof-expression)

// `capacity` default elements; null when there is no memory.
template <class T>
T* Allocate(u32 capacity) {
  static_assert(alignof(T) <= alignof(std::max_align_t), "module memory is aligned for ordinary objects only");
  void* memory = ModuleAllocate(std::size_t{capacity} * kElementBytes<T>);
  if (memory == nullptr) {
    return nullptr;
  }
  T* elements = static_cast<T*>(memory);
  for (u32 i = 0; i < capacity; ++i) {
    ::new (static_cast<void*>(elements + i)) T();
  }
  return elements;
}

template <class T>
void Release(T* elements, u32 capacity) {
  if constexpr (!std::is_trivially_destructible_v<T>) {
    for (u32 i = 0; i < capacity; ++i) {
      elements[i].~T();
    }
  }
  ModuleFree(elements);
}

// Into another storage. False only for elements that can neither move safely nor be copied now.
template <class T>
bool Transfer(T* to, T* from, u32 number) {
  if constexpr (kPlainBytes<T>) {
    if (number != 0) {
      std::memcpy(static_cast<void*>(to), from, std::size_t{number} * kElementBytes<T>);
    }
  } else {
    for (u32 i = 0; i < number; ++i) {
      if constexpr (kMovesSafely<T>) {
        to[i] = std::move(from[i]);
      } else if (!CopyElement(to[i], from[i])) {
        return false;
      }
    }
  }
  return true;
}

// elements[number] comes to elements[0], and the `number` before it move up by one.
template <class T>
void RotateUp(T* elements, u32 number) {
  T last = std::move(elements[number]);
  if constexpr (kPlainBytes<T>) {
    std::memmove(static_cast<void*>(elements + 1), elements, std::size_t{number} * kElementBytes<T>);
  } else {
    for (u32 i = number; i > 0; --i) {
      elements[i] = std::move(elements[i - 1]);
    }
  }
  elements[0] = std::move(last);
}

// elements[1] to elements[number] move down by one, over elements[0].
template <class T>
void MoveDown(T* elements, u32 number) {
  if constexpr (kPlainBytes<T>) {
    std::memmove(static_cast<void*>(elements), elements + 1, std::size_t{number} * kElementBytes<T>);
  } else {
    for (u32 i = 0; i < number; ++i) {
      elements[i] = std::move(elements[i + 1]);
    }
  }
}

}  // namespace ArrayStorage

template <class T>
Array<T>::~Array() {
  FreeStorage();
  MatchLock(false);
}

template <class T>
bool Array<T>::Create(u32 initialCapacity, u32 ceiling, u32 growth, bool threadSafe, GrowType growType) {
  if (ceiling == 0 || growth == 0) {
    RYL_LOG(velmar, ArrayBadParameters, ceiling, growth);
    return false;
  }
  if (initialCapacity > ceiling) {
    RYL_LOG(velmar, ArrayCapacityAboveCeiling, initialCapacity, ceiling);
    return false;
  }
  if (!MatchLock(threadSafe)) {
    return false;
  }
  OS::ScopedLock lock(mutex);
  count = 0;
  T* fresh = nullptr;
  if (initialCapacity != 0) {
    fresh = ArrayStorage::Allocate<T>(initialCapacity);
    if (fresh == nullptr) {
      RYL_LOG(velmar, ArrayNoMemory, initialCapacity);
      return false;
    }
  }
  FreeStorage();
  data = fresh;
  capacity = initialCapacity;
  maxCapacity = ceiling;
  flagWord = (growth & ArrayFlags::kGrowthMask) | ArrayFlags::kHeap |
             (growType == GrowType::kPercent ? ArrayFlags::kPercent : 0);
  return true;
}

template <class T>
bool Array<T>::Create(T* area, u32 size, bool startEmpty, bool mayLeaveArea, u32 ceiling, u32 growth, bool threadSafe,
                      GrowType growType, u32 initialCount) {
  if (area == nullptr || size == 0 || growth == 0) {
    RYL_LOG(velmar, ArrayBadArea, size, growth);
    return false;
  }
  const u32 doubled = size > kNone / 2 ? kNone : size * 2;
  const u32 wanted = ceiling != 0 ? ceiling : doubled;
  const u32 maximum = mayLeaveArea ? wanted : size;
  if (initialCount != kNone && initialCount >= size) {
    RYL_LOG(velmar, ArrayAreaTooSmall, size, initialCount);
    return false;
  }
  if (size > maximum) {
    RYL_LOG(velmar, ArrayCapacityAboveCeiling, size, maximum);
    return false;
  }
  if (!MatchLock(threadSafe)) {
    return false;
  }
  OS::ScopedLock lock(mutex);
  FreeStorage();
  data = area;
  capacity = size;
  maxCapacity = maximum;
  count = startEmpty ? 0 : size;
  if (initialCount != kNone) {
    count = initialCount;
  }
  flagWord = (growth & ArrayFlags::kGrowthMask) | (mayLeaveArea ? ArrayFlags::kLeavableArea : ArrayFlags::kFixedArea) |
             (growType == GrowType::kPercent ? ArrayFlags::kPercent : 0);
  return true;
}

template <class T>
bool Array<T>::Add(const T& element) {
  OS::ScopedLock lock(mutex);
  const T* source = &element;
  if (!MakeRoom(source)) {
    return false;
  }
  if (!CopyElement(data[count], *source)) {
    RYL_LOG(velmar, ArrayElementNotCopied, count);
    return false;
  }
  ++count;
  return true;
}

template <class T>
bool Array<T>::Set(u32 index, const T& element) {
  OS::ScopedLock lock(mutex);
  if (index >= count) {
    RYL_LOG(velmar, ArrayIndexOutOfRange, index, count);
    return false;
  }
  if (!CopyElement(data[index], element)) {
    RYL_LOG(velmar, ArrayElementNotCopied, index);
    return false;
  }
  return true;
}

template <class T>
bool Array<T>::Grow() {
  OS::ScopedLock lock(mutex);
  if ((flagWord & ArrayFlags::kFixedArea) != 0) {
    RYL_LOG(velmar, ArrayAreaIsFixed, capacity);
    return false;
  }
  const GrowType type = (flagWord & ArrayFlags::kPercent) != 0 ? GrowType::kPercent : GrowType::kFixedStep;
  const u32 enlarged =
      ::Velmar::Internal::CalculateCollectionGrowth(capacity, flagWord & ArrayFlags::kGrowthMask, type, maxCapacity);
  if (count >= enlarged) {
    RYL_LOG(velmar, ArrayCeilingReached, maxCapacity);
    return false;
  }
  if (!Reallocate(enlarged)) {
    return false;
  }
  flagWord = (flagWord & (ArrayFlags::kPercent | ArrayFlags::kGrowthMask)) | ArrayFlags::kHeap;
  return true;
}

template <class T>
bool Array<T>::InsertAt(u32 index, const T& element) {
  static_assert(ArrayStorage::kMovesSafely<T>, "elements that may fail to move cannot make room");
  OS::ScopedLock lock(mutex);
  if (index > count) {
    RYL_LOG(velmar, ArrayIndexOutOfRange, index, count);
    return false;
  }
  // Behind the last element first: a copy that fails there has moved nothing.
  if (!Add(element)) {
    return false;
  }
  ArrayStorage::RotateUp(data + index, count - 1 - index);
  return true;
}

template <class T>
bool Array<T>::RemoveAt(u32 index) {
  static_assert(ArrayStorage::kMovesSafely<T>, "elements that may fail to move cannot close a gap");
  OS::ScopedLock lock(mutex);
  if (index >= count) {
    RYL_LOG(velmar, ArrayIndexOutOfRange, index, count);
    return false;
  }
  --count;
  ArrayStorage::MoveDown(data + index, count - index);
  return true;
}

template <class T>
bool Array<T>::BinarySearch(const T& key, u32* first, u32* number) const {
  if (number != nullptr && first == nullptr) {
    RYL_LOG(velmar, ArraySearchWithoutFirst);
    return false;
  }
  OS::ScopedLock lock(mutex);
  i32 low = 0;
  i32 high = static_cast<i32>(count) - 1;
  while (low <= high) {
    const i32 middle = low + (high - low) / 2;
    const T& probed = data[middle];
    if (probed < key) {
      low = middle + 1;
    } else if (probed > key) {
      high = middle - 1;
    } else {
      if (first != nullptr) {
        *first = static_cast<u32>(middle);
        while (*first > 0 && data[*first - 1] == key) {
          --*first;
        }
      }
      if (number != nullptr) {
        u32 end = static_cast<u32>(middle) + 1;
        while (end < count && data[end] == key) {
          ++end;
        }
        *number = end - *first;
      }
      return true;
    }
  }
  return false;
}

template <class T>
void Array<T>::Sort(bool ascending) {
  OS::ScopedLock lock(mutex);
  if (ascending) {
    HeapSort(data, count, [](const T& a, const T& b) { return a > b ? 1 : 0; });
  } else {
    HeapSort(data, count, [](const T& a, const T& b) { return a < b ? 1 : 0; });
  }
}

// The array's own lock comes and goes with the wish for one; a lock that another owns is only let go.
template <class T>
bool Array<T>::MatchLock(bool threadSafe) {
  if (!threadSafe) {
    if (ownsLock) {
      OS::Threading::MutexDestroy(mutex);
    }
    mutex = nullptr;
    ownsLock = false;
    return true;
  }
  if (mutex != nullptr) {
    return true;
  }
  mutex = OS::Threading::MutexCreate();
  if (mutex == nullptr) {
    RYL_LOG(velmar, ArrayNoLock);
    return false;
  }
  ownsLock = true;
  return true;
}

// Room behind the last element. `element` follows the storage when it lies in it. A ceiling that came from a file may
// be below the capacity.
template <class T>
bool Array<T>::MakeRoom(const T*& element) {
  if (count < capacity && count < maxCapacity) {
    return true;
  }
  const std::less<const T*> before;
  const bool own = count != 0 && !before(element, data) && before(element, data + count);
  const u32 index = own ? static_cast<u32>(element - data) : 0;
  if (!Grow()) {
    return false;
  }
  if (own) {
    element = data + index;
  }
  return true;
}

template <class T>
bool Array<T>::Reallocate(u32 newCapacity) {
  T* fresh = ArrayStorage::Allocate<T>(newCapacity);
  if (fresh == nullptr) {
    RYL_LOG(velmar, ArrayNoMemory, newCapacity);
    return false;
  }
  if (!ArrayStorage::Transfer(fresh, data, count)) {
    ArrayStorage::Release(fresh, newCapacity);
    RYL_LOG(velmar, ArrayNoMemory, newCapacity);
    return false;
  }
  FreeStorage();
  data = fresh;
  capacity = newCapacity;
  return true;
}

template <class T>
void Array<T>::FreeStorage() {
  if (data != nullptr && (flagWord & ArrayFlags::kHeap) != 0) {
    ArrayStorage::Release(data, capacity);
  }
  data = nullptr;
  capacity = 0;
}

}  // namespace Velmar::Collections
