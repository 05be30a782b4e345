#include "Velmar/OS/Path.h"

#include <cstring>

#include "platform/PathRules.h"

namespace Velmar::OS {

namespace {

using Utils::String;

constexpr u32 kMaxVariables = 16;
constexpr int kTypicalPath = 512;

struct Variable {
  String name;
  String value;
};

struct Variables {
  Variable items[kMaxVariables];
  u32 count = 0;
};

Variables& GetVariables() {
  static Variables variables;
  return variables;
}

Variable* FindVariable(const char* name, std::size_t nameLength) {
  Variables& variables = GetVariables();
  for (u32 i = 0; i < variables.count; ++i) {
    const String& known = variables.items[i].name;
    if (static_cast<std::size_t>(known.length) == nameLength && std::memcmp(known.text, name, nameLength) == 0) {
      return &variables.items[i];
    }
  }
  return nullptr;
}

// Appends `path` with the values in place of "${name}". A value is taken as it is; an opening without an end is text.
bool AppendExpanded(String& out, const char* path) {
  for (;;) {
    const char* const opening = std::strstr(path, "${");
    const char* const closing = opening == nullptr ? nullptr : std::strchr(opening, '}');
    if (closing == nullptr) {
      return out.Add(path);
    }
    const char* const name = opening + 2;
    const Variable* variable = FindVariable(name, static_cast<std::size_t>(closing - name));
    if (variable == nullptr || !out.Add(path, static_cast<int>(opening - path)) ||
        !out.Add(variable->value.text, variable->value.length)) {
      return false;
    }
    path = closing + 1;
  }
}

// Leaves one separator at the end of a path that is more than separators, none on an empty one.
bool EndWithSeparator(String& path) {
  int end = path.length;
  while (end > 0 && Path::IsPathSeparator(path.text[end - 1])) {
    --end;
  }
  if (end == 0) {
    return true;
  }
  return path.Truncate(end) && path.AddChar(PathRules::kSeparator);
}

bool AppendElement(String& path, const char* element) {
  if (path.length == 0) {
    return path.Add(element);
  }
  while (Path::IsPathSeparator(*element)) {
    ++element;
  }
  return *element == '\0' || (EndWithSeparator(path) && path.Add(element));
}

bool AppendElement(String& path, const char* element, bool expand) {
  if (element == nullptr) {
    return false;
  }
  if (!expand) {
    return AppendElement(path, element);
  }
  char area[kTypicalPath];
  String expanded;
  expanded.Create(area, sizeof(area), true, true);
  return AppendExpanded(expanded, element) && AppendElement(path, expanded.text);
}

}  // namespace

bool Path::SetVariable(const char* name, const char* value) {
  if (name == nullptr || *name == '\0' || value == nullptr) {
    return false;
  }
  if (Variable* known = FindVariable(name, std::strlen(name)); known != nullptr) {
    return known->value.Set(value);
  }
  Variables& variables = GetVariables();
  if (variables.count == kMaxVariables) {
    return false;
  }
  Variable& added = variables.items[variables.count];
  if (!added.name.Set(name) || !added.value.Set(value)) {
    return false;
  }
  ++variables.count;
  return true;
}

bool Path::Join(String& out, const char* a, bool expand) {
  char area[kTypicalPath];
  String joined;
  joined.Create(area, sizeof(area), true, true);
  return joined.Set(&out) && AppendElement(joined, a, expand) && out.Set(&joined);
}

bool Path::Join(String& out, const String& a, bool expand) {
  return Join(out, a.text, expand);
}

bool Path::Join(String& out, const char* a, const char* b, bool expand) {
  char area[kTypicalPath];
  String joined;
  joined.Create(area, sizeof(area), true, true);
  return AppendElement(joined, a, expand) && AppendElement(joined, b, expand) && out.Set(&joined);
}

bool Path::Join(String& out, const String& a, const String& b, bool expand) {
  return Join(out, a.text, b.text, expand);
}

const char* Path::GetFileName(const char* path) {
  const char* name = path;
  for (; path != nullptr && *path != '\0'; ++path) {
    if (IsPathSeparator(*path)) {
      name = path + 1;
    }
  }
  return name;
}

bool Path::Normalize(String& path) {
  char area[kTypicalPath];
  String clean;
  clean.Create(area, sizeof(area), true, true);
  const int pair = PathRules::kKeepsLeadingPair ? 1 : 0;
  for (int i = 0; i < path.length; ++i) {
    const bool isSeparator = IsPathSeparator(path.text[i]);
    if (isSeparator && i > pair && IsPathSeparator(path.text[i - 1])) {
      continue;
    }
    if (!clean.AddChar(isSeparator ? PathRules::kSeparator : path.text[i])) {
      return false;
    }
  }
  return path.Set(&clean);
}

bool Path::RemoveLast(String& path, bool keepSeparator) {
  int end = path.length;
  while (end > 0 && IsPathSeparator(path.text[end - 1])) {
    --end;
  }
  if (end == 0) {
    return false;
  }
  while (end > 0 && !IsPathSeparator(path.text[end - 1])) {
    --end;
  }
  int parent = end;
  while (parent > 0 && IsPathSeparator(path.text[parent - 1])) {
    --parent;
  }
  // The root's separator is its name.
  const bool keeps = (keepSeparator || parent == 0) && end > 0;
  return path.Truncate(keeps ? parent + 1 : parent);
}

bool Path::IsPathSeparator(char c) {
  return PathRules::IsSeparator(c);
}

}  // namespace Velmar::OS
