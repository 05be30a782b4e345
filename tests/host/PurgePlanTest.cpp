// What purge is asked for, and that a plan is what the deletion does.
#include "host/commands/PurgePlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "Velmar/OS/Time.h"
#include "common/netdb_storage/DBManager.h"
#include "host/text/TimeText.h"
#include "tests/host/TemporaryFolder.h"

namespace {

using namespace Host;
using namespace Host::Commands;
using RYL::NetDB::DBManager;
using testing::HasSubstr;

constexpr u64 kDay = 1699920000;  // 2023-11-14
constexpr u64 kOneDay = 86400;
constexpr u64 kNow = kDay + 3600;
constexpr u64 kNoLimit = ~u64{0};

TEST(ReadSize, TakesBytesAndUnitsOf1024) {
  EXPECT_EQ(ReadSize("0"), 0U);
  EXPECT_EQ(ReadSize("0G"), 0U);
  EXPECT_EQ(ReadSize("1500"), 1500U);
  EXPECT_EQ(ReadSize("3K"), 3U << 10);
  EXPECT_EQ(ReadSize("3m"), 3U << 20);
  EXPECT_EQ(ReadSize("500G"), u64{500} << 30);
}

TEST(ReadSize, TakesWhat64BitsHoldAndNoMore) {
  EXPECT_EQ(ReadSize("18446744073709551615"), kNoLimit);
  EXPECT_EQ(ReadSize("17179869183G"), u64{17179869183} << 30);
  EXPECT_EQ(ReadSize("17179869184G"), std::nullopt);
  EXPECT_EQ(ReadSize("18446744073709551616"), std::nullopt);
}

TEST(ReadSize, RefusesWhatIsNoSize) {
  for (const char* text : {"", "K", "-1", "1.5G", "1 K", "1T", "1KiB", "1KK", "0x10", "ten"}) {
    EXPECT_EQ(ReadSize(text), std::nullopt) << text;
  }
}

TEST(ReadPurgeRequest, NothingToGoByIsRefused) {
  std::string error;
  EXPECT_FALSE(ReadPurgeRequest("", "", kNow, error));
  EXPECT_THAT(error, HasSubstr("--before DATE, --to-size SIZE or both"));
}

TEST(ReadPurgeRequest, DatesAndAgesAreDays) {
  std::string error;
  EXPECT_EQ(ReadPurgeRequest("2023-11-01", "", kNow, error)->before, kDay - 13 * kOneDay);
  EXPECT_EQ(ReadPurgeRequest("2d", "", kNow, error)->before, kDay - 2 * kOneDay);
  EXPECT_EQ(ReadPurgeRequest("2h", "", kNow, error)->before, kDay - kOneDay);
  EXPECT_EQ(ReadPurgeRequest("9999w", "", kNow, error)->before, 0U);
  const auto both = ReadPurgeRequest("2023-11-01", "1K", kNow, error);
  EXPECT_EQ(both->before, kDay - 13 * kOneDay);
  EXPECT_EQ(both->toSize, 1024U);
  EXPECT_EQ(ReadPurgeRequest("", "0", kNow, error)->before, std::nullopt);
}

TEST(ReadPurgeRequest, TomorrowIsTheLastDayTaken) {
  std::string error;
  EXPECT_EQ(ReadPurgeRequest("2023-11-15", "", kNow, error)->before, kDay + kOneDay);
  EXPECT_FALSE(ReadPurgeRequest("2023-11-16", "", kNow, error));
  EXPECT_THAT(error, HasSubstr("2023-11-16 lies beyond tomorrow"));
  EXPECT_THAT(error, HasSubstr("2023-11-15 takes all until today"));
}

TEST(ReadPurgeRequest, BadTextsAreNamed) {
  std::string error;
  for (const char* text : {"yesterday", "2023-02-30", "2023-11-14T00:00:00Z", "1699920000", "-1d"}) {
    EXPECT_FALSE(ReadPurgeRequest(text, "", kNow, error)) << text;
    EXPECT_THAT(error, HasSubstr(text));
  }
  EXPECT_FALSE(ReadPurgeRequest("", "1T", kNow, error));
  EXPECT_THAT(error, HasSubstr("\"1T\" is no size"));
}

TEST(PurgeRequest, CutOffIsTheDayBeforeTheFirstThatStays) {
  PurgeRequest request;
  request.before = kDay - 5 * kOneDay;
  for (const u64 ofDay : {u64{0}, kOneDay * 1000 - 1}) {
    const auto limits = request.LimitsAt(kDay * 1000 + ofDay);
    EXPECT_EQ(limits.cutOff, kDay - 6 * kOneDay);
    EXPECT_EQ(limits.maxDays, 6U);
    EXPECT_EQ(limits.maxBytes, kNoLimit);
  }
  request.before = kDay + kOneDay;
  EXPECT_EQ(request.LimitsAt(kDay * 1000).cutOff, kDay) << "all until today";
  request.before = 0;
  EXPECT_EQ(request.LimitsAt(kDay * 1000).cutOff, 0U);
}

TEST(PurgeRequest, SizeAloneLeavesTheAgeFree) {
  PurgeRequest request;
  request.toSize = 7;
  const auto limits = request.LimitsAt(kDay * 1000);
  EXPECT_EQ(limits.maxBytes, 7U);
  EXPECT_EQ(limits.cutOff, 0U);
}

// Random folders: the plan of each, and what the deletion leaves of it.
class PlanAgainstDeletion : public testing::TestWithParam<u32> {
 protected:
  void FillFolder(std::mt19937& random, u64 today) {
    const std::vector<const char*> suffixes = {".db", ".db.f", ".db", ".db.f", ".temp.f", ".DB"};
    // Strays end a purge early: one folder in four has some.
    const std::size_t kinds = random() % 4 == 0 ? suffixes.size() : 4;
    for (u64 age = random() % 90; age > 0; --age) {
      for (auto files = random() % 3; files > 0; --files) {
        const std::string name = std::to_string(today - age * kOneDay) + suffixes[random() % kinds];
        folder_.Put(name, std::string(random() % 50, 'x'));
      }
    }
  }
  static std::vector<std::string> Names(const std::vector<StoredFile>& files) {
    std::vector<std::string> names;
    for (const StoredFile& file : files) {
      names.push_back(file.name);
    }
    return names;
  }

  TemporaryFolder folder_;
};

TEST_P(PlanAgainstDeletion, PlanIsWhatGoes) {
  std::mt19937 random(GetParam());
  const u64 nowMs = Velmar::OS::Time::GetEpochTime(nullptr);
  FillFolder(random, nowMs / 1000 / kOneDay * kOneDay);
  std::vector<StoredFile> before;
  ASSERT_TRUE(ListStoredFiles(folder_.Path(), before));
  const u64 maxDays = 2 + random() % 100;
  const RYL::NetDB::FootprintLimits limits(random() % 2000, maxDays, nowMs);

  const PurgePlan plan = PlanPurge(before, limits);
  EXPECT_EQ(DBManager::EnsureDiskFootprintConstraints(folder_.Path().c_str(), limits.maxBytes, maxDays),
            plan.strays.empty());
  std::vector<StoredFile> after;
  ASSERT_TRUE(ListStoredFiles(folder_.Path(), after));
  std::vector<std::string> all = Names(plan.files);
  for (const std::string& name : Names(after)) {
    all.push_back(name);
  }
  EXPECT_THAT(all, testing::UnorderedElementsAreArray(Names(before))) << "each is either planned or left";
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlanAgainstDeletion, testing::Range(1U, 41U));

TEST(PlanPurge, StraysInTheWayAreNamed) {
  const RYL::NetDB::FootprintLimits limits(0, kNoLimit, kNow * 1000);
  const PurgePlan plan = PlanPurge({{"1699920000.temp.f", kDay, 5}, {"1700006400.db", kDay + kOneDay, 5}}, limits);
  ASSERT_EQ(plan.files.size(), 1U);
  EXPECT_EQ(plan.files[0].name, "1700006400.db");
  EXPECT_EQ(plan.strays, std::vector<std::string>{"1699920000.temp.f"});
}

TEST(PlanPurge, EmptyFolderGivesAnEmptyPlan) {
  const PurgePlan plan = PlanPurge({}, RYL::NetDB::FootprintLimits(0, 0, kNow * 1000));
  EXPECT_TRUE(plan.files.empty());
  EXPECT_TRUE(plan.strays.empty());
}

}  // namespace
