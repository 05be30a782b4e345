#include "host/reputation/ListFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include "host/Descriptor.h"
#include "host/reputation/ListText.h"
#include "host/text/Utf8.h"

namespace Host::Reputation {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxFileSize = 256 * 1024 * 1024;

bool HasListName(const fs::path& path) {
  const std::string extension = path.extension().string();
  return path.filename().string()[0] != '.' && (extension == ".txt" || extension == ".list" || extension == ".json");
}

// The lists of a folder, by name.
bool ListFolder(const std::string& folder, std::vector<std::string>& files, std::string& reason) {
  std::error_code error;
  std::vector<std::string> found;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code ignored;
    if (HasListName(entry->path()) && !entry->is_directory(ignored)) {
      found.push_back(entry->path().string());
    }
  }
  if (error) {
    reason = error.message();
    return false;
  }
  std::sort(found.begin(), found.end());
  files.insert(files.end(), found.begin(), found.end());
  return true;
}

bool ReadFile(const std::string& path, std::string& text, std::string& reason) {
  // Without O_NONBLOCK the open of a pipe would wait for a writer.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status = {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
    reason = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    reason = "it is not a regular file";
    return false;
  }
  std::vector<char> part(65536);
  while (text.size() <= kMaxFileSize) {
    const ssize_t size = read(file.Get(), part.data(), part.size());
    if (size < 0 && errno != EINTR) {
      reason = std::strerror(errno);
      return false;
    }
    if (size == 0) {
      return true;
    }
    text.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  }
  reason = "it has more than 256 MiB";
  return false;
}

void ReportFaults(const std::string& name, const ListContent& content, const Report& report) {
  for (const ListFault& fault : content.faults) {
    report(name + ":" + std::to_string(fault.line) + ": " + fault.sentence);
  }
  if (content.faultCount > content.faults.size()) {
    report(name + ": and " + std::to_string(content.faultCount - content.faults.size()) + " more such entries");
  }
}

bool LoadFile(const std::string& path, std::vector<Network>& networks, const Report& report, std::string& error) {
  const std::string name = Text::ToPrintable(path);
  std::string text;
  std::string reason;
  if (!ReadFile(path, text, reason)) {
    error = "cannot read the list " + name + ": " + reason;
    return false;
  }
  ListContent content;
  if (!ReadList(text, content)) {
    error = name + ":" + std::to_string(content.faults[0].line) + ": " + content.faults[0].sentence;
    return false;
  }
  if (!content.leftOut.empty()) {
    report(name + ": " + content.leftOut + "; it is left out");
  }
  ReportFaults(name, content, report);
  networks.insert(networks.end(), content.networks.begin(), content.networks.end());
  return true;
}

bool FindFiles(const std::vector<std::string>& paths, std::vector<std::string>& files, std::string& error) {
  for (const std::string& path : paths) {
    std::error_code ignored;
    std::string reason;
    if (!fs::is_directory(path, ignored)) {
      files.push_back(path);
    } else if (!ListFolder(path, files, reason)) {
      error = "cannot list the folder " + Text::ToPrintable(path) + ": " + reason;
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<LoadedLists> LoadLists(const std::vector<std::string>& paths, const Report& report, std::string& error) {
  std::vector<std::string> files;
  std::vector<Network> networks;
  if (!FindFiles(paths, files, error)) {
    return std::nullopt;
  }
  for (const std::string& file : files) {
    if (!LoadFile(file, networks, report, error)) {
      return std::nullopt;
    }
  }
  if (networks.empty()) {
    error = "the lists hold no network";
    return std::nullopt;
  }
  return LoadedLists{AddressList(std::move(networks)), files.size()};
}

}  // namespace Host::Reputation
