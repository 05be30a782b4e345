// One store in the hands of several threads.
#include <thread>
#include <vector>

#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;

TEST(MapDBThreads, StoreWithAMutexServesSeveralThreads) {
  MakeFolder();
  Options options = AtPath(StoreFlags::kThreadSafe | StoreFlags::kNoSaveOnClose);
  options.maximum = 100;
  NumberStore store;
  ASSERT_TRUE(Open(store, options));
  constexpr u32 kThreads = 4;
  constexpr u32 kRounds = 300;
  const auto work = [&store](u32 first) {
    for (u32 round = 0; round < kRounds; ++round) {
      const u32 key = first + kThreads * (round % 10);
      EXPECT_TRUE(Put(store, key, std::to_string(key)));
      EXPECT_EQ(Get(store, key), std::to_string(key));
      if (round % 7 == 0) {
        EXPECT_TRUE(store.Delete(key, true));
      }
      if (round % 50 == 0) {
        EXPECT_TRUE(store.Save());
      }
      EXPECT_LE(store.GetCount(), kThreads * 10);
    }
  };
  std::vector<std::thread> threads;
  for (u32 i = 0; i < kThreads; ++i) {
    threads.emplace_back(work, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(KeysOf(store).size(), store.GetCount());
}

TEST(MapDBThreads, CountWaitsForTheOperationOfAnotherThread) {
  Options options;
  options.flags |= StoreFlags::kThreadSafe;
  TextStore store;
  ASSERT_TRUE(Open(store, options));
  std::thread other;
  u32 seen = 0;
  EXPECT_TRUE(store.Apply(
      "a", true,
      [&](Buffer& value, bool /*isNew*/, void* /*context*/) {
        other = std::thread([&] {
          EXPECT_TRUE(Put(store, "b", "2")) << "not busy for a thread that had to wait";
          seen = store.GetCount();
        });
        return SetValue(value, "1");
      },
      nullptr));
  other.join();
  EXPECT_EQ(seen, 2U);
}

}  // namespace
