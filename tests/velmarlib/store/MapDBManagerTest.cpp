// Saving and loading by a database manager.
#include <cstring>
#include <stdexcept>
#include <string>

#include "Velmar/Utils/DatabaseManager.h"
#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Texts = std::vector<std::string>;

// Keeps one file in memory and writes down what it is asked.
class MemoryManager final : public Utils::DatabaseManager {
 public:
  bool IsSingleThreaded() override {
    NoteUse("IsSingleThreaded");
    return singleThreaded;
  }
  bool SetWritterFile(const Utils::String& path) override {
    NoteUse(std::string("SetWritterFile ") + path.text);
    position = 0;
    content.clear();
    return takesFile;
  }
  bool SetReaderFile(const Utils::String& path) override {
    NoteUse(std::string("SetReaderFile ") + path.text);
    position = 0;
    return takesFile;
  }
  bool HasReaderFile() override { return !content.empty(); }
  bool Commit() override {
    NoteUse("Commit");
    return commits;
  }
  bool Read(void* data, u32 size, u32* /*done*/) override {
    if (position + size > content.size()) {
      return false;
    }
    std::memcpy(data, content.data() + position, size);
    position += size;
    return true;
  }
  bool Write(const void* data, u32 size, u32* /*done*/) override {
    if (throws) {
      throw std::runtime_error("no room");
    }
    if (!writes) {
      return false;
    }
    content.resize(std::max<std::size_t>(content.size(), position + size));
    content.replace(position, size, static_cast<const char*>(data), size);
    position += size;
    return true;
  }
  u64 Tell() override { return position + farBy; }
  bool Seek(u64 newPosition) override {
    position = newPosition;
    return true;
  }

  bool singleThreaded = true;
  bool takesFile = true;
  bool commits = true;
  bool writes = true;
  bool throws = false;
  u64 farBy = 0;
  std::string content;
  Texts calls;

 private:
  void NoteUse(const std::string& call) {
    calls.push_back(call);
    EXPECT_EQ(useCount, 1U) << call;
  }

  u64 position = 0;
};

class MapDBManager : public testing::Test {
 protected:
  void SetUp() override {
    options.path = "managed.db";
    options.manager = &manager;
    options.flags |= StoreFlags::kNoSaveOnClose;
    ASSERT_TRUE(Open(store, options));
    ASSERT_TRUE(Put(store, "a", "1"));
    manager.calls.clear();
  }
  void TearDown() override { EXPECT_EQ(manager.useCount, 0U); }

  MemoryManager manager;
  Options options;
  TextStore store;
};

TEST_F(MapDBManager, SaveAndLoadGoThroughIt) {
  const u64 operations = Sim::CountFileOperations();
  EXPECT_TRUE(store.Save());
  EXPECT_EQ(manager.calls, (Texts{"IsSingleThreaded", "SetWritterFile managed.db", "Commit"}));
  EXPECT_EQ(StoreBytes::Parse(manager.content).entryCount, 1U);
  manager.calls.clear();
  TextStore copy;
  EXPECT_TRUE(Open(copy, options));
  EXPECT_EQ(manager.calls, (Texts{"IsSingleThreaded", "SetReaderFile managed.db"}));
  EXPECT_EQ(Get(copy, "a"), "1");
  EXPECT_EQ(Sim::CountFileOperations(), operations) << "no file of the store's own";
}

TEST_F(MapDBManager, NoReaderFileIsAnEmptyStore) {
  LogCapture log;
  TextStore copy;
  EXPECT_TRUE(Open(copy, options));
  EXPECT_EQ(copy.GetCount(), 0U);
  EXPECT_EQ(log.Lines(), Lines{});
}

TEST_F(MapDBManager, SharedManagerIsAnError) {
  manager.singleThreaded = false;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.StoreManagerNotSingleThreaded"});
  log.Clear();
  EXPECT_FALSE(store.Load());
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.StoreManagerNotSingleThreaded", "5 velmar.StoreNotLoaded"}));
}

TEST_F(MapDBManager, RefusedFileFailsBothWays) {
  manager.takesFile = false;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_FALSE(store.Load());
  EXPECT_EQ(log.Lines(),
            (Lines{"3 velmar.StoreManagerFileRefused", "3 velmar.StoreManagerFileRefused", "5 velmar.StoreNotLoaded"}));
}

TEST_F(MapDBManager, FailedWriteIsNotCommitted) {
  manager.writes = false;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreHeaderNotWritten", "3 velmar.StoreNotWritten"}));
  EXPECT_EQ(manager.calls, (Texts{"IsSingleThreaded", "SetWritterFile managed.db"}));
}

TEST_F(MapDBManager, FailedCommitFailsTheSave) {
  manager.commits = false;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{"3 velmar.StoreManagerNotCommitted"});
}

TEST_F(MapDBManager, IndexPast32BitsFailsTheSave) {
  manager.farBy = 0xFFFFFFFF;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), (Lines{"3 velmar.StoreFileTooLarge", "3 velmar.StoreNotWritten"}));
}

TEST_F(MapDBManager, ExceptionIsAnErrorWithItsText) {
  manager.throws = true;
  LogCapture log;
  EXPECT_FALSE(store.Save());
  EXPECT_EQ(log.Lines(), Lines{"5 velmar.StoreManagerThrew"});
  EXPECT_EQ(log.Arguments("velmar.StoreManagerThrew"), Texts{"no room"});
  manager.throws = false;
  EXPECT_TRUE(store.Save()) << "the store is not left busy";
}

TEST_F(MapDBManager, DamagedFileFailsTheLoad) {
  manager.content = std::string(100, 'x');
  LogCapture log;
  TextStore copy;
  EXPECT_FALSE(Open(copy, options));
  EXPECT_EQ(log.Lines(), (Lines{"5 velmar.StoreHeaderMagicWrong", "3 velmar.StoreHeaderRefused",
                                "5 velmar.StoreNotLoaded", "3 velmar.StoreInitLoadFailed"}));
}

}  // namespace
