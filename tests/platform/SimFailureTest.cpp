// The fault plan of the simulated platform, for files and for everything else.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "Machine.h"
#include "Velmar/Memory.h"
#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "Velmar/OS/Network.h"
#include "Velmar/OS/Threading.h"
#include "Velmar/OS/Time.h"
#include "platform/sim/Sim.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace Velmar;
using OS::Event;
using OS::File;
using OS::FileSystem;
using OS::Threading;
using Sim::Fault;
using Sim::Operation;
using testing::ElementsAre;

class SimFault : public MachineTest {
 protected:
  bool Exists(const std::string& name) { return FileSystem::FileExists(Path(name).c_str(), false); }
  // Opens "a" for writing.
  void Create(File& file) { ASSERT_TRUE(file.Create(Path("a").c_str(), false, true)); }
};

TEST_F(SimFault, FailedOperationDoesNothing) {
  Put("a", "old");
  for (Operation kind : {Operation::kCreate, Operation::kOpenRead, Operation::kDelete, Operation::kMove,
                         Operation::kExists, Operation::kSize, Operation::kCreateDirectory, Operation::kEnumerate}) {
    Sim::FailFileOperation(kind, 0, Fault::kFail);
  }
  File file;
  EXPECT_FALSE(file.Create(Path("a").c_str(), false, true));
  EXPECT_FALSE(file.OpenRead(Path("a").c_str()));
  EXPECT_FALSE(FileSystem::DeleteFile(Path("a").c_str(), false, nullptr));
  EXPECT_FALSE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  EXPECT_FALSE(Exists("a"));
  EXPECT_EQ(File::GetFileSize(Path("a").c_str()), 0U);
  EXPECT_FALSE(FileSystem::CreateDirectory(Path("folder").c_str()));
  Utils::String folder(machine_.Folder().c_str(), true);
  auto accept = [](const char*, const char*, u64, bool, OS::FileTimes&, void*) { return true; };
  EXPECT_FALSE(FileSystem::EnumerateFiles(folder, false, accept, nullptr, true, true, false));

  EXPECT_TRUE(Exists("a"));
  EXPECT_EQ(Content("a"), "old");
  EXPECT_FALSE(FileSystem::DirectoryExists(Path("folder").c_str(), false));
}

TEST_F(SimFault, FailedTransferMovesNothing) {
  File file;
  Create(file);
  EXPECT_TRUE(file.Write("ab", 2, nullptr));
  Sim::FailFileOperation(Operation::kWrite, 0, Fault::kFail);
  Sim::FailFileOperation(Operation::kSeek, 0, Fault::kFail);
  u32 done = 77;
  EXPECT_FALSE(file.Write("cd", 2, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_FALSE(file.Seek(0));
  EXPECT_EQ(file.Tell(), 2U);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "ab");

  Sim::FailFileOperation(Operation::kRead, 0, Fault::kFail);
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  char data[2];
  EXPECT_FALSE(file.Read(data, 2, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(file.Tell(), 0U);
}

TEST_F(SimFault, TornWriteTransfersHalf) {
  File file;
  Create(file);
  Sim::FailFileOperation(Operation::kWrite, 0, Fault::kTear);
  u32 done = 0;
  EXPECT_FALSE(file.Write("0123456789", 10, &done));
  EXPECT_EQ(done, 5U);
  EXPECT_EQ(file.Tell(), 5U);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "01234");
}

TEST_F(SimFault, DroppedWriteLeavesAHole) {
  File file;
  Create(file);
  Sim::FailFileOperation(Operation::kWrite, 0, Fault::kDrop);
  u32 done = 0;
  EXPECT_TRUE(file.Write("lost", 4, &done));
  EXPECT_EQ(done, 4U);
  EXPECT_TRUE(file.Write("kept", 4, nullptr));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), std::string("\0\0\0\0kept", 8));
}

TEST_F(SimFault, DroppedReadLeavesTheMemoryAsItWas) {
  Put("a", "0123");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  Sim::FailFileOperation(Operation::kRead, 0, Fault::kDrop);
  char data[2] = {'x', 'y'};
  EXPECT_TRUE(file.Read(data, 2, nullptr));
  EXPECT_EQ(std::string(data, 2), "xy");
  EXPECT_TRUE(file.Read(data, 2, nullptr));
  EXPECT_EQ(std::string(data, 2), "23");
}

TEST_F(SimFault, DroppedOpeningGivesAnEmptyFileWithoutAName) {
  Put("b", "content");
  Sim::FailFileOperation(Operation::kCreate, 0, Fault::kDrop);
  Sim::FailFileOperation(Operation::kOpenRead, 0, Fault::kDrop);
  File file;
  Create(file);
  EXPECT_TRUE(file.Write("x", 1, nullptr));
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content("a"), "(missing)");
  ASSERT_TRUE(file.OpenRead(Path("b").c_str()));
  char byte = 0;
  EXPECT_FALSE(file.Read(&byte, 1, nullptr));
}

TEST_F(SimFault, DroppedChangeOfAFolderChangesNothing) {
  Put("a", "content");
  Sim::FailFileOperation(Operation::kDelete, 0, Fault::kDrop);
  Sim::FailFileOperation(Operation::kMove, 0, Fault::kDrop);
  Sim::FailFileOperation(Operation::kExists, 0, Fault::kDrop);
  EXPECT_TRUE(FileSystem::DeleteFile(Path("a").c_str(), false, nullptr));
  EXPECT_TRUE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  EXPECT_TRUE(Exists("missing"));
  EXPECT_FALSE(Exists("b"));
  EXPECT_EQ(Content("a"), "content");
}

TEST_F(SimFault, FailedSyncOrCloseMakesCloseFalseAndGivesTheFileUp) {
  for (Operation kind : {Operation::kSync, Operation::kClose}) {
    File file;
    Create(file);
    Sim::FailFileOperation(kind, 0, Fault::kFail);
    EXPECT_FALSE(file.Close());
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.Write("x", 1, nullptr));
  }
}

TEST_F(SimFault, ReadOnlyFileIsNotSynced) {
  Put("a", "content");
  File file;
  ASSERT_TRUE(file.OpenRead(Path("a").c_str()));
  Sim::FailFileOperation(Operation::kSync, 0, Fault::kFail);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Sim::CountFileOperations(Operation::kSync), 0U);
}

// Two writes, then a sync with a fault, then power off under a seed that keeps nothing unsynced.
std::string ContentAfterFaultySync(const std::string& path, Fault fault, bool closed) {
  std::string shortest = "longer than any";
  for (u64 seed = 0; seed < 32; ++seed) {
    Sim::Reset();
    Sim::PutFile(path, "");
    File file;
    EXPECT_TRUE(file.Create(path.c_str(), false, true));
    EXPECT_TRUE(file.Write("12", 2, nullptr) && file.Write("34", 2, nullptr));
    Sim::FailFileOperation(Operation::kSync, 0, fault);
    EXPECT_EQ(file.Close(), closed);
    Sim::CutPower();
    Sim::Reboot(seed);
    std::string content;
    EXPECT_TRUE(Sim::GetFile(path, content));
    shortest = content.size() < shortest.size() ? content : shortest;
  }
  return shortest;
}

TEST_F(SimFault, TornSyncMakesHalfDurable) {
  EXPECT_EQ(ContentAfterFaultySync(Path("a"), Fault::kTear, false), "12");
}

TEST_F(SimFault, DroppedSyncMakesNothingDurable) {
  EXPECT_EQ(ContentAfterFaultySync(Path("a"), Fault::kDrop, true), "");
}

TEST_F(SimFault, FailedFolderSyncIsARecordAndMoveIsTrue) {
  for (Fault fault : {Fault::kFail, Fault::kTear}) {
    Put("a", "content");
    Sim::FailFileOperation(Operation::kSyncFolder, 0, fault);
    LogCapture log;
    EXPECT_TRUE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
    EXPECT_THAT(log.Lines(), ElementsAre("3 base.FolderSyncFailed"));
    EXPECT_THAT(log.Arguments("base.FolderSyncFailed"), ElementsAre(Path("b")));
    EXPECT_EQ(Content("b"), "content");
    Sim::RemoveFile(Path("b"));
  }
}

TEST_F(SimFault, DeathAtTheFolderSyncLeavesNobodyToLog) {
  Put("a", "content");
  Sim::FailFileOperation(Operation::kSyncFolder, 0, Fault::kKill);
  LogCapture log;
  EXPECT_FALSE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  EXPECT_THAT(log.Lines(), ElementsAre());
  EXPECT_EQ(Content("b"), "content");
}

TEST_F(SimFault, PlanCountsFromNow) {
  EXPECT_FALSE(Exists("a"));
  Put("a", "");
  Sim::FailFileOperation(1, Fault::kFail, 2);
  EXPECT_TRUE(Exists("a"));
  EXPECT_FALSE(Exists("a"));
  EXPECT_FALSE(Exists("a"));
  EXPECT_TRUE(Exists("a"));
}

TEST_F(SimFault, PlanOfAKindCountsThatKindOnly) {
  Put("a", "1");
  Sim::FailFileOperation(Operation::kSize, 1, Fault::kFail);
  EXPECT_TRUE(Exists("a"));
  EXPECT_EQ(File::GetFileSize(Path("a").c_str()), 1U);
  EXPECT_TRUE(Exists("a"));
  EXPECT_EQ(File::GetFileSize(Path("a").c_str()), 0U);
  EXPECT_EQ(File::GetFileSize(Path("a").c_str()), 1U);
}

TEST_F(SimFault, OlderPlanHoldsWhereTwoMeet) {
  Put("a", "1");
  Sim::FailFileOperation(Operation::kExists, 0, Fault::kDrop);
  Sim::FailFileOperation(0, Fault::kFail);
  EXPECT_TRUE(Exists("missing"));
}

TEST_F(SimFault, ClearedPlanFailsNothing) {
  Put("a", "1");
  Sim::FailFileOperation(0, Fault::kFail, 100);
  Sim::ClearFaults();
  EXPECT_TRUE(Exists("a"));
}

TEST_F(SimFault, OperationsAreCountedByKind) {
  u64 before = Sim::CountFileOperations();
  File file;
  Create(file);
  EXPECT_TRUE(file.Write("ab", 2, nullptr));
  EXPECT_TRUE(file.Write("", 0, nullptr));
  EXPECT_TRUE(file.Close());
  EXPECT_TRUE(FileSystem::MoveFile(Path("a").c_str(), Path("b").c_str()));
  EXPECT_EQ(Sim::CountFileOperations() - before, 6U);
  for (Operation kind : {Operation::kCreate, Operation::kWrite, Operation::kSync, Operation::kClose, Operation::kMove,
                         Operation::kSyncFolder}) {
    EXPECT_EQ(Sim::CountFileOperations(kind), 1U) << static_cast<int>(kind);
  }
}

TEST_F(SimFault, ChosenAllocationsFail) {
  u64 before = Sim::CountAllocations();
  Sim::FailAllocation(1, 2);
  void* first = Memory::Allocate(16);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(Memory::Allocate(16), nullptr);
  EXPECT_EQ(Memory::Allocate(16), nullptr);
  void* last = Memory::Allocate(16);
  EXPECT_NE(last, nullptr);
  EXPECT_EQ(Sim::CountAllocations() - before, 4U);
  Memory::Free(first);
  Memory::Free(last);
  Memory::Free(nullptr);
}

TEST_F(SimFault, AllOnesFailsNoAllocation) {
  Sim::FailAllocation(0);
  Sim::FailAllocation(~u64{0});
  void* memory = Memory::Allocate(1);
  EXPECT_NE(memory, nullptr);
  Memory::Free(memory);
}

TEST_F(SimFault, MutexThreadAndEventNeedMemory) {
  Sim::FailAllocation(0, 3);
  EXPECT_EQ(Threading::MutexCreate(), nullptr);
  EXPECT_EQ(Threading::StartThread([](void*) {}, nullptr, "none"), nullptr);
  Event event(false);
  EXPECT_FALSE(event.IsValid());
  EXPECT_FALSE(event.Signal());
  EXPECT_FALSE(event.Wait(1));
}

TEST_F(SimFault, ChosenThreadServicesFail) {
  Sim::FailMutexCreate(1);
  Sim::FailThreadStart(1);
  Sim::FailEventCreate(1);
  EXPECT_EQ(Threading::MutexCreate(), nullptr);
  EXPECT_EQ(Threading::StartThread([](void*) {}, nullptr, "none"), nullptr);
  EXPECT_FALSE(Event(false).IsValid());

  void* mutex = Threading::MutexCreate();
  EXPECT_NE(mutex, nullptr);
  Threading::MutexDestroy(mutex);
  void* thread = Threading::StartThread([](void*) {}, nullptr, "one");
  EXPECT_TRUE(Threading::WaitForThreadToEnd(thread));
  EXPECT_TRUE(Event(false).IsValid());
}

TEST_F(SimFault, FailedSignalSignalsNothing) {
  Event event(false);
  Sim::FailEventSignal(2);
  EXPECT_FALSE(event.Signal());
  EXPECT_FALSE(event.Signal());
  EXPECT_FALSE(event.Wait(0));
  EXPECT_TRUE(event.Signal());
  EXPECT_TRUE(event.Wait(0));
}

TEST_F(SimFault, InterfacesAreAsSet) {
  struct Addresses {
    std::vector<std::string> texts;
    bool Add(const Utils::String& text) {
      texts.emplace_back(text.text);
      return true;
    }
  };
  Sim::SetInterfaceAddresses({"10.0.0.1", "127.0.0.1"}, {"::1"});
  Addresses ipv4;
  Addresses ipv6;
  EXPECT_TRUE(OS::Network::GetIPv4NetworkInterfaces(ipv4));
  EXPECT_TRUE(OS::Network::GetIPv6NetworkInterfaces(ipv6));
  EXPECT_THAT(ipv4.texts, ElementsAre("10.0.0.1", "127.0.0.1"));
  EXPECT_THAT(ipv6.texts, ElementsAre("::1"));
  EXPECT_FALSE(OS::Network::EnumerateInterfaceAddresses(
      false, [](const char*, void*) { return false; }, nullptr));
}

}  // namespace
