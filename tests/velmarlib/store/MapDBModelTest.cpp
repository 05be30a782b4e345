// Random operations on a store and on a plain model of it give the same.
#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;

// What a store is to do, in the plainest form: entries in age order, searched one by one.
class Model {
 public:
  Model(std::size_t maximum, bool moveToTail) : maximum_(maximum), moveToTail_(moveToTail) {}

  bool Put(u32 key, const std::string& value) {
    const auto found = Find(key);
    if (found == entries_.end()) {
      if (entries_.size() == maximum_) {
        entries_.erase(entries_.begin());
      }
      entries_.emplace_back(key, value);
      return true;
    }
    found->second = value;
    Touch(found);
    return true;
  }
  std::optional<std::string> Get(u32 key) {
    const auto found = Find(key);
    if (found == entries_.end()) {
      return std::nullopt;
    }
    std::string value = found->second;
    Touch(found);
    return value;
  }
  bool Delete(u32 key, bool mustExist) {
    if (entries_.empty()) {
      return false;
    }
    const auto found = Find(key);
    if (found == entries_.end()) {
      return !mustExist;
    }
    entries_.erase(found);
    return true;
  }
  void Clear() { entries_.clear(); }
  [[nodiscard]] std::vector<u32> Keys() const {
    std::vector<u32> keys;
    for (const auto& entry : entries_) {
      keys.push_back(entry.first);
    }
    return keys;
  }

 private:
  using Entries = std::vector<std::pair<u32, std::string>>;

  Entries::iterator Find(u32 key) {
    return std::find_if(entries_.begin(), entries_.end(), [key](const auto& entry) { return entry.first == key; });
  }
  void Touch(Entries::iterator entry) {
    if (moveToTail_) {
      std::rotate(entry, entry + 1, entries_.end());
    }
  }

  std::size_t maximum_;
  bool moveToTail_;
  Entries entries_;
};

// Key number n of each type; numbers of texts are of different lengths, those of wide keys differ in either word.
struct TextKeys {
  using Store = TextStore;
  static const char* Make(u32 number) {
    static std::map<u32, std::string> keys;
    std::string& key = keys[number];
    if (key.empty()) {
      key = std::to_string(number) + std::string(number % 40, '.');
    }
    return key.c_str();
  }
  static u32 Number(const std::string& key) { return static_cast<u32>(std::stoul(key)); }
};

struct NumberKeys {
  using Store = NumberStore;
  static u32 Make(u32 number) { return number; }
  static u32 Number(u32 key) { return key; }
};

struct WideKeys {
  using Store = WideStore;
  static Types::UInt128 Make(u32 number) { return {{number % 3, number / 3}}; }
  static u32 Number(const Types::UInt128& key) { return static_cast<u32>(key.words[1] * 3 + key.words[0]); }
};

struct Shape {
  u32 kind;
  u32 flags;
  u32 initial;
  u32 maximum;
  u32 growth;
  u32 percent;
  u32 keyRange;
};

template <class KeyMaker>
class Comparison {
 public:
  Comparison(const Shape& shape, u64 seed)
      : shape_(shape), random_(seed), model_(shape.maximum, (shape.flags & StoreFlags::kMoveToTailOnAccess) != 0) {}

  void Run(int steps) {
    Sim::Reset();
    MakeFolder();
    OpenStore();
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      Step();
      if (step % 16 == 0) {
        CompareKeys();
      }
    }
    CompareKeys();
  }

 private:
  u32 Below(u32 bound) { return static_cast<u32>(random_() % bound); }

  void OpenStore() {
    Options options = AtPath(StoreFlags::kNoSaveOnClose);
    options.flags = shape_.kind | shape_.flags | StoreFlags::kNoSaveOnClose;
    options.initial = shape_.initial;
    options.maximum = shape_.maximum;
    options.growth = shape_.growth;
    options.growthInPercent = shape_.percent;
    ASSERT_TRUE(Open(store_, options));
  }

  void Step() {
    const u32 number = Below(shape_.keyRange);
    const auto key = KeyMaker::Make(number);
    const u32 action = Below(100);
    if (action < 45) {
      const std::string value = std::to_string(random_() >> 1);
      EXPECT_EQ(Put(store_, key, value), model_.Put(number, value));
    } else if (action < 70) {
      EXPECT_EQ(Get(store_, key), model_.Get(number));
    } else if (action < 95) {
      const bool mustExist = Below(2) == 0;
      EXPECT_EQ(store_.Delete(key, mustExist), model_.Delete(number, mustExist));
    } else if (action < 96) {
      EXPECT_TRUE(store_.Clear());
      model_.Clear();
    } else if (action < 98) {
      store_.Reserve(Below(shape_.maximum) + 1, false);
    } else {
      EXPECT_TRUE(store_.Save());
      store_.Uninit();
      OpenStore();
    }
    EXPECT_EQ(store_.GetCount(), model_.Keys().size());
  }

  void CompareKeys() {
    std::vector<u32> numbers;
    for (const auto& key : KeysOf(store_)) {
      numbers.push_back(KeyMaker::Number(key));
    }
    EXPECT_EQ(numbers, model_.Keys());
  }

  Shape shape_;
  std::mt19937_64 random_;
  Model model_;
  typename KeyMaker::Store store_;
};

template <class KeyMaker>
void CompareShapes(const std::vector<Shape>& shapes) {
  for (const Shape& shape : shapes) {
    for (u64 seed = 1; seed <= 3; ++seed) {
      SCOPED_TRACE("kind " + std::to_string(shape.kind) + ", maximum " + std::to_string(shape.maximum) + ", seed " +
                   std::to_string(seed));
      std::printf("kind %u, flags 0x%x, maximum %u, seed %llu\n", shape.kind, shape.flags, shape.maximum,
                  static_cast<unsigned long long>(seed));
      Comparison<KeyMaker>(shape, seed).Run(1500);
    }
  }
}

std::vector<Shape> ShapesOf(u32 kind) {
  return {{kind, 0, 0, 1, 1, 0, 3},
          {kind, 0, 2, 3, 1, 0, 8},
          {kind, StoreFlags::kMoveToTailOnAccess, 2, 16, 3, 0, 24},
          {kind, StoreFlags::kNoCompression, 0, 64, 50, 1, 90},
          {kind, StoreFlags::kThreadSafe, 8, 500, 10, 0, 300}};
}

TEST(MapDBModel, TextKeysInASortedIndex) {
  CompareShapes<TextKeys>(ShapesOf(StoreFlags::kBinarySearch));
}

TEST(MapDBModel, TextKeysInAList) {
  CompareShapes<TextKeys>(ShapesOf(StoreFlags::kLinearSearch));
}

TEST(MapDBModel, NumberKeysInASortedIndex) {
  CompareShapes<NumberKeys>(ShapesOf(StoreFlags::kBinarySearch));
}

TEST(MapDBModel, NumberKeysInAList) {
  CompareShapes<NumberKeys>(ShapesOf(StoreFlags::kLinearSearch));
}

TEST(MapDBModel, WideKeysInASortedIndex) {
  CompareShapes<WideKeys>(ShapesOf(StoreFlags::kBinarySearch));
}

TEST(MapDBModel, WideKeysInAList) {
  CompareShapes<WideKeys>(ShapesOf(StoreFlags::kLinearSearch));
}

TEST(MapDBModel, TextKeysInATree) {
  CompareShapes<TextKeys>(ShapesOf(StoreFlags::kRBTSearch));
}

TEST(MapDBModel, NumberKeysInATree) {
  CompareShapes<NumberKeys>(ShapesOf(StoreFlags::kRBTSearch));
}

TEST(MapDBModel, WideKeysInATree) {
  CompareShapes<WideKeys>(ShapesOf(StoreFlags::kRBTSearch));
}

TEST(MapDBModel, NumberKeysInATable) {
  const u32 kind = StoreFlags::kIndexSearch;
  CompareShapes<NumberKeys>({{kind, 0, 0, 1, 1, 0, 1},
                             {kind, StoreFlags::kMoveToTailOnAccess, 2, 16, 3, 0, 16},
                             {kind, 0, 0, 64, 50, 1, 64}});
}

}  // namespace
