// KeyStorage: how a store keeps, writes and reads the key of an entry, one specialisation a key family.
#pragma once

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/DB/StorageNodes.h"
#include "Velmar/Collections/DB/StoreHeader.h"
#include "Velmar/Types.h"

namespace Velmar::Collections::DB {

// Numeric keys lie in the node and are their own stored form.
template <class K>
struct KeyStorage {
  using Node = typename KeyTraits<K>::Node;
  using Argument = typename KeyTraits<K>::Argument;

  static constexpr bool kIsText = false;
  static constexpr u32 kEntrySize = sizeof(K);
  static constexpr u32 kFileFlags = FileFlags::kFixedSizeKeys;

  // The memory of one key, had before anything of the store is touched. The numeric ones need none.
  class Reservation {
   public:
    bool ReserveFor(const Node& /*node*/, Argument /*key*/) { return true; }
    // Puts the key into the node that it was reserved for.
    void Install(Node& node, Argument key) { node.key = key; }
  };

  static bool IsValid(Argument /*key*/) { return true; }
  static void InitialiseNode(Node& node) { node.key = K{}; }
  static void FreeNode(Node& /*node*/) {}

  // Appends the index entry. False when it does not fit; a part may then stand in `index`.
  static bool Write(const Node& node, Buffer& index) { return index.PushBuffer(&node.key, sizeof(K)) != kNone; }

  // Takes the key of the entry that starts at `offset`, and the entry's size.
  static bool Read(Node& node, const Buffer& index, u32 offset, const StoreHeader& header, u32& entrySize);
};

template <>
struct KeyStorage<const char*> {
  using Node = __internal__StringStorageNode__;
  using Argument = const char*;

  static constexpr bool kIsText = true;
  static constexpr u32 kEntrySize = 0;
  static constexpr u32 kFileFlags = FileFlags::kVariableSizeKeys;

  // Lifetime: frees what it had unless it was installed.
  class Reservation {
   public:
    Reservation() = default;
    ~Reservation();
    Reservation(const Reservation&) = delete;
    Reservation& operator=(const Reservation&) = delete;

    // Nothing is taken when the node's own memory is enough. False, logged at level 5, without memory.
    bool ReserveFor(const Node& node, Argument key);
    void Install(Node& node, Argument key);

   private:
    std::size_t needed_ = 0;
    char* memory_ = nullptr;
    u32 capacity_ = 0;
  };

  static bool IsValid(Argument key) { return key != nullptr; }
  static void InitialiseNode(Node& node) {
    node.keyCapacity = 0;
    node.key = nullptr;
  }
  static void FreeNode(Node& node);
  static bool Write(const Node& node, Buffer& index);
  static bool Read(Node& node, const Buffer& index, u32 offset, const StoreHeader& header, u32& entrySize);
};

}  // namespace Velmar::Collections::DB
