// Bodies of MapDB: the pools of entries and values, their growth, and the two chains through the entries.
#pragma once

#include <algorithm>
#include <cstring>
#include <utility>

#include "Velmar/Collections/DB/MapDB.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Math.h"
#include "VelmarLog.h"

namespace Velmar::Collections::DB {

template <class K, class V>
bool MapDB<K, V>::Reserve(u32 wanted, bool force) {
  Operation operation(*this);
  return operation.Begin() && GrowBy(wanted, force);
}

template <class K, class V>
bool MapDB<K, V>::GrowBy(u32 wanted, bool force) {
  if (wanted != kNone) {
    return wanted <= capacity || GrowTo(wanted, force);
  }
  u64 step = growth;
  if (growthIsPercent != 0) {
    step = static_cast<u64>(Math::Floor(growth / 100.0 * std::max(capacity, 1U)));
    step = std::max(step, u64{1});
  }
  return GrowTo(capacity + step, force);
}

template <class K, class V>
bool MapDB<K, V>::GrowTo(u64 target, bool force) {
  if (target > maxCapacity) {
    if (!force) {
      RYL_LOG(velmar, StoreAboveMaximum, target, maxCapacity);
      return false;
    }
    target = maxCapacity;
  }
  if (target <= capacity) {
    RYL_LOG(velmar, StoreAtMaximum, maxCapacity);
    return false;
  }
  const auto newCapacity = static_cast<u32>(target);
  if (!search->Grow(newCapacity, maxCapacity)) {
    RYL_LOG(velmar, StoreIndexNotGrown, newCapacity);
    return false;
  }
  return ReallocatePools(newCapacity);
}

template <class K, class V>
bool MapDB<K, V>::ReallocatePools(u32 newCapacity) {
  Node* newEntries = nullptr;
  u8* newValues = nullptr;
  if (!AllocatePools(newCapacity, newEntries, newValues)) {
    return false;
  }
  if (capacity != 0) {
    std::memcpy(newEntries, entries, capacity * sizeof(Node));
    MoveValues(newValues);
  }
  ModuleFree(std::exchange(entries, newEntries));
  ModuleFree(std::exchange(values, newValues));
  LinkFree(entries, capacity, newCapacity);
  JoinFree(std::exchange(capacity, newCapacity));
  return true;
}

// Values of free entries go along: their slots stay assigned.
template <class K, class V>
void MapDB<K, V>::MoveValues(u8* newValues) {
  if constexpr (Values::kPlainBytes) {
    std::memcpy(newValues, values, std::size_t{capacity} * valueStride);
  } else {
    for (u32 i = 0; i < capacity; ++i) {
      if (entries[i].valueOffset != kNone) {
        Values::Move(reinterpret_cast<V*>(newValues + entries[i].valueOffset), ValueAt(i));
      }
    }
  }
}

// Both pools or none, logged at level 5. An offset into the values must fit 32 bits and not be kNone.
template <class K, class V>
bool MapDB<K, V>::AllocatePools(u32 number, Node*& newEntries, u8*& newValues) {
  const u64 valueBytes = u64{number} * sizeof(V);
  newEntries = valueBytes < kNone ? static_cast<Node*>(ModuleAllocate(number * sizeof(Node))) : nullptr;
  newValues = newEntries == nullptr ? nullptr : static_cast<u8*>(ModuleAllocate(valueBytes));
  if (newValues == nullptr) {
    ModuleFree(newEntries);
    newEntries = nullptr;
    RYL_LOG(velmar, StoreAllocationFailed, number);
    return false;
  }
  return true;
}

template <class K, class V>
bool MapDB<K, V>::CreatePools(u32 initialCapacity) {
  if (initialCapacity == 0) {
    return true;
  }
  if (!AllocatePools(initialCapacity, entries, values)) {
    return false;
  }
  LinkFree(entries, 0, initialCapacity);
  freeHead = 0;
  return true;
}

template <class K, class V>
void MapDB<K, V>::FreePools() {
  for (u32 i = 0; i < capacity; ++i) {
    if constexpr (!Values::kPlainBytes) {
      if (entries[i].valueOffset != kNone) {
        Values::Uninitialise(ValueAt(i));
      }
    }
    Keys::FreeNode(entries[i]);
  }
  ModuleFree(std::exchange(values, nullptr));
  ModuleFree(std::exchange(entries, nullptr));
}

// Makes the nodes from `first` on a chain of new free ones.
template <class K, class V>
void MapDB<K, V>::LinkFree(Node* nodes, u32 first, u32 end) {
  for (u32 i = first; i < end; ++i) {
    nodes[i].next = i + 1 < end ? i + 1 : kNone;
    nodes[i].prev = kNone;
    nodes[i].valueOffset = kNone;
    Keys::InitialiseNode(nodes[i]);
  }
}

// Puts the chain that starts at `first` behind the free one.
template <class K, class V>
void MapDB<K, V>::JoinFree(u32 first) {
  if (freeHead == kNone) {
    freeHead = first;
    return;
  }
  u32 last = freeHead;
  while (entries[last].next != kNone) {
    last = entries[last].next;
  }
  entries[last].next = first;
}

template <class K, class V>
bool MapDB<K, V>::EnsureFreeEntry() {
  if (count == capacity && !GrowBy(kNone, true)) {
    RYL_LOG(velmar, StoreNotGrown, count);
    return false;
  }
  return true;
}

// The first free entry becomes the newest.
template <class K, class V>
void MapDB<K, V>::AppendFreeEntry() {
  const u32 location = freeHead;
  Node& node = entries[location];
  freeHead = node.next;
  node.next = kNone;
  if (count == 0) {
    node.prev = kNone;
    head = location;
  } else {
    node.prev = tail;
    entries[tail].next = location;
  }
  tail = location;
  ++count;
}

// Undoes AppendFreeEntry.
template <class K, class V>
void MapDB<K, V>::TakeBackTail() {
  const u32 location = tail;
  if (count > 1) {
    Unlink(location);
  }
  PushFree(location);
  --count;
}

template <class K, class V>
void MapDB<K, V>::PushFree(u32 location) {
  entries[location].prev = kNone;
  entries[location].next = freeHead;
  freeHead = location;
}

template <class K, class V>
void MapDB<K, V>::Unlink(u32 location) {
  const Node& node = entries[location];
  if (location == head) {
    head = node.next;
  } else {
    entries[node.prev].next = node.next;
  }
  if (location == tail) {
    tail = node.prev;
  } else {
    entries[node.next].prev = node.prev;
  }
}

template <class K, class V>
void MapDB<K, V>::MoveToTail(u32 location) {
  if (location == tail) {
    return;
  }
  Unlink(location);
  Node& node = entries[location];
  node.prev = tail;
  node.next = kNone;
  entries[tail].next = location;
  tail = location;
}

}  // namespace Velmar::Collections::DB
