#include "Velmar/OS/FileSystem.h"

#include "platform/windows/WindowsPath.h"

namespace Velmar::OS {

namespace {

using Platform::DescribePath;
using Platform::IsFolder;
using Platform::WidePath;

bool MakeOneFolder(const char* path) {
  WidePath wide(path);
  BY_HANDLE_FILE_INFORMATION information = {};
  return wide.Text() != nullptr && (CreateDirectoryW(wide.Text(), nullptr) != 0 ||
                                    (DescribePath(wide.Text(), false, information) && IsFolder(information)));
}

bool IsSeparator(char c) {
  return c == '\\' || c == '/';
}

bool Remove(const wchar_t* path) {
  if (DeleteFileW(path) != 0) {
    return true;
  }
  DWORD error = GetLastError();
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

}  // namespace

bool FileSystem::FileExists(const char* path, bool noFollow) {
  WidePath wide(path);
  BY_HANDLE_FILE_INFORMATION information = {};
  return DescribePath(wide.Text(), noFollow, information) && !IsFolder(information);
}

bool FileSystem::DirectoryExists(const char* path, bool noFollow) {
  WidePath wide(path);
  BY_HANDLE_FILE_INFORMATION information = {};
  return DescribePath(wide.Text(), noFollow, information) && IsFolder(information);
}

bool FileSystem::DirectoryExists(const Utils::String& path, bool noFollow) {
  return DirectoryExists(path.text, noFollow);
}

// A new folder takes its rights from the one above it. That a drive or a share cannot be made is no failure: what is
// below it tells whether it is there.
bool FileSystem::CreateDirectory(const char* path) {
  char area[512];
  Utils::String folder;
  if (path == nullptr || *path == '\0' || !folder.Create(area, sizeof(area), true, true)) {
    return false;
  }
  for (int i = 1; path[i] != '\0'; ++i) {
    bool isBetween = IsSeparator(path[i]) && !IsSeparator(path[i - 1]);
    if (isBetween && !folder.Set(path, i)) {
      return false;
    }
    if (isBetween) {
      MakeOneFolder(folder.text);
    }
  }
  return MakeOneFolder(path);
}

bool FileSystem::DeleteFile(const char* path, bool force, bool (*confirm)(const char*)) {
  WidePath wide(path);
  if (wide.Text() == nullptr || (confirm != nullptr && !confirm(path))) {
    return false;
  }
  // A file that is marked read-only cannot be deleted as it stands.
  return Remove(wide.Text()) ||
         (force && SetFileAttributesW(wide.Text(), FILE_ATTRIBUTE_NORMAL) != 0 && Remove(wide.Text()));
}

bool FileSystem::DeleteFile(Utils::String& path, bool force, bool (*confirm)(const char*)) {
  return DeleteFile(path.text, force, confirm);
}

// Written through: the call returns when the rename is on the disk, so that there is no folder to sync, and a rename
// that could not be written fails as a whole.
bool FileSystem::MoveFile(const char* from, const char* to) {
  WidePath source(from);
  WidePath target(to);
  return source.Text() != nullptr && target.Text() != nullptr &&
         MoveFileExW(source.Text(), target.Text(), MOVEFILE_WRITE_THROUGH) != 0;
}

bool FileSystem::IsFileSystemCaseSensitive() {
  return false;
}

}  // namespace Velmar::OS
