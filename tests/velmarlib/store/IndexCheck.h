// IndexCheck: whether the chains and the index of a store, of whatever kind, hold what its entries say.
#pragma once

#include <algorithm>
#include <vector>

#include "Velmar/Utils/BinarySearch.h"
#include "Velmar/Utils/HashMapSearch.h"
#include "Velmar/Utils/IndexSearch.h"
#include "Velmar/Utils/LinearSearch.h"
#include "Velmar/Utils/RBTSearch.h"
#include "tests/velmarlib/store/HashMapCheck.h"
#include "tests/velmarlib/store/RedBlackTreeCheck.h"
#include "tests/velmarlib/store/SearchTest.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace IndexCheck {

using namespace StoreTest;
using Velmar::Utils::SearchTestAccess;
using Locations = std::vector<u32>;

// Locations from the oldest on. Fails the test unless they and the free chain are together all entries, each once.
template <class Store>
Locations CheckChains(Store& store) {
  using Access = MapDBTestAccess;
  std::vector<bool> seen(Access::Capacity(store));
  Locations used;
  const auto* entries = Access::Entries(store);
  u32 location = store.GetCount() == 0 ? kNone : Access::Head(store);
  for (; location != kNone && used.size() < seen.size(); location = entries[location].next) {
    EXPECT_FALSE(seen[location]) << location;
    seen[location] = true;
    EXPECT_EQ(entries[location].prev, used.empty() ? kNone : used.back());
    used.push_back(location);
  }
  EXPECT_EQ(used.size(), store.GetCount());
  std::size_t freed = 0;
  for (location = Access::FreeHead(store); location != kNone && freed < seen.size();
       location = entries[location].next) {
    EXPECT_FALSE(seen[location]) << "free entry " << location;
    seen[location] = true;
    EXPECT_EQ(entries[location].prev, kNone);
    ++freed;
  }
  EXPECT_EQ(used.size() + freed, seen.size());
  return used;
}

template <class K, class Entries>
void ExpectSorted(const Locations& locations, const Entries* entries, const u8* context) {
  for (std::size_t i = 1; i < locations.size(); ++i) {
    EXPECT_LT(KeyTraits<K>::Compare(entries[locations[i - 1]].key, entries[locations[i]].key, context), 0) << i;
  }
}

// What a direct table holds, after a look at the place of each.
template <class K, class Entries>
Locations TableLocations(const Utils::IndexSearch<K>& table, const Entries* entries, u32 maximum) {
  Locations locations;
  if (SearchTestAccess::HasTable(table)) {
    const Locations slots = SearchTestAccess::Locations(table);
    EXPECT_EQ(slots.size(), maximum);
    for (u32 slot = 0; slot < slots.size(); ++slot) {
      if (slots[slot] != kNone) {
        K expected{};
        if constexpr (std::is_same_v<K, u32>) {
          expected = slot;
        } else {
          expected = K{{0, slot}};
        }
        EXPECT_TRUE(entries[slots[slot]].key == expected) << "slot " << slot;
        locations.push_back(slots[slot]);
      }
    }
  }
  EXPECT_EQ(table.GetMemoryUsage(), maximum * 4 + 32);
  return locations;
}

template <class K>
Locations TreeLocations(const Utils::RBTSearch<K>& search) {
  const auto& tree = SearchTestAccess::Tree(search);
  EXPECT_EQ(search.GetMemoryUsage(), tree.nodes.capacity * 28 + 120);
  return TreeCheck::KeysInOrder(tree);
}

template <class K>
Locations MapLocations(const Utils::HashMapSearch<K>& search) {
  const auto& map = SearchTestAccess::Map(search);
  HashMapTestAccess::Check(map);
  EXPECT_EQ(search.GetMemoryUsage(), map.GetMemoryUsage() + 96);
  Locations locations;
  for (const auto& [hash, location] : HashMapTestAccess::ContentsOf(map)) {
    locations.push_back(location);
  }
  return locations;
}

// The index holds each entry's location once and no other, in its own order.
template <class K, class V>
void Check(MapDB<K, V>& store, u32 maximum) {
  Locations used = CheckChains(store);
  const auto* entries = MapDBTestAccess::Entries(store);
  const u8* context = &store.keyCompareFlag;
  auto* index = &MapDBTestAccess::Index(store);
  Locations held;
  if (const auto* sorted = dynamic_cast<Utils::BinarySearch<K>*>(index)) {
    held = SearchTestAccess::Locations(*sorted);
    ExpectSorted<K>(held, entries, context);
    EXPECT_GE(sorted->GetMemoryUsage(), MapDBTestAccess::Capacity(store) * 4 + 40);
  } else if (const auto* list = dynamic_cast<Utils::LinearSearch<K>*>(index)) {
    held = SearchTestAccess::Locations(*list);
    EXPECT_GE(list->GetMemoryUsage(), MapDBTestAccess::Capacity(store) * 4 + 40);
  } else if (const auto* tree = dynamic_cast<Utils::RBTSearch<K>*>(index)) {
    held = TreeLocations(*tree);
    ExpectSorted<K>(held, entries, context);
  } else if constexpr (!std::is_same_v<K, const char*>) {
    if (const auto* table = dynamic_cast<Utils::IndexSearch<K>*>(index)) {
      held = TableLocations(*table, entries, maximum);
    } else {
      held = MapLocations(dynamic_cast<Utils::HashMapSearch<K>&>(*index));
    }
  }
  std::sort(held.begin(), held.end());
  std::sort(used.begin(), used.end());
  EXPECT_EQ(held, used);
}

}  // namespace IndexCheck
