// Array: the system's general array, with a ceiling, an optional lock and a growth rule that travels into files.
//
//   Array<u32> ports;
//   if (!ports.Create(0, 128, 64, true, GrowType::kFixedStep)) return false;
//   ports.Add(443);
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/CommonArraySpecifications.h"
#include "Velmar/Collections/Growth.h"
#include "Velmar/Collections/StreamBuffer.h"
#include "Velmar/Types.h"

namespace Velmar::Collections {

// Lifetime: usable from construction (no storage, ceiling 256, percent growth 150); Create sets other parameters.
// Elements are default-constructed up to capacity and assigned. Plain-byte elements move as blocks.
// Threads: with `threadSafe` each operation holds the array's own lock; otherwise thread-compatible.
// Errors: false with nothing changed, after a log record.
template <class T>
class Array : public CommonArraySpecifications<T> {
 public:
  using Specifications = CommonArraySpecifications<T>;
  using Specifications::capacity;
  using Specifications::count;
  using Specifications::data;
  using Specifications::flagWord;
  using Specifications::maxCapacity;
  using Specifications::mutex;
  using Specifications::ownsLock;

  Array() = default;
  ~Array();

  // Heap storage of `initialCapacity` elements. Level 3: ceiling or growth 0, capacity above the ceiling. Level 5: no
  // lock, no memory; the array is then empty, with the storage and the parameters that it had.
  bool Create(u32 initialCapacity, u32 ceiling, u32 growth, bool threadSafe, GrowType growType);
  // Over `size` constructed elements in a caller's area, which must outlive the array. Without `mayLeaveArea` the
  // ceiling is `size`; with it, `ceiling`, where 0 means 2 x size. `initialCount` -1 leaves it to `startEmpty`; another
  // must be below `size`.
  bool Create(T* area, u32 size, bool startEmpty, bool mayLeaveArea, u32 ceiling, u32 growth, bool threadSafe,
              GrowType growType, u32 initialCount);

  // `element` may be one of the array's own.
  bool Add(const T& element);
  // Assigns element `index`, which must be below count (level 3).
  bool Set(u32 index, const T& element);
  // Enlarges the storage by one step of the growth rule, and at least by one element. Logged refusals: fixed area (3),
  // ceiling (3), memory (5).
  bool Grow();
  // Puts `element` at `index` (at most count), moving the rest up by one. Refusals as Set and Grow.
  bool InsertAt(u32 index, const T& element);
  // Takes element `index` out, keeping the order. False at or past count (level 3).
  bool RemoveAt(u32 index);

  // Frame (u16 version 1, u32 count, u32 maxCapacity, u32 flagWord) and each element by its own
  // `bool Serialize(Buffer&) const`, which logs its own failure. Resets `out` first. Level 5 when the frame does not
  // fit; `out` then holds a part.
  bool Serialize(Buffer& out) const;
  // Reads that form, each element by `bool Deserialize(StreamBuffer&)`, with the ceiling and the growth rule of the
  // stream. The array is empty after a failure. `kMinimumElementSize`, a constant of T, bounds the count before
  // anything is allocated.
  bool Deserialize(StreamBuffer& in);

  // Sorted arrays of u16, u32, UInt128 and UInt256. `first` and `number` may be null; they get the leftmost equal
  // element and the length of its run. Asking for `number` without `first` is refused (level 3).
  bool BinarySearch(const T& key, u32* first, u32* number) const;
  // In-place heap sort (Williams/Floyd), operator> ascending, operator< descending.
  void Sort(bool ascending);

 private:
  bool MatchLock(bool threadSafe);
  bool MakeRoom(const T*& element);
  bool Reallocate(u32 newCapacity);
  void FreeStorage();
  bool PushFrame(Buffer& out) const;
  bool ReadFrame(StreamBuffer& in, u32& stored);
  bool ReadElements(StreamBuffer& in);
  bool PrepareFor(u32 stored, bool inStream);
};

// Walks sorted `items` against sorted `wanted` in one pass. compare(item, wantedKey) is three-way; visit(item,
// wantedKey) is called once for each item that equals a wanted key, and its false ends the walk with false (level 5).
template <class Item, class Key, class Compare, class Visit>
bool SortedMergeVisit(const Array<Item>& items, const Array<Key>& wanted, Compare compare, Visit visit);

// Ascending in-place heap sort by a three-way comparison, for orders that are not the element's own.
template <class T, class Compare>
void HeapSort(T* elements, u32 count, Compare compare);

}  // namespace Velmar::Collections

#include "Velmar/Collections/Array.ipp"
#include "Velmar/Collections/ArrayAlgorithms.ipp"
#include "Velmar/Collections/ArraySerialize.ipp"
