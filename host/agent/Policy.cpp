#include "host/agent/Policy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/libryl_netdb/PolicyKeys.h"
#include "common/libryl_netdb/Settings.h"
#include "host/Descriptor.h"
#include "host/agent/DataFolder.h"
#include "host/agent/PolicyText.h"

namespace Host {
namespace {

namespace Defaults = RYL::Module::SettingDefaults;
namespace Limits = RYL::Module::SettingLimits;
namespace Key = RYL::Module::PolicyKey;

constexpr u64 kLargestTomlNumber = 0x7FFFFFFFFFFFFFFF;
constexpr u64 kLargestQueryLimit = 0xFFFFFFFE;

constexpr std::array<SettingInfo, kSettingCount> kSettings = {{
    {Setting::kNetdbEnabled, "netdb_enabled", Key::kNetdbEnabled, true, 1, 0, 1, "whether connections are recorded",
     ""},
    {Setting::kCloudQueryEnabled, "cloud_query_enabled", Key::kCloudQueryEnabled, true, 1, 0, 1,
     "whether finished days are rid of harmless addresses", ""},
    {Setting::kKeepPrivateAddresses, "keep_private_addresses", Key::kKeepPrivateAddresses, true, 0, 0, 1,
     "whether connections to private addresses are recorded", ""},
    {Setting::kJitterFirstFilter, "jitter_first_filter", Key::kJitterFirstFilter, true, 1, 0, 1,
     "whether the first filtering after a start waits for a random time", ""},
    {Setting::kMaxDbSize, "max_db_size", Key::kMaxDbSize, false, Defaults::kMaxDbSize, Limits::kMinDbSize,
     Limits::kMaxDbSize, "bytes that the database folder may have", "bytes"},
    {Setting::kMaxDbDays, "max_db_days", Key::kMaxDbDays, false, Defaults::kMaxDbDays, Limits::kMinDbDays,
     kLargestTomlNumber, "days for which connections are kept", "days"},
    {Setting::kMaxQueryBytes, "max_query_bytes", Key::kMaxQueryBytes, false, Defaults::kMaxQueryBytes, 1,
     kLargestQueryLimit, "bytes that a table query may answer", "bytes"},
    {Setting::kMaxQueryRows, "max_query_rows", Key::kMaxQueryRows, false, Defaults::kMaxQueryRows, 1,
     kLargestQueryLimit, "rows that a table query may answer", "rows"},
}};

const SettingInfo* FindKey(u32 key) {
  for (const SettingInfo& info : kSettings) {
    if (info.key == key) {
      return &info;
    }
  }
  return nullptr;
}

// At most a byte more than a policy may have. False with a reason.
bool ReadAll(int descriptor, std::string& text, std::string& reason) {
  char part[16384];
  while (text.size() <= kMaxPolicySize) {
    const ssize_t size = read(descriptor, part, sizeof(part));
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size < 0) {
      reason = std::strerror(errno);
      return false;
    }
    if (size == 0) {
      return true;
    }
    text.append(part, static_cast<std::size_t>(size));
  }
  return true;
}

bool ReadRegularFile(const std::string& path, std::string& text, std::string& reason) {
  // Without O_NONBLOCK the open of a pipe would wait for a writer.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
    reason = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    reason = S_ISDIR(status.st_mode) ? "it is a folder" : "it is not a regular file";
    return false;
  }
  return ReadAll(file.Get(), text, reason);
}

// A link that leads nowhere is there, so that it is not passed over.
bool IsThere(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

}  // namespace

const std::array<SettingInfo, kSettingCount>& AllSettings() {
  return kSettings;
}

std::string SettingNames() {
  std::string names;
  for (const SettingInfo& info : kSettings) {
    names += (names.empty() ? "" : ", ") + std::string(info.name);
  }
  return names;
}

Policy::Policy() {
  for (const SettingInfo& info : kSettings) {
    values_[static_cast<std::size_t>(info.setting)].value = info.defaultValue;
  }
}

void Policy::Widen(Setting setting) {
  const auto place = static_cast<std::size_t>(setting);
  values_[place].value = kSettings[place].largest;
}

std::optional<Policy> Policy::Load(const std::string& path, std::string& error) {
  std::string document;
  std::string reason;
  if (!ReadRegularFile(path, document, reason)) {
    error = "cannot read the policy " + path + ": " + reason;
    return std::nullopt;
  }
  return Parse(document, path, error);
}

std::optional<Policy> Policy::LoadOrDefault(const std::string& path, std::string& error) {
  if (!path.empty()) {
    return Load(path, error);
  }
  const std::string usual = DefaultPath();
  return IsThere(usual) ? Load(usual, error) : Policy();
}

std::string Policy::DefaultPath() {
  if (geteuid() == 0) {
    return "/etc/ryl/netdb.toml";
  }
  const char* config = std::getenv("XDG_CONFIG_HOME");
  const bool isUsable = config != nullptr && config[0] == '/';  // a relative one is invalid and ignored
  return (isUsable ? std::string(config) : HomeFolder() + "/.config") + "/ryl/netdb.toml";
}

bool PolicySource::GetUInt64(u32 key, u64* out, u64 defaultValue, u32 /*reserved*/) {
  const SettingInfo* info = FindKey(key);
  *out = info != nullptr && !info->isSwitch ? policy_.Get(info->setting).value : defaultValue;
  return true;
}

bool PolicySource::GetBool(u32 key, bool* out, bool defaultValue, u32 /*reserved*/) {
  const SettingInfo* info = FindKey(key);
  *out = info != nullptr && info->isSwitch ? policy_.Get(info->setting).value != 0 : defaultValue;
  return true;
}

}  // namespace Host
