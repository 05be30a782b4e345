// A filter job cut off, failed or torn at each of its operations on the disk and at each allocation: the day stays
// readable with the right rows, and the next job completes it.
#include <gtest/gtest.h>

#include <algorithm>

#include "Velmar/Collections/ModuleMemory.h"
#include "tests/cloud/FilterJobFixture.h"
#include "tests/support/CountingAllocator.h"

namespace FilterJobTest {
namespace {

using Sim::Fault;

// A fault, and how many operations in a row it hits.
struct Plan {
  Fault fault;
  u64 count;
  u64 seeds;
  const char* name;
};

void PrintTo(const Plan& plan, std::ostream* out) {
  *out << plan.name;
}

class FilterJobFaultTest : public FilterJobFixture, public testing::WithParamInterface<Plan> {
 protected:
  u64 OperationsOfAJob() {
    StartDisk();
    const u64 before = Sim::CountFileOperations();
    EXPECT_EQ(Run(), FilterState::kDone);
    return Sim::CountFileOperations() - before;
  }
  static bool IsThere(const std::string& name) {
    const Lines files = Files();
    return std::find(files.begin(), files.end(), name) != files.end();
  }
  // The day under one of its names, old or filtered. True in the gap between the removal of the old file and the
  // renaming of the new one, in which case the new one is whole and gets its name.
  bool ExpectWholeDay(u8 result) {
    const bool plain = IsThere("1699920000.db");
    const bool filtered = IsThere("1699920000.db.f");
    EXPECT_FALSE(plain && filtered);
    EXPECT_TRUE(result != FilterState::kDone || filtered);
    if (plain || filtered) {
      const std::vector<u16> ports = PortsOf(plain ? path : path + ".f");
      EXPECT_TRUE(ports == kHarmfulPorts || (plain && ports.size() == kRows)) << ports.size();
      return false;
    }
    const std::string complete = Content(path + ".temp");
    Sim::RemoveFile(path + ".temp");
    Sim::PutFile(path, complete);
    EXPECT_EQ(PortsOf(path), kHarmfulPorts);
    return true;
  }
};

TEST_P(FilterJobFaultTest, DayIsWholeAndTheNextJobCompletesIt) {
  const Plan& plan = GetParam();
  const u64 operations = OperationsOfAJob();
  ASSERT_GT(operations, 20U);
  u64 failed = 0;
  u64 gaps = 0;
  for (u64 n = 0; n < operations; ++n) {
    for (u64 seed = 0; seed < plan.seeds; ++seed) {
      SCOPED_TRACE("operation " + std::to_string(n) + ", seed " + std::to_string(seed));
      StartDisk();
      Sim::FailFileOperation(n, plan.fault, plan.count);
      const u8 result = Run();
      failed += result == FilterState::kFailed ? 1 : 0;
      if (plan.fault == Fault::kKill || plan.fault == Fault::kPowerCut) {
        Sim::Reboot(seed);
      }
      Sim::ClearFaults();
      gaps += ExpectWholeDay(result) ? 1 : 0;
      if (!IsThere("1699920000.db.f")) {
        NextJobCompletes();
      }
    }
  }
  EXPECT_GT(failed, 0U);
  // One failed operation is made good within the job; only an end in the gap leaves it open.
  EXPECT_EQ(gaps > 0, plan.count > 1 || plan.fault == Fault::kKill || plan.fault == Fault::kPowerCut) << gaps;
}

std::string NameOf(const testing::TestParamInfo<Plan>& info) {
  return info.param.name;
}

constexpr u64 kForGood = 1000000;

INSTANTIATE_TEST_SUITE_P(Faults, FilterJobFaultTest,
                         testing::Values(Plan{Fault::kFail, 1, 1, "FailOnce"},
                                         Plan{Fault::kFail, kForGood, 1, "FailForGood"},
                                         Plan{Fault::kTear, 1, 1, "TearOnce"},
                                         Plan{Fault::kTear, kForGood, 1, "TearForGood"},
                                         Plan{Fault::kKill, 1, 1, "Kill"}, Plan{Fault::kPowerCut, 1, 8, "PowerCut"}),
                         &NameOf);

// The dump renames once, and so does the mark; each retries.
class FilterJobRenameTest : public FilterJobFaultTest {};

TEST_P(FilterJobRenameTest, RenamesThatFailUpToFourTimesInARowAreMadeGood) {
  for (u64 n = 0; n < 2; ++n) {
    for (u64 count = 1; count <= 4; ++count) {
      StartDisk();
      Sim::FailFileOperation(Sim::Operation::kMove, n, GetParam().fault, count);
      EXPECT_EQ(Run(), FilterState::kDone) << n << " " << count;
      Sim::ClearFaults();
      EXPECT_EQ(PortsOf(path + ".f"), kHarmfulPorts);
      EXPECT_EQ(Files(), Lines{"1699920000.db.f"});
    }
  }
}

// Five attempts are the dump's, five more the manager's own at its end.
TEST_P(FilterJobRenameTest, DumpWhoseRenamesFailIsLeftToTheManager) {
  for (u64 count = 5; count <= 10; ++count) {
    StartDisk();
    Sim::FailFileOperation(Sim::Operation::kMove, 0, GetParam().fault, count);
    EXPECT_EQ(Run(), FilterState::kFailed) << count;
    Sim::ClearFaults();
    EXPECT_EQ(Files(), Lines{count < 10 ? "1699920000.db" : "1699920000.db.temp"});
    EXPECT_EQ(ExpectWholeDay(FilterState::kFailed), count == 10);
    EXPECT_EQ(PortsOf(path), kHarmfulPorts);
    NextJobCompletes();
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, FilterJobRenameTest, testing::Values(Plan{Fault::kFail, 1, 1, "Fail"}), &NameOf);

enum class Memory { kModule, kBase };

class FilterJobMemoryTest : public FilterJobFixture, public testing::WithParamInterface<Memory> {
 protected:
  FilterJobMemoryTest() { Velmar::Collections::SetModuleAllocator(&allocator); }
  ~FilterJobMemoryTest() override {
    verdicts.reset();
    EXPECT_EQ(allocator.Out(), 0U);
    Velmar::Collections::SetModuleAllocator(nullptr);
  }
  u64 Count() const { return GetParam() == Memory::kModule ? allocator.Allocations() : Sim::CountAllocations(); }

  CountingAllocator allocator;
};

TEST_P(FilterJobMemoryTest, EachAllocationMayFailOnce) {
  u64 failed = 0;
  bool reached = true;
  for (u64 n = 0; reached; ++n) {
    SCOPED_TRACE(n);
    StartDisk();
    const u64 start = Count();
    if (GetParam() == Memory::kModule) {
      allocator.FailFrom(n);
    } else {
      Sim::FailAllocation(n);
    }
    const u8 result = Run();
    reached = Count() - start > n;
    allocator.FailFrom(CountingAllocator::kNever);
    Sim::FailAllocation(kAllOnes64);
    EXPECT_TRUE(reached || result == FilterState::kDone);
    if (result == FilterState::kDone) {
      EXPECT_EQ(PortsOf(path + ".f"), kHarmfulPorts);
      continue;
    }
    ++failed;
    const std::vector<u16> ports = PortsOf(path);
    EXPECT_TRUE(std::includes(ports.begin(), ports.end(), kHarmfulPorts.begin(), kHarmfulPorts.end()));
    NextJobCompletes();
  }
  EXPECT_GT(failed, 5U);
}

std::string NameOfMemory(const testing::TestParamInfo<Memory>& info) {
  return info.param == Memory::kModule ? "Module" : "Base";
}

INSTANTIATE_TEST_SUITE_P(Memories, FilterJobMemoryTest, testing::Values(Memory::kModule, Memory::kBase), &NameOfMemory);

}  // namespace
}  // namespace FilterJobTest
