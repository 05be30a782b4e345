// Policy: the settings that this program gives the module, and where its verdicts come from, out of a TOML document.
//
//   std::string error;
//   const auto policy = Policy::Load(path, error);
//   if (!policy) ...                            // "FILE:3: there is no setting \"max_db_siz\"; there are ..."
//   PolicySource source(*policy);
//   module->ApplySettings(&source);
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "RYL/Module/SettingsSource.h"
#include "host/Types.h"
#include "host/agent/CloudSettings.h"

namespace Host {

// The eight settings that a policy may hold, in the order in which the module reads them.
enum class Setting {
  kNetdbEnabled,
  kCloudQueryEnabled,
  kKeepPrivateAddresses,
  kJitterFirstFilter,
  kMaxDbSize,
  kMaxDbDays,
  kMaxQueryBytes,
  kMaxQueryRows,
};
inline constexpr std::size_t kSettingCount = 8;

struct SettingInfo {
  Setting setting;
  const char* name;  // in the document
  u32 key;           // of the module
  bool isSwitch;     // a bool; else a whole number
  u64 defaultValue;  // a switch has 0 or 1
  u64 smallest;
  u64 largest;
  const char* meaning;  // half a sentence, units included
  const char* unit;     // of the value and its limits: "bytes", "days", "rows"; a switch has none
};
const std::array<SettingInfo, kSettingCount>& AllSettings();
// Their names, as a list in a sentence.
std::string SettingNames();

// A value of its own, thread-compatible. Every value lies within its limits, so the module takes a policy whole.
class Policy {
 public:
  struct Value {
    u64 value = 0;
    u32 line = 0;  // of the document; 0: the default
  };

  // Every setting has its default.
  Policy();

  // False, with "NAME:LINE: SENTENCE" in `error`, for what is no TOML, an unknown name (with the names there are), a
  // wrong type, a value outside its limits, and db_dump_interval, which no policy can change. `name` is what messages
  // call the document. Files that the table [cloud] names are not looked at.
  static std::optional<Policy> Parse(std::string_view document, const std::string& name, std::string& error);
  // Of a file, which must exist and may have 1 MiB.
  static std::optional<Policy> Load(const std::string& path, std::string& error);
  // Of `path` if it is not empty, else of DefaultPath() if there is such a file, else the defaults.
  static std::optional<Policy> LoadOrDefault(const std::string& path, std::string& error);
  // /etc/ryl/netdb.toml for root, else $XDG_CONFIG_HOME/ryl/netdb.toml or ~/.config/ryl/netdb.toml.
  static std::string DefaultPath();

  [[nodiscard]] const Value& Get(Setting setting) const { return values_[static_cast<std::size_t>(setting)]; }
  [[nodiscard]] const CloudSettings& Cloud() const { return cloud_; }
  // Gives the setting the largest value that it takes.
  void Widen(Setting setting);
  // The document's name as messages and tables show it; empty when there is none.
  [[nodiscard]] const std::string& Source() const { return source_; }

 private:
  std::array<Value, kSettingCount> values_;
  CloudSettings cloud_;
  std::string source_;
};

// The module's view of a policy. Keys that are not among the eight have the default that is asked for.
class PolicySource final : public RYL::Module::SettingsSource {
 public:
  explicit PolicySource(const Policy& policy) : policy_(policy) {}

  bool GetUInt64(u32 key, u64* out, u64 defaultValue, u32 reserved) override;
  bool GetBool(u32 key, bool* out, bool defaultValue, u32 reserved) override;

 private:
  Policy policy_;
};

}  // namespace Host
