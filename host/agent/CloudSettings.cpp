#include "host/agent/CloudSettings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Velmar/Cloud.h"
#include "host/Descriptor.h"

namespace Host {
namespace {

constexpr std::size_t kMaxToken = 8192;

constexpr std::array<CloudSettingInfo, kCloudSettingCount> kSettings = {{
    {CloudSetting::kEndpoint, "endpoint", false},
    {CloudSetting::kCaFile, "ca_file", true},
    {CloudSetting::kTokenFile, "token_file", true},
    {CloudSetting::kProxy, "proxy", false},
}};

bool IsPrintable(char c) {
  return c > ' ' && c < 0x7F;
}

bool IsPrintableOrBlank(char c) {
  return c == ' ' || IsPrintable(c);
}

// Without O_NONBLOCK the open of a pipe would wait for a writer.
Descriptor OpenRegular(const std::string& path, struct stat& status, std::string& reason) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
    reason = std::strerror(errno);
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    reason = "it is not a regular file";
    return {};
  }
  return file;
}

// At most a byte more than a token and its line end may have.
bool ReadSome(const Descriptor& file, std::string& text, std::string& reason) {
  char part[kMaxToken];
  while (text.size() <= kMaxToken + 2) {
    const ssize_t size = read(file.Get(), part, sizeof(part));
    if (size < 0 && errno != EINTR) {
      reason = std::strerror(errno);
      return false;
    }
    if (size == 0) {
      break;
    }
    text.append(part, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  }
  return true;
}

void CutLineEnd(std::string& text) {
  if (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  if (!text.empty() && text.back() == '\r') {
    text.pop_back();
  }
}

bool CheckReadable(const std::string& path, std::string& reason) {
  struct stat status = {};
  return OpenRegular(path, status, reason).IsOpen();
}

std::string Fault(const CloudSettings& settings, const std::string& source, CloudSetting setting,
                  const std::string& sentence) {
  return source + ":" + std::to_string(settings.Get(setting).line) + ": " + sentence;
}

}  // namespace

const std::array<CloudSettingInfo, kCloudSettingCount>& AllCloudSettings() {
  return kSettings;
}

std::string CloudSettingNames() {
  std::string names;
  for (const CloudSettingInfo& info : kSettings) {
    names += (names.empty() ? "" : ", ") + std::string(info.name);
  }
  return names;
}

bool CloudSettings::Set(const CloudSettingInfo& info, const std::string& text, u32 line, std::string& sentence) {
  const bool isClean = std::all_of(text.begin(), text.end(), info.isPath ? &IsPrintableOrBlank : &IsPrintable);
  if (!isClean) {
    sentence = std::string(info.name) + " has a character that has no place in it";
    return false;
  }
  if (info.isPath && !text.empty() && text[0] != '/') {
    sentence = std::string(info.name) + " has to be an absolute path";
    return false;
  }
  values_[static_cast<std::size_t>(info.setting)] = {text, line};
  return true;
}

bool ReadToken(const std::string& path, std::string& token, std::string& error) {
  token.clear();
  struct stat status = {};
  const Descriptor file = OpenRegular(path, status, error);
  if (!file.IsOpen()) {
    return false;
  }
  if ((status.st_mode & (S_IRGRP | S_IROTH)) != 0) {
    error = "others than its owner may read it; chmod 600 mends that";
    return false;
  }
  std::string text;
  if (!ReadSome(file, text, error)) {
    return false;
  }
  CutLineEnd(text);
  if (text.empty() || text.size() > kMaxToken) {
    error = text.empty() ? "it is empty" : "it has more than 8 KiB";
    return false;
  }
  if (!std::all_of(text.begin(), text.end(), &IsPrintable)) {
    error = "it holds a blank or another character that no token has";
    return false;
  }
  token = text;
  return true;
}

bool ConfigureCloud(const CloudSettings& settings, const std::string& source, std::string& error) {
  const auto text = [&settings](CloudSetting setting) -> const std::string& { return settings.Get(setting).text; };
  const std::string& caFile = text(CloudSetting::kCaFile);
  const std::string& tokenFile = text(CloudSetting::kTokenFile);
  std::string reason;
  std::string token;
  if (!caFile.empty() && !CheckReadable(caFile, reason)) {
    error = Fault(settings, source, CloudSetting::kCaFile, "cannot read ca_file " + caFile + ": " + reason);
    return false;
  }
  if (!tokenFile.empty() && !ReadToken(tokenFile, token, reason)) {
    error = Fault(settings, source, CloudSetting::kTokenFile, "cannot use token_file " + tokenFile + ": " + reason);
    return false;
  }
  if (!Velmar::Cloud::Configure({.endpoint = text(CloudSetting::kEndpoint).c_str(),
                                 .caFile = caFile.c_str(),
                                 .bearerToken = token.c_str(),
                                 .proxy = text(CloudSetting::kProxy).c_str()})) {
    error = Fault(settings, source, CloudSetting::kEndpoint,
                  std::string("endpoint has to be https://HOST[:PORT][/PREFIX], or http:// and a loopback host") +
                      (text(CloudSetting::kProxy).empty() ? "" : " with a proxy of the same sort, or none"));
    return false;
  }
  return true;
}

}  // namespace Host
