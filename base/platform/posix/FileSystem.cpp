#include "Velmar/OS/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "BaseLog.h"

namespace Velmar::OS {

namespace {

constexpr mode_t kFolderMode = 0700;

bool StatPath(const char* path, bool noFollow, struct stat& info) {
  return path != nullptr && (noFollow ? lstat(path, &info) : stat(path, &info)) == 0;
}

// The folder part of `path`, "." or "/" where there is no name in it. False when it does not fit.
bool FolderOf(const char* path, char (&folder)[PATH_MAX]) {
  const char* separator = std::strrchr(path, '/');
  if (separator == nullptr) {
    std::strcpy(folder, ".");
    return true;
  }
  std::size_t length = separator == path ? 1 : static_cast<std::size_t>(separator - path);
  if (length >= sizeof(folder)) {
    return false;
  }
  std::memcpy(folder, path, length);
  folder[length] = '\0';
  return true;
}

bool SyncFolder(const char* folder) {
  int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) {
    return false;
  }
  int result = 0;
  do {
    result = fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  close(descriptor);
  return result == 0;
}

// The target's folder first: a crash between the two then leaves two names rather than none.
bool SyncFoldersOfMove(const char* from, const char* to) {
  char source[PATH_MAX];
  char target[PATH_MAX];
  if (!FolderOf(from, source) || !FolderOf(to, target) || !SyncFolder(target)) {
    return false;
  }
  return std::strcmp(source, target) == 0 || SyncFolder(source);
}

// For file systems without an exclusive rename. What another process puts at `to` between the two steps is replaced. A
// link and an unlink would see it, but cut off between them they leave one file under both names, and the next save
// through `from` would overwrite in place what stands at `to`.
bool RenameWhereNothingIs(const char* from, const char* to) {
  struct stat info = {};
  return !StatPath(to, true, info) && errno == ENOENT && rename(from, to) == 0;
}

bool RenameWithoutReplacing(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
    return true;
  }
  return (errno == EINVAL || errno == ENOSYS) && RenameWhereNothingIs(from, to);
}

// What is saved in a new folder is only as durable as the folder's own name.
bool MakeOneFolder(const char* path) {
  if (mkdir(path, kFolderMode) != 0) {
    return FileSystem::DirectoryExists(path, false);
  }
  char parent[PATH_MAX];
  if (!FolderOf(path, parent) || !SyncFolder(parent)) {
    RYL_LOG(base, FolderSyncFailed, path);
  }
  return true;
}

}  // namespace

bool FileSystem::FileExists(const char* path, bool noFollow) {
  struct stat info = {};
  return StatPath(path, noFollow, info) && !S_ISDIR(info.st_mode);
}

bool FileSystem::DirectoryExists(const char* path, bool noFollow) {
  struct stat info = {};
  return StatPath(path, noFollow, info) && S_ISDIR(info.st_mode);
}

bool FileSystem::DirectoryExists(const Utils::String& path, bool noFollow) {
  return DirectoryExists(path.text, noFollow);
}

bool FileSystem::CreateDirectory(const char* path) {
  char folder[PATH_MAX];
  std::size_t length = path == nullptr ? 0 : std::strlen(path);
  if (length == 0 || length >= sizeof(folder)) {
    return false;
  }
  std::memcpy(folder, path, length + 1);
  for (std::size_t i = 1; i < length; ++i) {
    if (folder[i] != '/') {
      continue;
    }
    folder[i] = '\0';
    bool made = MakeOneFolder(folder);
    folder[i] = '/';
    if (!made) {
      return false;
    }
  }
  return MakeOneFolder(folder);
}

// Removing a name needs no right on the file itself, so that there is nothing to force.
bool FileSystem::DeleteFile(const char* path, bool /*force*/, bool (*confirm)(const char*)) {
  if (path == nullptr || *path == '\0' || (confirm != nullptr && !confirm(path))) {
    return false;
  }
  return unlink(path) == 0 || errno == ENOENT || errno == ENOTDIR;
}

bool FileSystem::DeleteFile(Utils::String& path, bool force, bool (*confirm)(const char*)) {
  return DeleteFile(path.text, force, confirm);
}

bool FileSystem::MoveFile(const char* from, const char* to) {
  if (from == nullptr || to == nullptr || !RenameWithoutReplacing(from, to)) {
    return false;
  }
  if (!SyncFoldersOfMove(from, to)) {
    RYL_LOG(base, FolderSyncFailed, to);
  }
  return true;
}

bool FileSystem::IsFileSystemCaseSensitive() {
  return true;
}

}  // namespace Velmar::OS
