#include "host/sql/HistoryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/Descriptor.h"

namespace Host::Sql {
namespace {

bool MakeFolder(const std::filesystem::path& folder) {
  std::error_code ignored;
  if (std::filesystem::is_directory(folder, ignored)) {
    return true;
  }
  const bool hasParent = folder.has_parent_path() && folder != folder.parent_path();
  return hasParent && MakeFolder(folder.parent_path()) && (mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST);
}

// Not open for anything but a file: a pipe there would make the shell wait.
Descriptor OpenFile(const std::string& path, int flags) {
  Descriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600));
  struct stat status = {};
  const bool good =
      file.IsOpen() && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) && fchmod(file.Get(), 0600) == 0;
  return good ? std::move(file) : Descriptor();
}

// What is no absolute path counts as not set.
std::string FolderFrom(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string ToLine(const std::string& entry) {
  std::string line;
  for (const char c : entry) {
    line += c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
  }
  return line + '\n';
}

std::string FromLine(const std::string& line) {
  std::string entry;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size()) {
      ++i;
      entry += line[i] == 'n' ? '\n' : line[i];
    } else {
      entry += line[i];
    }
  }
  return entry;
}

bool WriteAll(const Descriptor& file, const std::string& text) {
  return write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

std::string HistoryFile::UsualPath() {
  constexpr char kName[] = "/netdb/sql_history";
  const std::string state = FolderFrom("XDG_STATE_HOME");
  const std::string home = FolderFrom("HOME");
  if (!state.empty()) {
    return state + kName;
  }
  return home.empty() ? std::string() : home + "/.local/state" + kName;
}

std::vector<std::string> HistoryFile::Open() {
  const bool hasFile = !path_.empty() && MakeFolder(std::filesystem::path(path_).parent_path()) &&
                       OpenFile(path_, O_RDWR | O_CREAT).IsOpen();
  if (!hasFile) {
    path_.clear();
    return {};
  }
  std::ifstream in(path_, std::ios::binary);
  std::vector<std::string> entries;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty()) {
      entries.push_back(FromLine(line));
    }
  }
  if (entries.size() <= kMostEntries) {
    return entries;
  }
  const bool isLong = entries.size() > 2 * kMostEntries;
  entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(kMostEntries));
  if (isLong) {
    Rewrite(entries);
  }
  return entries;
}

void HistoryFile::Add(const std::string& entry) {
  const Descriptor file = path_.empty() ? Descriptor() : OpenFile(path_, O_WRONLY | O_APPEND | O_CREAT);
  if (file.IsOpen()) {
    WriteAll(file, ToLine(entry));
  }
}

void HistoryFile::Rewrite(const std::vector<std::string>& entries) {
  std::string text;
  for (const std::string& entry : entries) {
    text += ToLine(entry);
  }
  const std::string made = path_ + ".new";
  const Descriptor file = OpenFile(made, O_WRONLY | O_CREAT | O_TRUNC);
  if (file.IsOpen() && WriteAll(file, text)) {
    std::rename(made.c_str(), path_.c_str());
  }
}

}  // namespace Host::Sql
