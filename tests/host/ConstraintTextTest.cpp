#include "host/table/ConstraintText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

namespace {

using namespace Host;
using namespace Host::Table;
using Json = nlohmann::json;

constexpr u64 kDay = 1699920000;
constexpr u64 kBefore = kDay - 86400;
constexpr u64 kAfter = kDay + 86400;
constexpr i64 kFirstMs = static_cast<i64>(kDay) * 1000;
constexpr i64 kLastMs = (static_cast<i64>(kDay) + 86399) * 1000;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Condition Equals(int column, std::vector<SqlValue> values) {
  return {{column, Operation::kEquals}, std::move(values), false};
}

Condition Like(SqlValue pattern) {
  return {{kProcFpath, Operation::kLike}, {std::move(pattern)}, false};
}

Condition Time(Operation operation, SqlValue value, int column = kFirstSeen) {
  return {{column, operation}, {std::move(value)}, false};
}

// Values of a column's list, with the operator's code before them.
std::vector<std::string> Pushed(const std::vector<Condition>& conditions, const char* column) {
  const Json json = Json::parse(Narrow(conditions).ConstraintsFor(kDay));
  std::vector<std::string> result;
  if (json.contains(column)) {
    EXPECT_EQ(json[column]["affinity"], "TEXT");
    for (const Json& entry : json[column]["list"]) {
      result.push_back(entry["op"].dump() + " " + entry["expr"].get<std::string>());
    }
  }
  return result;
}

// Which of the day before, the day and the day after may hold a row.
std::vector<bool> Days(const std::vector<Condition>& conditions) {
  const Narrowing narrowing = Narrow(conditions);
  return {narrowing.MayHold(kBefore), narrowing.MayHold(kDay), narrowing.MayHold(kAfter)};
}

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kAll = [] { return ElementsAre(true, true, true); };
constexpr auto kNone = [] { return ElementsAre(false, false, false); };

TEST(ConstraintText, NoConditionAsksForTheDayAlone) {
  EXPECT_EQ(Json::parse(Narrow({}).ConstraintsFor(kDay)), Json::parse(R"({"first_seen":{"affinity":"BIGINT","list":[
      {"op":32,"expr":1699920000000},{"op":8,"expr":1700006399000}]}})"));
  EXPECT_THAT(Days({}), kAll());
}

TEST(ConstraintText, WholeNumbersChooseTheDaysThatCanHoldThem) {
  for (const int column : {kFirstSeen, kLastSeen}) {
    const auto days = [column](Operation operation, i64 value) { return Days({Time(operation, value, column)}); };
    EXPECT_THAT(days(Operation::kEquals, kFirstMs), ElementsAre(false, true, false));
    EXPECT_THAT(days(Operation::kEquals, kLastMs), ElementsAre(false, true, false));
    EXPECT_THAT(days(Operation::kGreaterOrEquals, kLastMs), ElementsAre(false, true, true));
    EXPECT_THAT(days(Operation::kGreaterOrEquals, kLastMs + 1), ElementsAre(false, false, true));
    EXPECT_THAT(days(Operation::kGreater, kLastMs - 1), ElementsAre(false, true, true));
    EXPECT_THAT(days(Operation::kGreater, kLastMs), ElementsAre(false, false, true));
    EXPECT_THAT(days(Operation::kLessOrEquals, kFirstMs), ElementsAre(true, true, false));
    EXPECT_THAT(days(Operation::kLessOrEquals, kFirstMs - 1), ElementsAre(true, false, false));
    EXPECT_THAT(days(Operation::kLess, kFirstMs + 1), ElementsAre(true, true, false));
    EXPECT_THAT(days(Operation::kLess, kFirstMs), ElementsAre(true, false, false));
  }
}

TEST(ConstraintText, ExtremeWholeNumbersChooseAllOrNone) {
  constexpr i64 kMin = std::numeric_limits<i64>::min();
  constexpr i64 kMax = std::numeric_limits<i64>::max();
  EXPECT_THAT(Days({Time(Operation::kGreater, kMin)}), kAll());
  EXPECT_THAT(Days({Time(Operation::kGreater, kMax)}), kNone());
  EXPECT_THAT(Days({Time(Operation::kLess, kMax)}), kAll());
  EXPECT_THAT(Days({Time(Operation::kLess, kMin)}), kNone());
  EXPECT_THAT(Days({Time(Operation::kEquals, i64{-1})}), kNone());
}

TEST(ConstraintText, RealNumbersAreNotRounded) {
  const auto last = static_cast<double>(kLastMs);
  const auto first = static_cast<double>(kFirstMs);
  EXPECT_THAT(Days({Time(Operation::kGreaterOrEquals, last)}), ElementsAre(false, true, true));
  EXPECT_THAT(Days({Time(Operation::kGreaterOrEquals, last + 0.5)}), ElementsAre(false, false, true));
  EXPECT_THAT(Days({Time(Operation::kGreater, last - 0.5)}), ElementsAre(false, true, true));
  EXPECT_THAT(Days({Time(Operation::kLess, first + 0.5)}), ElementsAre(true, true, false));
  EXPECT_THAT(Days({Time(Operation::kLessOrEquals, first - 0.5)}), ElementsAre(true, false, false));
  EXPECT_THAT(Days({Time(Operation::kEquals, first)}), ElementsAre(false, true, false));
}

TEST(ConstraintText, InfinityIsAboveAndBelowAllDays) {
  EXPECT_THAT(Days({Time(Operation::kLess, kInfinity)}), kAll());
  EXPECT_THAT(Days({Time(Operation::kGreater, kInfinity)}), kNone());
  EXPECT_THAT(Days({Time(Operation::kGreater, -kInfinity)}), kAll());
  EXPECT_THAT(Days({Time(Operation::kLessOrEquals, -kInfinity)}), kNone());
}

TEST(ConstraintText, TextsAndBlobsChooseNoDays) {
  for (const SqlValue& value : {SqlValue("1699920000000"), SqlValue("x"), SqlValue(Blob{})}) {
    EXPECT_THAT(Days({Time(Operation::kLess, value)}), kAll());
    EXPECT_THAT(Days({Time(Operation::kGreater, value)}), kAll());
    EXPECT_THAT(Days({Time(Operation::kEquals, value)}), kAll());
  }
  EXPECT_THAT(Days({Equals(kFirstSeen, {kFirstMs, "x"})}), kAll()) << "one of several";
}

TEST(ConstraintText, NothingIsAboveBelowOrEqualToNull) {
  EXPECT_THAT(Days({Time(Operation::kLess, {})}), kNone());
  EXPECT_THAT(Days({Time(Operation::kGreater, {})}), kNone());
  EXPECT_THAT(Days({Equals(kLastSeen, {{}})}), kNone());
  EXPECT_THAT(Days({Equals(kIp, {{}})}), kNone());
  EXPECT_THAT(Days({Equals(kProcFpath, {{}})}), kNone());
  EXPECT_THAT(Days({Equals(kFirstSeen, {})}), kNone()) << "nor in an empty list";
  EXPECT_THAT(Days({Equals(kFirstSeen, {{}, kFirstMs})}), ElementsAre(false, true, false));
}

TEST(ConstraintText, ListOfTimesChoosesTheDaysOfAny) {
  EXPECT_THAT(Days({Equals(kFirstSeen, {kFirstMs - 1000, kLastMs + 1000})}), ElementsAre(true, false, true));
  Condition cut = Equals(kFirstSeen, {kFirstMs});
  cut.cut = true;
  EXPECT_THAT(Days({cut}), kAll());
}

TEST(ConstraintText, ConditionsOnTimesMustAllBeMet) {
  EXPECT_THAT(Days({Time(Operation::kGreater, kFirstMs), Time(Operation::kLess, kLastMs, kLastSeen)}),
              ElementsAre(false, true, false));
  EXPECT_THAT(Days({Time(Operation::kGreater, kLastMs), Time(Operation::kLess, kFirstMs, kLastSeen)}), kNone());
}

TEST(ConstraintText, AddressesGoDownAsAList) {
  EXPECT_THAT(Pushed({Equals(kIp, {"203.0.113.1", "203.0.113.2"})}, "ip"),
              ElementsAre("2 203.0.113.1", "2 203.0.113.2"));
  EXPECT_THAT(Days({Equals(kIp, {"203.0.113.1"})}), kAll());
}

TEST(ConstraintText, WhatIsNoAddressHasNoRow) {
  const std::string withNul("203.0.113.1\0", 12);
  for (const SqlValue& value : {SqlValue("203.0.113"), SqlValue("203.0.113.01"), SqlValue(" 203.0.113.1"),
                                SqlValue("203.0.113.1 "), SqlValue("::1"), SqlValue(""), SqlValue(withNul),
                                SqlValue(i64{5}), SqlValue(1.5), SqlValue(Blob{}), SqlValue()}) {
    EXPECT_THAT(Pushed({Equals(kIp, {value, "203.0.113.7"})}, "ip"), ElementsAre("2 203.0.113.7"));
    EXPECT_THAT(Days({Equals(kIp, {value})}), kNone());
  }
}

TEST(ConstraintText, SecondConditionOnAddressesDoesNotWidenTheFirst) {
  EXPECT_THAT(Pushed({Equals(kIp, {"203.0.113.1"}), Equals(kIp, {"203.0.113.2"})}, "ip"), ElementsAre("2 203.0.113.1"));
}

TEST(ConstraintText, TooManyValuesDoNotGoDown) {
  Condition addresses = Equals(kIp, {"203.0.113.1"});
  addresses.cut = true;
  EXPECT_THAT(Pushed({addresses}, "ip"), IsEmpty());
  Condition notOne = Equals(kIp, {"x"});
  notOne.cut = true;
  EXPECT_THAT(Days({notOne}), kAll()) << "the others may be addresses";
  Condition paths = Equals(kProcFpath, {"/bin/a"});
  paths.cut = true;
  EXPECT_THAT(Pushed({paths}, "proc_fpath"), IsEmpty());
}

std::vector<SqlValue> ManyPaths(std::size_t count) {
  std::vector<SqlValue> paths;
  for (std::size_t i = 0; i < count; ++i) {
    paths.emplace_back("/bin/" + std::to_string(i));
  }
  return paths;
}

TEST(ConstraintText, AllListsTogetherFitATableQuery) {
  const auto count = [](std::size_t paths) {
    std::vector<SqlValue> addresses;
    for (std::size_t i = 0; i < kMaxValues; ++i) {
      addresses.emplace_back("203.0.113." + std::to_string(i));
    }
    const Narrowing narrowing =
        Narrow({Equals(kIp, addresses), Equals(kProcFpath, ManyPaths(paths)), Like("/b%"), Like("%/")});
    std::size_t entries = 0;
    for (const auto& column : Json::parse(narrowing.ConstraintsFor(kDay))) {
      entries += column["list"].size();
    }
    return entries;
  };
  EXPECT_EQ(count(24), 128U);
  EXPECT_EQ(count(25), 128U) << "the second pattern has no room";
  EXPECT_EQ(count(27), 104U) << "the paths have none";
}

TEST(ConstraintText, PathsGoDownAsAList) {
  EXPECT_THAT(Pushed({Equals(kProcFpath, {"/bin/a", "C:\\b \"c\"\n", "/bin/\xC3\xA9"})}, "proc_fpath"),
              ElementsAre("2 /bin/a", "2 C:\\b \"c\"\n", "2 /bin/\xC3\xA9"));
  EXPECT_THAT(Pushed({Equals(kProcFpath, {"/bin/a", {}})}, "proc_fpath"), ElementsAre("2 /bin/a"));
  EXPECT_THAT(Pushed({Equals(kProcFpath, {"/bin/a"}), Equals(kProcFpath, {"/bin/b"})}, "proc_fpath"),
              ElementsAre("2 /bin/a"))
      << "a second condition must not widen the first";
}

TEST(ConstraintText, PathThatIsNotShownAsItIsStoredKeepsTheListUp) {
  for (const SqlValue& value :
       {SqlValue(""), SqlValue("/bin/\xEF\xBF\xBD"), SqlValue(std::string("/bin\0a", 6)), SqlValue("/bin/\xFF"),
        SqlValue(std::string(508, 'a')), SqlValue(i64{5}), SqlValue(0.5), SqlValue(Blob{})}) {
    EXPECT_THAT(Pushed({Equals(kProcFpath, {"/bin/a", value})}, "proc_fpath"), IsEmpty());
    EXPECT_THAT(Days({Equals(kProcFpath, {value})}), kAll());
  }
  EXPECT_THAT(Pushed({Equals(kProcFpath, {std::string(507, 'a')})}, "proc_fpath"), testing::SizeIs(1));
}

TEST(ConstraintText, PatternsGoDownOpenAtTheirEnd) {
  EXPECT_THAT(Pushed({Like("/bin/%")}, "proc_fpath"), ElementsAre("65 /bin/%"));
  EXPECT_THAT(Pushed({Like("%curl")}, "proc_fpath"), ElementsAre("65 %curl%"));
  EXPECT_THAT(Pushed({Like("/bin/curl")}, "proc_fpath"), ElementsAre("65 /bin/curl%"));
  EXPECT_THAT(Pushed({Like("%/bin/%"), Like("%curl%"), Equals(kProcFpath, {"/bin/curl"})}, "proc_fpath"),
              ElementsAre("65 %/bin/%", "65 %curl%", "2 /bin/curl"));
}

TEST(ConstraintText, PatternThatMatchesRowsWithoutAProcessStaysUp) {
  for (const char* pattern : {"", "%", "%%%"}) {
    EXPECT_THAT(Pushed({Like(pattern)}, "proc_fpath"), IsEmpty()) << pattern;
  }
}

TEST(ConstraintText, PatternWhoseCharactersAreNotItsBytesStaysUp) {
  for (const SqlValue& value :
       {SqlValue("/bin/_%"), SqlValue("\xEF\xBF\xBD%"), SqlValue("\xEF\xBF\xBE%"), SqlValue("\xEF\xBF\xBF%"),
        SqlValue(std::string("/b\0%", 4)), SqlValue("/\xC3%"), SqlValue(std::string(1001, 'a')), SqlValue(i64{1}),
        SqlValue(1.5), SqlValue(Blob{}), SqlValue()}) {
    EXPECT_THAT(Pushed({Like(value)}, "proc_fpath"), IsEmpty());
    EXPECT_THAT(Days({Like(value)}), kAll());
  }
  EXPECT_THAT(Pushed({Like("\xEF\xBC\xA1%")}, "proc_fpath"), testing::SizeIs(1)) << "another one of three bytes";
}

const std::string kMd5 = "00112233445566778899aabbccddeeff";
const std::string kQid = kMd5 + kMd5;

TEST(ConstraintText, DigestsGoDownOneByOne) {
  EXPECT_THAT(Pushed({Equals(kProcMd5, {kMd5})}, "proc_md5"), ElementsAre("2 " + kMd5));
  EXPECT_THAT(Pushed({Equals(kProcQid, {kQid})}, "proc_qid"), ElementsAre("2 " + kQid));
  EXPECT_THAT(Pushed({Equals(kProcMd5, {kMd5}), Equals(kProcMd5, {std::string(32, 'f')})}, "proc_md5"),
              testing::SizeIs(2))
      << "all must be met";
  EXPECT_THAT(Pushed({Equals(kProcMd5, {kMd5, std::string(32, 'f')})}, "proc_md5"), IsEmpty()) << "any of them";
}

TEST(ConstraintText, WhatIsNoDigestOfAProcessStaysUp) {
  for (const SqlValue& value : {SqlValue(std::string(32, '0')), SqlValue(kMd5.substr(1)), SqlValue(kMd5 + "0"),
                                SqlValue("g" + kMd5.substr(1)), SqlValue(""), SqlValue(i64{1}), SqlValue(Blob{})}) {
    EXPECT_THAT(Pushed({Equals(kProcMd5, {value})}, "proc_md5"), IsEmpty());
    EXPECT_THAT(Days({Equals(kProcMd5, {value})}), kAll());
  }
  EXPECT_THAT(Pushed({Equals(kProcQid, {std::string(64, '0')})}, "proc_qid"), IsEmpty());
  EXPECT_THAT(Pushed({Equals(kProcQid, {kMd5})}, "proc_qid"), IsEmpty());
}

TEST(ConstraintText, IdsGoDownAsTheyAreShown) {
  EXPECT_THAT(Pushed({Equals(kProcPuid, {i64{77}})}, "proc_puid"), ElementsAre("2 77"));
  EXPECT_THAT(Pushed({Equals(kProcPuid, {"18446744073709551615"})}, "proc_puid"),
              ElementsAre("2 18446744073709551615"));
}

TEST(ConstraintText, WhatIsNoIdOfAProcessStaysUp) {
  for (const SqlValue& value :
       {SqlValue(i64{0}), SqlValue("0"), SqlValue("077"), SqlValue("+77"), SqlValue("77 "), SqlValue("0x4d"),
        SqlValue(i64{-1}), SqlValue("18446744073709551616"), SqlValue(77.0), SqlValue(""), SqlValue(Blob{})}) {
    EXPECT_THAT(Pushed({Equals(kProcPuid, {value})}, "proc_puid"), IsEmpty());
    EXPECT_THAT(Days({Equals(kProcPuid, {value})}), kAll());
  }
  EXPECT_THAT(Pushed({Equals(kProcPuid, {i64{1}, i64{2}})}, "proc_puid"), IsEmpty());
}

}  // namespace
