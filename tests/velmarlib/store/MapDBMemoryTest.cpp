// Memory that runs out at any point: nothing leaks, nothing is half done, the old file stays.
#include <functional>
#include <string>

#include "tests/velmarlib/collections/TestAllocator.h"
#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Texts = std::vector<std::string>;

// Larger than a work buffer's own area, and not to be compressed away.
std::string LargeValue(u32 number) {
  std::string value;
  u32 state = number * 2654435761U + 1;
  for (int i = 0; i < 20000; ++i) {
    state = state * 1664525U + 1013904223U;
    value += static_cast<char>(state >> 24);
  }
  return value;
}

Options FileOptions(ISerializedDataBinder* binder) {
  Options options = AtPath(StoreFlags::kNoSaveOnClose | StoreFlags::kCipherRequired);
  options.maximum = 8;
  options.binder = binder;
  return options;
}

// Runs `body` with the n-th request of the module's memory failing, for n from 0 until it is not reached.
void ForEachModuleFailure(TestAllocator& memory, const std::function<void()>& body) {
  for (u64 n = 0;; ++n) {
    SCOPED_TRACE("request " + std::to_string(n));
    memory.FailRequest(n);
    const u64 failing = memory.failAt;
    body();
    memory.failAt = TestAllocator::kNever;
    if (memory.requests <= failing) {
      ASSERT_GT(n, 0U);
      return;
    }
  }
}

TEST(MapDBMemory, EachModuleRequestOfAStoreInUse) {
  TestAllocator memory;
  const std::vector<std::string> keys = {"b", "a key that does not fit sixteen bytes", "a", "", "c", "d", "e", "f",
                                         "g"};
  u64 failures = 0;
  for (u64 n = 0;; ++n) {
    SCOPED_TRACE("request " + std::to_string(n));
    LogCapture log;
    const u64 before = memory.requests;
    memory.FailRequest(n);
    {
      TextStore store;
      Options options;
      options.maximum = 7;
      const bool opened = Open(store, options);
      Texts expected;
      for (const std::string& key : keys) {
        if (opened && Put(store, key.c_str(), key)) {
          expected.push_back(key);
        }
      }
      if (expected.size() > 7) {
        expected.erase(expected.begin(), expected.end() - 7);
      }
      if (opened) {
        EXPECT_EQ(KeysOf(store), expected);
      }
      for (const std::string& key : expected) {
        EXPECT_EQ(Get(store, key.c_str()), key);
      }
    }
    EXPECT_EQ(memory.live, 0);
    const bool reached = memory.requests - before > n;
    EXPECT_EQ(log.CountLevel(5) > 0, reached) << "a failed request is an error in the log";
    memory.failAt = TestAllocator::kNever;
    if (!reached) {
      break;
    }
    ++failures;
  }
  EXPECT_GT(failures, 20U);
}

TEST(MapDBMemory, EachModuleRequestOfALoad) {
  MakeFolder();
  TestAllocator memory;
  AddingBinder binder;
  {
    TextStore store;
    ASSERT_TRUE(Open(store, FileOptions(&binder)));
    for (const char* key : {"b", "a", "a key that does not fit sixteen bytes", "c", "d"}) {
      ASSERT_TRUE(Put(store, key, key));
    }
    ASSERT_TRUE(store.Save());
  }
  const std::string bytes = FileContent(kPath);
  ForEachModuleFailure(memory, [&] {
    LogCapture log;
    const u64 failing = memory.failAt;
    TextStore store;
    const bool opened = Open(store, FileOptions(&binder));
    const bool reached = memory.requests > failing;
    EXPECT_EQ(opened, !reached);
    EXPECT_EQ(log.CountLevel(5) > 0, reached);
    EXPECT_EQ(store.IsInitialised(), opened);
    store.Uninit();
    EXPECT_EQ(memory.live, 0);
  });
  EXPECT_EQ(FileContent(kPath), bytes);
}

TEST(MapDBMemory, EachModuleRequestOfALoadThatClears) {
  MakeFolder();
  TestAllocator memory;
  {
    TextStore store;
    Options options = AtPath();
    options.maximum = 8;
    ASSERT_TRUE(Open(store, options));
    for (const char* key : {"b", "a", "c", "d"}) {
      ASSERT_TRUE(Put(store, key, key));
    }
  }
  TextStore store;
  Options options = AtPath(StoreFlags::kClearOnLoadFailure | StoreFlags::kNoLoadOnInit | StoreFlags::kNoSaveOnClose);
  options.maximum = 8;
  for (u64 n = 0; n < 12; ++n) {
    ASSERT_TRUE(Open(store, options));
    const u64 before = memory.requests;
    memory.FailRequest(n);
    EXPECT_TRUE(store.Load());
    const bool reached = memory.requests - before > n;
    memory.failAt = TestAllocator::kNever;
    EXPECT_EQ(KeysOf(store), reached ? Texts{} : (Texts{"b", "a", "c", "d"})) << n;
    EXPECT_TRUE(Put(store, "x", "1"));
    store.Uninit();
    EXPECT_EQ(memory.live, 0);
  }
}

TEST(MapDBMemory, EachBufferAllocationOfASave) {
  MakeFolder();
  AddingBinder binder;
  TextStore store;
  ASSERT_TRUE(Open(store, FileOptions(&binder)));
  ASSERT_TRUE(Put(store, "old", "1"));
  ASSERT_TRUE(store.Save());
  const std::string oldBytes = FileContent(kPath);
  for (u32 i = 0; i < 3; ++i) {
    ASSERT_TRUE(Put(store, std::string(9000 + i, 'k').c_str(), LargeValue(i)));
  }
  u64 failures = 0;
  for (u64 n = 0;; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    const u64 before = Sim::CountAllocations();
    Sim::FailAllocation(n);
    LogCapture log;
    const bool saved = store.Save();
    const bool reached = Sim::CountAllocations() - before > n;
    Sim::FailAllocation(kNone, 0);
    EXPECT_EQ(saved, !reached);
    if (!reached) {
      break;
    }
    ++failures;
    EXPECT_EQ(log.Names(2).back(), "velmar.StoreNotWritten");
    EXPECT_EQ(FileContent(kPath), oldBytes);
    EXPECT_FALSE(FileIsThere(kTemporaryPath));
  }
  EXPECT_GT(failures, 4U);
  EXPECT_NE(FileContent(kPath), oldBytes);
}

TEST(MapDBMemory, EachBufferAllocationOfALoad) {
  MakeFolder();
  AddingBinder binder;
  TextStore store;
  ASSERT_TRUE(Open(store, FileOptions(&binder)));
  for (u32 i = 0; i < 3; ++i) {
    ASSERT_TRUE(Put(store, std::string(9000 + i, 'k').c_str(), LargeValue(i)));
  }
  ASSERT_TRUE(store.Save());
  u64 failures = 0;
  for (u64 n = 0;; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    const u64 before = Sim::CountAllocations();
    Sim::FailAllocation(n);
    LogCapture log;
    TextStore copy;
    const bool opened = Open(copy, FileOptions(&binder));
    const bool reached = Sim::CountAllocations() - before > n;
    Sim::FailAllocation(kNone, 0);
    EXPECT_EQ(opened, !reached);
    if (!reached) {
      EXPECT_EQ(copy.GetCount(), 3U);
      break;
    }
    ++failures;
    EXPECT_EQ(log.Count("velmar.StoreNotLoaded"), 1);
    EXPECT_EQ(log.Names(2).back(), "velmar.StoreInitLoadFailed");
  }
  EXPECT_GT(failures, 4U);
}

TEST(MapDBMemory, SmallStoresNeedNoHeapForTheirBuffers) {
  MakeFolder();
  AddingBinder binder;
  TextStore store;
  Options options = FileOptions(&binder);
  options.flags |= StoreFlags::kNoCompression;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "p", "small"));
  const u64 before = Sim::CountAllocations();
  EXPECT_TRUE(store.Save());
  EXPECT_EQ(Sim::CountAllocations(), before) << "zlib, which is not asked here, takes its own";
}

// Values whose memory cannot be had are made up for when their key is met again.
TEST(MapDBMemory, ValueThatFailsInItsCallbackKeepsItsEntry) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  Sim::FailAllocation(0);
  LogCapture log;
  EXPECT_FALSE(Put(store, "a", "1"));
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreCallbackRefused"});
  EXPECT_EQ(KeysOf(store), Texts{"a"});
  EXPECT_EQ(Get(store, "a"), "");
  EXPECT_TRUE(Put(store, "a", "2"));
  EXPECT_EQ(Get(store, "a"), "2");
}

TEST(MapDBMemory, FoundEntryWithoutAValueSlotGetsOneFirst) {
  TextStore store;
  ASSERT_TRUE(Open(store));
  ASSERT_TRUE(Put(store, "a", "1"));
  MapDBTestAccess::ForgetValue(store, 0);
  LogCapture log;
  bool wasNew = true;
  EXPECT_TRUE(store.Apply(
      "a", false,
      [&wasNew](Buffer& value, bool isNew, void* /*context*/) {
        wasNew = isNew;
        return value.size == 0 && SetValue(value, "2");
      },
      nullptr));
  EXPECT_FALSE(wasNew);
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_EQ(Get(store, "a"), "2");
}

TEST(MapDBMemory, EntryWithoutAValueSlotCannotBeSaved) {
  MakeFolder();
  for (const u32 skip : {0U, StoreFlags::kSkipUnserializable}) {
    TextStore store;
    ASSERT_TRUE(Open(store, AtPath(StoreFlags::kNoSaveOnClose | StoreFlags::kNoLoadOnInit | skip)));
    ASSERT_TRUE(Put(store, "a", "1"));
    ASSERT_TRUE(Put(store, "b", "2"));
    MapDBTestAccess::ForgetValue(store, 0);
    LogCapture log;
    EXPECT_EQ(store.Save(), skip != 0);
    EXPECT_EQ(log.Names(2).front(), "velmar.StoreValueNotSerialised");
  }
  EXPECT_EQ(StoreBytes::CountedTexts(StoreBytes::Parse(FileContent(kPath)).index), Texts{"b"});
}

}  // namespace
