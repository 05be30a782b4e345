// What the tests of the indexes share: entries with given keys, and a look at the locations.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "Velmar/Collections/DB/StorageNodes.h"
#include "tests/support/LogCapture.h"
#include "tests/velmarlib/collections/TestAllocator.h"

namespace Velmar::Utils {

struct SearchTestAccess {
  template <class Search>
  static std::vector<u32> Locations(const Search& search) {
    return std::vector<u32>(search.locations, search.locations + search.size);
  }
  template <class Search>
  static bool HasTable(const Search& search) {
    return search.locations != nullptr;
  }
  template <class Search>
  static u32 Position(const Search& search) {
    return search.position;
  }
  template <class Search>
  static u32 Size(const Search& search) {
    return search.size;
  }
  template <class Search>
  static const auto& Map(const Search& search) {
    return search.map;
  }
  template <class Search>
  static u64 LastHash(const Search& search) {
    return search.lastHash;
  }
  template <class Search>
  static void LookUpHash(Search& search, u64 hash) {
    search.lastHash = hash;
    search.map.Find(hash);
  }
  template <class Search>
  static const auto& Tree(const Search& search) {
    return search.tree;
  }
  // Where the last lookup stood: the tree node and the side of it.
  template <class Search>
  static std::pair<u32, u32> Place(const Search& search) {
    return {search.parent, search.side};
  }
};

}  // namespace Velmar::Utils

namespace SearchTest {

using namespace Velmar;
using Locations = std::vector<u32>;
using Lines = std::vector<std::string>;
using Utils::SearchTestAccess;

// Entries with the keys given, in that order.
template <class K, class Key>
std::vector<typename Collections::DB::KeyTraits<K>::Node> Entries(const std::vector<Key>& keys) {
  std::vector<typename Collections::DB::KeyTraits<K>::Node> entries(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if constexpr (std::is_same_v<K, const char*>) {
      entries[i].key = const_cast<char*>(keys[i]);
    } else {
      entries[i].key = keys[i];
    }
  }
  return entries;
}

// Puts each entry into the index, as a store does.
template <class Search, class Nodes>
void InsertAll(Search& search, const Nodes& entries) {
  for (u32 i = 0; i < entries.size(); ++i) {
    ASSERT_EQ(search.GetLocation(entries[i].key, entries.data()), kNone);
    ASSERT_TRUE(search.InsertNewElement(i));
  }
}

}  // namespace SearchTest
