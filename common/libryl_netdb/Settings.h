// Settings: the module's policy, with the values that hold until a policy is read.
#pragma once

#include "common/libryl_netdb/ValidatedSetting.h"

namespace RYL::Module {

namespace SettingLimits {
inline constexpr u64 kMinDbDays = 2;
inline constexpr u64 kMinDbSize = 0x40000;
inline constexpr u64 kMaxDbSize = 0x40000000;
inline constexpr u64 kMinDumpIntervalMs = 100;
inline constexpr u64 kMaxDumpIntervalMs = 3600000;
}  // namespace SettingLimits

namespace SettingDefaults {
inline constexpr u64 kMaxDbDays = 3653;
inline constexpr u64 kMaxDbSize = 0x8000000;
inline constexpr u64 kDumpIntervalMs = 60000;
inline constexpr u32 kMaxQueryRows = 10240;
inline constexpr u32 kMaxQueryBytes = 0xA00000;
}  // namespace SettingDefaults

// Threads: thread-safe, value by value.
struct Settings {
  // Age limit of day files.
  ValidatedSetting<u64> max_db_days{SettingDefaults::kMaxDbDays,
                                    [](u64 value) { return value >= SettingLimits::kMinDbDays; }};
  // Size limit of the database folder in bytes.
  ValidatedSetting<u64> max_db_size{SettingDefaults::kMaxDbSize, [](u64 value) {
                                      return value >= SettingLimits::kMinDbSize && value <= SettingLimits::kMaxDbSize;
                                    }};
  // Milliseconds between dumps of the open day. No policy changes it.
  ValidatedSetting<u64> db_dump_interval{SettingDefaults::kDumpIntervalMs, [](u64 value) {
                                           return value >= SettingLimits::kMinDumpIntervalMs &&
                                                  value <= SettingLimits::kMaxDumpIntervalMs;
                                         }};
  ValidatedSetting<bool> netdb_enabled{true};
  // Lets the filter job ask the cloud.
  ValidatedSetting<bool> cloud_query_enabled{true};
  ValidatedSetting<bool> keep_private_addresses{false};
  ValidatedSetting<bool> jitter_first_filter{true};
  // Limits of a table query's result.
  ValidatedSetting<u32> max_query_rows{SettingDefaults::kMaxQueryRows, [](u32 value) { return value > 0; }};
  ValidatedSetting<u32> max_query_bytes{SettingDefaults::kMaxQueryBytes, [](u32 value) { return value > 0; }};
};

}  // namespace RYL::Module
