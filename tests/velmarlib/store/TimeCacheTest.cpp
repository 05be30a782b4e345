// A store whose entries expire.
#include <atomic>
#include <thread>

#include "Velmar/Collections/Caches/TimeCacheBasicTypeWrapper.h"
#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace Velmar::Collections::Caches::Base {

struct TimeCacheTestAccess {
  template <class Cache>
  static auto& Store(Cache& cache) {
    return cache.store;
  }
  template <class Cache>
  static bool HasMutex(const Cache& cache) {
    return cache.mutex != nullptr;
  }
};

}  // namespace Velmar::Collections::Caches::Base

namespace Velmar::Collections::DB {

// An index that finds and never deletes.
template <class K>
class StubbornSearch final : public Base::ISearchInterface<K> {
 public:
  using Node = typename KeyTraits<K>::Node;
  using Key = typename KeyTraits<K>::Argument;

  explicit StubbornSearch(Base::ISearchInterface<K>* wrapped) : inner(wrapped) {}
  ~StubbornSearch() override { Collections::Delete(inner); }
  u32 GetLocation(Key key, const Node* entries) override { return inner->GetLocation(key, entries); }
  u32 GetLocationOfIndex(Key key, const Node* entries) override { return inner->GetLocationOfIndex(key, entries); }
  bool Delete(Key /*key*/, const Node* /*entries*/, u32& /*location*/, bool& /*notFound*/) override { return false; }
  bool CompactDeleted() override { return inner->CompactDeleted(); }
  bool MarkKeyAsDeleted(u32 position) override { return inner->MarkKeyAsDeleted(position); }
  bool Grow(u32 capacity, u32 maximum) override { return inner->Grow(capacity, maximum); }
  void Destroy() override { inner->Destroy(); }
  void Clear() override { inner->Clear(); }
  bool Init(u32 initial, u32 maximum, const void* with) override { return inner->Init(initial, maximum, with); }
  bool InsertNewElement(u32 location) override { return inner->InsertNewElement(location); }
  bool OverwriteOldElement(u32 location, const Node* entries) override {
    return inner->OverwriteOldElement(location, entries);
  }
  u32 GetMemoryUsage() const override { return inner->GetMemoryUsage(); }

 private:
  Base::ISearchInterface<K>* inner;
};

}  // namespace Velmar::Collections::DB

namespace {

using namespace StoreTest;
using Access = Caches::Base::TimeCacheTestAccess;

constexpr u64 kNow = 1700000000000;
constexpr u64 kMinute = 60000;
constexpr u64 kHour = 60 * kMinute;

struct CacheOptions {
  u32 initial = 2;
  u32 maximum = 3;
  u32 growth = 1;
  u64 shortest = kMinute;
  u64 longest = kHour;
  const char* path = nullptr;
  u32 flags = StoreFlags::kBinarySearch;
};

template <class K>
class TimeCacheTest : public testing::Test {
 protected:
  using Cache = Caches::Base::TimeCacheBasicTypeWrapper<K, bool>;

  TimeCacheTest() {
    MakeFolder();
    Sim::SetEpochTime(kNow);
  }

  static bool OpenCache(Cache& cache, const CacheOptions& options = {}) {
    return cache.Init(options.initial, options.maximum, options.growth, options.shortest, options.longest, options.path,
                      1, options.flags);
  }
  static K Key(u32 number) {
    if constexpr (sizeof(K) == sizeof(u32)) {
      return number;
    } else {
      return K{{7, number}};
    }
  }
  static CacheOptions OnDisk() {
    CacheOptions options;
    options.path = kPath;
    return options;
  }
  // The entry as it is stored.
  static TimeCacheValue Entry(Cache& cache, u32 key) {
    TimeCacheValue entry{};
    EXPECT_TRUE(Access::Store(cache).Apply(
        Key(key), false,
        [&entry](TimeCacheValue& value, bool /*isNew*/, void* /*context*/) {
          entry = value;
          return true;
        },
        nullptr));
    return entry;
  }
  // What Get says, without its side effect on `value`: "true 5", "false 0", or "missing" with what it left.
  static std::string Read(Cache& cache, u32 key) {
    bool value = false;
    u64 remaining = 0;
    if (cache.Get(Key(key), value, &remaining)) {
      return (value ? "true " : "false ") + std::to_string(remaining);
    }
    return "missing";
  }
  static std::vector<u32> Ages(Cache& cache) {
    std::vector<u32> ages;
    for (const K& key : KeysOf(Access::Store(cache))) {
      for (u32 number = 0; number < 100; ++number) {
        if (key == Key(number)) {
          ages.push_back(number);
        }
      }
    }
    return ages;
  }
};

using KeyTypes = testing::Types<u32, Types::UInt128>;
TYPED_TEST_SUITE(TimeCacheTest, KeyTypes, );

TYPED_TEST(TimeCacheTest, ShortestTimeNotBelowTheLongestIsRefused) {
  for (const u64 longest : {kHour, kHour - 1}) {
    typename TestFixture::Cache cache;
    LogCapture log;
    CacheOptions options;
    options.shortest = kHour;
    options.longest = longest;
    EXPECT_FALSE(this->OpenCache(cache, options));
    EXPECT_EQ(log.Lines(1), Lines{"3 velmar.CacheTimesNotInOrder"});
    EXPECT_EQ(log.Arguments("velmar.CacheTimesNotInOrder"), (Lines{std::to_string(kHour), std::to_string(longest)}));
    EXPECT_FALSE(Access::Store(cache).IsInitialised());
  }
}

TYPED_TEST(TimeCacheTest, ShortestTimeBelowASecondIsRefused) {
  typename TestFixture::Cache cache;
  LogCapture log;
  CacheOptions options;
  options.shortest = 999;
  EXPECT_FALSE(this->OpenCache(cache, options));
  EXPECT_EQ(log.Lines(1), Lines{"3 velmar.CacheTimeTooShort"});
  EXPECT_EQ(log.Arguments("velmar.CacheTimeTooShort"), Lines{"999"});
  EXPECT_FALSE(Access::Store(cache).IsInitialised());
  options.shortest = 1000;
  options.longest = 1001;
  EXPECT_TRUE(this->OpenCache(cache, options));
}

TYPED_TEST(TimeCacheTest, OrderOfTheTimesIsLookedAtFirst) {
  typename TestFixture::Cache cache;
  LogCapture log;
  CacheOptions options;
  options.shortest = 999;
  options.longest = 999;
  EXPECT_FALSE(this->OpenCache(cache, options));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.CacheTimesNotInOrder"});
}

TYPED_TEST(TimeCacheTest, StoreThatDoesNotOpenIsAWarning) {
  typename TestFixture::Cache cache;
  LogCapture log;
  CacheOptions options = this->OnDisk();
  options.growth = 0;
  EXPECT_FALSE(this->OpenCache(cache, options));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreGrowthIsZero", "3 velmar.CacheStoreNotOpened"}));
  EXPECT_EQ(log.Arguments("velmar.CacheStoreNotOpened"), Lines{kPath});
  options.growth = 1;
  EXPECT_TRUE(this->OpenCache(cache, options)) << "can be initialised again";
}

TYPED_TEST(TimeCacheTest, LockIsTheCachesAndNotTheStores) {
  typename TestFixture::Cache unlocked;
  ASSERT_TRUE(this->OpenCache(unlocked));
  EXPECT_FALSE(Access::HasMutex(unlocked));
  typename TestFixture::Cache locked;
  CacheOptions options;
  options.flags |= StoreFlags::kThreadSafe;
  ASSERT_TRUE(this->OpenCache(locked, options));
  EXPECT_TRUE(Access::HasMutex(locked));
  EXPECT_FALSE(MapDBTestAccess::HasMutex(Access::Store(locked)));
}

TYPED_TEST(TimeCacheTest, WithoutAMutexTheStoreIsGivenUp) {
  typename TestFixture::Cache cache;
  LogCapture log;
  CacheOptions options = this->OnDisk();
  options.flags |= StoreFlags::kThreadSafe;
  Sim::FailMutexCreate(1);
  EXPECT_FALSE(this->OpenCache(cache, options));
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.CacheMutexFailed"});
  EXPECT_FALSE(Access::Store(cache).IsInitialised());
  EXPECT_FALSE(FileIsThere(kPath)) << "what is given up is not saved";
  EXPECT_TRUE(this->OpenCache(cache, options)) << "can be initialised again";
}

TYPED_TEST(TimeCacheTest, TimeToLiveIsBroughtWithinItsBounds) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  struct Case {
    u64 asked;
    u64 given;
  };
  for (const Case& one : {Case{0, kMinute}, Case{kMinute - 1, kMinute}, Case{kMinute + 1, kMinute + 1},
                          Case{kHour - 1, kHour - 1}, Case{kHour + 1, kHour}, Case{~u64{0}, kHour}}) {
    EXPECT_TRUE(cache.Set(this->Key(1), true, one.asked, false));
    const TimeCacheValue entry = this->Entry(cache, 1);
    EXPECT_EQ(entry.timeToLive, one.given);
    EXPECT_EQ(entry.expiry, kNow + one.given);
    EXPECT_TRUE(entry.object.value);
  }
}

TYPED_TEST(TimeCacheTest, EndPastTheLastMillisecondIsThatOne) {
  typename TestFixture::Cache cache;
  CacheOptions options;
  options.longest = ~u64{0};
  ASSERT_TRUE(this->OpenCache(cache, options));
  ASSERT_TRUE(cache.Set(this->Key(1), true, ~u64{0}, false));
  EXPECT_EQ(this->Entry(cache, 1).expiry, ~u64{0});
  EXPECT_EQ(this->Read(cache, 1), "true " + std::to_string(~u64{0} - kNow));
}

TYPED_TEST(TimeCacheTest, EntryLivesUpToAndWithTheMillisecondOfItsEnd) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, false));
  ASSERT_TRUE(cache.Set(this->Key(2), false, 2 * kMinute, false));
  LogCapture log;
  EXPECT_EQ(this->Read(cache, 1), "true " + std::to_string(kMinute));
  Sim::SetEpochTime(kNow + kMinute - 1);
  EXPECT_EQ(this->Read(cache, 1), "true 1");
  Sim::SetEpochTime(kNow + kMinute);
  EXPECT_EQ(this->Read(cache, 1), "true 0");
  EXPECT_EQ(this->Read(cache, 2), "false " + std::to_string(kMinute));
  Sim::SetEpochTime(kNow + kMinute + 1);
  EXPECT_EQ(cache.GetCount(), 2U) << "counts until it is met";
  bool value = false;
  u64 remaining = 77;
  EXPECT_FALSE(cache.Get(this->Key(1), value, &remaining));
  EXPECT_FALSE(value) << "not copied";
  EXPECT_EQ(remaining, 0U);
  EXPECT_EQ(cache.GetCount(), 1U) << "removed";
  EXPECT_EQ(this->Ages(cache), std::vector<u32>{2});
  EXPECT_TRUE(log.Entries().empty());
}

TYPED_TEST(TimeCacheTest, MissingKeyLeavesTheOutputsAlone) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  LogCapture log;
  for (const bool before : {false, true}) {
    bool value = before;
    u64 remaining = 77;
    EXPECT_FALSE(cache.Get(this->Key(1), value, &remaining));
    EXPECT_EQ(value, before);
    EXPECT_EQ(remaining, 77U);
  }
  EXPECT_EQ(cache.GetCount(), 0U);
  EXPECT_TRUE(log.Entries().empty());
}

TYPED_TEST(TimeCacheTest, RemainingTimeNeedNotBeAskedFor) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, false));
  bool value = false;
  EXPECT_TRUE(cache.Get(this->Key(1), value, nullptr));
  EXPECT_TRUE(value);
  Sim::AdvanceTime(kMinute + 1);
  EXPECT_FALSE(cache.Get(this->Key(1), value, nullptr));
}

TYPED_TEST(TimeCacheTest, SetReplacesValueAndEndUnlessTheyAreToStay) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true)) << "a new key is written all the same";
  Sim::SetEpochTime(kNow + 1000);
  EXPECT_TRUE(cache.Set(this->Key(1), false, kHour, true));
  TimeCacheValue entry = this->Entry(cache, 1);
  EXPECT_EQ(entry.expiry, kNow + kMinute);
  EXPECT_EQ(entry.timeToLive, kMinute);
  EXPECT_TRUE(entry.object.value);
  EXPECT_TRUE(cache.Set(this->Key(1), false, kHour, false));
  entry = this->Entry(cache, 1);
  EXPECT_EQ(entry.expiry, kNow + 1000 + kHour);
  EXPECT_EQ(entry.timeToLive, kHour);
  EXPECT_FALSE(entry.object.value);
}

TYPED_TEST(TimeCacheTest, EveryWriteMakesAnEntryTheNewestAndNoReadDoes) {
  typename TestFixture::Cache cache;
  CacheOptions options;
  options.flags |= StoreFlags::kMoveToTailOnAccess;
  ASSERT_TRUE(this->OpenCache(cache, options));
  for (const u32 number : {1U, 2U, 3U}) {
    ASSERT_TRUE(cache.Set(this->Key(number), true, kMinute, true));
  }
  EXPECT_EQ(this->Read(cache, 1), "true 60000");
  EXPECT_EQ(this->Ages(cache), (std::vector<u32>{1, 2, 3})) << "not by a read, whatever the flags said";
  EXPECT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  EXPECT_EQ(this->Ages(cache), (std::vector<u32>{2, 3, 1})) << "also when the entry stays as it is";
  EXPECT_TRUE(cache.Set(this->Key(2), true, kMinute, false));
  EXPECT_EQ(this->Ages(cache), (std::vector<u32>{3, 1, 2}));
  EXPECT_EQ(this->Read(cache, 3), "true 60000");
  EXPECT_TRUE(cache.Set(this->Key(4), true, kMinute, true));
  EXPECT_EQ(this->Ages(cache), (std::vector<u32>{1, 2, 4})) << "a full store recycles its oldest";
}

TYPED_TEST(TimeCacheTest, FailedSetIsAWarningAndReadsGoOnMovingNothing) {
  TestAllocator memory;
  typename TestFixture::Cache cache;
  CacheOptions options;
  options.maximum = 9;
  ASSERT_TRUE(this->OpenCache(cache, options));
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  ASSERT_TRUE(cache.Set(this->Key(2), true, kMinute, true));
  LogCapture log;
  memory.FailRequest(0);
  EXPECT_FALSE(cache.Set(this->Key(3), true, kMinute, true));
  EXPECT_EQ(log.Lines(3).back(), "3 velmar.CacheEntryNotSet");
  EXPECT_EQ(log.Count("velmar.CacheEntryNotSet"), 1);
  EXPECT_EQ(this->Read(cache, 1), "true 60000");
  EXPECT_EQ(this->Ages(cache), (std::vector<u32>{1, 2}));
}

TYPED_TEST(TimeCacheTest, CacheThatIsNotInitialisedKnowsAndTakesNothing) {
  typename TestFixture::Cache cache;
  LogCapture log;
  EXPECT_FALSE(cache.Set(this->Key(1), true, kMinute, false));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreNotInitialised", "3 velmar.CacheEntryNotSet"}));
  EXPECT_EQ(this->Read(cache, 1), "missing");
  EXPECT_FALSE(cache.Delete(this->Key(1), false));
  EXPECT_EQ(cache.GetCount(), 0U);
}

TYPED_TEST(TimeCacheTest, ExpiredEntryThatIsToStayStaysExpired) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  Sim::SetEpochTime(kNow + kMinute + 1);
  EXPECT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  EXPECT_EQ(this->Entry(cache, 1).expiry, kNow + kMinute);
  EXPECT_EQ(cache.GetCount(), 1U);
  EXPECT_EQ(this->Read(cache, 1), "missing");
  EXPECT_EQ(cache.GetCount(), 0U);
  EXPECT_TRUE(cache.Set(this->Key(1), false, kMinute, true)) << "now it is a new key";
  EXPECT_EQ(this->Read(cache, 1), "false 60000");
}

TYPED_TEST(TimeCacheTest, ExpiredEntryThatCannotBeRemovedIsAWarningAndCountsAsMissing) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  MapDBTestAccess::ReplaceIndex<StubbornSearch<TypeParam>>(Access::Store(cache));
  Sim::SetEpochTime(kNow + kMinute + 1);
  LogCapture log;
  EXPECT_EQ(this->Read(cache, 1), "missing");
  EXPECT_EQ(log.Lines(1), Lines{"3 velmar.CacheEntryNotRemoved"});
  EXPECT_EQ(cache.GetCount(), 1U);
}

TYPED_TEST(TimeCacheTest, DeleteIsTheStores) {
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache));
  EXPECT_FALSE(cache.Delete(this->Key(1), false)) << "an empty store";
  ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  ASSERT_TRUE(cache.Set(this->Key(2), true, kMinute, true));
  EXPECT_TRUE(cache.Delete(this->Key(3), false));
  EXPECT_FALSE(cache.Delete(this->Key(3), true));
  EXPECT_TRUE(cache.Delete(this->Key(1), true));
  EXPECT_EQ(cache.GetCount(), 1U);
  EXPECT_EQ(this->Read(cache, 1), "missing");
}

TYPED_TEST(TimeCacheTest, EntriesSurviveARestartAndKeepTheirEnd) {
  {
    typename TestFixture::Cache cache;
    ASSERT_TRUE(this->OpenCache(cache, this->OnDisk()));
    ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
    ASSERT_TRUE(cache.Set(this->Key(2), false, kHour, true));
  }
  Sim::SetEpochTime(kNow + kMinute + 1);
  typename TestFixture::Cache cache;
  ASSERT_TRUE(this->OpenCache(cache, this->OnDisk()));
  EXPECT_EQ(cache.GetCount(), 2U);
  EXPECT_EQ(this->Read(cache, 2), "false " + std::to_string(kHour - kMinute - 1));
  EXPECT_EQ(this->Entry(cache, 2).timeToLive, kHour);
  EXPECT_EQ(this->Read(cache, 1), "missing");
  EXPECT_EQ(cache.GetCount(), 1U);
}

TYPED_TEST(TimeCacheTest, RecordInTheFileHas17Bytes) {
  {
    typename TestFixture::Cache cache;
    CacheOptions options = this->OnDisk();
    options.flags |= StoreFlags::kNoCompression;
    ASSERT_TRUE(this->OpenCache(cache, options));
    ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  }
  const StoreBytes::StoreFile file = StoreBytes::Parse(FileContent(kPath));
  EXPECT_EQ(file.entryCount, 1U);
  EXPECT_EQ(file.keyEntrySize, sizeof(TypeParam));
  const std::string record = StoreBytes::CacheRecord(kNow + kMinute, kMinute, true);
  EXPECT_EQ(record.substr(0, 4), StoreBytes::Word(17));
  EXPECT_EQ(file.pages, Lines{record});
}

TYPED_TEST(TimeCacheTest, BinderIsTheStores) {
  AddingBinder binder;
  const u32 flags = StoreFlags::kBinarySearch | StoreFlags::kCipherRequired;
  {
    typename TestFixture::Cache cache;
    ASSERT_TRUE(cache.Init(2, 3, 1, kMinute, kHour, kPath, 1, flags, &binder));
    ASSERT_TRUE(cache.Set(this->Key(1), true, kMinute, true));
  }
  EXPECT_EQ(StoreBytes::WordAt(FileContent(kPath), 16), 1U + 4U) << "numeric keys, ciphered";
  typename TestFixture::Cache cache;
  ASSERT_TRUE(cache.Init(2, 3, 1, kMinute, kHour, kPath, 1, flags, &binder));
  EXPECT_EQ(this->Read(cache, 1), "true 60000");
  typename TestFixture::Cache without;
  LogCapture log;
  EXPECT_FALSE(without.Init(2, 3, 1, kMinute, kHour, kPath, 1, flags));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreBinderMissing", "3 velmar.CacheStoreNotOpened"}));
}

// One thread writes while others read; what is read is what was written for that key.
TYPED_TEST(TimeCacheTest, CacheWithAMutexServesSeveralThreads) {
  typename TestFixture::Cache cache;
  CacheOptions options;
  options.maximum = 16;
  options.flags |= StoreFlags::kThreadSafe;
  ASSERT_TRUE(this->OpenCache(cache, options));
  std::atomic<bool> done{false};
  std::atomic<u32> found{0};
  std::vector<std::thread> readers;
  for (u32 i = 0; i < 4; ++i) {
    readers.emplace_back([&, i] {
      for (u32 number = i; !done || found == 0; ++number) {
        bool value = false;
        if (cache.Get(this->Key(number % 32), value, nullptr)) {
          EXPECT_EQ(value, number % 32 % 3 == 0);
          ++found;
        }
        EXPECT_LE(cache.GetCount(), 16U);
      }
    });
  }
  for (u32 round = 0; round < 2000; ++round) {
    EXPECT_TRUE(cache.Set(this->Key(round % 32), round % 32 % 3 == 0, kMinute, false));
  }
  done = true;
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(this->Ages(cache).size(), 16U);
}

}  // namespace
