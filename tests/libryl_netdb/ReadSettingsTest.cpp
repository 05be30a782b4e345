#include <string>
#include <vector>

#include "tests/libryl_netdb/ModuleFixture.h"

namespace RYL::Module {
namespace {

using Lines = std::vector<std::string>;

// On a module whose verdict cache is open, as it is whenever a policy is read.
class ReadSettingsTest : public ModuleTest {
 protected:
  ReadSettingsTest() {
    EXPECT_TRUE(Initialize());
    policy.questions.clear();
    log.Clear();
  }
  bool Read() { return Access::ReadSettings(Manager(), &policy); }
  // Every setting away from its default.
  void SetAllOtherwise() {
    Settings().netdb_enabled.Set(false);
    Settings().cloud_query_enabled.Set(false);
    Settings().keep_private_addresses.Set(true);
    Settings().jitter_first_filter.Set(false);
    Settings().max_db_size.Set(0x40000);
    Settings().max_db_days.Set(5);
    Settings().max_query_bytes.Set(5);
    Settings().max_query_rows.Set(5);
    Settings().db_dump_interval.Set(1234);
  }
  void ExpectAllOtherwise() {
    EXPECT_FALSE(Settings().netdb_enabled.Get());
    EXPECT_FALSE(Settings().cloud_query_enabled.Get());
    EXPECT_TRUE(Settings().keep_private_addresses.Get());
    EXPECT_FALSE(Settings().jitter_first_filter.Get());
    EXPECT_EQ(Settings().max_db_size.Get(), 0x40000U);
    EXPECT_EQ(Settings().max_db_days.Get(), 5U);
    EXPECT_EQ(Settings().max_query_bytes.Get(), 5U);
    EXPECT_EQ(Settings().max_query_rows.Get(), 5U);
    EXPECT_EQ(Settings().db_dump_interval.Get(), 1234U);
  }
  std::string Word(const std::string& name) {
    const auto arguments = log.Arguments("ryl_netdb." + name);
    return arguments.empty() ? "" : arguments[0];
  }
};

TEST_F(ReadSettingsTest, NullSourceIsRefusedAndChangesNothing) {
  SetAllOtherwise();
  EXPECT_FALSE(Access::ReadSettings(Manager(), nullptr));
  EXPECT_EQ(log.Lines(1), Lines{"5 ryl_netdb.NoSettingsSource"});
  ExpectAllOtherwise();
}

TEST_F(ReadSettingsTest, EmptyPolicyGivesTheDefaults) {
  SetAllOtherwise();
  EXPECT_TRUE(Read());
  EXPECT_TRUE(Settings().netdb_enabled.Get());
  EXPECT_TRUE(Settings().cloud_query_enabled.Get());
  EXPECT_FALSE(Settings().keep_private_addresses.Get());
  EXPECT_TRUE(Settings().jitter_first_filter.Get());
  EXPECT_EQ(Settings().max_db_size.Get(), 0x8000000U);
  EXPECT_EQ(Settings().max_db_days.Get(), 3653U);
  EXPECT_EQ(Settings().max_query_bytes.Get(), 0xA00000U);
  EXPECT_EQ(Settings().max_query_rows.Get(), 10240U);
  EXPECT_EQ(Settings().db_dump_interval.Get(), 1234U) << "no policy has it";
}

// Gives values and calls each of them a failure.
class DenyingSettings : public FakeSettings {
 public:
  bool GetUInt64(u32 key, u64* out, u64 defaultValue, u32 reserved) override {
    FakeSettings::GetUInt64(key, out, defaultValue, reserved);
    return false;
  }
  bool GetBool(u32 key, bool* out, bool defaultValue, u32 reserved) override {
    FakeSettings::GetBool(key, out, defaultValue, reserved);
    return false;
  }
};

TEST_F(ReadSettingsTest, ValuesAreTakenWhateverTheGettersAnswer) {
  DenyingSettings source;
  source.values = {{PolicyKey::kNetdbEnabled, 0},         {PolicyKey::kCloudQueryEnabled, 0},
                   {PolicyKey::kKeepPrivateAddresses, 1}, {PolicyKey::kJitterFirstFilter, 0},
                   {PolicyKey::kMaxDbSize, 0x40000},      {PolicyKey::kMaxDbDays, 5},
                   {PolicyKey::kMaxQueryBytes, 5},        {PolicyKey::kMaxQueryRows, 5}};
  EXPECT_TRUE(Access::ReadSettings(Manager(), &source));
  Settings().db_dump_interval.Set(1234);
  ExpectAllOtherwise();
}

TEST_F(ReadSettingsTest, EightKeysAreAskedInOrderWithTheirDefaults) {
  EXPECT_TRUE(Read());
  const std::vector<std::tuple<u32, u64, bool>> expected = {{0xD9C2B241, 1, true},          {0x558350A9, 1, true},
                                                            {0x5CA94F63, 0, true},          {0x31A4214F, 1, true},
                                                            {0xE175E104, 0x8000000, false}, {0x6F09981C, 3653, false},
                                                            {0xADB4BD19, 0xA00000, false},  {0xEF380598, 10240, false}};
  ASSERT_EQ(policy.questions.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const auto& [key, defaultValue, isBool] = expected[i];
    EXPECT_EQ(policy.questions[i].key, key);
    EXPECT_EQ(policy.questions[i].defaultValue, defaultValue);
    EXPECT_EQ(policy.questions[i].isBool, isBool);
    EXPECT_EQ(policy.questions[i].reserved, 0U);
  }
}

TEST_F(ReadSettingsTest, EachStepIsLoggedWithItsWordOrValue) {
  EXPECT_TRUE(Read());
  EXPECT_EQ(log.Lines(1),
            (Lines{"2 ryl_netdb.SettingNetdbEnabled", "2 ryl_netdb.SettingCloudQueryEnabled",
                   "2 ryl_netdb.SettingKeepPrivateAddresses", "2 ryl_netdb.SettingJitterFirstFilter",
                   "2 ryl_netdb.SettingMaxDbSize", "1 ryl_netdb.VerdictPersistence", "2 ryl_netdb.SettingMaxDbDays",
                   "2 ryl_netdb.SettingMaxQueryBytes", "2 ryl_netdb.SettingMaxQueryRows"}));
  EXPECT_EQ(Word("SettingNetdbEnabled"), "Enabled");
  EXPECT_EQ(Word("SettingCloudQueryEnabled"), "enabled");
  EXPECT_EQ(Word("SettingKeepPrivateAddresses"), "disabled");
  EXPECT_EQ(Word("SettingJitterFirstFilter"), "enabled");
  EXPECT_EQ(std::stod(Word("SettingMaxDbSize")), 128.0);
  EXPECT_EQ(Word("VerdictPersistence"), "enable");
  EXPECT_EQ(Word("SettingMaxDbDays"), "3653");
  EXPECT_EQ(Word("SettingMaxQueryBytes"), "10485760");
  EXPECT_EQ(Word("SettingMaxQueryRows"), "10240");
}

TEST_F(ReadSettingsTest, OppositeSwitchesAreTakenAndNamed) {
  policy.values = {{PolicyKey::kNetdbEnabled, 0},
                   {PolicyKey::kCloudQueryEnabled, 0},
                   {PolicyKey::kKeepPrivateAddresses, 1},
                   {PolicyKey::kJitterFirstFilter, 0}};
  EXPECT_TRUE(Read());
  EXPECT_FALSE(Settings().netdb_enabled.Get());
  EXPECT_FALSE(Settings().cloud_query_enabled.Get());
  EXPECT_TRUE(Settings().keep_private_addresses.Get());
  EXPECT_FALSE(Settings().jitter_first_filter.Get());
  EXPECT_EQ(Word("SettingNetdbEnabled"), "Disabled");
  EXPECT_EQ(Word("SettingCloudQueryEnabled"), "disabled");
  EXPECT_EQ(Word("SettingKeepPrivateAddresses"), "enabled");
  EXPECT_EQ(Word("SettingJitterFirstFilter"), "disabled");
}

TEST_F(ReadSettingsTest, DatabaseSizeHasItsLimits) {
  for (const auto& [bytes, taken] : std::vector<std::pair<u64, bool>>{
           {0x3FFFF, false}, {0x40000, true}, {0x40000000, true}, {0x40000001, false}, {0, false}}) {
    SCOPED_TRACE(bytes);
    Settings().max_db_size.Set(0x100000);
    policy.values[PolicyKey::kMaxDbSize] = bytes;
    EXPECT_EQ(Read(), taken);
    EXPECT_EQ(Settings().max_db_size.Get(), taken ? bytes : 0x100000);
  }
}

TEST_F(ReadSettingsTest, DatabaseSizeIsToldInMebibytes) {
  policy.values[PolicyKey::kMaxDbSize] = 0x40000;
  EXPECT_TRUE(Read());
  EXPECT_EQ(std::stod(Word("SettingMaxDbSize")), 0.25);
}

TEST_F(ReadSettingsTest, BadDatabaseSizeLeavesWhatComesAfterIt) {
  policy.values = {
      {PolicyKey::kNetdbEnabled, 0},      {PolicyKey::kCloudQueryEnabled, 0}, {PolicyKey::kKeepPrivateAddresses, 1},
      {PolicyKey::kJitterFirstFilter, 0}, {PolicyKey::kMaxDbSize, 1},         {PolicyKey::kMaxDbDays, 9},
      {PolicyKey::kMaxQueryBytes, 9},     {PolicyKey::kMaxQueryRows, 9}};
  EXPECT_FALSE(Read());
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.SettingRefused", "5 ryl_netdb.SettingMaxDbSizeRefused"}));
  EXPECT_EQ(log.Arguments("ryl_netdb.SettingMaxDbSizeRefused"), Lines{"1"});
  EXPECT_FALSE(Settings().netdb_enabled.Get());
  EXPECT_FALSE(Settings().cloud_query_enabled.Get());
  EXPECT_TRUE(Settings().keep_private_addresses.Get());
  EXPECT_FALSE(Settings().jitter_first_filter.Get());
  EXPECT_EQ(log.Count("ryl_netdb.VerdictPersistence"), 0);
  EXPECT_EQ(Settings().max_db_size.Get(), 0x8000000U);
  EXPECT_EQ(Settings().max_db_days.Get(), 3653U);
  EXPECT_EQ(Settings().max_query_bytes.Get(), 0xA00000U);
  EXPECT_EQ(Settings().max_query_rows.Get(), 10240U);
}

TEST_F(ReadSettingsTest, EightMebibytesCountAsSmall) {
  policy.values[PolicyKey::kMaxDbSize] = 0x800000;
  EXPECT_TRUE(Read());
  EXPECT_EQ(Word("VerdictPersistence"), "disable");
  policy.values[PolicyKey::kMaxDbSize] = 0x800001;
  EXPECT_TRUE(Read());
  EXPECT_EQ(Word("VerdictPersistence"), "enable");
}

TEST_F(ReadSettingsTest, OneDayIsRefusedAndLeavesTheQueryLimits) {
  policy.values = {{PolicyKey::kMaxDbSize, 0x40000}, {PolicyKey::kMaxDbDays, 1}, {PolicyKey::kMaxQueryRows, 9}};
  EXPECT_FALSE(Read());
  EXPECT_EQ(log.Lines(3), (Lines{"5 ryl_netdb.SettingRefused", "5 ryl_netdb.SettingMaxDbDaysRefused"}));
  EXPECT_EQ(Settings().max_db_size.Get(), 0x40000U);
  EXPECT_EQ(Settings().max_db_days.Get(), 3653U);
  EXPECT_EQ(Settings().max_query_rows.Get(), 10240U);
  policy.values[PolicyKey::kMaxDbDays] = 2;
  EXPECT_TRUE(Read());
  EXPECT_EQ(Settings().max_db_days.Get(), 2U);
}

TEST_F(ReadSettingsTest, QueryLimitsHaveTheirLimits) {
  for (const u32 key : {PolicyKey::kMaxQueryBytes, PolicyKey::kMaxQueryRows}) {
    for (const auto& [value, taken] : std::vector<std::pair<u64, bool>>{
             {0, false}, {1, true}, {0xFFFFFFFE, true}, {0xFFFFFFFF, false}, {~u64{0}, false}}) {
      SCOPED_TRACE(value);
      Settings().max_query_bytes.Set(77);
      Settings().max_query_rows.Set(77);
      log.Clear();
      policy.values = {{key, value}};
      EXPECT_EQ(Read(), taken);
      auto& setting = key == PolicyKey::kMaxQueryBytes ? Settings().max_query_bytes : Settings().max_query_rows;
      EXPECT_EQ(setting.Get(), taken ? value : 77);
      EXPECT_EQ(log.CountLevel(5), taken ? 0 : 1);
      EXPECT_EQ(log.Count("ryl_netdb.QueryLimitTooLarge"), value >= 0xFFFFFFFF ? 1 : 0);
    }
  }
}

TEST_F(ReadSettingsTest, BadQueryBytesLeaveTheRowsAndNotTheDays) {
  policy.values = {{PolicyKey::kMaxDbDays, 9}, {PolicyKey::kMaxQueryBytes, 0}, {PolicyKey::kMaxQueryRows, 9}};
  EXPECT_FALSE(Read());
  EXPECT_EQ(log.Lines(3), Lines{"5 ryl_netdb.SettingRefused"});
  EXPECT_EQ(Settings().max_db_days.Get(), 9U);
  EXPECT_EQ(Settings().max_query_bytes.Get(), 0xA00000U);
  EXPECT_EQ(Settings().max_query_rows.Get(), 10240U);
}

TEST_F(ReadSettingsTest, BadQueryRowsLeaveTheBytesTaken) {
  policy.values = {{PolicyKey::kMaxQueryBytes, 9}, {PolicyKey::kMaxQueryRows, 0xFFFFFFFF}};
  EXPECT_FALSE(Read());
  EXPECT_EQ(log.Lines(3), Lines{"5 ryl_netdb.QueryLimitTooLarge"});
  EXPECT_EQ(log.Arguments("ryl_netdb.QueryLimitTooLarge"), Lines{"4294967295"});
  EXPECT_EQ(Settings().max_query_bytes.Get(), 9U);
  EXPECT_EQ(Settings().max_query_rows.Get(), 10240U);
}

}  // namespace
}  // namespace RYL::Module
