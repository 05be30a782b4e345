// Elements that the tests put into arrays.
#pragma once

#include <cstdint>

#include "Velmar/Collections/Array.h"
#include "Velmar/Utils/String.h"

// Plain bytes of a fixed stored size, with a default that is not all zero.
struct PlainRow {
  static constexpr Velmar::u32 kMinimumElementSize = 6;

  Velmar::u32 key = 0xFFFFFFFF;
  Velmar::u16 tag = 0;

  bool Serialize(Velmar::Collections::Buffer& out) const {
    return out.PushUInt32(key) != Velmar::kNone && out.PushUInt16(tag) != Velmar::kNone;
  }
  bool Deserialize(Velmar::Collections::StreamBuffer& in) { return in.Read(key) && in.Read(tag); }
  bool operator==(const PlainRow& other) const { return key == other.key && tag == other.tag; }
};

// An object on the heap of a stored size that varies; a copy fails when the test says so.
struct NamedRow {
  static constexpr Velmar::u32 kMinimumElementSize = 4;
  static inline bool copiesFail = false;

  Velmar::Utils::String name;

  NamedRow() = default;
  explicit NamedRow(const char* text) : name(text, true) {}

  bool CopyFrom(const NamedRow& other) { return !copiesFail && name.Set(&other.name); }
  bool Serialize(Velmar::Collections::Buffer& out) const { return name.Serialize(out, nullptr); }
  bool Deserialize(Velmar::Collections::StreamBuffer& in) { return name.Deserialize(in, nullptr); }
  bool operator<(const NamedRow& other) const { return name < other.name; }
  bool operator>(const NamedRow& other) const { return name > other.name; }
};

// Counts the objects that are alive; cannot move, so that every change of place is a copy.
struct CopiedRow {
  static inline std::int64_t alive = 0;
  static inline std::int64_t copiesLeft = -1;  // a copy at 0 fails; below 0 none does

  int value = -1;

  CopiedRow() { ++alive; }
  CopiedRow(const CopiedRow& other) : value(other.value) { ++alive; }
  CopiedRow& operator=(const CopiedRow& other) = default;
  ~CopiedRow() { --alive; }

  bool CopyFrom(const CopiedRow& other) {
    if (copiesLeft == 0) {
      return false;
    }
    --copiesLeft;
    value = other.value;
    return true;
  }
};
