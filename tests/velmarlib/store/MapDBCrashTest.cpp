// A save that is cut off at any file operation leaves the old file, the new one, or the accepted gap.
#include <string>

#include "tests/velmarlib/store/StoreBytes.h"
#include "tests/velmarlib/store/StoreTest.h"

namespace {

using namespace StoreTest;
using Sim::Fault;
using Sim::Operation;

// Some of each, in more than one write a block.
std::string ValueOf(int number, char filling) {
  std::string value(static_cast<std::size_t>(number) * 3000, filling);
  for (std::size_t i = 0; i < value.size(); ++i) {
    value[i] = static_cast<char>(value[i] + static_cast<int>((i * i + i / 7) % 61));
  }
  return value;
}

Options CrashOptions(ISerializedDataBinder* binder) {
  Options options = AtPath(StoreFlags::kNoSaveOnClose | StoreFlags::kCipherRequired);
  options.binder = binder;
  return options;
}

// An empty machine with the old file on its disk; `store` is ready to save the new one.
void Prepare(TextStore& store, AddingBinder& binder) {
  Sim::Reset();
  MakeFolder();
  ASSERT_TRUE(Open(store, CrashOptions(&binder)));
  ASSERT_TRUE(Put(store, "p", ValueOf(1, 'o')));
  ASSERT_TRUE(store.Save());
  ASSERT_TRUE(Put(store, "4", ValueOf(2, 'n')));
}

struct Clean {
  std::string oldBytes;
  std::string newBytes;
  u64 operations = 0;
};

// What a save does when nothing goes wrong.
Clean SaveCleanly() {
  Clean clean;
  AddingBinder binder;
  TextStore store;
  Prepare(store, binder);
  clean.oldBytes = FileContent(kPath);
  const u64 before = Sim::CountFileOperations();
  EXPECT_TRUE(store.Save());
  clean.operations = Sim::CountFileOperations() - before;
  clean.newBytes = FileContent(kPath);
  EXPECT_NE(clean.oldBytes, clean.newBytes);
  return clean;
}

// The rename is the last operation but one, the sync of its folder the last.
bool IsGap(const Clean& clean, u64 operation, Fault fault) {
  const u64 rename = clean.operations - 2;
  return operation == rename || (fault == Fault::kPowerCut && operation == rename + 1);
}

// A file that is neither the old nor the new one in whole is none.
void ExpectUnreadable(const char* path) {
  AddingBinder binder;
  Options options = CrashOptions(&binder);
  options.path = path;
  TextStore store;
  EXPECT_FALSE(Open(store, options)) << path;
}

// What may lie in the folder after the save was hit, and that the next start and the next save work.
void ExpectOldNewOrGap(const Clean& clean, u64 operation, Fault fault) {
  std::string content;
  std::string temporary;
  const bool isThere = Sim::GetFile(kPath, content);
  const bool hasTemporary = Sim::GetFile(kTemporaryPath, temporary);
  if (isThere) {
    EXPECT_TRUE(content == clean.oldBytes || content == clean.newBytes);
  } else {
    EXPECT_TRUE(IsGap(clean, operation, fault));
    EXPECT_TRUE(hasTemporary && temporary == clean.newBytes);
  }
  if (hasTemporary && temporary != clean.newBytes) {
    ExpectUnreadable(kTemporaryPath);
  }
  AddingBinder binder;
  TextStore next;
  ASSERT_TRUE(Open(next, CrashOptions(&binder)));
  EXPECT_EQ(next.GetCount(), !isThere ? 0U : (content == clean.oldBytes ? 1U : 2U));
  EXPECT_TRUE(Get(next, "p") == (isThere ? std::optional<std::string>(ValueOf(1, 'o')) : std::nullopt));
  ASSERT_TRUE(next.Clear());
  ASSERT_TRUE(Put(next, "x", "after"));
  EXPECT_TRUE(next.Save());
  EXPECT_EQ(Sim::ListFiles(), (std::vector<std::string>{kPath, "/data/other"}));
}

TEST(MapDBCrash, SaveRenamesLastAndSyncsTheFolder) {
  AddingBinder binder;
  TextStore store;
  Prepare(store, binder);
  const u64 syncs = Sim::CountFileOperations(Operation::kSync);
  const u64 folderSyncs = Sim::CountFileOperations(Operation::kSyncFolder);
  const u64 moves = Sim::CountFileOperations(Operation::kMove);
  EXPECT_TRUE(store.Save());
  EXPECT_EQ(Sim::CountFileOperations(Operation::kSync), syncs + 1);
  EXPECT_EQ(Sim::CountFileOperations(Operation::kMove), moves + 1);
  EXPECT_EQ(Sim::CountFileOperations(Operation::kSyncFolder), folderSyncs + 1);
}

TEST(MapDBCrash, FailedOrTornOperationLeavesTheOldTheNewOrTheGap) {
  const Clean clean = SaveCleanly();
  ASSERT_GT(clean.operations, 10U);
  for (u64 operation = 0; operation < clean.operations; ++operation) {
    for (const Fault fault : {Fault::kFail, Fault::kTear}) {
      SCOPED_TRACE("operation " + std::to_string(operation));
      AddingBinder binder;
      TextStore store;
      Prepare(store, binder);
      Sim::FailFileOperation(operation, fault);
      const bool saved = store.Save();
      Sim::ClearFaults();
      EXPECT_EQ(saved, operation == clean.operations - 1) << "only the folder's sync may fail";
      ExpectOldNewOrGap(clean, operation, fault);
    }
  }
}

TEST(MapDBCrash, KilledProcessLeavesTheOldTheNewOrTheGap) {
  const Clean clean = SaveCleanly();
  for (u64 operation = 0; operation < clean.operations; ++operation) {
    SCOPED_TRACE("operation " + std::to_string(operation));
    AddingBinder binder;
    TextStore store;
    Prepare(store, binder);
    Sim::FailFileOperation(operation, Fault::kKill);
    store.Save();
    Sim::Reboot(0);
    ExpectOldNewOrGap(clean, operation, Fault::kKill);
  }
}

TEST(MapDBCrash, PowerCutLeavesTheOldTheNewOrTheGap) {
  const Clean clean = SaveCleanly();
  for (u64 operation = 0; operation < clean.operations; ++operation) {
    for (u64 seed = 1; seed <= 12; ++seed) {
      SCOPED_TRACE("operation " + std::to_string(operation) + ", seed " + std::to_string(seed));
      AddingBinder binder;
      TextStore store;
      Prepare(store, binder);
      Sim::FailFileOperation(operation, Fault::kPowerCut);
      store.Save();
      Sim::Reboot(seed);
      ExpectOldNewOrGap(clean, operation, Fault::kPowerCut);
    }
  }
}

TEST(MapDBCrash, PowerCutAfterTheSaveLeavesTheNewFile) {
  const Clean clean = SaveCleanly();
  for (u64 seed = 1; seed <= 12; ++seed) {
    AddingBinder binder;
    TextStore store;
    Prepare(store, binder);
    ASSERT_TRUE(store.Save());
    Sim::FailFileOperation(0, Fault::kPowerCut);
    EXPECT_FALSE(store.Save());
    Sim::Reboot(seed);
    EXPECT_TRUE(FileContent(kPath) == clean.newBytes);
  }
}

TEST(MapDBCrash, OperationThatLiesNeverGivesAnotherContent) {
  const Clean clean = SaveCleanly();
  for (u64 operation = 0; operation < clean.operations; ++operation) {
    SCOPED_TRACE("operation " + std::to_string(operation));
    AddingBinder binder;
    TextStore store;
    Prepare(store, binder);
    Sim::FailFileOperation(operation, Fault::kDrop);
    store.Save();
    Sim::ClearFaults();
    std::string content;
    if (Sim::GetFile(kPath, content) && content != clean.oldBytes && content != clean.newBytes) {
      ExpectUnreadable(kPath);
    }
  }
}

}  // namespace
