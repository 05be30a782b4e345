#include "host/sql/HistoryFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
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

// What is no absolute path counts as not set.
std::string FolderFrom(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

}  // namespace

std::string HistoryFilePath() {
  constexpr char kName[] = "/netdb/sql_history";
  const std::string state = FolderFrom("XDG_STATE_HOME");
  const std::string home = FolderFrom("HOME");
  if (!state.empty()) {
    return state + kName;
  }
  return home.empty() ? std::string() : home + "/.local/state" + kName;
}

bool PrepareHistoryFile(const std::string& path) {
  if (path.empty() || !MakeFolder(std::filesystem::path(path).parent_path())) {
    return false;
  }
  const Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600));
  struct stat status = {};
  return file.Get() >= 0 && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode) && fchmod(file.Get(), 0600) == 0;
}

}  // namespace Host::Sql
