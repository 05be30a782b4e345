// A dump cut off, torn or killed at each of its operations on the disk: what stands there afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/netdb_storage/Folder.h"

namespace {

using namespace StorageTest;
using Sim::Fault;

constexpr u64 kSeeds = 8;
constexpr char kMissing[] = "(missing)";

// A fault, and how many operations in a row it hits.
struct Plan {
  Fault fault;
  u64 count;
  const char* name;
};

void PrintTo(const Plan& plan, std::ostream* out) {
  *out << plan.name;
}

class SaveFaultTest : public testing::TestWithParam<Plan> {
 protected:
  static void StartDisk() {
    Sim::Reset();
    ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  }
  static void Open(DBManager& manager, u16 port) {
    ASSERT_TRUE(manager.SetFolder(kFolder));
    // Enough rows for a page that is written on its own, in bytes that do not shrink.
    for (u16 i = 0; i < 200; ++i) {
      BacklogMessage message = MakeMessage(kDay + i, Address(10, 0, 0, 1), static_cast<u16>(port + i));
      message.bytes_in = u64{i} * 0x9E3779B97F4A7C15;
      ASSERT_TRUE(manager.Add(message, nullptr));
    }
  }
  // The disk with the day's old file, if there is one, and a manager that is about to dump the new one.
  static void Prepare(DBManager& manager, bool withOldFile) {
    StartDisk();
    if (withOldFile) {
      DBManager writer;
      Open(writer, 1);
    }
    Open(manager, 1000);
  }
  static std::string NewContent(bool withOldFile) {
    DBManager manager;
    Prepare(manager, withOldFile);
    EXPECT_TRUE(manager.Flush());
    return Content(DayPath(kDay));
  }
  static u64 OperationsOfAFlush(bool withOldFile) {
    DBManager manager;
    Prepare(manager, withOldFile);
    const u64 before = Sim::CountFileOperations();
    EXPECT_TRUE(manager.Flush());
    return Sim::CountFileOperations() - before;
  }
};

TEST_P(SaveFaultTest, FileIsWholeOldOrNewOrInTheGapBesideACompleteTemporaryFile) {
  const Plan& plan = GetParam();
  const bool isDeath = plan.fault == Fault::kKill || plan.fault == Fault::kPowerCut;
  const std::string fresh = NewContent(true);
  const u64 operations = OperationsOfAFlush(true);
  ASSERT_GT(operations, 8U);
  u64 gaps = 0;
  for (u64 n = 0; n < operations; ++n) {
    for (u64 seed = 0; seed < (plan.fault == Fault::kPowerCut ? kSeeds : 1); ++seed) {
      std::string old;
      bool flushed = false;
      {
        DBManager manager;
        Prepare(manager, true);
        old = Content(DayPath(kDay));
        Sim::FailFileOperation(n, plan.fault, plan.count);
        flushed = manager.Flush();
        EXPECT_EQ(DBManagerTestAccess::Dirty(manager), !flushed);
        // The manager goes with its process; it may not dump once more.
        DBManagerTestAccess::Dirty(manager) = false;
      }
      if (isDeath) {
        EXPECT_FALSE(flushed && n + 1 < operations) << n;
        Sim::Reboot(seed);
      }
      Sim::ClearFaults();
      const std::string found = Content(DayPath(kDay));
      if (found == kMissing) {
        ++gaps;
        EXPECT_EQ(Content(DayPath(kDay, ".db.temp")), fresh) << n << " " << seed;
      } else {
        EXPECT_THAT(found, testing::AnyOf(old, fresh)) << n << " " << seed;
      }
      if (flushed) {
        EXPECT_EQ(found, fresh) << n << " " << seed;
      }
      const std::size_t rows = AllRows().records.size();
      EXPECT_EQ(rows, found == kMissing ? 0U : (found == old ? 200U : 400U));
    }
  }
  if (isDeath) {
    EXPECT_GT(gaps, 0U) << "the gap between the deletion of the old file and the renaming of the new one";
  }
}

TEST_P(SaveFaultTest, FirstFileOfADayIsWholeOrMissing) {
  const Plan& plan = GetParam();
  const std::string fresh = NewContent(false);
  const u64 operations = OperationsOfAFlush(false);
  for (u64 n = 0; n < operations; ++n) {
    for (u64 seed = 0; seed < (plan.fault == Fault::kPowerCut ? kSeeds : 1); ++seed) {
      {
        DBManager manager;
        Prepare(manager, false);
        Sim::FailFileOperation(n, plan.fault, plan.count);
        manager.Flush();
        DBManagerTestAccess::Dirty(manager) = false;
      }
      Sim::Reboot(seed);
      Sim::ClearFaults();
      EXPECT_THAT(Content(DayPath(kDay)), testing::AnyOf(std::string(kMissing), fresh)) << n << " " << seed;
    }
  }
}

TEST_P(SaveFaultTest, NextDumpMendsTheFile) {
  const Plan& plan = GetParam();
  const u64 operations = OperationsOfAFlush(true);
  const std::string fresh = NewContent(true);
  for (u64 n = 0; n < operations; ++n) {
    DBManager manager;
    Prepare(manager, true);
    Sim::FailFileOperation(n, plan.fault, plan.count);
    const bool flushed = manager.Flush();
    Sim::ClearFaults();
    Sim::Reboot(n);
    DBManagerTestAccess::Dirty(manager) = true;
    EXPECT_TRUE(manager.Flush()) << n << " " << flushed;
    EXPECT_EQ(Content(DayPath(kDay)), fresh) << n;
    EXPECT_EQ(Files(), (std::vector<std::string>{"1699920000.db"})) << n;
  }
}

std::string NameOf(const testing::TestParamInfo<Plan>& info) {
  return info.param.name;
}

constexpr u64 kForGood = 1000000;

INSTANTIATE_TEST_SUITE_P(Faults, SaveFaultTest,
                         testing::Values(Plan{Fault::kFail, 1, "FailOnce"}, Plan{Fault::kFail, kForGood, "FailForGood"},
                                         Plan{Fault::kTear, 1, "TearOnce"}, Plan{Fault::kTear, kForGood, "TearForGood"},
                                         Plan{Fault::kKill, 1, "Kill"}, Plan{Fault::kPowerCut, 1, "PowerCut"}),
                         &NameOf);

// One operation that fails costs no more than a repetition.
TEST(SaveFault, SingleFailureIsMendedByTheNextSave) {
  Sim::Reset();
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  for (u64 n = 0; n < 12; ++n) {
    DBManager manager;
    ASSERT_TRUE(manager.SetFolder(kFolder));
    ASSERT_TRUE(manager.Add(MakeMessage(kDay, Address(10, 0, 0, 1), static_cast<u16>(n)), nullptr));
    Sim::FailFileOperation(n, Fault::kFail);
    EXPECT_TRUE(manager.Flush()) << n;
    Sim::ClearFaults();
    EXPECT_EQ(AllRows().records.size(), n + 1);
  }
}

TEST(SaveFault, FullDiskKeepsTheOldFile) {
  Sim::Reset();
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  DBManager manager;
  ASSERT_TRUE(manager.SetFolder(kFolder));
  ASSERT_TRUE(manager.Add(MakeMessage(kDay, Address(10, 0, 0, 1), 1), nullptr));
  ASSERT_TRUE(manager.Flush());
  const std::string old = Content(DayPath(kDay));
  for (u16 port = 2; port < 500; ++port) {
    BacklogMessage message = MakeMessage(kDay, Address(10, 0, 0, 1), port);
    message.bytes_in = u64{port} * 0x9E3779B97F4A7C15;
    ASSERT_TRUE(manager.Add(message, nullptr));
  }
  Sim::SetDiskLimit(old.size() + 100);
  EXPECT_FALSE(manager.Flush());
  EXPECT_EQ(Content(DayPath(kDay)), old);
  EXPECT_EQ(Files(), (std::vector<std::string>{"1699920000.db"})) << "the partial file is gone";
  Sim::SetDiskLimit(0);
  EXPECT_TRUE(manager.Flush());
  EXPECT_EQ(AllRows().records.size(), 499U);
}

// Each operation of an opening in turn: the file is refused or read whole, and stays as it is.
TEST(LoadFault, FileThatCannotBeReadIsRefusedAndKept) {
  Sim::Reset();
  ASSERT_TRUE(Velmar::OS::FileSystem::CreateDirectory(kFolder));
  {
    DBManager writer;
    ASSERT_TRUE(writer.SetFolder(kFolder));
    ASSERT_TRUE(writer.Add(MakeMessage(kDay, Address(10, 0, 0, 1), 1), nullptr));
  }
  const std::string file = Content(DayPath(kDay));
  const u64 before = Sim::CountFileOperations();
  {
    DBManager reader;
    ASSERT_TRUE(reader.SyncWith(DayPath(kDay).c_str(), false));
  }
  const u64 operations = Sim::CountFileOperations() - before;
  ASSERT_GT(operations, 5U);
  u64 refused = 0;
  for (const Fault fault : {Fault::kFail, Fault::kTear, Fault::kDrop}) {
    for (u64 n = 0; n < operations; ++n) {
      DBManager reader;
      Sim::FailFileOperation(n, fault);
      const bool synced = reader.SyncWith(DayPath(kDay).c_str(), false);
      Sim::ClearFaults();
      refused += synced ? 0 : 1;
      EXPECT_TRUE(!synced || reader.GetRowCount() == 1) << n;
      EXPECT_EQ(Content(DayPath(kDay)), file);
    }
  }
  EXPECT_GT(refused, operations);
}

}  // namespace
