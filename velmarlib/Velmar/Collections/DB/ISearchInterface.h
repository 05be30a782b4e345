// ISearchInterface: how a store finds the entry of a key. Implementations are in Velmar/Utils.
#pragma once

#include "Velmar/Collections/DB/StorageNodes.h"
#include "Velmar/Collections/ModuleMemory.h"
#include "Velmar/Types.h"

namespace Velmar::Collections::DB::Base {

// An index holds locations (indices into the store's entries), never keys. InsertNewElement and OverwriteOldElement
// always follow a GetLocation for the new key, with no other call between, and use what it left behind.
// Threads: none of its own; runs under the store's lock.
// Errors: false with the object unchanged; out-of-range positions and failed allocations are logged at level 5.
template <class K, class Node = typename KeyTraits<K>::Node>
class ISearchInterface {
 public:
  using Key = typename KeyTraits<K>::Argument;

  // The location of the key, or kNone.
  virtual u32 GetLocation(Key key, const Node* entries) = 0;
  // The position of the key inside the index; kNone, logged at level 5, if it is absent.
  virtual u32 GetLocationOfIndex(Key key, const Node* entries) = 0;
  // Removes the key, reporting its location. `notFound` tells an absent key from other failures.
  virtual bool Delete(Key key, const Node* entries, u32& location, bool& notFound) = 0;
  // Squeezes out the marks of MarkKeyAsDeleted.
  virtual bool CompactDeleted() = 0;
  // Puts kNone at `position` of the index, without closing the gap.
  virtual bool MarkKeyAsDeleted(u32 position) = 0;
  // Room for `capacity` locations.
  virtual bool Grow(u32 capacity, u32 maxCapacity) = 0;
  virtual void Destroy() = 0;
  // Forgets all keys, keeping the allocation.
  virtual void Clear() = 0;
  virtual bool Init(u32 initialCapacity, u32 maxCapacity, const void* searchContext) = 0;
  virtual bool InsertNewElement(u32 location) = 0;
  // The entry at `location`, its old key still in the node, is being recycled for the key of the last GetLocation.
  virtual bool OverwriteOldElement(u32 location, const Node* entries) = 0;
  virtual u32 GetMemoryUsage() const = 0;
  virtual ~ISearchInterface() = default;
  // An index lies on the module's memory.
  static void operator delete(void* memory) { ModuleFree(memory); }

 protected:
  const void* context = nullptr;
};

}  // namespace Velmar::Collections::DB::Base
