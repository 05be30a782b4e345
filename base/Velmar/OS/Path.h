// Path: joining and taking apart of file paths. All static, thread-safe but for SetVariable.
#pragma once

#include "Velmar/Types.h"
#include "Velmar/Utils/String.h"
#include "platform/Export.h"

namespace Velmar::OS {

// `expand` asks for variable references such as "${P}" to be replaced; it is on wherever a path may hold one.
// Every operation that writes a String returns false on exhaustion.
class RYL_API Path {
 public:
  // Sets what "${name}" stands for. Called by the host before it starts a module; not to be called beside Join.
  // False on exhaustion or when there are 16 variables already.
  static bool SetVariable(const char* name, const char* value);

  // Appends `a` as an element: one separator between, none doubled. An unknown variable fails.
  static bool Join(Utils::String& out, const char* a, bool expand);
  static bool Join(Utils::String& out, const Utils::String& a, bool expand);
  // Sets `out` to `a` and `b` joined.
  static bool Join(Utils::String& out, const char* a, const char* b, bool expand);
  static bool Join(Utils::String& out, const Utils::String& a, const Utils::String& b, bool expand);
  // Pointer into `path` behind the last separator.
  static const char* GetFileName(const char* path);
  // Doubled separators become one; on Windows "/" becomes "\".
  static bool Normalize(Utils::String& path);
  // Drops the last element and the separator before it; with `keepSeparator` the separator stays.
  static bool RemoveLast(Utils::String& path, bool keepSeparator);
  static bool IsPathSeparator(char c);
};

}  // namespace Velmar::OS
