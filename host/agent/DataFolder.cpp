#include "host/agent/DataFolder.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Velmar/OS/FileSystem.h"

namespace Host {
namespace {

// The longest name of a day file, and the longest path that a store takes.
constexpr char kLongestFileName[] = "1699920000.db.f";
constexpr std::size_t kMaxStorePath = 190;
constexpr char kLockFileName[] = "netdb.lock";

std::string Joined(const std::string& folder, const char* name) {
  return !folder.empty() && folder.back() == '/' ? folder + name : folder + "/" + name;
}

// What the holder wrote into the lock file: "PID COMMAND".
std::string HolderOf(int descriptor) {
  char text[64] = {};
  const ssize_t size = pread(descriptor, text, sizeof(text) - 1, 0);
  if (size <= 0) {
    return "another process";
  }
  std::string holder(text, static_cast<std::size_t>(size));
  holder.erase(std::min(holder.find('\n'), holder.size()));
  const std::size_t blank = holder.find(' ');
  return blank == std::string::npos
             ? "process " + holder
             : "\"netdb " + holder.substr(blank + 1) + "\" (process " + holder.substr(0, blank) + ")";
}

}  // namespace

std::string DefaultDataFolder() {
  if (geteuid() == 0) {
    return "/var/lib/ryl";
  }
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && state[0] == '/') {  // a relative one is invalid and ignored
    return Joined(state, "ryl");
  }
  return HomeFolder() + "/.local/state/ryl";
}

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') {
    return home;
  }
  const passwd* user = getpwuid(geteuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

std::string DatabaseFolder(const std::string& dataFolder) {
  return Joined(dataFolder, "netdb");
}

bool HasHistory(const std::string& dataFolder, std::string& error) {
  const std::string folder = DatabaseFolder(dataFolder);
  struct stat status = {};
  const bool isThere = stat(folder.c_str(), &status) == 0;
  if (isThere && S_ISDIR(status.st_mode)) {
    return true;
  }
  error = isThere || errno == ENOENT || errno == ENOTDIR
              ? "there is no history: the folder " + folder + " does not exist"
              : "cannot look into the folder " + folder + ": " + std::strerror(errno);
  return false;
}

bool CheckPathLength(const std::string& dataFolder, std::string& error) {
  const std::size_t length = Joined(DatabaseFolder(dataFolder), kLongestFileName).size();
  if (dataFolder.empty()) {
    error = "the data folder has no name";
  } else if (length > kMaxStorePath) {
    error = "the data folder " + dataFolder + " has too long a name: a day file in it would take " +
            std::to_string(length) + " characters, and " + std::to_string(kMaxStorePath) + " is the limit";
  }
  return !dataFolder.empty() && length <= kMaxStorePath;
}

DataFolderLock::~DataFolderLock() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

bool DataFolderLock::Take(const std::string& dataFolder, const std::string& command, std::string& error) {
  if (!Velmar::OS::FileSystem::CreateDirectory(dataFolder.c_str())) {
    error = "cannot make the data folder " + dataFolder;
    return false;
  }
  const std::string path = Joined(dataFolder, kLockFileName);
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (descriptor < 0) {
    error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    error = errno == EWOULDBLOCK ? HolderOf(descriptor) + " is writing to " + dataFolder + "; stop it first"
                                 : "cannot lock " + path + ": " + std::strerror(errno);
    close(descriptor);
    return false;
  }
  const std::string holder = std::to_string(getpid()) + " " + command + "\n";
  if (ftruncate(descriptor, 0) != 0 ||
      pwrite(descriptor, holder.data(), holder.size(), 0) != static_cast<ssize_t>(holder.size())) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    close(descriptor);
    return false;
  }
  descriptor_ = descriptor;
  return true;
}

}  // namespace Host
