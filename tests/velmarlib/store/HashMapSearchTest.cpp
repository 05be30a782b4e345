// The hash map as an index.
#include "Velmar/Utils/HashMapSearch.h"

#include <cstdio>
#include <cstring>
#include <random>

#include "Velmar/Utils/SignedFnv1a.h"
#include "platform/sim/Sim.h"
#include "tests/velmarlib/store/HashMapCheck.h"
#include "tests/velmarlib/store/SearchTest.h"

namespace {

using HashMapCheck::Access;
using HashMapCheck::Memory;
using SearchTest::Entries;
using SearchTest::InsertAll;
using SearchTest::SearchTestAccess;
using namespace Velmar;
using Types::UInt128;
using Lines = std::vector<std::string>;
using NumberSearch = Utils::HashMapSearch<u32>;
using WideSearch = Utils::HashMapSearch<UInt128>;

// As published, for comparison.
u64 PublishedFnv1a(const std::string& bytes) {
  u64 hash = 0xCBF29CE484222325U;
  for (const char byte : bytes) {
    hash = (hash ^ static_cast<u8>(byte)) * 0x100000001B3U;
  }
  return hash;
}

u64 Signed(const std::string& bytes) {
  return Utils::SignedFnv1a(bytes.data(), bytes.size());
}

UInt128 WideKey(const u8 (&bytes)[16]) {
  UInt128 key;
  std::memcpy(&key, bytes, sizeof(key));
  return key;
}

// Keys below 16384 numbers that the hash tells apart: their bytes have the same signs.
u32 DistinctKey(u32 number) {
  return 0x81000000U | number / 128 << 8 | number % 128;
}

// Two keys that the hash cannot tell apart.
const UInt128 kTwin =
    WideKey({0x20, 0x03, 0x3f, 0x6e, 0x39, 0x3d, 0x60, 0x09, 0x0c, 0x3e, 0x03, 0x7e, 0x31, 0x1b, 0x5c, 0x00});
const UInt128 kOtherTwin =
    WideKey({0x26, 0x01, 0x6c, 0x7e, 0x60, 0x42, 0x23, 0x0f, 0x0c, 0x08, 0x08, 0x17, 0x75, 0x33, 0x7b, 0x05});

TEST(SignedFnv1a, BytesBelow0x80HashAsPublished) {
  EXPECT_EQ(Signed(""), 0xCBF29CE484222325U);
  EXPECT_EQ(Signed("a"), 0xAF63DC4C8601EC8CU);
  EXPECT_EQ(Signed("foobar"), 0x85944171F73967E8U);
  EXPECT_EQ(Signed("chongo was here!\n"), 0x46810940EFF5F915U);
  EXPECT_EQ(Signed(std::string("\x7F\0\x01", 3)), PublishedFnv1a(std::string("\x7F\0\x01", 3)));
}

TEST(SignedFnv1a, BytesFrom0x80FlipTheUpperBitsToo) {
  const std::string published("\xFF\0\0\x01", 4);
  ASSERT_EQ(PublishedFnv1a(published), 0x6961196491CC682DU);
  EXPECT_NE(Signed(published), 0x6961196491CC682DU);
  constexpr u64 kPrime = 0x100000001B3U;
  EXPECT_EQ(Signed("\x80"), (0xCBF29CE484222325U ^ 0xFFFFFFFFFFFFFF80U) * kPrime);
  for (u32 byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    EXPECT_EQ(Signed(text) == PublishedFnv1a(text), byte < 0x80) << byte;
  }
}

TEST(HashMapSearch, WithoutAMapEveryKeyIsAtLocation0) {
  NumberSearch search;
  LogCapture log;
  EXPECT_EQ(search.GetLocation(5, nullptr), 0U);
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexMapMissing"});
  log.Clear();
  EXPECT_FALSE(search.InsertNewElement(1));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.HashMapNotCreated"});
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  EXPECT_EQ(search.GetLocation(5, nullptr), kNone);
  search.Destroy();
  log.Clear();
  EXPECT_EQ(search.GetLocation(5, nullptr), 0U);
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexMapMissing"});
}

TEST(HashMapSearch, KeysAreFoundAtTheirLocations) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 1000, nullptr));
  std::vector<u32> keys;
  for (u32 i = 0; i < 1000; ++i) {
    keys.push_back(DistinctKey(i));
  }
  const auto entries = Entries<u32>(keys);
  InsertAll(search, entries);
  for (u32 i = 0; i < 1000; ++i) {
    ASSERT_EQ(search.GetLocation(keys[i], nullptr), i);
  }
  EXPECT_EQ(search.GetLocation(0xFFFFFFFFU, nullptr), kNone);
  EXPECT_GT(Access::Of(SearchTestAccess::Map(search)).tableSize, 53U);
  Access::Check(SearchTestAccess::Map(search));
}

TEST(HashMapSearch, HashIsOverTheBytesOfTheKey) {
  NumberSearch numbers;
  WideSearch wide;
  ASSERT_TRUE(numbers.Init(1, 4, nullptr));
  ASSERT_TRUE(wide.Init(1, 4, nullptr));
  numbers.GetLocation(0x64636281U, nullptr);
  EXPECT_EQ(SearchTestAccess::LastHash(numbers), Signed("\x81"
                                                        "bcd"));
  const UInt128 key{{0x8102030405060708U, 0x1112131415161718U}};
  wide.GetLocation(key, nullptr);
  EXPECT_EQ(SearchTestAccess::LastHash(wide), Utils::SignedFnv1a(&key, 16));
}

TEST(HashMapSearch, WideKeysThatDifferInOneWordAreTwoKeys) {
  WideSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  const auto entries = Entries<UInt128>(std::vector<UInt128>{{{1, 2}}, {{1, 3}}, {{2, 2}}});
  InsertAll(search, entries);
  EXPECT_EQ(search.GetLocation(UInt128{{1, 3}}, nullptr), 1U);
  EXPECT_EQ(search.GetLocation(UInt128{{2, 2}}, nullptr), 2U);
}

TEST(HashMapSearch, KeysWithEqualHashesAreOneKey) {
  ASSERT_NE(kTwin, kOtherTwin);
  ASSERT_EQ(Utils::SignedFnv1a(&kTwin, 16), Utils::SignedFnv1a(&kOtherTwin, 16));
  WideSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  ASSERT_EQ(search.GetLocation(kTwin, nullptr), kNone);
  ASSERT_TRUE(search.InsertNewElement(3));
  EXPECT_EQ(search.GetLocation(kOtherTwin, nullptr), 3U);
  u32 location = kNone;
  bool notFound = true;
  EXPECT_TRUE(search.Delete(kOtherTwin, nullptr, location, notFound));
  EXPECT_EQ(location, 3U);
  EXPECT_FALSE(notFound);
  EXPECT_EQ(search.GetLocation(kTwin, nullptr), kNone);
}

// The extension of the sign makes such pairs common: a byte from 0x80 complements the upper 57 bits, and a second one
// turns them back.
TEST(HashMapSearch, NumbersOfUnlikeSignsCanHaveEqualHashes) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  ASSERT_EQ(search.GetLocation(0x7E7E7E7E, nullptr), kNone);
  ASSERT_TRUE(search.InsertNewElement(3));
  EXPECT_EQ(search.GetLocation(0x80808080, nullptr), 3U);
}

TEST(HashMapSearch, LocationInTheIndexIsTheHashOfThereAndAbsentKeys) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  const u32 key = 7;
  const auto hash = static_cast<u32>(Utils::SignedFnv1a(&key, 4));
  LogCapture log;
  EXPECT_EQ(search.GetLocationOfIndex(key, nullptr), hash);
  search.GetLocation(key, nullptr);
  ASSERT_TRUE(search.InsertNewElement(0));
  EXPECT_EQ(search.GetLocationOfIndex(key, nullptr), hash);
  EXPECT_EQ(log.Lines(1), Lines{});
}

TEST(HashMapSearch, DeleteReportsTheLocationAndAnAbsentKeyIsAnError) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  search.GetLocation(7, nullptr);
  ASSERT_TRUE(search.InsertNewElement(9));
  u32 location = kNone;
  bool notFound = true;
  LogCapture log;
  EXPECT_TRUE(search.Delete(7, nullptr, location, notFound));
  EXPECT_EQ(location, 9U);
  EXPECT_FALSE(notFound);
  EXPECT_EQ(log.Lines(1), Lines{});
  location = 77;
  EXPECT_FALSE(search.Delete(7, nullptr, location, notFound));
  EXPECT_TRUE(notFound);
  EXPECT_EQ(location, 77U);
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexKeyAbsent"});
}

TEST(HashMapSearch, CompactingAndGrowingHaveNothingToDo) {
  Memory memory;
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  const u64 allocations = memory.Allocations();
  EXPECT_TRUE(search.CompactDeleted());
  EXPECT_TRUE(search.Grow(1000000, 1000000));
  EXPECT_EQ(memory.Allocations(), allocations);
}

TEST(HashMapSearch, MarkingTakesThePositionForAHashAndDeletes) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  SearchTestAccess::LookUpHash(search, 7);
  ASSERT_TRUE(search.InsertNewElement(0));
  LogCapture log;
  EXPECT_TRUE(search.MarkKeyAsDeleted(7));
  EXPECT_EQ(log.Lines(1), Lines{});
  EXPECT_EQ(SearchTestAccess::Map(search).GetCount(), 0U);
  EXPECT_FALSE(search.MarkKeyAsDeleted(7));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexPositionOutOfRange"});
  EXPECT_TRUE(search.CompactDeleted());
}

TEST(HashMapSearch, MarkingAKeyWhoseHashIsLongerThanAPositionFails) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  search.GetLocation(5, nullptr);
  ASSERT_TRUE(search.InsertNewElement(2));
  LogCapture log;
  EXPECT_FALSE(search.MarkKeyAsDeleted(search.GetLocationOfIndex(5, nullptr)));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexPositionOutOfRange"});
  EXPECT_EQ(search.GetLocation(5, nullptr), 2U);
}

TEST(HashMapSearch, RecyclingPutsTheNewKeyInTheOldOnesPlace) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  const auto entries = Entries<u32>(std::vector<u32>{10, 20});
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(30, entries.data()), kNone);
  LogCapture log;
  EXPECT_TRUE(search.OverwriteOldElement(0, entries.data()));
  EXPECT_EQ(log.Lines(1), Lines{});
  EXPECT_EQ(search.GetLocation(30, entries.data()), 0U);
  EXPECT_EQ(search.GetLocation(10, entries.data()), kNone);
  EXPECT_EQ(search.GetLocation(20, entries.data()), 1U);
  EXPECT_EQ(SearchTestAccess::Map(search).GetCount(), 2U);
}

TEST(HashMapSearch, RecyclingAnEntryThatIsNotInTheIndexIsAnError) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  const auto entries = Entries<u32>(std::vector<u32>{10});
  search.GetLocation(30, entries.data());
  LogCapture log;
  EXPECT_FALSE(search.OverwriteOldElement(0, entries.data()));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexKeyAbsent"});
  EXPECT_EQ(search.GetLocation(30, entries.data()), kNone);
}

TEST(HashMapSearch, RecyclingForAKeyThatIsThereIsAnErrorAndKeepsBoth) {
  NumberSearch search;
  ASSERT_TRUE(search.Init(1, 4, nullptr));
  const auto entries = Entries<u32>(std::vector<u32>{10, 20});
  InsertAll(search, entries);
  ASSERT_EQ(search.GetLocation(20, entries.data()), 1U);
  LogCapture log;
  EXPECT_FALSE(search.OverwriteOldElement(0, entries.data()));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexKeyNotReplaced"});
  EXPECT_EQ(search.GetLocation(10, entries.data()), 0U);
  EXPECT_EQ(search.GetLocation(20, entries.data()), 1U);
}

TEST(HashMapSearch, RecyclingWithoutMemoryKeepsTheOldKey) {
  const char* const records[] = {"3 velmar.HashMapNoMemoryForValue", "3 velmar.HashMapNoMemoryForBucket"};
  const auto entries = Entries<u32>(std::vector<u32>{10, 20});
  for (u32 n = 0; n < 2; ++n) {
    Memory memory;
    NumberSearch search;
    ASSERT_TRUE(search.Init(1, 4, nullptr));
    InsertAll(search, entries);
    ASSERT_EQ(search.GetLocation(31, entries.data()), kNone);
    memory.FailFrom(n);
    LogCapture log;
    EXPECT_FALSE(search.OverwriteOldElement(0, entries.data()));
    EXPECT_EQ(log.Lines(), (Lines{records[n], "5 velmar.IndexKeyNotReplaced"}));
    EXPECT_EQ(search.GetLocation(10, entries.data()), 0U);
    EXPECT_EQ(search.GetLocation(31, entries.data()), kNone);
    Access::Check(SearchTestAccess::Map(search), &memory);
  }
}

TEST(HashMapSearch, InitFailsWithARecordForEachCause) {
  Memory memory;
  NumberSearch search;
  LogCapture log;
  EXPECT_FALSE(search.Init(18049698, 18049698, nullptr));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexCapacityTooLarge"});
  EXPECT_EQ(log.Arguments("velmar.IndexCapacityTooLarge"), (std::vector<std::string>{"18049698", "18049697"}));
  log.Clear();
  Sim::FailMutexCreate(1);
  EXPECT_FALSE(search.Init(1, 4, nullptr));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.IndexMapNotSetUp"});
  const char* const records[] = {"3 velmar.HashMapNoMemoryForTable", "5 velmar.HashMapNoMemoryForBits"};
  for (u32 n = 0; n < 2; ++n) {
    log.Clear();
    memory.FailFrom(n);
    EXPECT_FALSE(search.Init(1, 4, nullptr));
    EXPECT_EQ(log.Lines(), (Lines{records[n], "5 velmar.IndexMapNotSetUp"}));
    EXPECT_EQ(memory.Out(), 0U);
  }
  EXPECT_TRUE(search.Init(1, 18049698, nullptr)) << "the maximum does not count";
}

TEST(HashMapSearch, ClearKeepsTheGrownTableAndDestroyFreesIt) {
  Memory memory;
  NumberSearch search;
  ASSERT_TRUE(search.Init(60, 1000, nullptr));
  EXPECT_EQ(search.GetMemoryUsage(), 107U * 16 + 14 + 96);
  for (u32 key = 0; key < 1000; ++key) {
    search.GetLocation(key, nullptr);
    ASSERT_TRUE(search.InsertNewElement(key));
  }
  const u32 size = Access::Of(SearchTestAccess::Map(search)).tableSize;
  EXPECT_GT(size, 107U);
  search.Clear();
  EXPECT_EQ(search.GetMemoryUsage(), size * 16 + (size + 7) / 8 + 96);
  EXPECT_EQ(search.GetLocation(3, nullptr), kNone);
  EXPECT_TRUE(search.InsertNewElement(1));
  search.Destroy();
  EXPECT_EQ(memory.Out(), 0U);
  EXPECT_EQ(search.GetMemoryUsage(), 96U);
}

// As a store of 200 entries drives its index, recycling when it is full.
TEST(HashMapSearch, RandomRunsAgreeWithAMap) {
  for (u64 seed = 1; seed <= 3; ++seed) {
    std::printf("seed %llu\n", static_cast<unsigned long long>(seed));
    Memory memory;
    NumberSearch search;
    ASSERT_TRUE(search.Init(1, 200, nullptr));
    std::mt19937_64 random(seed);
    std::map<u32, u32> model;
    std::vector<Collections::DB::KeyTraits<u32>::Node> entries(200);
    u32 used = 0;
    for (int step = 0; step < 3000 && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
      const auto key = DistinctKey(static_cast<u32>(random() % 600));
      const u32 location = search.GetLocation(key, entries.data());
      ASSERT_EQ(location, model.count(key) != 0 ? model[key] : kNone);
      if (location == kNone && used < 200) {
        ASSERT_TRUE(search.InsertNewElement(used));
        model[key] = used;
        entries[used++].key = key;
      } else if (location == kNone) {
        const auto recycled = static_cast<u32>(random() % 200);
        ASSERT_TRUE(search.OverwriteOldElement(recycled, entries.data()));
        model.erase(entries[recycled].key);
        model[key] = recycled;
        entries[recycled].key = key;
      } else if (random() % 4 == 0 && location + 1 == used) {
        u32 deleted = kNone;
        bool notFound = true;
        ASSERT_TRUE(search.Delete(key, entries.data(), deleted, notFound));
        ASSERT_EQ(deleted, location);
        model.erase(key);
        --used;
      } else if (random() % 1000 == 0) {
        search.Clear();
        model.clear();
        used = 0;
      }
      EXPECT_EQ(SearchTestAccess::Map(search).GetCount(), model.size());
      Access::Check(SearchTestAccess::Map(search), &memory);
    }
  }
}

}  // namespace
