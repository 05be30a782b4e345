// Bodies of SortedMergeVisit and HeapSort.
#pragma once

#include <utility>

#include "Velmar/Collections/Array.h"
#include "VelmarLog.h"

namespace Velmar::Collections {

namespace ArrayAlgorithms {

// The first item that may equal `key`: item 0, or the item below the leftmost equal one.
template <class Item, class Key, class Compare>
u32 MergeStart(const Array<Item>& items, const Key& key, Compare& compare) {
  i32 low = 0;
  i32 high = static_cast<i32>(items.count) - 1;
  u32 position = 0;
  while (low <= high) {
    const i32 middle = low + (high - low) / 2;
    position = static_cast<u32>(middle);
    const int order = compare(items.data[middle], key);
    if (order == 0) {
      break;
    }
    if (order < 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
    }
  }
  while (position > 0 && compare(items.data[position], key) >= 0) {
    --position;
  }
  return position;
}

// Brings `value` into the heap of `count` elements whose root is empty at `hole`.
template <class T, class Compare>
void SiftDown(T* elements, u32 hole, u32 count, T value, Compare& compare) {
  // u64: twice an index may pass 32 bits.
  for (u64 child = u64{hole} * 2 + 1; child < count; child = u64{hole} * 2 + 1) {
    if (child + 1 < count && compare(elements[child + 1], elements[child]) > 0) {
      ++child;
    }
    if (compare(elements[child], value) <= 0) {
      break;
    }
    elements[hole] = std::move(elements[child]);
    hole = static_cast<u32>(child);
  }
  elements[hole] = std::move(value);
}

}  // namespace ArrayAlgorithms

template <class Item, class Key, class Compare, class Visit>
bool SortedMergeVisit(const Array<Item>& items, const Array<Key>& wanted, Compare compare, Visit visit) {
  if (items.count == 0 || wanted.count == 0) {
    return true;
  }
  u32 i = ArrayAlgorithms::MergeStart(items, wanted.data[0], compare);
  RYL_LOG(velmar, MergeVisitStarts, i);
  u32 j = 0;
  while (i < items.count && j < wanted.count) {
    const int order = compare(items.data[i], wanted.data[j]);
    if (order < 0) {
      ++i;
    } else if (order > 0) {
      ++j;
    } else {
      RYL_LOG(velmar, MergeVisitMatches, i, j);
      if (!visit(items.data[i], wanted.data[j])) {
        RYL_LOG(velmar, MergeVisitEnded, i, j);
        return false;
      }
      ++i;
    }
  }
  return true;
}

template <class T, class Compare>
void HeapSort(T* elements, u32 count, Compare compare) {
  static_assert(ArrayStorage::kMovesSafely<T>, "elements that may fail to move cannot be sorted in place");
  for (u32 root = count / 2; root > 0; --root) {
    ArrayAlgorithms::SiftDown(elements, root - 1, count, std::move(elements[root - 1]), compare);
  }
  for (u32 end = count; end > 1; --end) {
    T last = std::move(elements[end - 1]);
    elements[end - 1] = std::move(elements[0]);
    ArrayAlgorithms::SiftDown(elements, 0, end - 1, std::move(last), compare);
  }
}

}  // namespace Velmar::Collections
