// StoreModel: what a store is to do, as a list by age and a map; and the keys of random runs, by number.
#pragma once

#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "tests/velmarlib/store/StoreTest.h"

namespace StoreTest {

// Key number n of each type, and whether a direct table of `maximum` slots can hold it.
struct DenseNumbers {
  using Store = NumberStore;
  static u32 Make(u32 number) { return number; }
  static bool FitsTable(u32 number, u32 maximum) { return number < maximum; }
};

// Multiplied by an odd number, so that all are different.
struct ScatteredNumbers {
  using Store = NumberStore;
  static u32 Make(u32 number) { return number * 2654435761U; }
  static bool FitsTable(u32 number, u32 maximum) { return Make(number) < maximum; }
};

// Keys that differ in either word.
struct WideNumbers {
  using Store = WideStore;
  static Types::UInt128 Make(u32 number) { return {{number % 3, number / 3}}; }
  static bool FitsTable(u32 number, u32 maximum) { return number % 3 == 0 && number / 3 < maximum; }
};

struct DenseWideNumbers {
  using Store = WideStore;
  static Types::UInt128 Make(u32 number) { return {{0, number}}; }
  static bool FitsTable(u32 number, u32 maximum) { return number < maximum; }
};

// Keys of different lengths, below and above what a node keeps at first.
struct Texts {
  using Store = TextStore;
  static const char* Make(u32 number) {
    static std::vector<std::string> keys;
    while (keys.size() <= number) {
      const auto next = static_cast<u32>(keys.size());
      keys.push_back(std::to_string(next * 40503 % 65536) + std::string(next % 40, '.'));
    }
    return keys[number].c_str();
  }
  static bool FitsTable(u32 /*number*/, u32 /*maximum*/) { return false; }
};

struct TextsOfTexts : Texts {
  using Store = StringStore;
};

inline const std::string& FreshValue(const NumberStore* /*store*/) {
  static const std::string kFresh = "0";
  return kFresh;
}
inline const std::string& FreshValue(const WideStore* /*store*/) {
  return FreshValue(static_cast<const NumberStore*>(nullptr));
}
inline const std::string& FreshValue(const void* /*store*/) {
  static const std::string kFresh;
  return kFresh;
}

// What a call gives: its result, what the callback met (empty optional: it was not called), and the log.
struct Outcome {
  bool done = false;
  std::optional<std::string> met;
  bool isNew = false;
  Lines log;

  bool operator==(const Outcome&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  out << (outcome.done ? "done" : "not done") << ", met " << outcome.met.value_or("nothing")
      << (outcome.isNew ? " (new)" : "") << ", log:";
  for (const std::string& line : outcome.log) {
    out << ' ' << line << ';';
  }
  return out;
}

template <class Maker>
class StoreModel {
 public:
  struct Entry {
    u32 number;
    std::string value;
    bool operator==(const Entry&) const = default;
  };
  using Entries = std::list<Entry>;

  StoreModel(u32 indexKind, u32 maximumCount) : kind(indexKind), maximum(maximumCount) {}

  // `value`: what the callback writes, null when it only looks. `accept`: what it returns.
  Outcome Apply(u32 number, bool create, const std::string* value, bool accept) {
    const auto found = byNumber.find(number);
    const bool isNew = found == byNumber.end();
    if (isNew && !create) {
      return {};
    }
    if (isNew && kind == StoreFlags::kIndexSearch && !Maker::FitsTable(number, maximum)) {
      return RefusedByTable();
    }
    if (isNew) {
      MakeRoom();
      Append({number, FreshValue(static_cast<const typename Maker::Store*>(nullptr))});
    } else if (moveToTail) {
      entries.splice(entries.end(), entries, found->second);
    }
    Entry& entry = *byNumber.at(number);
    Outcome outcome{accept, entry.value, isNew, {}};
    if (value != nullptr) {
      entry.value = *value;
    }
    if (!accept) {
      outcome.log = {"3 velmar.StoreCallbackRefused"};
    }
    return outcome;
  }

  Outcome Delete(u32 number, bool mustExist) {
    if (entries.empty()) {
      return {};
    }
    const auto found = byNumber.find(number);
    if (found != byNumber.end()) {
      entries.erase(found->second);
      byNumber.erase(found);
      return {true, {}, false, {}};
    }
    Outcome outcome{!mustExist, {}, false, {}};
    if (kind != StoreFlags::kBinarySearch) {
      outcome.log = {"5 velmar.IndexKeyAbsent"};
    }
    return outcome;
  }

  [[nodiscard]] bool Has(u32 number) const { return byNumber.count(number) != 0; }
  void Clear() {
    entries.clear();
    byNumber.clear();
  }
  void Save() { saved = entries; }
  // Appends what is saved until a key is there already or the store is full. With `clear`, that ends in an empty store.
  bool Load(bool clear) {
    for (const Entry& entry : saved) {
      if (entries.size() == maximum || byNumber.count(entry.number) != 0) {
        if (clear) {
          Clear();
        }
        return clear;
      }
      Append(entry);
    }
    return true;
  }

  const u32 kind;
  const u32 maximum;
  bool moveToTail = false;
  Entries entries;  // oldest first

 private:
  [[nodiscard]] Outcome RefusedByTable() const {
    if (entries.size() == maximum) {
      return {false, {}, false, {"5 velmar.IndexPositionOutOfRange", "3 velmar.StoreOldestNotRecycled"}};
    }
    return {false,
            {},
            false,
            {"5 velmar.IndexPositionOutOfRange", "3 velmar.StoreIndexRefusedEntry", "3 velmar.StoreNoNewEntry"}};
  }
  void MakeRoom() {
    if (entries.size() == maximum) {
      EXPECT_NE(kind, StoreFlags::kIndexSearch) << "every legal key is there when a table is full";
      byNumber.erase(entries.front().number);
      entries.pop_front();
    }
  }
  void Append(const Entry& entry) { byNumber[entry.number] = entries.insert(entries.end(), entry); }

  std::unordered_map<u32, typename Entries::iterator> byNumber;
  Entries saved;
};

}  // namespace StoreTest
