// Random operations on one store of each index kind, side by side, give what a plain model gives.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <string>

#include "Velmar/Utils/SignedFnv1a.h"
#include "tests/velmarlib/store/IndexCheck.h"
#include "tests/velmarlib/store/StoreModel.h"

namespace {

using namespace StoreTest;

// NETDB_TEST_SEED=n repeats the run that printed n.
u64 Seed() {
  const char* given = std::getenv("NETDB_TEST_SEED");
  return given == nullptr ? 1 : std::strtoull(given, nullptr, 0);
}

struct Shape {
  u32 initial;
  u32 maximum;
  u32 growth;
  u32 percent;
  u32 keyRange;
  u32 flags;
};

template <class Maker>
std::vector<u32> KindsOf() {
  if constexpr (std::is_same_v<decltype(Maker::Make(0)), const char*>) {
    return {StoreFlags::kBinarySearch, StoreFlags::kLinearSearch, StoreFlags::kRBTSearch};
  } else {
    return {StoreFlags::kBinarySearch, StoreFlags::kIndexSearch, StoreFlags::kLinearSearch, StoreFlags::kRBTSearch,
            StoreFlags::kHashMapSearch};
  }
}

// The stores of all kinds and their models, driven alike.
template <class Maker>
class Fleet {
 public:
  enum class Looks { kNowAndThen, kAfterEachStep };

  Fleet(const Shape& givenShape, Looks givenLooks) : shape(givenShape), looks(givenLooks), random(Seed()) {
    std::printf("seed %llu\n", static_cast<unsigned long long>(Seed()));
  }

  void Run(u32 steps) {
    MakeFolder();
    ExpectDistinctHashes();
    for (const u32 kind : KindsOf<Maker>()) {
      members.push_back(std::make_unique<Member>(kind, shape.maximum));
      members.back()->model.moveToTail = (shape.flags & StoreFlags::kMoveToTailOnAccess) != 0;
      OpenStore(*members.back());
    }
    for (u32 step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE(step);
      Step();
      if (looks == Looks::kAfterEachStep) {
        CheckAll();
      }
      if (step % kStepsBetweenComparisons == 0) {
        CompareAll();
      }
    }
    CompareAll();
    std::printf("%llu new keys came to a full store\n", static_cast<unsigned long long>(recycled));
  }
  // How often a new key came to a store that was full.
  [[nodiscard]] u64 Recycled() const { return recycled; }

 private:
  using Store = typename Maker::Store;
  static constexpr u32 kStepsBetweenComparisons = 509;

  struct Member {
    Member(u32 kind, u32 maximum) : model(kind, maximum), path("/data/" + std::to_string(kind) + ".db") {}
    Store store;
    StoreModel<Maker> model;
    std::string path;
  };

  u32 Below(u32 bound) { return static_cast<u32>(random() % bound); }

  // A hash index takes two keys of one hash for one.
  void ExpectDistinctHashes() const {
    if constexpr (!std::is_same_v<decltype(Maker::Make(0)), const char*>) {
      std::set<u64> hashes;
      for (u32 number = 0; number < shape.keyRange; ++number) {
        const auto key = Maker::Make(number);
        hashes.insert(Utils::SignedFnv1a(&key, sizeof(key)));
      }
      ASSERT_EQ(hashes.size(), shape.keyRange);
    }
  }

  void OpenStore(Member& member) {
    Options options;
    options.path = member.path.c_str();
    options.flags = member.model.kind | shape.flags | StoreFlags::kNoSaveOnClose;
    options.initial = shape.initial;
    options.maximum = shape.maximum;
    options.growth = shape.growth;
    options.growthInPercent = shape.percent;
    ASSERT_TRUE(Open(member.store, options));
    member.store.SetMoveToTailOnAccess(member.model.moveToTail);
  }

  // Most steps are on entries; a step in two thousand is on the whole store, so that stores come to be full.
  void Step() {
    const u32 action = Below(2000);
    if (action < 1000) {
      ApplyAll(true, Below(50) != 0);
    } else if (action < 1500) {
      ApplyAll(false, Below(50) != 0);
    } else if (action < 1500 + kDeletes) {
      DeleteAll();
    } else if (action < 1990) {
      ApplyAll(true, true);
    } else if (action < 1993) {
      ReserveAll();
    } else if (action < 1995) {
      SetMoveAll(Below(2) == 0);
    } else {
      StepOnFiles(Below(8));
    }
  }
  static constexpr u32 kDeletes = 250;

  void StepOnFiles(u32 action) {
    if (action < 3) {
      SaveAll();
    } else if (action < 5) {
      LoadAll();
    } else if (action < 7) {
      ReopenAll();
    } else {
      ClearAll();
    }
  }

  // A callback that looks, writes or not, and accepts or not.
  void ApplyAll(bool create, bool accept) {
    const u32 number = Below(shape.keyRange);
    std::string value = std::to_string(random() % 100000000000000);
    if (std::is_same_v<decltype(Maker::Make(0)), const char*> && Below(32) == 0) {
      value.resize(100 + Below(400), 'v');
    }
    const std::string* written = Below(3) == 0 ? nullptr : &value;
    for (const auto& member : members) {
      recycled += create && IsFullWithout(*member, number) ? 1 : 0;
      Outcome outcome;
      outcome.done = member->store.Apply(
          Maker::Make(number), create,
          [&](auto& stored, bool isNew, void* /*context*/) {
            outcome.met = GetValue(stored);
            outcome.isNew = isNew;
            return (written == nullptr || SetValue(stored, *written)) && accept;
          },
          nullptr);
      Expect(*member, std::move(outcome), member->model.Apply(number, create, written, accept));
    }
  }
  static bool IsFullWithout(const Member& member, u32 number) {
    return member.model.entries.size() == member.model.maximum && !member.model.Has(number);
  }

  void DeleteAll() {
    const u32 number = Below(shape.keyRange);
    const bool mustExist = Below(2) == 0;
    for (const auto& member : members) {
      Outcome outcome;
      outcome.done = member->store.Delete(Maker::Make(number), mustExist);
      Expect(*member, std::move(outcome), member->model.Delete(number, mustExist));
    }
  }

  void ReserveAll() {
    const u32 wanted = 1 + Below(shape.maximum + 2);
    const bool force = Below(2) == 0;
    for (const auto& member : members) {
      const u32 before = MapDBTestAccess::Capacity(member->store);
      Outcome expected{true, {}, false, {}};
      if (wanted > shape.maximum && !force) {
        expected = {false, {}, false, {"3 velmar.StoreAboveMaximum"}};
      } else if (wanted > shape.maximum && before == shape.maximum) {
        expected = {false, {}, false, {"3 velmar.StoreAtMaximum"}};
      }
      const u32 room = expected.done ? std::max(before, std::min(wanted, shape.maximum)) : before;
      Outcome outcome;
      outcome.done = member->store.Reserve(wanted, force);
      Expect(*member, std::move(outcome), expected);
      EXPECT_EQ(MapDBTestAccess::Capacity(member->store), room);
    }
  }

  void SetMoveAll(bool move) {
    for (const auto& member : members) {
      member->store.SetMoveToTailOnAccess(move);
      member->model.moveToTail = move;
    }
  }

  void ClearAll() {
    for (const auto& member : members) {
      member->model.Clear();
      Expect(*member, {member->store.Clear(), {}, false, {}}, {true, {}, false, {}});
    }
  }

  // The file does not show of what kind the store was that wrote it.
  void SaveAll() {
    for (const auto& member : members) {
      member->model.Save();
      Expect(*member, {member->store.Save(), {}, false, {}}, {true, {}, false, {}});
      if (member->model.entries == members.front()->model.entries) {
        EXPECT_TRUE(FileContent(member->path.c_str()) == FileContent(members.front()->path.c_str()));
      }
    }
  }

  // Into stores that hold something, unless they are empty by chance.
  void LoadAll() {
    const bool clears = (shape.flags & StoreFlags::kClearOnLoadFailure) != 0;
    for (const auto& member : members) {
      const std::size_t before = member->model.entries.size();
      EXPECT_EQ(member->store.Load(), member->model.Load(clears)) << member->path;
      if (before == 0) {
        EXPECT_EQ(log.Lines(1), Lines{});
      }
      log.Clear();
    }
    CompareAll();
  }

  void ReopenAll() {
    for (const auto& member : members) {
      member->store.Uninit();
      OpenStore(*member);
      member->model.Clear();
      EXPECT_TRUE(member->model.Load(false));
    }
    CompareAll();
  }

  void Expect(Member& member, Outcome outcome, const Outcome& expected) {
    outcome.log = log.Lines(1);
    log.Clear();
    if (!(outcome == expected)) {
      ADD_FAILURE() << member.path << ": " << outcome << "\nexpected: " << expected;
    }
    if (member.store.GetCount() != member.model.entries.size()) {
      ADD_FAILURE() << member.path << ": " << member.store.GetCount() << " entries, not "
                    << member.model.entries.size();
    }
  }

  void CheckAll() {
    for (const auto& member : members) {
      SCOPED_TRACE(member->path);
      IndexCheck::Check(member->store, shape.maximum);
    }
  }

  // Whole content. Each value is met in the order of age, which hits leave as it is even where they make entries young.
  void CompareAll() {
    CheckAll();
    for (const auto& member : members) {
      const auto keys = KeysOf(member->store);
      ASSERT_EQ(keys.size(), member->model.entries.size()) << member->path;
      auto key = keys.begin();
      for (const auto& entry : member->model.entries) {
        ASSERT_TRUE(*key++ == Maker::Make(entry.number)) << member->path << ": age of key " << entry.number;
        ASSERT_EQ(Get(member->store, Maker::Make(entry.number)), entry.value) << member->path;
      }
    }
  }

  const Shape shape;
  const Looks looks;
  std::mt19937_64 random;
  LogCapture log;
  std::vector<std::unique_ptr<Member>> members;
  u64 recycled = 0;
};

constexpr u32 kMove = StoreFlags::kMoveToTailOnAccess;
constexpr u32 kSteps = DIFFERENTIAL_STEPS;
constexpr u32 kCheckedSteps = 5000 + DIFFERENTIAL_STEPS / 50;

template <class Maker>
u64 RunChecked(const Shape& shape, u32 steps) {
  Fleet<Maker> fleet(shape, Fleet<Maker>::Looks::kAfterEachStep);
  fleet.Run(steps);
  return fleet.Recycled();
}

template <class Maker>
u64 RunLong(const Shape& shape) {
  Fleet<Maker> fleet(shape, Fleet<Maker>::Looks::kNowAndThen);
  fleet.Run(kSteps);
  return fleet.Recycled();
}

// Every key is legal in a direct table, which so is full only when no new key can come.
TEST(MapDBDifferential, NumbersThatFillATable) {
  EXPECT_EQ(RunLong<DenseNumbers>({0, 40, 7, 0, 40, 0}), 0U);
}

TEST(MapDBDifferential, NumbersRecycledInASmallStore) {
  EXPECT_GT(RunLong<DenseNumbers>({2, 16, 3, 0, 48, StoreFlags::kClearOnLoadFailure}), 0U);
}

TEST(MapDBDifferential, NumbersRecycledByLastUse) {
  EXPECT_GT(RunLong<DenseNumbers>({8, 64, 50, 1, 90, kMove}), 0U);
}

TEST(MapDBDifferential, ScatteredNumbersInALargerStore) {
  EXPECT_GT(RunLong<ScatteredNumbers>({0, 300, 25, 1, 480, 0}), 0U);
}

TEST(MapDBDifferential, WideNumbersThatFillATable) {
  EXPECT_EQ(RunLong<DenseWideNumbers>({40, 40, 1, 0, 40, kMove}), 0U);
}

TEST(MapDBDifferential, WideNumbersRecycledInASmallStore) {
  EXPECT_GT(RunLong<WideNumbers>({0, 16, 5, 0, 60, 0}), 0U);
}

TEST(MapDBDifferential, WideNumbersInALargerStore) {
  EXPECT_GT(
      RunLong<WideNumbers>({4, 300, 40, 0, 480, kMove | StoreFlags::kClearOnLoadFailure | StoreFlags::kNoCompression}),
      0U);
}

TEST(MapDBDifferential, TextsRecycledInASmallStore) {
  EXPECT_GT(RunLong<Texts>({0, 16, 3, 0, 48, StoreFlags::kClearOnLoadFailure}), 0U);
}

TEST(MapDBDifferential, TextsInALargerStore) {
  EXPECT_GT(RunLong<Texts>({2, 200, 25, 1, 320, kMove | StoreFlags::kThreadSafe}), 0U);
}

TEST(MapDBDifferential, TextsWithTextsForValues) {
  EXPECT_GT(RunLong<TextsOfTexts>({0, 60, 3, 0, 100, 0}), 0U);
}

TEST(MapDBDifferential, StoresOfOneAndOfThree) {
  for (const u32 flags : {0U, kMove}) {
    EXPECT_GT(RunChecked<DenseNumbers>({0, 1, 1, 0, 3, flags}, kSteps / 20), 0U);
    EXPECT_GT(RunChecked<DenseNumbers>({2, 3, 1, 0, 8, flags}, kSteps / 20), 0U);
    EXPECT_GT(RunChecked<WideNumbers>({0, 1, 1, 1, 3, flags}, kSteps / 20), 0U);
    EXPECT_GT(RunChecked<WideNumbers>({3, 3, 1, 0, 10, flags}, kSteps / 20), 0U);
    EXPECT_GT(RunChecked<Texts>({0, 1, 1, 0, 3, flags}, kSteps / 20), 0U);
    EXPECT_GT(RunChecked<Texts>({2, 3, 50, 1, 8, flags}, kSteps / 20), 0U);
  }
}

// Shorter, with the whole structure of chains and indexes looked at after each step. The hash tables overflow.
TEST(MapDBDifferential, StructureOfNumbersAfterEachStep) {
  RunChecked<DenseNumbers>({0, 260, 20, 0, 400, 0}, kCheckedSteps);
}

TEST(MapDBDifferential, StructureOfWideNumbersAfterEachStep) {
  RunChecked<WideNumbers>({3, 260, 30, 1, 400, kMove}, kCheckedSteps);
}

TEST(MapDBDifferential, StructureOfTextsAfterEachStep) {
  RunChecked<Texts>({0, 120, 5, 0, 200, kMove}, kCheckedSteps);
}

}  // namespace
