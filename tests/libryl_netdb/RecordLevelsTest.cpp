// The levels of the records that a module leaves in its life, which decide what a host shows to people.
#include <map>
#include <string>

#include "tests/libryl_netdb/ModuleFixture.h"

namespace RYL::Module {
namespace {

using Levels = std::map<std::string, Velmar::Log::Level>;

class RecordLevelsTest : public ModuleTest {
 protected:
  // Each of these records was left, at this level every time.
  void ExpectLevels(const Levels& expected) {
    Levels found;
    for (const auto& entry : log.Entries()) {
      const auto wanted = expected.find(entry.name);
      if (wanted != expected.end()) {
        EXPECT_EQ(entry.level, wanted->second) << entry.name;
        found.insert(*wanted);
      }
    }
    EXPECT_EQ(found, expected);
  }
};

TEST_F(RecordLevelsTest, StartAndChangesOfPolicy) {
  host.hasLookup = false;
  host.hasHashes = false;
  InitializeAndStart();
  policy.values[PolicyKey::kNetdbEnabled] = 0;
  module->ApplySettings(&policy);
  policy.values[PolicyKey::kNetdbEnabled] = 1;
  module->ApplySettings(&policy);
  EXPECT_TRUE(module->Stop());
  ExpectLevels({{"ryl_netdb.NoFileHashService", 3},
                {"ryl_netdb.NoEventLookup", 3},
                {"ryl_netdb.WorkerStarted", 1},
                {"ryl_netdb.EnabledChanged", 1},
                {"ryl_netdb.StoppingWorker", 1},
                {"ryl_netdb.StartingWorker", 1},
                {"ryl_netdb.StopTurnsOff", 3},
                {"ryl_netdb.FirstFilterTime", 1},
                {"ryl_netdb.WorkerLeaves", 1}});
}

TEST_F(RecordLevelsTest, EventsAndTurns) {
  host.lookup.AddProcess(77, 1, "/gone");
  InitializeAndStart();
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  Velmar::Sim::FailFileOperation(Velmar::Sim::Operation::kCreate, 0, Velmar::Sim::Fault::kFail, 5);
  EXPECT_TRUE(Handle(Connection().Time(1)));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(Handle(Connection().Puid(78)));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  ExpectLevels({{"ryl_netdb.ImpossibleTime", 3},
                {"ryl_netdb.ImpossibleEventTime", 3},
                {"ryl_netdb.EventStamped", 1},
                {"ryl_netdb.WorkerTurn", 1},
                {"ryl_netdb.BacklogEmpty", 3},
                {"ryl_netdb.ProcessLookup", 1},
                {"ryl_netdb.ProcessHashesMissing", 3},
                {"ryl_netdb.ProcessNotFound", 3},
                {"ryl_netdb.MessagesStored", 1},
                {"ryl_netdb.DumpFailed", 5},
                {"ryl_netdb.FootprintChecked", 1}});
}

}  // namespace
}  // namespace RYL::Module
