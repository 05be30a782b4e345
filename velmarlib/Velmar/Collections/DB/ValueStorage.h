// ValueStorage: the life of a value in a store's pool, one specialisation a value type.
#pragma once

#include <new>
#include <utility>

#include "Velmar/Collections/Buffer.h"
#include "Velmar/Collections/Caches/TimeCacheObjectWrapper.h"
#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"

namespace Velmar::Collections::DB {

// kMinimumSize: the fewest bytes of a stored value. kPlainBytes: values move as blocks and need no end.
// Initialise constructs in raw memory, Reinitialise empties for the next key, Move constructs in raw memory and leaves
// the source raw; it never fails.
template <class V>
struct ValueStorage;

template <class Wrapped>
struct ValueStorage<Caches::TimeCacheObjectWrapper<Wrapped>> {
  using Value = Caches::TimeCacheObjectWrapper<Wrapped>;
  static constexpr bool kPlainBytes = true;
  static constexpr u32 kMinimumSize = 17;

  static bool Initialise(Value* memory) {
    new (memory) Value{};
    return true;
  }
  static bool Reinitialise(Value& value) {
    value = Value{};
    return true;
  }
};

template <>
struct ValueStorage<Buffer> {
  static constexpr bool kPlainBytes = false;
  static constexpr u32 kMinimumSize = 4;

  static bool Initialise(Buffer* memory) { return memory->InitializeObject(); }
  static bool Reinitialise(Buffer& value) { return value.ReinitializeObject(); }
  static void Uninitialise(Buffer& value) { value.UninitializeObject(); }
  static void Move(Buffer* memory, Buffer& source) { memory->InitializeObjectByMove(source); }
};

template <>
struct ValueStorage<Utils::String> {
  static constexpr bool kPlainBytes = false;
  static constexpr u32 kMinimumSize = 4;

  static bool Initialise(Utils::String* memory) {
    new (memory) Utils::String();
    return true;
  }
  static bool Reinitialise(Utils::String& value) {
    value.Clear();
    return true;
  }
  static void Uninitialise(Utils::String& value) { value.~String(); }
  static void Move(Utils::String* memory, Utils::String& source) {
    new (memory) Utils::String(std::move(source));
    source.~String();  // NOLINT(bugprone-use-after-move): what was moved from still has its end
  }
};

}  // namespace Velmar::Collections::DB
