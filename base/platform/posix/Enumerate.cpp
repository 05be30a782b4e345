#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "Velmar/OS/FileSystem.h"

namespace Velmar::OS {

namespace {

struct Walk {
  FileSystem::EnumerateCallback callback;
  void* context;
  bool recursive;
  bool withSizes;
  bool withDirectories;
  bool withLinks;
};

// 0 for a time before the epoch.
u64 ToMilliseconds(const struct statx_timestamp& time) {
  return time.tv_sec < 0 ? 0 : static_cast<u64>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

bool StatEntry(int folder, const char* name, int flags, struct statx& info) {
  return statx(folder, name, flags, STATX_BASIC_STATS | STATX_BTIME, &info) == 0;
}

// A file system that keeps no creation time gives the modification time.
FileTimes TimesOf(const struct statx& info) {
  FileTimes times;
  times.modified = ToMilliseconds(info.stx_mtime);
  times.accessed = ToMilliseconds(info.stx_atime);
  times.created = (info.stx_mask & STATX_BTIME) != 0 ? ToMilliseconds(info.stx_btime) : times.modified;
  return times;
}

bool WalkFolder(const char* folder, const Walk& walk, bool mayBeGone);

bool Report(const char* path, const char* name, const struct statx& info, bool isDirectory, const Walk& walk) {
  FileTimes times;
  u64 size = 0;
  if (walk.withSizes) {
    times = TimesOf(info);
    size = isDirectory ? 0 : info.stx_size;
  }
  return walk.callback(path, name, size, isDirectory, times, walk.context);
}

bool VisitEntry(const char* folder, int descriptor, const char* name, const Walk& walk) {
  struct statx info = {};
  if (!StatEntry(descriptor, name, AT_SYMLINK_NOFOLLOW, info)) {
    return errno == ENOENT;
  }
  bool isLink = S_ISLNK(info.stx_mode);
  if (isLink && !walk.withLinks) {
    return true;
  }
  if (isLink && !StatEntry(descriptor, name, 0, info)) {
    return errno == ENOENT || errno == ELOOP;
  }
  bool isDirectory = S_ISDIR(info.stx_mode);
  char area[512];
  Utils::String path;
  const char* separator = folder[std::strlen(folder) - 1] == '/' ? "" : "/";
  if (!path.Create(area, sizeof(area), true, true) || !path.SetFormat("%s%s%s", folder, separator, name)) {
    return false;
  }
  if ((!isDirectory || walk.withDirectories) && !Report(path.text, name, info, isDirectory, walk)) {
    return false;
  }
  // A folder behind a link is not entered, so that the walk ends.
  return !isDirectory || isLink || !walk.recursive || WalkFolder(path.text, walk, true);
}

bool WalkEntries(const char* folder, DIR* stream, const Walk& walk) {
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream);
    if (entry == nullptr) {
      return errno == 0;
    }
    bool isSelfOrParent = std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0;
    if (!isSelfOrParent && !VisitEntry(folder, dirfd(stream), entry->d_name, walk)) {
      return false;
    }
  }
}

bool WalkFolder(const char* folder, const Walk& walk, bool mayBeGone) {
  DIR* stream = opendir(folder);
  if (stream == nullptr) {
    return mayBeGone && errno == ENOENT;
  }
  bool done = WalkEntries(folder, stream, walk);
  closedir(stream);
  return done;
}

}  // namespace

bool FileSystem::EnumerateFiles(Utils::String& folder, bool recursive, EnumerateCallback callback, void* context,
                                bool withSizes, bool withDirectories, bool withLinks) {
  Walk walk = {callback, context, recursive, withSizes, withDirectories, withLinks};
  return folder.length > 0 && callback != nullptr && WalkFolder(folder.text, walk, false);
}

}  // namespace Velmar::OS
