// Entries of a store, one node type a key family, and what a store needs to know of a key.
#pragma once

#include "Velmar/Types.h"

namespace Velmar::Collections::DB {

// Links are indices into the store's entries, kNone for none. valueOffset is kNone until the entry had its first value;
// it then stays for the life of the node.
template <class K>
struct __internal__UIntStorageNode__ {
  u32 next;
  u32 prev;
  u32 valueOffset;
  K key;
};

template <class K>
struct __internal__UIntLargeUIntStorageNode__ {
  u32 next;
  u32 prev;
  u32 valueOffset;
  K key;
};

struct __internal__StringStorageNode__ {
  u32 next;
  u32 prev;
  u32 valueOffset;
  u32 keyCapacity;
  char* key;  // owned by the store
};

// Node: the entry type. Argument: how a key is passed. Compare: three-way, node's key against a key; `context` is that
// of the search interface.
template <class K>
struct KeyTraits;

template <>
struct KeyTraits<u32> {
  using Node = __internal__UIntStorageNode__<u32>;
  using Argument = u32;
  static int Compare(u32 nodeKey, u32 key, const void* /*context*/) {
    return nodeKey < key ? -1 : (nodeKey > key ? 1 : 0);
  }
};

template <>
struct KeyTraits<Types::UInt128> {
  using Node = __internal__UIntLargeUIntStorageNode__<Types::UInt128>;
  using Argument = const Types::UInt128&;
  static int Compare(const Types::UInt128& nodeKey, const Types::UInt128& key, const void* /*context*/) {
    return nodeKey.Compare(key);
  }
};

template <>
struct KeyTraits<const char*> {
  using Node = __internal__StringStorageNode__;
  using Argument = const char*;
  // `context` points at the store's keyCompareFlag, which says whether case is ignored.
  static int Compare(const char* nodeKey, const char* key, const void* context);
};

}  // namespace Velmar::Collections::DB
