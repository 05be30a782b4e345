// Saving to a file that replaces the old one, and loading it.
#include <stdexcept>
#include <string>

#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Texts = std::vector<std::string>;
using Sim::Fault;
using Sim::Operation;

// A store at kPath with one entry "a" that is saved, and one value more in memory.
class MapDBSave : public testing::Test {
 protected:
  void SetUp() override {
    MakeFolder();
    ASSERT_TRUE(Open(store, AtPath(StoreFlags::kNoSaveOnClose)));
    ASSERT_TRUE(Put(store, "a", "old"));
    ASSERT_TRUE(store.Save());
    oldBytes = FileContent(kPath);
    ASSERT_TRUE(Put(store, "a", "new"));
  }

  TextStore store;
  std::string oldBytes;
};

TEST_F(MapDBSave, FirstSaveWithNoFileThereSucceeds) {
  LogCapture log;
  TextStore first;
  Options options = AtPath();
  options.path = "/data/first.db";
  ASSERT_TRUE(Open(first, options));
  EXPECT_FALSE(FileIsThere("/data/first.db"));
  EXPECT_TRUE(first.Save());
  EXPECT_TRUE(FileIsThere("/data/first.db"));
  EXPECT_FALSE(FileIsThere("/data/first.db.temp"));
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST(MapDBSaveWithoutAPath, IsTrueAndCreatesNothing) {
  for (const char* path : {static_cast<const char*>(nullptr), ""}) {
    TextStore store;
    Options options;
    options.path = path;
    ASSERT_TRUE(Open(store, options));
    ASSERT_TRUE(Put(store, "a", "1"));
    const u64 operations = Sim::CountFileOperations();
    EXPECT_TRUE(store.Save());
    EXPECT_TRUE(store.Load());
    EXPECT_EQ(Sim::CountFileOperations(), operations);
    EXPECT_EQ(store.GetCount(), 1U);
  }
}

TEST_F(MapDBSave, NewFileReplacesTheOldOne) {
  LogCapture log;
  EXPECT_TRUE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{});
  EXPECT_NE(FileContent(kPath), oldBytes);
  EXPECT_FALSE(FileIsThere(kTemporaryPath));
  TextStore copy;
  ASSERT_TRUE(Open(copy, AtPath(StoreFlags::kNoSaveOnClose)));
  EXPECT_EQ(Get(copy, "a"), "new");
}

TEST_F(MapDBSave, StaleTemporaryFileIsReplaced) {
  Sim::PutFile(kTemporaryPath, std::string(100000, 'x'));
  EXPECT_TRUE(store.Save());
  EXPECT_FALSE(FileIsThere(kTemporaryPath));
  EXPECT_EQ(StoreBytes::Parse(FileContent(kPath)).entryCount, 1U);
}

TEST_F(MapDBSave, TemporaryFileThatCannotBeCreatedIsAWarningWithItsPath) {
  LogCapture log;
  Sim::FailFileOperation(Operation::kCreate, 0, Fault::kFail);
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreTemporaryNotCreated"});
  EXPECT_EQ(log.Arguments("velmar.StoreTemporaryNotCreated"), Texts{kTemporaryPath});
  EXPECT_EQ(FileContent(kPath), oldBytes);
  EXPECT_TRUE(store.Save()) << "the store is not left busy";
}

TEST_F(MapDBSave, FailedWriteLeavesTheOldFileAndNoTemporaryOne) {
  const u64 before = Sim::CountFileOperations(Operation::kWrite);
  TextStore same;
  ASSERT_TRUE(Open(same, AtPath(StoreFlags::kNoSaveOnClose)));
  ASSERT_TRUE(same.Save());
  const u64 writes = Sim::CountFileOperations(Operation::kWrite) - before;
  ASSERT_GE(writes, 4U);
  for (u64 n = 0; n < writes; ++n) {
    for (const Fault fault : {Fault::kFail, Fault::kTear}) {
      LogCapture log;
      Sim::FailFileOperation(Operation::kWrite, n, fault);
      EXPECT_FALSE(store.Save());
      EXPECT_EQ(log.Names(2).back(), "velmar.StoreNotWritten");
      EXPECT_EQ(log.CountLevel(3), 2) << "one record of the cause, one of the file";
      EXPECT_EQ(log.CountLevel(5), 0);
      EXPECT_EQ(log.Arguments("velmar.StoreNotWritten"), Texts{kTemporaryPath});
      EXPECT_EQ(FileContent(kPath), oldBytes);
      EXPECT_FALSE(FileIsThere(kTemporaryPath));
    }
  }
}

TEST_F(MapDBSave, FailedSeekSyncOrCloseCountsAsAFailedWrite) {
  for (const Operation operation : {Operation::kSeek, Operation::kSync, Operation::kClose}) {
    LogCapture log;
    Sim::FailFileOperation(operation, 0, Fault::kFail);
    EXPECT_FALSE(store.Save());
    EXPECT_EQ(log.Names(2).back(), "velmar.StoreNotWritten");
    EXPECT_EQ(FileContent(kPath), oldBytes);
    EXPECT_FALSE(FileIsThere(kTemporaryPath));
  }
}

TEST_F(MapDBSave, FullDiskLeavesTheOldFile) {
  ASSERT_TRUE(Put(store, "b", std::string(100000, 'b')));
  Sim::SetDiskLimit(oldBytes.size() + 60);
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(FileContent(kPath), oldBytes);
  EXPECT_FALSE(FileIsThere(kTemporaryPath));
  Sim::SetDiskLimit(0);
  EXPECT_TRUE(store.Save());
}

TEST_F(MapDBSave, TemporaryFileThatCannotBeDeletedAfterAFailedWriteIsAWarning) {
  LogCapture log;
  Sim::FailFileOperation(Operation::kSync, 0, Fault::kFail);
  Sim::FailFileOperation(Operation::kDelete, 0, Fault::kFail);
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreNotWritten", "3 velmar.StoreTemporaryNotDeleted"}));
  EXPECT_EQ(log.Arguments("velmar.StoreTemporaryNotDeleted"), Texts{kTemporaryPath});
  EXPECT_EQ(FileContent(kPath), oldBytes);
  EXPECT_TRUE(FileIsThere(kTemporaryPath));
}

TEST_F(MapDBSave, OldFileThatCannotBeDeletedLeavesBothFiles) {
  LogCapture log;
  Sim::FailFileOperation(Operation::kDelete, 0, Fault::kFail);
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreOldFileNotDeleted"});
  EXPECT_EQ(log.Arguments("velmar.StoreOldFileNotDeleted"), Texts{kPath});
  EXPECT_EQ(FileContent(kPath), oldBytes);
  EXPECT_EQ(StoreBytes::Parse(FileContent(kTemporaryPath)).entryCount, 1U);
}

TEST_F(MapDBSave, FailedRenameLeavesOnlyTheTemporaryFile) {
  LogCapture log;
  Sim::FailFileOperation(Operation::kMove, 0, Fault::kFail);
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreNotRenamed"});
  EXPECT_EQ(log.Arguments("velmar.StoreNotRenamed"), Texts{kTemporaryPath});
  EXPECT_FALSE(FileIsThere(kPath));
  EXPECT_EQ(StoreBytes::Parse(FileContent(kTemporaryPath)).entryCount, 1U);
  EXPECT_TRUE(store.Save());
  EXPECT_TRUE(FileIsThere(kPath));
  EXPECT_FALSE(FileIsThere(kTemporaryPath));
}

TEST_F(MapDBSave, TemporaryFileIsNeverLoaded) {
  ASSERT_TRUE(store.Save());
  Sim::PutFile(kTemporaryPath, FileContent(kPath));
  ASSERT_TRUE(Sim::RemoveFile(kPath));
  TextStore copy;
  ASSERT_TRUE(Open(copy, AtPath(StoreFlags::kNoSaveOnClose)));
  EXPECT_EQ(copy.GetCount(), 0U);
  EXPECT_TRUE(FileIsThere(kTemporaryPath)) << "nor touched";
}

TEST(MapDBClose, DestructorSaves) {
  MakeFolder();
  {
    TextStore store;
    ASSERT_TRUE(Open(store, AtPath(StoreFlags::kThreadSafe)));
    ASSERT_TRUE(Put(store, "a", "1"));
  }
  EXPECT_EQ(StoreBytes::Parse(FileContent(kPath)).entryCount, 1U);
}

TEST(MapDBClose, DestructorDoesNotSaveWithTheFlag) {
  MakeFolder();
  {
    TextStore store;
    ASSERT_TRUE(Open(store, AtPath(StoreFlags::kNoSaveOnClose)));
    ASSERT_TRUE(Put(store, "a", "1"));
  }
  EXPECT_FALSE(FileIsThere(kPath));
}

TEST(MapDBClose, DestructorOfAStoreThatIsNotInitialisedSaysNothing) {
  LogCapture log;
  { TextStore store; }
  EXPECT_EQ(log.Lines(1), Lines{});
}

class ThrowingBinder final : public AddingBinder {
 public:
  bool GetHeader(void* /*area*/, u32 /*size*/, u32& /*outSize*/) override { throw std::runtime_error("binder"); }
};

TEST(MapDBClose, DestructorSwallowsAnException) {
  MakeFolder();
  ThrowingBinder binder;
  {
    TextStore store;
    Options options = AtPath();
    options.binder = &binder;
    ASSERT_TRUE(Open(store, options));
    EXPECT_THROW(store.Save(), std::runtime_error);
    EXPECT_FALSE(MapDBTestAccess::IsBusy(store)) << "every way out gives the flag back";
  }
  EXPECT_FALSE(FileIsThere(kPath));
}

TEST(MapDBLoad, MissingFileIsAnEmptyStore) {
  MakeFolder();
  LogCapture log;
  TextStore store;
  EXPECT_TRUE(Open(store, AtPath(StoreFlags::kNoSaveOnClose)));
  EXPECT_EQ(store.GetCount(), 0U);
  EXPECT_TRUE(store.Load());
  EXPECT_TRUE(store.LoadFile());
  EXPECT_EQ(log.Lines(1), Lines{});
}

template <class Store, class Key>
void ExpectRoundTrip(const std::vector<Key>& keys, u32 kind) {
  MakeFolder();
  Options options = AtPath();
  options.flags = kind;
  options.maximum = 10;
  {
    Store store;
    ASSERT_TRUE(Open(store, options));
    for (const Key& key : keys) {
      ASSERT_TRUE(Put(store, key, std::to_string(1000 + (&key - keys.data()))));
    }
  }
  LogCapture log;
  Store copy;
  options.flags |= StoreFlags::kNoSaveOnClose;
  ASSERT_TRUE(Open(copy, options));
  EXPECT_EQ(log.Lines(), Lines{});
  ASSERT_EQ(copy.GetCount(), keys.size());
  for (const Key& key : keys) {
    EXPECT_EQ(Get(copy, key), std::to_string(1000 + (&key - keys.data())));
  }
  const auto order = KeysOf(copy);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_TRUE(order[i] == keys[i]) << "the age order comes back, place " << i;
  }
  ASSERT_TRUE(Sim::RemoveFile(kPath));
}

TEST(MapDBLoad, EveryInstanceComesBackAsItWas) {
  const std::vector<const char*> texts = {"p", "4", "", "a key of more than sixteen bytes"};
  const std::vector<u32> numbers = {7, 0, 9, 3};
  const std::vector<Types::UInt128> wide = {{{0, 7}}, {{0, 0}}, {{0, 9}}, {{0, 1}}};
  for (const u32 kind : {StoreFlags::kBinarySearch, StoreFlags::kLinearSearch, StoreFlags::kRBTSearch}) {
    ExpectRoundTrip<TextStore>(texts, kind);
    ExpectRoundTrip<StringStore>(texts, kind);
    ExpectRoundTrip<NumberStore>(numbers, kind);
    ExpectRoundTrip<WideStore>(wide, kind);
  }
  ExpectRoundTrip<NumberStore>(numbers, StoreFlags::kIndexSearch);
  ExpectRoundTrip<WideStore>(wide, StoreFlags::kIndexSearch);
}

TEST_F(MapDBSave, FileThatCannotBeOpenedFailsTheLoad) {
  LogCapture log;
  Sim::FailFileOperation(Operation::kOpenRead, 0, Fault::kFail);
  TextStore copy;
  EXPECT_FALSE(Open(copy, AtPath()));
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreNotOpened", "5 velmar.StoreNotLoaded", "3 velmar.StoreInitLoadFailed"}));
  EXPECT_EQ(log.Arguments("velmar.StoreInitLoadFailed"), Texts{kPath});
  EXPECT_FALSE(copy.IsInitialised());
}

TEST_F(MapDBSave, EachFailedReadFailsTheLoad) {
  u64 reads = 0;
  {
    const u64 before = Sim::CountFileOperations(Operation::kRead);
    TextStore copy;
    ASSERT_TRUE(Open(copy, AtPath(StoreFlags::kNoSaveOnClose)));
    reads = Sim::CountFileOperations(Operation::kRead) - before;
  }
  for (const Operation operation : {Operation::kRead, Operation::kSeek}) {
    for (u64 n = 0; n < (operation == Operation::kRead ? reads : 2); ++n) {
      LogCapture log;
      Sim::FailFileOperation(operation, n, Fault::kFail);
      TextStore copy;
      EXPECT_FALSE(Open(copy, AtPath()));
      EXPECT_EQ(log.Count("velmar.StoreNotLoaded"), 1);
    }
  }
  EXPECT_EQ(FileContent(kPath), oldBytes);
}

TEST_F(MapDBSave, DamagedFileIsAnEmptyStoreWithClearOnLoadFailure) {
  Sim::PutFile(kPath, "not a store");
  LogCapture log;
  TextStore copy;
  EXPECT_TRUE(Open(copy, AtPath(StoreFlags::kClearOnLoadFailure | StoreFlags::kNoSaveOnClose)));
  EXPECT_EQ(copy.GetCount(), 0U);
  EXPECT_EQ(log.Lines(),
            (Lines{"5 velmar.StoreHeaderNotRead", "3 velmar.StoreHeaderRefused", "5 velmar.StoreNotLoaded"}));
  EXPECT_FALSE(copy.LoadFile()) << "this one never clears";
  EXPECT_TRUE(Put(copy, "b", "1"));
  EXPECT_FALSE(copy.LoadFile());
  EXPECT_EQ(copy.GetCount(), 1U);
  EXPECT_TRUE(copy.Load());
  EXPECT_EQ(copy.GetCount(), 0U);
}

TEST_F(MapDBSave, LoadIntoAStoreThatHasTheKeyIsRefused) {
  LogCapture log;
  EXPECT_FALSE(store.Load());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreKeyStandsTwice", "5 velmar.StoreNotLoaded"}));
  EXPECT_EQ(KeysOf(store), Texts{"a"});
  EXPECT_EQ(Get(store, "a"), "new");
}

TEST_F(MapDBSave, LoadIntoAFullStoreIsRefused) {
  ASSERT_TRUE(store.Clear());
  for (const char* key : {"x", "y", "z"}) {
    ASSERT_TRUE(Put(store, key, "1"));
  }
  LogCapture log;
  EXPECT_FALSE(store.Load());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreAtMaximum", "3 velmar.StoreNotGrown", "5 velmar.StoreNotLoaded"}));
  EXPECT_EQ(KeysOf(store), (Texts{"x", "y", "z"}));
}

TEST_F(MapDBSave, FailedLoadLeavesTheWholeEntriesThatItRead) {
  StoreBytes::StoreFile file = StoreBytes::TextFile({{"x", "1"}, {"y", "2"}, {"z", "3"}});
  file.pages[0].resize(file.pages[0].size() - 1);
  Sim::PutFile(kPath, StoreBytes::Build(file));
  ASSERT_TRUE(store.Clear());
  EXPECT_FALSE(store.Load());
  EXPECT_EQ(KeysOf(store), (Texts{"x", "y"}));
  EXPECT_EQ(Get(store, "z"), std::nullopt);
  EXPECT_TRUE(Put(store, "z", "4"));
  EXPECT_TRUE(Put(store, "w", "5"));
  EXPECT_EQ(KeysOf(store), (Texts{"y", "z", "w"}));
}

// Calls back into its store from each operation.
class IntrudingBinder final : public AddingBinder {
 public:
  bool GetHeader(void* area, u32 size, u32& outSize) override {
    Intrude();
    return AddingBinder::GetHeader(area, size, outSize);
  }
  bool SetHeader(const void* data, u32 size, u32 dataVersion) override {
    Intrude();
    return AddingBinder::SetHeader(data, size, dataVersion);
  }

  TextStore* store = nullptr;
  int refusals = 0;

 private:
  void Intrude() {
    refusals += Put(*store, "b", "2") ? 0 : 1;
    refusals += store->Clear() ? 0 : 1;
  }
};

TEST(MapDBReentrance, BinderThatCallsItsStoreIsRefused) {
  MakeFolder();
  IntrudingBinder binder;
  Options options = AtPath(StoreFlags::kThreadSafe | StoreFlags::kNoSaveOnClose);
  options.binder = &binder;
  TextStore store;
  binder.store = &store;
  ASSERT_TRUE(Open(store, options));
  ASSERT_TRUE(Put(store, "a", "1"));
  LogCapture log;
  EXPECT_TRUE(store.Save());
  EXPECT_EQ(binder.refusals, 2);
  ASSERT_TRUE(store.Clear());
  EXPECT_TRUE(store.Load());
  EXPECT_EQ(binder.refusals, 4);
  EXPECT_EQ(log.Lines(), Lines(4, "3 velmar.StoreBusy"));
  EXPECT_EQ(KeysOf(store), Texts{"a"});
}

}  // namespace
