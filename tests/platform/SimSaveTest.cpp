// A save through a temporary file, cut off at each of its operations: what the disk can hold afterwards.
#include <gmock/gmock.h>

#include <string>

#include "Machine.h"
#include "Velmar/OS/File.h"
#include "Velmar/OS/FileSystem.h"
#include "platform/sim/Sim.h"

namespace {

using namespace Velmar;
using OS::File;
using OS::FileSystem;
using testing::AnyOf;

constexpr char kOld[] = "the old content";
constexpr char kNew[] = "the new content, which is longer";
constexpr u64 kSeeds = 16;

class SimSave : public MachineTest, public testing::WithParamInterface<Sim::Fault> {
 protected:
  bool Save() {
    std::string target = Path("file");
    std::string temporary = target + ".temp";
    File file;
    return file.Create(temporary.c_str(), false, true) && file.Write(kNew, 16, nullptr) &&
           file.Write(kNew + 16, sizeof(kNew) - 1 - 16, nullptr) && file.Close() &&
           FileSystem::DeleteFile(target.c_str(), false, nullptr) &&
           FileSystem::MoveFile(temporary.c_str(), target.c_str());
  }
  // Cuts the save off before its operation `n`; false when it has no such operation.
  bool SaveCutOffAt(u64 n, u64 seed) {
    Sim::Reset();
    Put("file", kOld);
    Sim::FailFileOperation(n, GetParam());
    bool done = Save();
    Sim::Reboot(seed);
    return !done;
  }
};

TEST_P(SimSave, LeavesOldOrNewOrTheCompleteTemporaryFile) {
  u64 operation = 0;
  u64 gaps = 0;
  for (bool cut = true; cut; ++operation) {
    for (u64 seed = 0; seed < kSeeds; ++seed) {
      cut = SaveCutOffAt(operation, seed);
      std::string content = Content("file");
      if (content == "(missing)") {
        ++gaps;
        EXPECT_EQ(Content("file.temp"), kNew) << operation << " " << seed;
      } else {
        EXPECT_THAT(content, AnyOf(kOld, kNew)) << operation << " " << seed;
      }
    }
  }
  EXPECT_EQ(Content("file"), kNew);
  EXPECT_EQ(operation, 9U) << "eight operations, and one save that was not cut";
  EXPECT_GT(gaps, 0U);
}

std::string NameOfDeath(const testing::TestParamInfo<Sim::Fault>& death) {
  return death.param == Sim::Fault::kKill ? "Kill" : "PowerCut";
}

INSTANTIATE_TEST_SUITE_P(Deaths, SimSave, testing::Values(Sim::Fault::kKill, Sim::Fault::kPowerCut), NameOfDeath);

}  // namespace
