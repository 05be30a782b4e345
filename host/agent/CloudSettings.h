// CloudSettings: where the verdicts on addresses come from, as a policy's table [cloud] says.
#pragma once

#include <array>
#include <string>

#include "host/Types.h"

namespace Host {

enum class CloudSetting { kEndpoint, kCaFile, kTokenFile, kProxy };
inline constexpr std::size_t kCloudSettingCount = 4;

struct CloudSettingInfo {
  CloudSetting setting;
  const char* name;  // in the table
  bool isPath;       // an absolute one
};
const std::array<CloudSettingInfo, kCloudSettingCount>& AllCloudSettings();
// Their names, as a list in a sentence.
std::string CloudSettingNames();

// A value of its own, thread-compatible. It has the name of the token's file, never the token.
class CloudSettings {
 public:
  struct Value {
    std::string text;
    u32 line = 0;  // of the document; 0: not set
  };

  [[nodiscard]] const Value& Get(CloudSetting setting) const { return values_[static_cast<std::size_t>(setting)]; }
  // False with a sentence for a text that the setting cannot have.
  bool Set(const CloudSettingInfo& info, const std::string& text, u32 line, std::string& sentence);

 private:
  std::array<Value, kCloudSettingCount> values_;
};

// The token of a file: its text without the line end. False, with a reason in `error`, for what is no regular file of
// 8 KiB at most, can be read by other users than its owner, or holds what no request's head takes.
bool ReadToken(const std::string& path, std::string& token, std::string& error);

// Gives the settings to the requests that begin later; without an endpoint every request fails. False, with
// "SOURCE:LINE: SENTENCE" in `error` and the old settings in force, when one of them cannot be used. `source` is what
// messages call the document. The token is read here, and shown nowhere.
bool ConfigureCloud(const CloudSettings& settings, const std::string& source, std::string& error);

}  // namespace Host
