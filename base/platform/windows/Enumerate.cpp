#include "Velmar/OS/FileSystem.h"
#include "platform/windows/WindowsPath.h"

namespace Velmar::OS {

namespace {

// A name has up to 259 UTF-16 units, each of up to 3 bytes.
constexpr int kNameSize = 3 * MAX_PATH;

struct Walk {
  FileSystem::EnumerateCallback callback;
  void* context;
  bool recursive;
  bool withSizes;
  bool withDirectories;
  bool withLinks;
};

struct Entry {
  bool isDirectory;
  u64 size;
  FileTimes times;
};

bool Join(Utils::String& out, const char* folder, int folderLength, const char* name) {
  char last = folder[folderLength - 1];
  bool separated = last == '\\' || last == '/';
  return out.SetFormat("%s%s%s", folder, separated ? "" : "\\", name);
}

bool IsLink(const WIN32_FIND_DATAW& found) {
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         (found.dwReserved0 == IO_REPARSE_TAG_SYMLINK || found.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT);
}

Entry Describe(const WIN32_FIND_DATAW& found) {
  return {(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
          Platform::JoinHalves(found.nFileSizeHigh, found.nFileSizeLow),
          {Platform::ToEpochMilliseconds(found.ftCreationTime), Platform::ToEpochMilliseconds(found.ftLastWriteTime),
           Platform::ToEpochMilliseconds(found.ftLastAccessTime)}};
}

// False when the link leads nowhere.
bool DescribeTarget(const char* path, Entry& entry) {
  Platform::WidePath wide(path);
  BY_HANDLE_FILE_INFORMATION information = {};
  if (!Platform::DescribePath(wide.Text(), false, information)) {
    return false;
  }
  entry.isDirectory = Platform::IsFolder(information);
  entry.size = Platform::JoinHalves(information.nFileSizeHigh, information.nFileSizeLow);
  return true;
}

bool WalkFolder(const Utils::String& folder, const Walk& walk, bool mayBeGone);

bool VisitEntry(const Utils::String& folder, const char* name, const WIN32_FIND_DATAW& found, const Walk& walk) {
  bool isLink = IsLink(found);
  if (isLink && !walk.withLinks) {
    return true;
  }
  char area[512];
  Utils::String path;
  if (!path.Create(area, sizeof(area), true, true) || !Join(path, folder.text, folder.length, name)) {
    return false;
  }
  Entry entry = Describe(found);
  if (isLink && !DescribeTarget(path.text, entry)) {
    return true;
  }
  FileTimes times = walk.withSizes ? entry.times : FileTimes();
  u64 size = walk.withSizes && !entry.isDirectory ? entry.size : 0;
  if ((!entry.isDirectory || walk.withDirectories) &&
      !walk.callback(path.text, name, size, entry.isDirectory, times, walk.context)) {
    return false;
  }
  // A folder behind a link is not entered, so that the walk ends.
  return !entry.isDirectory || isLink || !walk.recursive || WalkFolder(path, walk, true);
}

bool IsSelfOrParent(const char* name) {
  return Utils::String::Equals(name, ".", false) || Utils::String::Equals(name, "..", false);
}

bool WalkEntries(const Utils::String& folder, HANDLE search, WIN32_FIND_DATAW& found, const Walk& walk) {
  do {
    char name[kNameSize];
    // A name that is no valid UTF-16 has no UTF-8 form that would lead back to it.
    int size =
        WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, found.cFileName, -1, name, kNameSize, nullptr, nullptr);
    if (size > 0 && !IsSelfOrParent(name) && !VisitEntry(folder, name, found, walk)) {
      return false;
    }
  } while (FindNextFileW(search, &found) != 0);
  return GetLastError() == ERROR_NO_MORE_FILES;
}

bool WalkFolder(const Utils::String& folder, const Walk& walk, bool mayBeGone) {
  char area[512];
  Utils::String pattern;
  if (!pattern.Create(area, sizeof(area), true, true) || !Join(pattern, folder.text, folder.length, "*")) {
    return false;
  }
  Platform::WidePath wide(pattern.text);
  if (wide.Text() == nullptr) {
    return false;
  }
  WIN32_FIND_DATAW found = {};
  HANDLE search = FindFirstFileExW(wide.Text(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
  if (search == INVALID_HANDLE_VALUE) {
    DWORD error = GetLastError();
    // An empty root has not even an entry for itself.
    return error == ERROR_FILE_NOT_FOUND || (mayBeGone && error == ERROR_PATH_NOT_FOUND);
  }
  bool done = WalkEntries(folder, search, found, walk);
  FindClose(search);
  return done;
}

}  // namespace

bool FileSystem::EnumerateFiles(Utils::String& folder, bool recursive, EnumerateCallback callback, void* context,
                                bool withSizes, bool withDirectories, bool withLinks) {
  Walk walk = {callback, context, recursive, withSizes, withDirectories, withLinks};
  return folder.length > 0 && callback != nullptr && WalkFolder(folder, walk, false);
}

}  // namespace Velmar::OS
