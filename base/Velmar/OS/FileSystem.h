// FileSystem: existence, creation, deletion, renaming and listing of files. All static, all thread-safe.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "platform/Export.h"

namespace Velmar::OS {

// Times of a file, epoch milliseconds.
struct FileTimes {
  u64 created = 0;
  u64 modified = 0;
  u64 accessed = 0;
};

class RYL_API FileSystem {
 public:
  // `path` is the entry's full path, `name` its last element. `isDirectory` as it says. False stops the walk.
  using EnumerateCallback = bool (*)(const char* path, const char* name, u64 size, bool isDirectory, FileTimes& times,
                                     void* context);

  // The bool is always false: links are followed.
  static bool FileExists(const char* path, bool noFollow);
  static bool DirectoryExists(const char* path, bool noFollow);
  static bool DirectoryExists(const Utils::String& path, bool noFollow);
  // Mode 0700. Missing parents are made. True if the directory is there afterwards. The folder above a new one is
  // synced; when only that failed the result is true, with a level 3 record.
  static bool CreateDirectory(const char* path);
  // True if no such file is there afterwards; false for a null or empty path. Called with false and null.
  static bool DeleteFile(const char* path, bool force, bool (*confirm)(const char*));
  static bool DeleteFile(Utils::String& path, bool force, bool (*confirm)(const char*));
  // Renames. Never replaces: false if `to` exists. The folder is synced; when the rename worked and only that sync
  // failed the result is true, with a level 3 record.
  static bool MoveFile(const char* from, const char* to);
  static bool IsFileSystemCaseSensitive();
  // Calls `callback` for each entry of `folder`, in the order that the system gives. False when the folder cannot be
  // read or the callback stopped the walk. Called with false, context, true, true, false. An entry that vanishes
  // meanwhile is passed over.
  static bool EnumerateFiles(Utils::String& folder, bool recursive, EnumerateCallback callback, void* context,
                             bool withSizes, bool withDirectories, bool withLinks);
};

}  // namespace Velmar::OS
