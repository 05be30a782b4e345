// NetDBManager's reading of the policy.
#include "common/libryl_netdb/ModuleLog.h"
#include "common/libryl_netdb/NetDBManager.h"
#include "common/libryl_netdb/PolicyKeys.h"

namespace RYL::Module {
namespace {

// At this database size or below verdicts are kept in memory only.
constexpr u64 kSmallDatabase = 0x800000;
constexpr u64 kTooManyForQuery = 0xFFFFFFFF;
constexpr double kMebibytesPerByte = 9.5367431640625e-7;

const char* EnableWord(bool on) {
  return on ? "enabled" : "disabled";
}

bool ReadSwitch(SettingsSource& source, u32 key, bool defaultValue, ValidatedSetting<bool>& setting) {
  bool value = defaultValue;
  source.GetBool(key, &value, defaultValue, 0);
  setting.Set(value);
  return value;
}

void ReadSwitches(SettingsSource& source, Settings& settings) {
  const bool enabled = ReadSwitch(source, PolicyKey::kNetdbEnabled, true, settings.netdb_enabled);
  RYL_LOG(ryl_netdb, SettingNetdbEnabled, enabled ? "Enabled" : "Disabled");
  const bool cloud = ReadSwitch(source, PolicyKey::kCloudQueryEnabled, true, settings.cloud_query_enabled);
  RYL_LOG(ryl_netdb, SettingCloudQueryEnabled, EnableWord(cloud));
  const bool keepPrivate = ReadSwitch(source, PolicyKey::kKeepPrivateAddresses, false, settings.keep_private_addresses);
  RYL_LOG(ryl_netdb, SettingKeepPrivateAddresses, EnableWord(keepPrivate));
  const bool jitter = ReadSwitch(source, PolicyKey::kJitterFirstFilter, true, settings.jitter_first_filter);
  RYL_LOG(ryl_netdb, SettingJitterFirstFilter, EnableWord(jitter));
}

u64 ReadNumber(SettingsSource& source, u32 key, u64 defaultValue) {
  u64 value = defaultValue;
  source.GetUInt64(key, &value, defaultValue, 0);
  return value;
}

bool ReadMaxDbSize(SettingsSource& source, ValidatedSetting<u64>& setting) {
  const u64 bytes = ReadNumber(source, PolicyKey::kMaxDbSize, SettingDefaults::kMaxDbSize);
  if (!setting.Set(bytes)) {
    RYL_LOG(ryl_netdb, SettingMaxDbSizeRefused, bytes);
    return false;
  }
  RYL_LOG(ryl_netdb, SettingMaxDbSize, static_cast<double>(bytes) * kMebibytesPerByte);
  return true;
}

bool ReadMaxDbDays(SettingsSource& source, ValidatedSetting<u64>& setting) {
  const u64 days = ReadNumber(source, PolicyKey::kMaxDbDays, SettingDefaults::kMaxDbDays);
  if (!setting.Set(days)) {
    RYL_LOG(ryl_netdb, SettingMaxDbDaysRefused, days);
    return false;
  }
  RYL_LOG(ryl_netdb, SettingMaxDbDays, days);
  return true;
}

// One level 5 record on every refusal: that of the validator, or one of its own.
bool ReadQueryLimit(SettingsSource& source, u32 key, u32 defaultValue, ValidatedSetting<u32>& setting) {
  const u64 value = ReadNumber(source, key, defaultValue);
  if (value >= kTooManyForQuery) {
    RYL_LOG(ryl_netdb, QueryLimitTooLarge, value);
    return false;
  }
  return setting.Set(static_cast<u32>(value));
}

bool ReadQueryLimits(SettingsSource& source, Settings& settings) {
  if (!ReadQueryLimit(source, PolicyKey::kMaxQueryBytes, SettingDefaults::kMaxQueryBytes, settings.max_query_bytes)) {
    return false;
  }
  RYL_LOG(ryl_netdb, SettingMaxQueryBytes, settings.max_query_bytes.Get());
  if (!ReadQueryLimit(source, PolicyKey::kMaxQueryRows, SettingDefaults::kMaxQueryRows, settings.max_query_rows)) {
    return false;
  }
  RYL_LOG(ryl_netdb, SettingMaxQueryRows, settings.max_query_rows.Get());
  return true;
}

}  // namespace

// The order counts: what a bad value leaves untouched is what comes after it.
bool NetDBManager::ReadSettings(SettingsSource* source) {
  if (source == nullptr) {
    RYL_LOG(ryl_netdb, NoSettingsSource);
    return false;
  }
  ReadSwitches(*source, settings);
  if (!ReadMaxDbSize(*source, settings.max_db_size)) {
    return false;
  }
  const bool persistent = settings.max_db_size.Get() > kSmallDatabase;
  RYL_LOG(ryl_netdb, VerdictPersistence, persistent ? "enable" : "disable");
  if (!verdict_cache.SetPersistent(persistent)) {
    RYL_LOG(ryl_netdb, VerdictPersistenceFailed);
    return false;
  }
  return ReadMaxDbDays(*source, settings.max_db_days) && ReadQueryLimits(*source, settings);
}

}  // namespace RYL::Module
