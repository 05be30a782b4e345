#include <string>
#include <thread>
#include <vector>

#include "tests/libryl_netdb/ModuleFixture.h"

namespace RYL::Module {
namespace {

using Comm::Interfaces::INetDBQuery;

class IterateTest : public ModuleTest {
 protected:
  struct Walk {
    std::vector<INetDBQuery::Record> rows;
    std::size_t stopAfter = ~std::size_t{0};
  };
  static bool Take(const INetDBQuery::Record& row, void* context) {
    auto* walk = static_cast<Walk*>(context);
    walk->rows.push_back(row);
    return walk->rows.size() < walk->stopAfter;
  }
  INetDBQuery& Query() { return *static_cast<INetDBQuery*>(module->QueryInterface(1007)); }
  // Three rows on the day of the start, of which the last two lie 1000 s and 2000 s behind the first.
  void Fill() {
    InitializeAndStart();
    EXPECT_TRUE(Handle(Connection("203.0.113.1").Time(kStartMs - 2000000)));
    EXPECT_TRUE(Handle(Connection("203.0.113.2").Time(kStartMs - 1000000)));
    EXPECT_TRUE(Handle(Connection("203.0.113.3").Time(kStartMs)));
    ASSERT_TRUE(module->Stop());
  }
  static constexpr u64 kAllOnes = ~u64{0};
};

TEST_F(IterateTest, WholeRangeGivesEveryRow) {
  Fill();
  Walk walk;
  EXPECT_TRUE(Query().Iterate(&Take, &walk, 0, kAllOnes));
  ASSERT_EQ(walk.rows.size(), 3U);
  EXPECT_EQ(walk.rows[0].address[3], 1);
  EXPECT_EQ(walk.rows[0].first_seen, 1699998000U);
  EXPECT_EQ(walk.rows[0].port, 443);
  EXPECT_EQ(walk.rows[0].conns_out, 1U);
  EXPECT_EQ(walk.rows[0].proc_pid, -1);
}

TEST_F(IterateTest, RangeCountsBothEnds) {
  Fill();
  Walk walk;
  EXPECT_TRUE(Query().Iterate(&Take, &walk, 1699999000, 1700000000));
  EXPECT_EQ(walk.rows.size(), 2U);
}

TEST_F(IterateTest, CallbackThatStopsMakesTheResultFalse) {
  Fill();
  Walk walk;
  walk.stopAfter = 2;
  EXPECT_FALSE(Query().Iterate(&Take, &walk, 0, kAllOnes));
  EXPECT_EQ(walk.rows.size(), 2U);
}

// Of the same day, its file is opened and none of its rows lies in the range; of no day, no file is.
TEST_F(IterateTest, ReversedRangeIsPassedDownAsItStands) {
  Fill();
  struct Range {
    u64 from;
    u64 to;
    int filesOpened;
  };
  for (const Range& range : {Range{1700000000, 1699999000, 1}, Range{kAllOnes, 0, 0}}) {
    Walk walk;
    log.Clear();
    EXPECT_TRUE(Query().Iterate(&Take, &walk, range.from, range.to));
    EXPECT_EQ(walk.rows.size(), 0U);
    EXPECT_EQ(log.Count("netdb_storage.QueryRowsTimed"), range.filesOpened);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{});
  }
}

TEST_F(IterateTest, CallbackRunsOnTheCallersThread) {
  Fill();
  std::thread::id caller = std::this_thread::get_id();
  const auto isCaller = [](const INetDBQuery::Record&, void* context) {
    return std::this_thread::get_id() == *static_cast<std::thread::id*>(context);
  };
  EXPECT_TRUE(Query().Iterate(isCaller, &caller, 0, kAllOnes));
}

TEST_F(IterateTest, DisabledModuleStillAnswers) {
  Fill();
  ASSERT_FALSE(Settings().netdb_enabled.Get());
  Walk walk;
  EXPECT_TRUE(Query().Iterate(&Take, &walk, 0, kAllOnes));
  EXPECT_EQ(walk.rows.size(), 3U);
}

TEST_F(IterateTest, RowsSinceTheLastDumpAreNotSeen) {
  InitializeAndStart();
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(Handle(Connection("203.0.113.1")));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  EXPECT_TRUE(Handle(Connection("203.0.113.2")));
  ASSERT_TRUE(Velmar::Sim::WaitUntilWaiting(1));
  Walk walk;
  EXPECT_TRUE(Query().Iterate(&Take, &walk, 0, kAllOnes));
  EXPECT_EQ(walk.rows.size(), 1U);
}

TEST_F(IterateTest, ModuleWithoutFolderFails) {
  Walk walk;
  EXPECT_FALSE(Query().Iterate(&Take, &walk, 0, kAllOnes));
  EXPECT_EQ(log.CountLevel(5), 1);
}

}  // namespace
}  // namespace RYL::Module
