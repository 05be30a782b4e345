#include "common/libryl_netdb/Settings.h"

#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"

namespace RYL::Module {
namespace {

TEST(ValidatedSetting, WithoutValidatorTakesAll) {
  ValidatedSetting<u32> setting(5);
  EXPECT_EQ(setting.Get(), 5U);
  EXPECT_TRUE(setting.Set(0));
  EXPECT_EQ(setting.Get(), 0U);
}

TEST(ValidatedSetting, RefusedValueIsLoggedAndTheOldOneStays) {
  LogCapture log;
  ValidatedSetting<u32> setting(5, [](u32 value) { return value != 7; });
  EXPECT_FALSE(setting.Set(7));
  EXPECT_EQ(setting.Get(), 5U);
  EXPECT_EQ(log.Lines(), std::vector<std::string>{"5 ryl_netdb.SettingRefused"});
  EXPECT_EQ(log.Arguments("ryl_netdb.SettingRefused"), std::vector<std::string>{"7"});
  EXPECT_TRUE(setting.Set(8));
  EXPECT_EQ(setting.Get(), 8U);
}

TEST(Settings, DefaultsHoldUntilAPolicyIsRead) {
  const Settings settings;
  EXPECT_EQ(settings.max_db_days.Get(), 3653U);
  EXPECT_EQ(settings.max_db_size.Get(), 0x8000000U);
  EXPECT_EQ(settings.db_dump_interval.Get(), 60000U);
  EXPECT_TRUE(settings.netdb_enabled.Get());
  EXPECT_TRUE(settings.cloud_query_enabled.Get());
  EXPECT_FALSE(settings.keep_private_addresses.Get());
  EXPECT_TRUE(settings.jitter_first_filter.Get());
  EXPECT_EQ(settings.max_query_rows.Get(), 10240U);
  EXPECT_EQ(settings.max_query_bytes.Get(), 0xA00000U);
}

TEST(Settings, ValidatorsHoldTheirLimits) {
  Settings settings;
  EXPECT_FALSE(settings.max_db_days.Set(1));
  EXPECT_TRUE(settings.max_db_days.Set(2));
  EXPECT_TRUE(settings.max_db_days.Set(~u64{0}));
  EXPECT_FALSE(settings.max_db_size.Set(0x3FFFF));
  EXPECT_TRUE(settings.max_db_size.Set(0x40000));
  EXPECT_TRUE(settings.max_db_size.Set(0x40000000));
  EXPECT_FALSE(settings.max_db_size.Set(0x40000001));
  EXPECT_FALSE(settings.db_dump_interval.Set(99));
  EXPECT_TRUE(settings.db_dump_interval.Set(100));
  EXPECT_TRUE(settings.db_dump_interval.Set(3600000));
  EXPECT_FALSE(settings.db_dump_interval.Set(3600001));
  EXPECT_FALSE(settings.max_query_rows.Set(0));
  EXPECT_TRUE(settings.max_query_rows.Set(1));
  EXPECT_FALSE(settings.max_query_bytes.Set(0));
  EXPECT_TRUE(settings.max_query_bytes.Set(1));
}

}  // namespace
}  // namespace RYL::Module
